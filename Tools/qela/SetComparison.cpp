#include "SetComparison.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <unordered_map>

#include "CriterionKinds.h"

namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

// The positions in `before` of the locations of `after`. An ID that is there several times, which bytes can hold, goes
// with as many of the other set, in their order.
std::vector<std::size_t> Partners(const LocationSet& before, const LocationSet& after) {
  std::unordered_map<std::wstring_view, std::size_t> first;
  std::vector<std::size_t> next(before.size(), kNone);  // of the same ID
  for (std::size_t i = before.size(); i-- > 0;) {
    const auto [entry, isNew] = first.try_emplace(before[i].Id(), i);
    if (isNew) continue;
    next[i] = entry->second;
    entry->second = i;
  }
  std::vector<std::size_t> partners;
  partners.reserve(after.size());
  for (const CQeLocation& location : after) {
    const auto entry = first.find(location.Id());
    partners.push_back(entry == first.end() ? kNone : entry->second);
    if (entry != first.end() && entry->second != kNone) entry->second = next[entry->second];
  }
  return partners;
}

// Which of the positions must move so that the rest ascends: all that are not in a longest ascending subsequence.
std::vector<bool> Moved(const std::vector<std::size_t>& positions) {
  std::vector<std::size_t> ends;                               // indexes; of the sequences by length, the lowest end
  std::vector<std::size_t> previous(positions.size(), kNone);  // in its sequence
  for (std::size_t i = 0; i < positions.size(); ++i) {
    if (positions[i] == kNone) continue;
    const auto place = std::lower_bound(ends.begin(), ends.end(), positions[i],
                                        [&](std::size_t end, std::size_t value) { return positions[end] < value; });
    if (place != ends.begin()) previous[i] = *(place - 1);
    if (place == ends.end())
      ends.push_back(i);
    else
      *place = i;
  }
  std::vector<bool> moved(positions.size(), true);
  for (std::size_t i = ends.empty() ? kNone : ends.back(); i != kNone; i = previous[i]) moved[i] = false;
  return moved;
}

std::vector<FieldDifference> DifferentFields(const CQeLocation& before, const CQeLocation& after) {
  std::vector<FieldDifference> fields;
  const auto compare = [&](const Json& left, const Json& right) {
    for (const auto& [member, value] : left.items())
      if (!value.is_object() && value != right.at(member)) fields.push_back({member, value, right.at(member)});
  };
  const Json left = LocationDetails(before);
  const Json right = LocationDetails(after);
  compare(left, right);
  compare(left.at("criteria"), right.at("criteria"));
  return fields;
}

}  // namespace

bool HaveSameContent(const CQeLocation& left, const CQeLocation& right) {
  const CQeLocationCriterias& leftCriteria = left.Criterias();
  const CQeLocationCriterias& rightCriteria = right.Criterias();
  return left.Id() == right.Id() && left.Name() == right.Name() && left.GetNote() == right.GetNote() &&
         left.IsEnabled() == right.IsEnabled() && leftCriteria.IsZeltReachable() == rightCriteria.IsZeltReachable() &&
         std::all_of(std::begin(kCriterionKinds), std::end(kCriterionKinds), [&](const CriterionKind& kind) {
           return leftCriteria.Texts(kind.kind) == rightCriteria.Texts(kind.kind);
         });
}

std::vector<LocationDifference> Compare(const LocationSet& before, const LocationSet& after) {
  const std::vector<std::size_t> partners = Partners(before, after);
  const std::vector<bool> moved = Moved(partners);
  std::vector<LocationDifference> differences;
  std::vector<bool> isPartner(before.size(), false);
  for (std::size_t i = 0; i < after.size(); ++i) {
    const std::size_t partner = partners[i];
    if (partner == kNone) {
      differences.push_back({nullptr, &after[i], {}});
      continue;
    }
    isPartner[partner] = true;
    LocationDifference difference{&before[partner], &after[i], {}};
    if (!HaveSameContent(before[partner], after[i])) difference.fields = DifferentFields(before[partner], after[i]);
    if (moved[i]) difference.fields.push_back({"place", partner + 1, i + 1});
    if (!difference.fields.empty()) differences.push_back(std::move(difference));
  }
  for (std::size_t i = 0; i < before.size(); ++i)
    if (!isPartner[i]) differences.push_back({&before[i], nullptr, {}});
  return differences;
}
