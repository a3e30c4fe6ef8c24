// Gives back what the C++ runtime that is linked into this library took when it was loaded.
//
// libstdc++ reserves about 90 KB for throwing exceptions without memory. It expects to be unloaded with its process,
// never alone, so a host that loads and unloads this library again and again would lose that much every time.
namespace __gnu_cxx {
void __freeres();  // NOLINT(misc-use-internal-linkage): it is the runtime's own, which no header declares
}

namespace {

// The lowest priority: after every other destructor of the library.
[[gnu::destructor(101)]] void ReturnRuntimeMemory() { __gnu_cxx::__freeres(); }

}  // namespace
