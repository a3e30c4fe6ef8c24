#include "Service.h"

#include <utility>

#include "CommandError.h"
#include "Interrupt.h"
#include "StoredSet.h"

namespace {

// The library stays loaded: its instance lives as long as the process.
std::shared_ptr<_IQeLaApiSmart> MakeInstance() {
  HMODULE library =
      ::LoadLibraryExW(L"QeLaLib.dll", nullptr, LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr)
    throw CommandError(kFailed, "QeLaLib.dll cannot be loaded (error " + std::to_string(::GetLastError()) +
                                    "). It belongs into the folder of qela.exe, with the libraries of its host.");
  FARPROC get = ::GetProcAddress(library, "GetQeLaApiSmart");
  if (get == nullptr) throw CommandError(kFailed, "QeLaLib.dll beside qela.exe is not the location-awareness library");
  return reinterpret_cast<decltype(&::GetQeLaApiSmart)>(reinterpret_cast<void*>(get))(nullptr);
}

}  // namespace

// The set is read first: the library tells of one that it could not read only when it is asked to load it again, and
// then calculates again.
Service::Service(std::function<void()> onSkipped, std::function<void(std::wstring_view)> onEvent)
    : m_stored(ReadLocations()),
      m_report(std::move(onSkipped), [this, onEvent = std::move(onEvent)](std::wstring_view text) {
        m_awaited.OnEvent(text);
        if (onEvent) onEvent(text);
      }) {
  Interrupt::Listen();
  {
    const Interrupt::Wait wait([this] { return m_awaited.Words(); });
    const CalculationProgress progress(m_awaited);
    m_api = MakeInstance();
  }
  if (Interrupt::WasRequested()) throw CommandError(kInterrupted, "ended by Ctrl-C");
}

Locations ToVector(const _IEnumQeLocations& locations) {
  Locations result;
  result.reserve(locations.GetCount());
  for (std::uint64_t index = 0; index < locations.GetCount(); ++index) result.push_back(locations.GetItem(index));
  return result;
}
