#include "LocationText.h"

#include "AdapterView.h"
#include "CriterionKinds.h"
#include "Output.h"
#include "Text.h"

std::string LocationText(const _IQeLocation& location, const std::vector<AdapterProps>& adapters) {
  std::vector<std::uint32_t> indexes;
  location.GetAdapterIndexes(indexes);
  std::string matched;
  for (const std::uint32_t index : indexes)
    matched += (matched.empty() ? "" : ", ") + std::to_string(index) + " " + Printable(DescriptionOf(adapters, index));
  return Printable(location.GetName()) + " [" + matched + "]";
}

std::string LabelledLine(std::string_view label, const std::wstring& value) {
  constexpr std::size_t kWidth = 18;
  if (value.empty()) return {};
  return "  " + std::string(label) + std::string(kWidth - label.size(), ' ') + Printable(value) + "\n";
}

std::string CriteriaLines(const _IQeLocation& location) {
  std::string text;
  const auto criteria = location.GetCriterias();
  for (const CriterionKind& kind : kCriterionKinds) {
    std::vector<std::wstring> values;
    criteria->GetStringCriteria(kind.kind, values);
    for (const std::wstring& value : values) text += LabelledLine(std::string("--") + kind.option, value);
  }
  bool managementServer = false;
  if (criteria->GetBoolCriteria(LCT_ZELT_REACHABLE, managementServer) && managementServer)
    text += "  --management-server\n";
  if (criteria->GetCount() == 0) text += "  no criteria: current everywhere while enabled\n";
  return text;
}

std::string NameLine(const _IQeLocation& location) {
  return Printable(location.GetName()) + (location.IsEnabled() ? "" : Coloured(Colour::kDim, " (disabled)")) + "\n";
}

std::string LocationLines(const _IQeLocation& location) {
  return NameLine(location) + LabelledLine("id", location.GetId()) + LabelledLine("note", location.GetNote()) +
         CriteriaLines(location);
}
