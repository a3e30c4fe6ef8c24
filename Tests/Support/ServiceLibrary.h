// The shipped library, loaded as a host loads it.
#pragma once

#include <windows.h>

#include <memory>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"

// QeLaLib.dll from the folder of the test program. The exports' instances live as long as the library stays loaded, so
// a test declares this first and its patches after it.
class ServiceLibrary {
 public:
  ServiceLibrary();
  ~ServiceLibrary();
  ServiceLibrary(const ServiceLibrary&) = delete;
  ServiceLibrary& operator=(const ServiceLibrary&) = delete;

  HMODULE Module() const { return m_module; }

  // The two exports. Each makes, loads and calculates its instance at the first call; so patches come before it.
  _IQeLaApi* Api() const { return m_getApi(); }
  std::shared_ptr<_IQeLaApiSmart> SmartApi(CRITICAL_SECTION* hostLock = nullptr) const {
    return m_getApiSmart(reinterpret_cast<CQeCriticalSection*>(hostLock));
  }

  // Unloads before the end of the scope. No instance may be used afterwards.
  void Unload();

 private:
  HMODULE m_module = nullptr;
  decltype(&GetQeLaApi) m_getApi = nullptr;
  decltype(&GetQeLaApiSmart) m_getApiSmart = nullptr;
};
