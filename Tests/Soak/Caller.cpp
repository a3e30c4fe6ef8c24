#include "Tests/Soak/Caller.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <string_view>

#include "Tests/Soak/Machine.h"

namespace {

constexpr std::uint64_t kMostLocations = 10;
constexpr char kDeserializeFailed[] = "UCD DeserializeFromBytes failed for %s";

std::wstring NameOf(const std::wstring& id) { return L"name of " + id; }
std::wstring NoteOf(const std::wstring& id) { return L"note of " + id; }
unsigned NetworkOfId(const std::wstring& id) {
  return static_cast<unsigned>(std::hash<std::wstring>()(id) % kNetworks);
}

std::vector<std::wstring> GatewaysOf(const _IQeLocation& location) {
  std::vector<std::wstring> gateways;
  location.GetCriterias()->GetStringCriteria(LCT_DEFAULT_GATEWAY, gateways);
  return gateways;
}

bool IsWhole(const _IQeLocation& location) {
  const std::wstring id = location.GetId();
  return id.size() == 36 && location.GetName() == NameOf(id) && location.GetNote() == NoteOf(id) &&
         GatewaysOf(location) == std::vector{WideGatewayOf(NetworkOfId(id))};
}

std::vector<std::wstring> IdsOf(const _IEnumQeLocations& locations) {
  std::vector<std::wstring> ids;
  for (std::uint64_t i = 0; i < locations.GetCount(); ++i) ids.push_back(locations.GetItem(i)->GetId());
  return ids;
}

}  // namespace

