#include "Bench/MeasuredService.h"

#include <format>
#include <utility>
#include <vector>

#include "Bench/FloorPacking.h"
#include "FwClient/Common/Utilities/LenientUtf.h"
#include "Tests/Support/LogRecorder.h"

namespace {

struct Trace {
  std::vector<LoggedEvent> log;
  CallCounts calls;
};

Trace TraceOf(const std::function<void()>& side) {
  const LogRecorder recorder;
  callCounts = {};
  side();
  return {recorder.Events(), callCounts};
}

// File and line differ, of course.
bool SayTheSame(const LoggedEvent& left, const LoggedEvent& right) {
  return left.severity == right.severity && left.source == right.source && left.component == right.component &&
         left.text == right.text;
}

}  // namespace

MeasuredService::MeasuredService(const AdapterList* adapters, const PlainSet& set, Instance instance) {
  if (adapters != nullptr) m_machine.emplace(m_library.Module(), *adapters);
  m_registry.Store(PackStoredSet(set));
  if (instance == Instance::kAutoSaving)
    m_api = m_autoSaving = m_library.Api();
  else
    m_api = (m_smart = m_library.SmartApi()).get();
  m_registry.Store({});
}

MeasuredService::~MeasuredService() {
  if (m_autoSaving != nullptr) m_autoSaving->Release();
}

std::vector<std::wstring> MeasuredService::LogOfCalculation() {
  m_log.reset();
  std::vector<std::wstring> texts;
  for (LoggedEvent& event : TraceOf([this] { Calculate(); }).log) texts.push_back(std::move(event.text));
  m_log.emplace(Module());
  return texts;
}

std::string MeasuredService::Difference(const std::function<void()>& own, const std::function<void()>& floor) {
  m_log.reset();
  const Trace ours = TraceOf(own);
  const Trace bare = TraceOf(floor);
  m_log.emplace(Module());

  for (std::size_t i = 0; i < ours.log.size() && i < bare.log.size(); ++i)
    if (!SayTheSame(ours.log[i], bare.log[i]))
      return std::format("log line {}: the library says \"{}\", the floor \"{}\"", i,
                         LenientUtf::ToUtf8(ours.log[i].text), LenientUtf::ToUtf8(bare.log[i].text));
  if (ours.log.size() != bare.log.size())
    return std::format("the library logs {} lines, the floor {}", ours.log.size(), bare.log.size());
  return ours.calls == bare.calls ? "" : "the library and the floor make different Windows calls";
}

std::string MeasuredService::Difference(FloorCalculation& floor) {
  if (std::string difference = Difference([this] { Calculate(); }, [&] { floor.Load(); }); !difference.empty())
    return difference;
  const auto current = m_api->GetCurrentLocations();
  const std::vector<std::wstring> ids = floor.CurrentIds();
  if (current->GetCount() != ids.size())
    return std::format("the library finds {} current locations, the floor {}", current->GetCount(), ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i)
    if (current->GetItem(i)->GetId() != ids[i]) return std::format("current location {} is another one", i);
  const auto all = m_api->GetLocations();
  for (std::size_t i = 0; i < all->GetCount(); ++i) {
    std::vector<std::uint32_t> indexes;
    all->GetItem(i)->GetAdapterIndexes(indexes);
    if (const auto expected = floor.Indexes(i); !expected.empty() && indexes != expected)
      return std::format("location {} has other adapters", i);
  }
  return {};
}
