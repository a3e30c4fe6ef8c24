// A test of a host of its own, on any machine: the machine joins the office, the host swaps its rules. The library that
// it loads is the one that ships; its questions to Windows are answered by ScriptedWindows.
#include <QeLaApi.h>

#include <ScriptedWindows/Windows/FakeAdapters.h>
#include <ScriptedWindows/Windows/FakeAddressChanges.h>
#include <ScriptedWindows/Windows/ScriptedRegistry.h>

#include <cstdio>
#include <future>

namespace {

// The host that is tested: strict rules, but for the office.
std::promise<std::wstring> s_rules;

void SwapRules(std::shared_ptr<_IEnumQeLocations> current) {
  s_rules.set_value(current->GetCount() > 0 ? L"rules of " + current->GetItem(0)->GetName() : L"strict rules");
}

}  // namespace

int main() {
  AdapterList outside;
  outside.Add(L"Wi-Fi").Gateway("192.168.77.1");
  AdapterList office;
  office.Add(L"Wi-Fi").Gateway("10.20.0.1").DnsSuffix(L"corp.example");

  const HMODULE library = ::GetModuleHandleW(L"QeLaLib.dll");
  ScriptedRegistry registry(library);  // nothing is stored, and nothing reaches the machine's own
  FakeAdapters adapters(library, outside);
  FakeAddressChanges changes(library);

  const std::shared_ptr<_IQeLaApiSmart> service = GetQeLaApiSmart(nullptr);
  const std::shared_ptr<_IQeLocation> location = service->CreateLocation();
  location->SetName(L"Office");
  const LOCATION_CRITERIA_TYPE gateway = LCT_DEFAULT_GATEWAY;
  location->AddCriteria(&gateway, L"10.20.0.1");
  service->AddLocation(location);
  service->Save();
  service->StartDiscovery(&SwapRules);
  changes.WaitForRequests(1);  // the library listens

  adapters.Set(office);
  changes.Fire();

  std::future<std::wstring> rules = s_rules.get_future();
  const bool swapped =
      rules.wait_for(std::chrono::seconds(10)) == std::future_status::ready && rules.get() == L"rules of Office";
  service->StopDiscovery();  // before the fakes end
  std::printf("%s: the machine joins the office, the host swaps its rules\n", swapped ? "passed" : "FAILED");
  return swapped ? 0 : 1;
}