class Caller::Held {
 public:
  explicit Held(_IQeLaApiSmart& service) : m_service(service) { m_service.Lock(); }
  ~Held() { m_service.Unlock(); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

 private:
  _IQeLaApiSmart& m_service;
};

Caller::Caller(SoakRun& run, _IQeLaApiSmart& service, _IQeLaApi* counted, Among among, unsigned seed)
    : m_run(run), m_service(service), m_counted(counted), m_among(among), m_random(seed) {}

// Starts and stops are rarer: each pair is a thread, and three handles that are kept.
const std::vector<Caller::Operation>& Caller::Operations() {
  static const std::vector<Operation> operations{{"CreateLocation", &Caller::CreateLocation, 20},
                                                 {"CreateLocations", &Caller::CreateLocations, 20},
                                                 {"AddLocation", &Caller::AddLocation, 20},
                                                 {"RemoveLocation", &Caller::RemoveLocation, 10},
                                                 {"RemoveAllLocations", &Caller::RemoveAllLocations, 1},
                                                 {"Load", &Caller::Load, 5},
                                                 {"Save", &Caller::Save, 10},
                                                 {"GetLocation", &Caller::GetLocation, 20},
                                                 {"UpdateLocation", &Caller::UpdateLocation, 10},
                                                 {"GetCurrentLocations", &Caller::GetCurrentLocations, 20},
                                                 {"GetLocations", &Caller::GetLocations, 20},
                                                 {"MatchAddressSpecification", &Caller::MatchAddressSpecification, 20},
                                                 {"MatchAdapterAddresses", &Caller::MatchAdapterAddresses, 20},
                                                 {"IsAdapterMediaType", &Caller::IsAdapterMediaType, 20},
                                                 {"GetMacAddresses", &Caller::GetMacAddresses, 20},
                                                 {"SetErrorPrinter", &Caller::SetErrorPrinter, 20},
                                                 {"Lock and Unlock", &Caller::LockAndUnlock, 20},
                                                 {"StartDiscovery", &Caller::StartDiscovery, 2},
                                                 {"StopDiscovery", &Caller::StopDiscovery, 1, Needs::kNobodyInside},
                                                 {"AddRef and Release", &Caller::AddRefAndRelease, 20, Needs::kCount}};
  return operations;
}

bool Caller::Can(const Operation& operation) const {
  switch (operation.needs) {
    case Needs::kNothing:
      return true;
    case Needs::kCount:
      return m_counted != nullptr;
    case Needs::kNobodyInside:
      return IsAlone();
  }
  return false;
}

// Of bytes that are no location set, and of nothing else.
void Caller::Print(const char* format, ...) {
  if (std::string_view(format) != kDeserializeFailed) ADD_FAILURE() << "the printer is told: " << format;
  if (s_onPrint != nullptr) s_onPrint();
}

const Caller::Operation& Caller::Choose() {
  const std::vector<Operation>& all = Operations();
  static const unsigned weights = std::accumulate(
      all.begin(), all.end(), 0u, [](unsigned sum, const Operation& each) { return sum + each.weight; });
  for (;;) {
    unsigned at = Below(weights);
    std::size_t chosen = 0;
    while (at >= all[chosen].weight) at -= all[chosen++].weight;
    if (Can(all[chosen])) return all[chosen];
  }
}

void Caller::Call(const Operation& operation) { (this->*operation.call)(); }

void Caller::ExpectWhole(SoakRun& run, const _IEnumQeLocations& locations) {
  std::set<std::wstring> ids;
  for (std::uint64_t i = 0; i < locations.GetCount(); ++i) {
    const std::shared_ptr<_IQeLocation> location = locations.GetItem(i);
    run.Expect(IsWhole(*location), "a location is as nobody made it:", location->GetId(), location->GetName());
    run.Expect(ids.insert(location->GetId()).second, "a location is there twice:", location->GetId());
  }
}

void Caller::ExpectOneNetwork(SoakRun& run, const _IEnumQeLocations& locations) {
  std::set<std::wstring> gateways;
  for (std::uint64_t i = 0; i < locations.GetCount(); ++i)
    for (const std::wstring& gateway : GatewaysOf(*locations.GetItem(i))) gateways.insert(gateway);
  run.Expect(gateways.size() <= 1, "locations of several networks are current at once:", gateways);
}

std::shared_ptr<_IQeLocation> Caller::NewLocation() {
  std::shared_ptr<_IQeLocation> location = m_service.CreateLocation();
  const std::wstring id = location->GetId();
  location->SetName(NameOf(id));
  location->SetNote(NoteOf(id));
  const LOCATION_CRITERIA_TYPE kind = LCT_DEFAULT_GATEWAY;
  location->AddCriteria(&kind, WideGatewayOf(NetworkOfId(id)));
  return location;
}

std::wstring Caller::AnyId() {
  const Held held(m_service);
  const std::shared_ptr<_IEnumQeLocations> all = m_service.GetLocations();
  if (all->GetCount() == 0) return L"none";
  return all->GetItem(Below(static_cast<unsigned>(all->GetCount())))->GetId();
}

void Caller::CreateLocation() {
  const std::shared_ptr<_IQeLocation> location = m_service.CreateLocation();
  const std::wstring id = location->GetId();
  m_run.Expect(id.size() == 36 && location->GetName() == id + L" Location" && location->GetNote().empty() &&
                   location->IsEnabled() && location->GetCriterias()->GetCount() == 0,
               "a new location is not empty:", id, location->GetName());
}

void Caller::CreateLocations() {
  const std::shared_ptr<_IEnumQeLocations> empty = m_service.CreateLocations();
  m_run.Expect(empty->GetCount() == 0 && empty->GetItem(0) == nullptr, "a new collection is not empty");
  // Its byte form goes through the library too, with bytes that are none from time to time.
  std::vector<std::uint8_t> bytes;
  m_run.Expect(m_service.GetCurrentLocations()->SerializeToBytes(bytes), "a collection cannot be written");
  const bool isBad = Below(4) == 0;
  if (isBad) bytes[0] = 0xc1;
  m_run.Expect(empty->DeserializeFromBytes(bytes) != isBad, "a collection's bytes are judged wrongly");
  ExpectWhole(m_run, *empty);
}

void Caller::AddLocation() {
  m_run.Expect(m_service.AddLocation(nullptr) == LSR_FAILED, "no location is added");
  const std::shared_ptr<_IQeLocation> location = NewLocation();
  const Held held(m_service);
  if (!IsAlone()) {
    m_run.Expect(m_service.AddLocation(location) == LSR_OK, "a new location is not added");
    while (m_service.GetLocations()->GetCount() > kMostLocations) m_service.RemoveLocation(AnyId());
    return;
  }
  std::vector<std::wstring> ids = IdsOf(*m_service.GetLocations());
  m_run.Expect(m_service.AddLocation(location) == LSR_OK, "a new location is not added");
  m_run.Expect(m_service.AddLocation(location) == LSR_DUPLICATE_ID, "a location is added twice");
  ids.push_back(location->GetId());
  m_run.Expect(IdsOf(*m_service.GetLocations()) == ids, "a location is not added at the end");
  if (ids.size() <= kMostLocations) return;
  m_run.Expect(m_service.RemoveLocation(ids.front()) == LSR_OK, "a stored location is not removed");
  ids.erase(ids.begin());
  m_run.Expect(IdsOf(*m_service.GetLocations()) == ids, "another location than the first is removed");
}

void Caller::RemoveLocation() {
  const std::wstring id = AnyId();
  const std::uint32_t removed = m_service.RemoveLocation(id);
  m_run.Expect(removed == LSR_OK || removed == LSR_NOT_FOUND, "RemoveLocation answers:", removed);
  if (IsAlone()) m_run.Expect(m_service.RemoveLocation(L"none") == LSR_NOT_FOUND, "what is not stored is removed");
}

void Caller::RemoveAllLocations() {
  const Held held(m_service);
  m_run.Expect(m_service.RemoveAllLocations(), "RemoveAllLocations fails");
  if (!IsAlone()) return;
  m_run.Expect(m_service.GetLocations()->GetCount() == 0, "locations are left");
  m_run.Expect(m_service.GetCurrentLocations()->GetCount() == 0, "what is not stored is current");
}

// The other instance writes the same value, which may grow while it is read; the read then fails and changes nothing.
void Caller::Load() {
  const Held held(m_service);
  const std::vector<std::wstring> before = IdsOf(*m_service.GetLocations());
  const bool loaded = m_service.Load();
  const std::shared_ptr<_IEnumQeLocations> after = m_service.GetLocations();
  ExpectWhole(m_run, *after);
  if (IsAlone() && !loaded) m_run.Expect(IdsOf(*after) == before, "a load that failed changes the set");
}

void Caller::Save() {
  const Held held(m_service);
  m_run.Expect(m_service.Save(), "Save fails");
  if (!IsAlone()) return;
  const std::shared_ptr<_IEnumQeLocations> current = m_service.GetCurrentLocations();
  const std::shared_ptr<_IEnumQeLocations> all = m_service.GetLocations();
  ExpectOneNetwork(m_run, *current);
  if (current->GetCount() == 0) return;
  // All that belong to the network, in stored order.
  const std::vector<std::wstring> gateways = GatewaysOf(*current->GetItem(0));
  std::vector<std::wstring> ids;
  for (std::uint64_t i = 0; i < all->GetCount(); ++i) {
    const std::shared_ptr<_IQeLocation> location = all->GetItem(i);
    if (location->IsEnabled() && GatewaysOf(*location) == gateways) ids.push_back(location->GetId());
  }
  m_run.Expect(IdsOf(*current) == ids, "other locations are current than those of the network:", ids);
}

void Caller::GetLocation() {
  m_run.Expect(m_service.GetLocation(L"none") == nullptr, "there is a location that nobody stored");
  if (!IsAlone()) {
    const std::shared_ptr<_IQeLocation> location = m_service.GetLocation(AnyId());
    m_run.Expect(location == nullptr || IsWhole(*location), "a location is as nobody made it");
    return;
  }
  const Held held(m_service);
  const std::wstring id = AnyId();
  if (id == L"none") return;
  const std::shared_ptr<_IQeLocation> location = m_service.GetLocation(id);
  m_run.Expect(location != nullptr && location->GetId() == id && IsWhole(*location), "a stored location is not found");
}

void Caller::UpdateLocation() {
  m_run.Expect(m_service.UpdateLocation(nullptr) == LSR_NO_LOCATION, "no location is updated");
  const Held held(m_service);
  const std::shared_ptr<_IQeLocation> location = m_service.GetLocation(AnyId());
  if (location == nullptr) {
    m_run.Expect(m_service.UpdateLocation(NewLocation()) == LSR_FAILED || !IsAlone(), "an unknown location is updated");
    return;
  }
  const bool enabled = Below(4) != 0;
  location->SetEnabled(&enabled);
  const std::uint32_t updated = m_service.UpdateLocation(location);
  m_run.Expect(updated == LSR_OK || (updated == LSR_FAILED && !IsAlone()), "UpdateLocation answers:", updated);
  if (IsAlone())
    m_run.Expect(m_service.GetLocation(location->GetId())->IsEnabled() == enabled, "an update is not kept");
}

void Caller::GetCurrentLocations() {
  const Held held(m_service);
  const std::shared_ptr<_IEnumQeLocations> current = m_service.GetCurrentLocations();
  ExpectWhole(m_run, *current);
  if (!IsAlone()) return;
  const std::vector<std::wstring> all = IdsOf(*m_service.GetLocations());
  for (const std::wstring& id : IdsOf(*current))
    m_run.Expect(std::find(all.begin(), all.end(), id) != all.end(), "what is not stored is current:", id);
}

void Caller::GetLocations() {
  const Held held(m_service);
  ExpectWhole(m_run, *m_service.GetLocations());
}

void Caller::MatchAddressSpecification() {
  static const struct {
    std::uint32_t kind;
    const wchar_t *address, *first, *second;
    bool matches;
  } kCases[] = {{FIAT_SINGLE_IP, L"10.0.0.1", L"10.0.0.1", L"", true},
                {FIAT_SINGLE_IP, L"10.0.0.1", L"10.0.0.2", L"", false},
                {FIAT_SUBNET, L"10.0.7.1", L"10.0.0.0/16", L"", true},
                {FIAT_SUBNET, L"10.1.7.1", L"10.0.0.0/16", L"", false},
                {FIAT_RANGE_IP, L"10.0.0.5", L"10.0.0.1", L"10.0.0.9", true},
                {FIAT_RANGE_IP, L"fd00::a", L"fd00::1", L"fd00::9", false},
                {FIAT_ANY_IP_V6, L"fd00::5", L"::", L"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", true}};
  const auto& each = kCases[Below(static_cast<unsigned>(std::size(kCases)))];
  m_run.Expect(m_service.MatchAddressSpecification({each.address}, &each.kind, each.first, each.second) == each.matches,
               "an address is judged wrongly:", std::wstring(each.address), std::wstring(each.first));
}

// Where the last snapshot failed, there is no adapter.
void Caller::MatchAdapterAddresses() {
  const Held held(m_service);
  const std::uint32_t kind = FIAT_SINGLE_IP;
  const bool hasAdapter = !m_service.GetMacAddresses().empty();
  const bool matches = m_service.MatchAdapterAddresses(&kind, Machine::kOwnAddress, L"");
  m_run.Expect(matches == hasAdapter || !IsAlone(), "the machine's address is judged wrongly:", matches);
  m_run.Expect(!m_service.MatchAdapterAddresses(&kind, L"192.0.2.1", L""), "an address of nobody's matches");
}

void Caller::IsAdapterMediaType() {
  const Held held(m_service);
  const bool hasAdapter = !m_service.GetMacAddresses().empty();
  const bool isWired = m_service.IsAdapterMediaType(Wired, {1, Machine::kIndex});
  m_run.Expect(isWired == hasAdapter || !IsAlone(), "a wired adapter is judged wrongly:", isWired);
  m_run.Expect(!m_service.IsAdapterMediaType(Wireless, {Machine::kIndex}), "a wired adapter is wireless");
}

void Caller::GetMacAddresses() {
  const Held held(m_service);
  const std::vector<std::wstring> macs = m_service.GetMacAddresses();
  m_run.Expect(macs.empty() || macs == std::vector<std::wstring>{Machine::kMac}, "the adapter's address is:", macs);
}

void Caller::StartDiscovery() { m_run.Expect(m_service.StartDiscovery(s_callback), "discovery does not start"); }

// False where another has stopped it before.
void Caller::StopDiscovery() { m_service.StopDiscovery(); }

void Caller::SetErrorPrinter() { m_service.SetErrorPrinter(&Print); }

// What is done under the lock is seen as one by whoever takes it.
void Caller::LockAndUnlock() {
  m_service.Lock();
  m_service.Lock();
  const std::uint64_t before = m_service.GetLocations()->GetCount();
  m_service.Unlock();
  const std::uint64_t after = m_service.GetLocations()->GetCount();
  m_service.Unlock();
  m_run.Expect(before == after || !IsAlone(), "the lock does not keep others out:", before, after);
}

void Caller::AddRefAndRelease() {
  m_run.Expect(m_counted->AddRef() >= 2, "a reference is not counted");
  m_run.Expect(m_counted->Release() >= 1, "a reference too many is dropped");
}
