#include <windows.h>

#include <algorithm>

#include "CommandError.h"
#include "Commands.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Json.h"
#include "Output.h"
#include "Service.h"
#include "Text.h"

namespace {

// Two edits at once would each load the set before the other saved it, and one would be lost.
class EditGuard {
 public:
  EditGuard() : m_mutex(::CreateMutexW(nullptr, FALSE, L"Global\\qela location edit")) {
    constexpr DWORD kWaitMs = 60'000;
    const DWORD result = ::WaitForSingleObject(m_mutex.get(), kWaitMs);
    if (result != WAIT_OBJECT_0 && result != WAIT_ABANDONED)
      throw CommandError(kFailed,
                         "another qela is changing the locations. Nothing was changed; run the command again.");
  }
  ~EditGuard() { ::ReleaseMutex(m_mutex.get()); }
  EditGuard(const EditGuard&) = delete;
  EditGuard& operator=(const EditGuard&) = delete;

 private:
  UniqueKernelHandle m_mutex;
};

void Report(const Options& options, const _IQeLocation& location, const std::string& action, const std::string& text) {
  if (options.json)
    Print(ToLine({{"id", ToUtf8(location.GetId())}, {"name", ToUtf8(location.GetName())}, {"action", action}}));
  else
    Print(text + "\n");
}

void TellAboutService() { PrintDiagnostic("A running service keeps its own copy: it must load again to see this.\n"); }

std::string Quoted(const _IQeLocation& location) {
  return "\"" + Printable(location.GetName()) + "\" (" + Printable(location.GetId()) + ")";
}

}  // namespace

void AddLocation(const Options& options) {
  const EditGuard guard;
  Service service(options.verbose);
  service.RequireReadableSet();
  // Names are no keys: the library takes two locations of one name. An administrator hardly ever means it, and could
  // from then on tell the two apart only by their IDs, so it has to be asked for.
  const Locations stored = ToVector(*service.Api().GetLocations());
  if (!options.force && std::any_of(stored.begin(), stored.end(),
                                    [&](const auto& location) { return location->GetName() == options.location; }))
    throw CommandError(kNoSuchLocation, "a location named \"" + Printable(options.location) +
                                            "\" is stored already; --force adds another one of this name");

  const auto location = service.Api().CreateLocation();
  location->SetName(options.location);
  location->SetNote(options.note);
  const bool enabled = !options.disabled;
  location->SetEnabled(&enabled);
  for (const Criterion& criterion : options.criteria)
    if (location->AddCriteria(&criterion.kind, criterion.value) == LCR_ALREADY_PRESENT)
      PrintDiagnostic("qela: note: \"" + Printable(criterion.value) + "\" is given twice and stored once\n");
  if (options.criteria.empty())
    PrintDiagnostic("qela: note: a location without criteria is current everywhere while it is enabled\n");

  if (const std::uint32_t result = service.Api().AddLocation(location); result != LSR_OK)
    throw CommandError(kFailed, "the library did not take the location (result " + std::to_string(result) + ")");
  service.Save();
  Report(options, *location, "added", "Added " + Quoted(*location) + ".");
  TellAboutService();
}

void RemoveLocation(const Options& options) {
  const EditGuard guard;
  Service service(options.verbose);
  service.RequireReadableSet();
  const auto location = FindLocation(service, options.location);
  if (const std::uint32_t result = service.Api().RemoveLocation(location->GetId()); result != LSR_OK)
    throw CommandError(kFailed, "the library did not remove the location (result " + std::to_string(result) + ")");
  service.Save();
  Report(options, *location, "removed", "Removed " + Quoted(*location) + ".");
  TellAboutService();
}

void EnableLocation(const Options& options) {
  const bool enable = options.command == Command::kEnableLocation;
  const std::string action = enable ? "enabled" : "disabled";
  const EditGuard guard;
  Service service(options.verbose);
  service.RequireReadableSet();
  const auto location = FindLocation(service, options.location);
  if (location->IsEnabled() == enable) {
    Report(options, *location, "unchanged", Quoted(*location) + " is " + action + " already.");
    return;
  }
  location->SetEnabled(&enable);
  if (service.Api().UpdateLocation(location) != LSR_OK)
    throw CommandError(kFailed, "the library does not take " + Quoted(*location) +
                                    " back: its stored form holds a criterion twice. Remove it and add it again.");
  service.Save();
  Report(options, *location, action, (enable ? "Enabled " : "Disabled ") + Quoted(*location) + ".");
  TellAboutService();
}
