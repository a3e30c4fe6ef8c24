// Lets the C++ runtime throw where memory has run out, on every thread and from the first time on.
//
// As it comes, MinGW's runtime needs memory of its own for that: for the lock of its reserve, which is made when it is
// first locked, and for each thread's record of its exceptions, which is made at the thread's first throw. Without it
// the process ends instead of getting its std::bad_alloc. Guarded by GoneForGood and ThreadWithoutMemoryForGood.
#include "FwClient/Service/QeLaLib/RuntimeThrow.h"

#include <windows.h>

#include <pthread.h>

#include <cxxabi.h>
#include <cstddef>
#include <cstdint>

extern "C" const IMAGE_TLS_DIRECTORY _tls_used;

namespace {

// What the runtime keeps for a thread, as the C++ ABI lays it out.
struct ExceptionRecord {
  void* caught;
  unsigned int uncaught;
};

// The section is the image's template of what each thread has: the system makes every thread's copy, for threads that
// are there already when it loads the image, and for a later one before it starts. So a thread that runs has its
// record, and it is the load, or the making of the thread, that fails without memory.
[[gnu::section(".tls$QeLa"), gnu::used]] constinit ExceptionRecord g_template{};

ExceptionRecord* OfThisThread() noexcept {
  // The thread's table of such copies, one an image. Where it lies is part of the platform's binary interface: other
  // compilers spell it out in the code for every thread_local variable; this one asks its runtime, which allocates.
  std::byte* const* copies = nullptr;
  asm("movq %%gs:0x58, %0" : "=r"(copies));
  const auto* index = reinterpret_cast<const ULONG*>(_tls_used.AddressOfIndex);
  const std::size_t offset = reinterpret_cast<std::uintptr_t>(&g_template) - _tls_used.StartAddressOfRawData;
  return reinterpret_cast<ExceptionRecord*>(copies[*index] + offset);
}

}  // namespace

namespace __cxxabiv1 {

// In the place of the runtime's own two.
extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept {
  return reinterpret_cast<__cxa_eh_globals*>(OfThisThread());
}
extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept { return __cxa_get_globals(); }

}  // namespace __cxxabiv1

namespace {

// The runtime's reserve, from its first member, the lock, to its memory. The order is that of the runtime and nowhere
// declared; FailsOrGivesALibraryThatWorksAndNeverEndsTheHost tells when a new compiler has another.
struct Reserve {
  pthread_mutex_t lock;
  void* firstFree;
  void* memory;
};
const Reserve* g_reserve = nullptr;
bool g_lockMade = false;

}  // namespace

// The linker puts this in the place of pthread_mutex_init, which leaves a mutex to be made when it is first locked. The
// first to call it is the reserve, while the library loads; it does not look at the result.
extern "C" int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
extern "C" int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  int error = __real_pthread_mutex_init(mutex, attributes);
  if (error == 0) error = ::pthread_mutex_lock(mutex);
  if (error == 0) error = ::pthread_mutex_unlock(mutex);
  if (g_reserve == nullptr) {
    g_reserve = reinterpret_cast<const Reserve*>(mutex);
    g_lockMade = error == 0;
  }
  return error;
}

bool CanThrowWithoutMemory() noexcept { return g_lockMade && g_reserve->memory != nullptr; }
