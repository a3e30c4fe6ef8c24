// The processor's clock, which is read in nanoseconds' time: Windows' own has steps of 100 ns under Wine.
#pragma once

#include <windows.h>

#include <x86intrin.h>

#include <cstdint>

class Stopwatch {
 public:
  Stopwatch() noexcept : m_started(Now()) {}

  double Nanoseconds() const noexcept {
    const std::uint64_t ticks = Now() - m_started;
    return static_cast<double>(ticks) * NanosecondsPerTick();
  }

 private:
  static std::uint64_t Now() noexcept {
    _mm_lfence();  // what is measured is over
    const std::uint64_t now = __rdtsc();
    _mm_lfence();
    return now;
  }

  // Found out once, against Windows' clock.
  static double NanosecondsPerTick() noexcept {
    static const double ratio = [] {
      LARGE_INTEGER frequency{};
      LARGE_INTEGER start{};
      LARGE_INTEGER now{};
      ::QueryPerformanceFrequency(&frequency);
      ::QueryPerformanceCounter(&start);
      const std::uint64_t ticks = Now();
      do ::QueryPerformanceCounter(&now);
      while ((now.QuadPart - start.QuadPart) * 50 < frequency.QuadPart);
      return static_cast<double>(now.QuadPart - start.QuadPart) * 1e9 / static_cast<double>(frequency.QuadPart) /
             static_cast<double>(Now() - ticks);
    }();
    return ratio;
  }

  std::uint64_t m_started;
};
