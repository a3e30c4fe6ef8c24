// Gives back what the C++ runtime, which is linked into this library, took from the process while it was loaded.
//
// MinGW's runtime expects to go with its process, never alone. A host that loads and unloads the library would lose
// about 90 KB each time (kept for throwing exceptions without memory), two handles and a record of the thread that
// unloads it, and one of the process's 1,088 thread-local slots, after the last of which the runtime ends the process.
// Guarded by LoadUnload.
//
// Two small blocks (48 bytes) stay: locks inside the runtime that nobody can reach. So do two handles and a record for
// every other thread that has called the library and is still there when it goes.
//
// The thread library ends the process where the record of a thread gets no handle or no slot. It makes records while
// the library is loaded and, on another thread, unloaded; the host is not to end by that. Guarded by
// LibraryEveryImport.FailsWhileItIsLoadedAndUnloaded.
#include <windows.h>

#include <pthread.h>

#include <array>
#include <cstdlib>
#include <utility>

#include "FwClient/Service/QeLaLib/RuntimeThrow.h"

namespace __gnu_cxx {
void __freeres();  // NOLINT(misc-use-internal-linkage): it is the runtime's own, which no header declares
}

extern "C" const IMAGE_TLS_DIRECTORY _tls_used;

namespace {

bool g_processEnds = false;
bool g_inEntry = true;  // from the first instruction to DllMain, and while a record is made for the end

std::array<void*, 64 + 1024> g_slots;

// What the system does when a thread ends: the runtime then closes the handles that it keeps for the thread.
void EndThisThreadForTheRuntime() noexcept {
  const auto* callback = reinterpret_cast<const PIMAGE_TLS_CALLBACK*>(_tls_used.AddressOfCallBacks);
  for (; *callback != nullptr; ++callback) (*callback)(nullptr, DLL_THREAD_DETACH, nullptr);
}

// The lowest priority: after every other destructor of the library.
[[gnu::destructor(101)]] void CleanUp() noexcept {
  // Threads that were ended in the middle may hold the runtime's locks for ever; and all goes with the process anyway.
  if (g_processEnds) return;
  const DWORD error = ::GetLastError();  // which reading a slot clears
  g_inEntry = true;
  static_cast<void>(::pthread_self());  // makes the record if there is none yet
  g_inEntry = false;
  // The runtime has one slot, for its record of the thread, and does not tell which: it is the one that is emptied
  // when the thread ends. The record goes into a list for later threads, of which there are none.
  for (DWORD slot = 0; void*& value : g_slots) value = ::TlsGetValue(slot++);
  EndThisThreadForTheRuntime();
  for (DWORD next = 0; void* const value : g_slots) {
    const DWORD slot = next++;
    if (value == nullptr || ::TlsGetValue(slot) != nullptr) continue;
    ::TlsFree(slot);
    std::free(value);
  }
  __gnu_cxx::__freeres();
  ::SetLastError(error);
}

}  // namespace

// The linker puts this in the place of abort, which itself is the entry of the import table. In the module's entry it
// ends no more than that, by an exception: the system's loader takes it for a load that has failed, and unloads all the
// same.
extern "C" void (*__imp_abort)();
extern "C" [[noreturn]] void __wrap_abort() {
  constexpr DWORD kNoMemory = 0xC0000017;  // STATUS_NO_MEMORY
  if (std::exchange(g_inEntry, false)) ::RaiseException(kNoMemory, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  __imp_abort();
  __builtin_unreachable();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* reserved) {
  g_inEntry = false;
  if (reason == DLL_PROCESS_DETACH) g_processEnds = reserved != nullptr;
  return reason != DLL_PROCESS_ATTACH || CanThrowWithoutMemory();
}
