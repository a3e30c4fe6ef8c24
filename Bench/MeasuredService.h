// The shipped library as a host has it, loaded anew, on a machine and with a log that cost next to nothing.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Bench/FloorCalculation.h"
#include "Bench/Machine.h"
#include "Bench/PlainLocation.h"
#include "Tests/Support/ServiceLibrary.h"

class MeasuredService {
 public:
  enum class Instance { kSmart, kAutoSaving };

  // The service has read `set`; the registry is empty from then on.
  MeasuredService(const AdapterList& adapters, const PlainSet& set, Instance instance = Instance::kSmart)
      : MeasuredService(&adapters, set, instance) {}
  // The same on this machine, with its real adapters.
  explicit MeasuredService(const PlainSet& set) : MeasuredService(nullptr, set, Instance::kSmart) {}
  ~MeasuredService();
  MeasuredService(const MeasuredService&) = delete;
  MeasuredService& operator=(const MeasuredService&) = delete;

  _IQeLaApiSmart& Api() const { return *m_api; }
  HMODULE Module() const { return m_library.Module(); }
  QuickRegistry& Registry() { return m_registry; }

  // A calculation: a load that finds nothing leaves the set as it is and calculates.
  void Calculate() { m_api->Load(); }
  std::vector<std::wstring> LogOfCalculation();

  // Runs both sides once and compares what they log and which Windows calls they make. Empty when they agree; otherwise
  // the first difference.
  std::string Difference(const std::function<void()>& own, const std::function<void()>& floor);
  // The same for a calculation, and which locations are current on which adapters.
  std::string Difference(FloorCalculation& floor);

 private:
  MeasuredService(const AdapterList* adapters, const PlainSet& set, Instance instance);

  ServiceLibrary m_library;
  QuickRegistry m_registry{m_library.Module()};
  std::optional<QuickMachine> m_machine;
  std::optional<EmptyLog> m_log{m_library.Module()};
  std::shared_ptr<_IQeLaApiSmart> m_smart;
  _IQeLaApi* m_autoSaving = nullptr;
  _IQeLaApiSmart* m_api = nullptr;
};
