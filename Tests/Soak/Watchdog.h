// Ends a run that does not go on, or crashes, and tells where it stands.
#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

class Watchdog {
 public:
  // When nothing is done for so long, what each thread is doing and its stack are written to standard error, and the
  // process ends with exit code 1; so it does at once when a thread crashes. One at a time. `tick` is called several
  // times a second, on a thread of the watchdog's.
  Watchdog(std::uint64_t silenceMs, std::function<void()> tick);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // What a thread does while this lives; its end is progress. May be nested.
  class Doing {
   public:
    Doing(Watchdog& watchdog, const char* what);
    ~Doing();
    Doing(const Doing&) = delete;
    Doing& operator=(const Doing&) = delete;

   private:
    Watchdog& m_watchdog;
    std::size_t m_slot;
  };

 private:
  // No lock and no memory: it is written to before and after every operation, and read when everything stands still.
  struct Slot {
    std::atomic<DWORD> thread{0};  // 0: free
    std::atomic<const char*> what{nullptr};
    std::atomic<std::uint64_t> since{0};
  };

  void Watch();
  void PrintDoings() const;
  [[noreturn]] void Bark();
  static LONG WINAPI Crashed(EXCEPTION_POINTERS* crash);

  static inline Watchdog* s_current = nullptr;
  const std::uint64_t m_silenceMs;
  const std::function<void()> m_tick;
  std::array<Slot, 256> m_slots;
  std::atomic<std::uint64_t> m_progress{0};
  HANDLE m_end = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  LPTOP_LEVEL_EXCEPTION_FILTER m_filter = nullptr;
  std::thread m_thread;
};
