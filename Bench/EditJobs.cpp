// Edits of the instance that saves by itself.
#include <format>
#include <memory>
#include <string>

#include "Bench/FloorCalculation.h"
#include "Bench/FloorPacking.h"
#include "Bench/Job.h"
#include "Bench/MeasuredService.h"

namespace {

constexpr std::size_t kAdapters = 9;

// What saving a set comes to: one calculation, one packing, the registry.
class FloorSave {
 public:
  explicit FloorSave(const PlainSet& set) : m_set(set), m_calculation(set, kAdapters) {}

  void Save() {
    m_calculation.Calculate();
    msgpack::sbuffer buffer;
    PackCollection(buffer, m_set);
    HKEY key = nullptr;
    windowsCalls.regOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_ALL_ACCESS, &key);
    windowsCalls.regSetValueExW(key, L"", 0, REG_BINARY, reinterpret_cast<const BYTE*>(buffer.data()),
                                static_cast<DWORD>(buffer.size()));
    windowsCalls.regFlushKey(key);
    windowsCalls.regCloseKey(key);
  }

 private:
  const PlainSet& m_set;
  FloorCalculation m_calculation;
};

// Adds a location to those that are stored and removes it again: two edits.
void Edit(Run& run, std::size_t stored) {
  PlainSet set = UsualLocations(run.Size(stored) + 1);
  const PlainSet larger = set;
  set.pop_back();
  MeasuredService service(Adapters(kAdapters), set, MeasuredService::Instance::kAutoSaving);
  service.Registry().MakeKey(true);

  const std::shared_ptr<_IQeLocation> location = service.Api().CreateLocation();
  const std::wstring id = larger.back().id;
  location->SetId(id);
  location->SetName(larger.back().name);
  location->SetAdapterIndexes(larger.back().adapterIndexes);
  for (std::size_t i = 0; i < kTextKinds; ++i) {
    const auto kind = static_cast<LOCATION_CRITERIA_TYPE>(i);
    for (const std::wstring& text : larger.back().texts[i]) location->AddCriteria(&kind, text);
  }
  FloorSave afterAdding(larger);
  FloorSave afterRemoving(set);
  const auto own = [&] {
    service.Api().AddLocation(location);
    service.Api().RemoveLocation(id);
  };
  const auto floor = [&] {
    afterAdding.Save();
    afterRemoving.Save();
  };
  if (run.IsFirst())
    if (const std::string difference = service.Difference(own, floor); !difference.empty()) return run.Fail(difference);
  run.Compare(own, floor, 2);
}

}  // namespace

void AddEditJobs(Jobs& jobs) {
  const auto add = [&](std::size_t stored, Goal goal) {
    jobs.push_back({.name = std::format("auto-saved add or remove at {} stored", stored),
                    .goal = goal,
                    .measure = [stored](Run& run) { Edit(run, stored); }});
  };
  add(10, {.factor = 1.5, .constant = 30'000});
  add(100, {.factor = 1.2});
  add(1000, {.factor = 1.2});
}
