// The library as its hosts use it, for the commands that show what it decides itself.
#pragma once

#include <windows.h>
#include <QeLaApi.h>

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "AdapterReport.h"
#include "CalculationProgress.h"
#include "Json.h"

class Service {
 public:
  // Loads QeLaLib.dll from the program's folder, reads the stored set and calculates, with probes, as the library does
  // for every host. What takes long is told on a terminal, and Ctrl-C is listened to from here on. Throws CommandError
  // when the set cannot be read (kUnreadableSet), the library cannot be used, or the wait was interrupted.
  // `onSkipped` and `onEvent` are the AdapterReport's.
  explicit Service(std::function<void()> onSkipped = {}, std::function<void(std::wstring_view)> onEvent = {});

  _IQeLaApiSmart& Api() const { return *m_api; }
  const AdapterReport& Report() const { return m_report; }

 private:
  LocationSet m_stored;
  AwaitedProbe m_awaited{m_stored};
  AdapterReport m_report;  // listens before the instance is made, which calculates at once
  std::shared_ptr<_IQeLaApiSmart> m_api;
};

// The locations of a collection, in order.
Locations ToVector(const _IEnumQeLocations& locations);
