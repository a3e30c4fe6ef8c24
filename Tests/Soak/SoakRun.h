// One job of the soak: how long it runs, what its threads do, and that the process has no more of the system's after it
// than before.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Soak/Slope.h"
#include "Tests/Soak/Watchdog.h"

// From the command line.
struct SoakOptions {
  bool whole = false;                // every job as long as a soak takes; else as short as the tests run it
  double seconds = 0;                // or so long
  std::uint64_t silenceMs = 60'000;  // the watchdog's patience
  std::string report;                // a file to which a line for each job is added
  std::FILE* ipCommands = nullptr;   // whose reader changes the addresses of the machine
};
SoakOptions& Options();

class SoakRun {
 public:
  struct Job {
    const char* name;
    const char* unit;     // what is counted
    std::uint64_t few;    // in the tests
    std::uint64_t whole;  // in a soak
  };

  // A second thread's failures count as well, at once.
  explicit SoakRun(const Job& job);
  ~SoakRun();
  SoakRun(const SoakRun&) = delete;
  SoakRun& operator=(const SoakRun&) = delete;

  // Until all is done, time is up, or something was wrong.
  bool GoesOn() const { return !m_isOver; }

  // The act of a thread of the host's, under this name. Samples are taken between such acts only.
  template <typename Act>
  void Do(const char* what, Act act) {
    const Shared shared(m_acts);
    const Watchdog::Doing doing(m_watchdog, what);
    act();
  }
  // The same for the host's code that the library calls, inside an act or on a thread of its own.
  template <typename Act>
  void DoInside(const char* what, Act act) {
    const Watchdog::Doing doing(m_watchdog, what);
    act();
  }

  // So much has been done, which may be the moment for a sample: never from inside an act.
  void Count(std::uint64_t done = 1);
  std::uint64_t Done() const { return m_done; }

  // So many handles more (or fewer) are there, as they should.
  void KeepHandles(std::ptrdiff_t count) { m_kept += count; }

  // Fails the test, and ends the job, where it does not hold.
  template <typename... Found>
  void Expect(bool holds, const char* rule, const Found&... found) {
    if (holds) return;
    m_isOver = true;
    std::string text;
    ((text += " " + ::testing::PrintToString(found)), ...);
    ADD_FAILURE() << rule << text;
  }

  // At the end: that nothing has grown.
  void ExpectFlat();

 private:
  class Shared {
   public:
    explicit Shared(SRWLOCK& lock) : m_lock(lock) { ::AcquireSRWLockShared(&m_lock); }
    ~Shared() { ::ReleaseSRWLockShared(&m_lock); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

   private:
    SRWLOCK& m_lock;
  };
  static constexpr std::size_t kMeasures = 4;
  struct Sample {
    double done;
    std::array<double, kMeasures> measures;
  };

  // How much of the run is over, from 0 to 1.
  double Part() const;
  void Tick();
  void TakeSamples();
  void Take();

  const Job m_job;
  const std::uint64_t m_most;
  const std::uint64_t m_begin = ::GetTickCount64();
  std::uint64_t m_told = m_begin;
  std::atomic<std::uint64_t> m_done{0};
  std::atomic<bool> m_isOver{false};
  std::atomic<bool> m_isSampling{false};
  std::atomic<std::size_t> m_due{0};  // samples that are taken or were passed over
  std::atomic<std::ptrdiff_t> m_kept{0};
  std::vector<Sample> m_samples;
  SRWLOCK m_acts = SRWLOCK_INIT;
  HANDLE m_end = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE m_sampleIsDue = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  HANDLE m_sampleIsTaken = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::thread m_sampler;
  Watchdog m_watchdog;
};
