// What a calculation of the library waits for, told to whoever sits in front of it.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "LocationSet.h"

// Follows the library's log, which tells the location that is tested and the probes that have ended; which one is under
// way follows from the order in which a location's hosts are asked.
class AwaitedProbe {
 public:
  explicit AwaitedProbe(const LocationSet& set) : m_set(set) {}

  void OnEvent(std::wstring_view text);
  // Such as: the web host intranet.example (location "Office")
  std::string Words() const;

 private:
  const LocationSet& m_set;
  mutable std::mutex m_mutex;
  std::wstring m_location;
  const CQeLocation* m_record = nullptr;  // null when the set has no location of the name
  std::size_t m_host = 0;
  std::wstring m_dnsName;  // that DNS is asked for
};

// On a terminal: a line on standard error that says so after 2 seconds and then every second, and is gone at the end.
class CalculationProgress {
 public:
  explicit CalculationProgress(const AwaitedProbe& awaited);
  ~CalculationProgress();
  CalculationProgress(const CalculationProgress&) = delete;
  CalculationProgress& operator=(const CalculationProgress&) = delete;

 private:
  void Run();

  const AwaitedProbe& m_awaited;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_hasEnded = false;
  std::thread m_thread;
};
