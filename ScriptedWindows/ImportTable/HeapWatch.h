// Counts what one module allocates on one thread, and lets allocations fail.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <initializer_list>
#include <optional>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

// Watches the module's own code, for the thread that makes it: malloc, calloc,
// realloc and free (and so operator new and delete), HeapAlloc and HeapFree. One watch at a time. Objects that are made
// under a watch must be destroyed under it, or BlocksLeft() counts them.
class HeapWatch {
 public:
  explicit HeapWatch(HMODULE module);
  ~HeapWatch();
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;

  // Which allocations fail once a failure is due: that one alone, or it and all later ones, as when memory is gone.
  enum class Failing { kOnce, kFromThenOn };

  // The allocation number `n` from now on fails; 0 is the next. The thread that calls this is the watched one from now
  // on: a test that made the watch can let a thread of the module fail, in a fake that this thread calls.
  void FailAt(std::size_t n, Failing failing = Failing::kOnce);

  // Ends FailAt, from any thread. Returns whether an allocation has failed.
  bool StopFailing();

  std::size_t Allocations() const;
  std::size_t BytesAskedFor() const;  // the sum over all allocations, freed or not
  std::ptrdiff_t BlocksLeft() const;  // allocated and not freed

  // While one lives on the watched thread, nothing is counted and nothing fails: for fakes in the same module, which
  // need memory too. Does nothing on other threads and without a watch.
  class Pause {
   public:
    Pause() noexcept;
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    DWORD m_thread;  // that it pauses; 0 for none
  };

 private:
  ImportPatch m_malloc;
  ImportPatch m_calloc;
  ImportPatch m_realloc;
  ImportPatch m_free;
  std::optional<ImportPatch> m_heapAlloc;  // of a module that asks for the system's heap itself
  std::optional<ImportPatch> m_heapFree;
};

// Calls `scenario(attempt)` again and again. The scenario makes its objects, calls `attempt(operation)` once, which
// runs the operation while one more of its allocations succeeds than in the call before, and judges the outcome; it
// must leave nothing allocated. Ends when the operation needs no more allocations than succeed.
template <typename Scenario>
void FailEveryAllocation(HMODULE module, Scenario scenario);

// ---- implementation ----

// What a scenario left on the heap; complains when that is anything.
void ExpectNothingLeft(std::ptrdiff_t blocks, std::size_t n);

// Lets the runtime make what it needs to throw, which it makes once and keeps.
void WarmUpExceptions(HMODULE module);

template <typename Scenario>
void FailEveryAllocation(HMODULE module, Scenario scenario) {
  WarmUpExceptions(module);
  for (const HeapWatch::Failing failing : {HeapWatch::Failing::kOnce, HeapWatch::Failing::kFromThenOn}) {
    std::size_t n = 0;
    bool failed = false;
    do {
      std::ptrdiff_t left = 0;
      {
        HeapWatch heap(module);
        scenario([&](auto operation) {
          heap.FailAt(n, failing);
          operation();
          failed = heap.StopFailing();
        });
        left = heap.BlocksLeft();
      }
      ExpectNothingLeft(left, n);
      ++n;
    } while (failed);
  }
}
