// What the log says of the matching of a location.
#pragma once

#include "FwClient/Service/QeLaLib/LocationMatcher.h"

// Writes a line for each fact that has one.
class MatchLog final : public MatchObserver {
 public:
  void OnLocation(const LocationCriteria& location) override;
  void OnNoTextCriteria(std::size_t criteria, const std::vector<AdapterProps>& adapters) override;
  void OnAdapter(const AdapterProps& adapter) override;
  void OnKindHeld(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values,
                  const std::wstring& value) override;
  void OnAdapterDone(const AdapterProps& adapter, bool matches) override;
  void OnNoAdapterMatches() override;
  void OnProbeDone(LOCATION_CRITERIA_TYPE kind, const std::wstring& text, bool answer) override;
  void OnLocationDone(const LocationCriteria& location, bool isCurrent) override;
};
