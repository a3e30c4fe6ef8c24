// Makes the C++ runtime ready while the library loads.
//
// MinGW's runtime allocates a little memory at the first function-local static and at the first use of a locale in a
// process, and does not look whether it got any: where memory has run out it crashes. At load that fails the load
// (Wine's loader takes a crash in a library's entry for that; none of the load's allocations ends the host, see
// LoadWithoutMemory); later it would end the service instead of throwing std::bad_alloc. Guarded by
// FailureInjection.ConstructionInGetQeLaApiIsTriedAgainByTheNextCall.
#include <windows.h>

#include <locale>

namespace {

bool WarmUp() noexcept {
  static const DWORD process = ::GetCurrentProcessId();  // anything that is not known when compiling
  static_cast<void>(std::locale::classic());
  return process != 0;
}

[[maybe_unused]] const bool g_warm = WarmUp();

}  // namespace
