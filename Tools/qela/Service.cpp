#include "Service.h"

#include <utility>

#include "CommandError.h"
#include "StoredSet.h"

namespace {

// The library stays loaded: its instance lives as long as the process.
std::shared_ptr<_IQeLaApiSmart> MakeInstance() {
  HMODULE library =
      ::LoadLibraryExW(L"QeLaLib.dll", nullptr, LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr)
    throw CommandError(kFailed, "QeLaLib.dll cannot be loaded (error " + std::to_string(::GetLastError()) +
                                    "). It belongs into the folder of qela.exe, with the libraries of its host.");
  const FARPROC get = ::GetProcAddress(library, "GetQeLaApiSmart");
  if (get == nullptr) throw CommandError(kFailed, "QeLaLib.dll beside qela.exe is not the location-awareness library");
  return reinterpret_cast<decltype(&::GetQeLaApiSmart)>(reinterpret_cast<void*>(get))(nullptr);
}

}  // namespace

Service::Service(std::function<void()> onSkipped) : m_report(std::move(onSkipped)) {
  // The library itself tells of a set that it could not read only when it is asked to load one again, which calculates
  // again.
  static_cast<void>(ReadLocations());
  m_api = MakeInstance();
}

Locations ToVector(const _IEnumQeLocations& locations) {
  Locations result;
  result.reserve(locations.GetCount());
  for (std::uint64_t index = 0; index < locations.GetCount(); ++index) result.push_back(locations.GetItem(index));
  return result;
}
