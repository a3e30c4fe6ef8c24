#include "Service.h"

#include <utility>

#include "CommandError.h"
#include "Text.h"

namespace {

constexpr const char* kStoredValue = R"("la" in HKEY_LOCAL_MACHINE\SOFTWARE\Corvane\Tessel\Firewall\LA)";

}  // namespace

Service::Service(bool verbose, std::function<void()> onSkipped) : m_report(std::move(onSkipped)) {
  LogUtils::setConsoleLogging(verbose);
  m_api = ::GetQeLaApiSmart(nullptr);
}

void Service::RequireReadableSet() {
  m_stored = ReadStoredSet();
  if (m_api->Load() || m_stored.IsAbsent()) return;
  const std::string reason = m_stored.status == ERROR_SUCCESS
                                 ? "it is damaged, or another program's"
                                 : "Windows refuses it with error " + std::to_string(m_stored.status);
  throw CommandError(kUnreadableSet, std::string("a location set is stored but cannot be read (the value ") +
                                         kStoredValue + "): " + reason + ". Nothing was changed.");
}

void Service::Save() {
  if (ReadStoredSet() != m_stored)
    throw CommandError(
        kFailed,
        "the stored locations were changed by another program meanwhile. Nothing was saved; run the command again.");
  if (!m_api->Save())
    throw CommandError(kFailed, std::string("the locations could not be saved to the value ") + kStoredValue +
                                    ". Writing there needs an administrator's rights. Nothing was changed.");
}

std::vector<std::shared_ptr<_IQeLocation>> ToVector(const _IEnumQeLocations& locations) {
  std::vector<std::shared_ptr<_IQeLocation>> result;
  result.reserve(locations.GetCount());
  for (std::uint64_t index = 0; index < locations.GetCount(); ++index) result.push_back(locations.GetItem(index));
  return result;
}

std::shared_ptr<_IQeLocation> FindLocation(const Service& service, const std::wstring& nameOrId) {
  if (auto location = service.Api().GetLocation(nameOrId)) return location;
  std::vector<std::shared_ptr<_IQeLocation>> found;
  for (auto& location : ToVector(*service.Api().GetLocations()))
    if (location->GetName() == nameOrId) found.push_back(std::move(location));
  if (found.size() == 1) return found.front();
  if (found.empty())
    throw CommandError(kNoSuchLocation, "no location has the name or ID \"" + Printable(nameOrId) + "\"");
  std::string message =
      std::to_string(found.size()) + " locations have the name \"" + Printable(nameOrId) + "\"; give the ID of one:";
  for (const auto& location : found) message += "\n  " + Printable(location->GetId());
  throw CommandError(kNoSuchLocation, message);
}
