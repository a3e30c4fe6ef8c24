#include "CriterionWords.h"

#include <algorithm>

#include "CriterionKinds.h"
#include "Text.h"

namespace {

// Null for the management server's, which has no texts.
const CriterionKind* FindKind(LOCATION_CRITERIA_TYPE kind) {
  const auto* const found = std::find_if(std::begin(kCriterionKinds), std::end(kCriterionKinds),
                                         [&](const CriterionKind& known) { return known.kind == kind; });
  return found == std::end(kCriterionKinds) ? nullptr : found;
}

}  // namespace

const char* TitleOf(LOCATION_CRITERIA_TYPE kind) {
  const CriterionKind* const known = FindKind(kind);
  return known == nullptr ? "management server" : known->title;
}

const char* MemberOf(LOCATION_CRITERIA_TYPE kind) {
  const CriterionKind* const known = FindKind(kind);
  return known == nullptr ? "managementServer" : known->member;
}

std::string ShownCriterion(const std::wstring& criterion) { return criterion.empty() ? "\"\"" : Printable(criterion); }

std::string AskedInWords(const std::vector<std::wstring>& criteria) {
  std::string list;
  for (const std::wstring& criterion : criteria) list += (list.empty() ? "" : " or ") + ShownCriterion(criterion);
  return list;
}

std::string SeenInWords(const std::vector<std::wstring>& texts) {
  std::string list;
  for (const std::wstring& text : texts)
    if (!text.empty()) list += (list.empty() ? "" : ", ") + Printable(text);
  return list.empty() ? "none" : list;
}

std::string AdapterInWords(std::uint32_t ifIndex, const std::wstring& description) {
  return "adapter " + std::to_string(ifIndex) + " (" + Printable(description) + ")";
}

LocationCriteria CriteriaOf(const CQeLocation& location) {
  LocationCriteria criteria;
  criteria.name = &location.Name();
  for (const CriterionKind& kind : kCriterionKinds) criteria.Add(kind.kind, location.Criterias().Texts(kind.kind));
  criteria.zeltReachable = location.Criterias().IsZeltReachable();
  return criteria;
}
