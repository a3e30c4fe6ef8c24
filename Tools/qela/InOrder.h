// Work on several threads, whose results come back in order.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

// Calls work(i) for each i below `count`, on `threads` threads, and take(i, result) for each in order, on this one. No
// more than a few results a thread wait to be taken, however many there are: who works too far ahead waits. What either
// call throws leaves this function, after the work that is under way.
template <typename Work, typename Take>
void InOrder(std::size_t count, unsigned threads, const Work& work, const Take& take) {
  using Result = decltype(work(std::size_t{}));
  struct Slot {
    std::optional<Result> result;
    std::exception_ptr error;
    bool IsFull() const { return result.has_value() || error != nullptr; }
  };
  constexpr std::size_t kAheadOfEachThread = 16;

  std::mutex mutex;
  std::condition_variable mayWork;
  std::condition_variable mayTake;
  std::vector<Slot> slots(threads * kAheadOfEachThread);
  std::size_t next = 0;   // to be worked on
  std::size_t taken = 0;  // so many
  bool stop = false;

  const auto run = [&] {
    std::unique_lock lock(mutex);
    for (;;) {
      mayWork.wait(lock, [&] { return stop || next == count || next < taken + slots.size(); });
      if (stop || next == count) return;
      const std::size_t i = next++;
      Slot slot;
      lock.unlock();
      try {
        slot.result = work(i);
      } catch (...) {
        slot.error = std::current_exception();
      }
      lock.lock();
      slots[i % slots.size()] = std::move(slot);
      if (i == taken) mayTake.notify_one();
    }
  };

  struct Workers {
    ~Workers() {
      {
        const std::lock_guard lock(mutex);
        stop = true;
      }
      mayWork.notify_all();
      for (std::thread& thread : threads) thread.join();
    }
    std::mutex& mutex;
    std::condition_variable& mayWork;
    bool& stop;
    std::vector<std::thread> threads;
  } workers{mutex, mayWork, stop, {}};
  workers.threads.reserve(threads);
  for (unsigned i = 0; i < threads; ++i) workers.threads.emplace_back(run);

  while (taken < count) {
    std::unique_lock lock(mutex);
    Slot& waiting = slots[taken % slots.size()];
    mayTake.wait(lock, [&] { return waiting.IsFull(); });
    Slot slot = std::exchange(waiting, {});
    const std::size_t i = taken++;
    lock.unlock();
    mayWork.notify_one();
    if (!slot.result) std::rethrow_exception(slot.error);
    take(i, std::move(*slot.result));
  }
}
