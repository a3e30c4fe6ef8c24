// The shipped library as a host has it, loaded anew, on a machine and with a log that cost next to nothing.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Bench/FloorCalculation.h"
#include "Bench/Machine.h"
#include "Bench/PlainLocation.h"
#include "Tests/Support/ServiceLibrary.h"

class MeasuredService {
 public:
  enum class Instance { kSmart, kAutoSaving };

  // The service has read `set`; the registry is empty from then on.
  MeasuredService(const AdapterList& adapters, const PlainSet& set, Instance instance = Instance::kSmart);
  ~MeasuredService();
  MeasuredService(const MeasuredService&) = delete;
  MeasuredService& operator=(const MeasuredService&) = delete;

  _IQeLaApiSmart& Api() const { return *m_api; }
  HMODULE Module() const { return m_library.Module(); }
  QuickRegistry& Registry() { return m_registry; }

  // A calculation: a load that finds nothing leaves the set as it is and calculates.
  void Calculate() { m_api->Load(); }

  // Runs both sides once and compares what they logged, which Windows calls they made, which locations they found
  // current and on which adapters. Empty when they agree; otherwise the first difference.
  std::string Difference(FloorCalculation& floor);

 private:
  ServiceLibrary m_library;
  QuickRegistry m_registry{m_library.Module()};
  QuickMachine m_machine;
  std::optional<EmptyLog> m_log{m_library.Module()};
  std::shared_ptr<_IQeLaApiSmart> m_smart;
  _IQeLaApi* m_autoSaving = nullptr;
  _IQeLaApiSmart* m_api = nullptr;
};
