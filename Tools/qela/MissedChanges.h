// What has changed in the adapters without the library being told.
#pragma once

#include <vector>

#include "AdapterChanges.h"
#include "Json.h"

// Looks at them every few seconds. A change that the library is just about to handle is no missed one, so a difference
// counts when it is there at two looks in a row; it is told once, until there is another.
class MissedChanges {
 public:
  // `calculated` are the adapters of the library's last calculation. What is to be told; mostly nothing.
  std::vector<AdapterChange> Look(const std::vector<AdapterProps>& calculated, const std::vector<AdapterProps>& now);
  // The library is calculating: what the next look finds has to stand again.
  void PassOver() { m_seen = Json(); }

 private:
  Json m_seen;  // null: no difference
  Json m_told;
};
