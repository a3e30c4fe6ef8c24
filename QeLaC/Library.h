// The library's one instance, as this process has it.
#pragma once

#include <QeLaApi.h>

#include <memory>
#include <string>
#include <vector>

#include "QeLaC/ServiceLock.h"

// It is made by the first open of a process and stays, since the library keeps it too.
//
// GetQeLaApi's instance is not used: two instances would each hold a set of their own and write it over the other's,
// and its lock cannot be waited for with a limit.
class Library {
 public:
  // Makes the instance, which reads the stored set and calculates. `hostLock` is the host's or null. Null when somebody
  // else has made it before, with another lock. Throws std::bad_alloc; then a later call tries again. The caller sees
  // to it that no two threads call it at once.
  static Library* Make(CRITICAL_SECTION* hostLock);

  // Null until it is made.
  static Library* Get() noexcept;

  // Whether the section is the one that the instance was made with; null stands for one of our own.
  bool WasMadeWith(const CRITICAL_SECTION* hostLock) const noexcept { return hostLock == m_hostLock; }

  ServiceLock& Lock() noexcept { return m_lock; }
  _IQeLaApiSmart& Api() noexcept { return *m_api; }

 private:
  Library(CRITICAL_SECTION* hostLock, CRITICAL_SECTION& section);
  bool UsesOurLock();

  const CRITICAL_SECTION* m_hostLock;
  ServiceLock m_lock;
  std::shared_ptr<_IQeLaApiSmart> m_api;
};

std::vector<std::wstring> IdsOf(const _IEnumQeLocations& locations);
