#include "Tests/Soak/ToldHost.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <optional>
#include <utility>

#include "Tests/Soak/Machine.h"

namespace {

constexpr DWORD kToldMs = 20'000;

std::wstring IdOf(unsigned network) { return L"network " + std::to_wstring(network); }

std::wstring OnlyId(const _IEnumQeLocations& locations) {
  return locations.GetCount() == 1 ? locations.GetItem(0)->GetId()
                                   : std::to_wstring(locations.GetCount()) + L" of them";
}

}  // namespace

ToldHost::ToldHost(SoakRun& run, _IQeLaApiSmart& service) : m_run(run), m_service(service), m_path{kNetworks - 1} {
  for (unsigned network = 0; network < kNetworks; ++network) {
    const std::shared_ptr<_IQeLocation> location = service.CreateLocation();
    const LOCATION_CRITERIA_TYPE kind = LCT_DEFAULT_GATEWAY;
    location->SetId(IdOf(network));
    location->AddCriteria(&kind, WideGatewayOf(network));
    service.AddLocation(location);
  }
  m_run.Expect(service.Save(), "Save fails");
}

void ToldHost::Told(std::shared_ptr<_IEnumQeLocations> current) {
  ToldHost& self = Current();
  std::function<void()> act;
  {
    const std::lock_guard lock(self.m_lock);
    const std::wstring id = OnlyId(*current);
    const auto place = std::find_if(self.m_path.begin() + self.m_toldOf + 1, self.m_path.end(),
                                    [&](unsigned network) { return IdOf(network) == id; });
    self.m_run.Expect(place != self.m_path.end(), "the host is told of a network where the machine was not since:", id);
    if (place == self.m_path.end()) return;
    self.m_toldOf = place - self.m_path.begin();
    act = std::exchange(self.m_onTold, nullptr);
  }
  if (act) self.m_run.DoInside("an act inside the callback", act);
  ::SetEvent(self.m_isTold);
}

unsigned ToldHost::MovesOn(unsigned random) {
  constexpr unsigned kMostAtOnce = kNetworks / 20;
  const std::lock_guard lock(m_lock);
  m_path.push_back((m_path.back() + 1 + random % kMostAtOnce) % kNetworks);
  return m_path.back();
}

void ToldHost::IsAt(unsigned network) {
  const std::lock_guard lock(m_lock);
  m_path.push_back(network);
}

void ToldHost::ExpectTold() {
  const auto waitsFor = [this]() -> std::optional<unsigned> {
    const std::lock_guard lock(m_lock);
    if (m_toldOf + 1 == std::ssize(m_path)) return std::nullopt;
    return m_path.back();
  };
  for (const ULONGLONG end = ::GetTickCount64() + kToldMs; m_run.GoesOn();) {
    const std::optional<unsigned> awaited = waitsFor();
    if (!awaited.has_value()) break;
    const ULONGLONG now = ::GetTickCount64();
    m_run.Expect(now < end, "a change is lost: the host is not told of network", *awaited);
    if (now < end) ::WaitForSingleObject(m_isTold, static_cast<DWORD>(end - now));
  }
  if (!m_run.GoesOn()) return;
  const std::wstring id = OnlyId(*m_service.GetCurrentLocations());
  const std::lock_guard lock(m_lock);
  m_run.Expect(id == IdOf(m_path.back()), "the current list is another than the host was told:", id);
  m_path = {m_path.back()};
  m_toldOf = 0;
}

void ToldHost::OnTold(std::function<void()> act) {
  const std::lock_guard lock(m_lock);
  m_onTold = std::move(act);
}
