// The library as every command uses it.
#pragma once

#include <QeLaApi.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AdapterReport.h"
#include "StoredSet.h"

class Service {
 public:
  // Loads the stored set and calculates, as the library does for every host. The instance never saves by itself.
  // `onSkipped` is the AdapterReport's.
  explicit Service(bool verbose, std::function<void()> onSkipped = {});

  _IQeLaApiSmart& Api() const { return *m_api; }
  const AdapterReport& Report() const { return m_report; }

  // Loads again and throws CommandError when a set is stored that could not be read. The library tells whether it
  // could only in Load's answer, and a host that saves without asking would replace what it could not read.
  void RequireReadableSet();

  // Writes the set. Throws CommandError when that fails, and when the stored set is no longer the one that
  // RequireReadableSet loaded: another program has changed it, and its change would be lost.
  void Save();

 private:
  AdapterReport m_report;  // listens before the instance is made, which calculates at once
  std::shared_ptr<_IQeLaApiSmart> m_api;
  StoredSet m_stored;
};

// The locations of a collection, in order.
std::vector<std::shared_ptr<_IQeLocation>> ToVector(const _IEnumQeLocations& locations);

// The one stored location with this ID, or else with this name. Throws CommandError when there is none or several.
std::shared_ptr<_IQeLocation> FindLocation(const Service& service, const std::wstring& nameOrId);
