#include "MissedChanges.h"

#include <utility>

std::vector<AdapterChange> MissedChanges::Look(const std::vector<AdapterProps>& calculated,
                                               const std::vector<AdapterProps>& now) {
  std::vector<AdapterChange> changes = ChangesBetween(calculated, now);
  Json difference = changes.empty() ? Json() : ToJson(changes);
  const bool stands = difference == std::exchange(m_seen, difference);
  if (!stands || difference == m_told) return {};
  m_told = std::move(difference);
  return changes;
}
