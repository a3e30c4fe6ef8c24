#include "LocationText.h"

#include "Text.h"

std::string LocationText(const _IQeLocation& location, const std::vector<ReportedAdapter>& adapters) {
  std::vector<std::uint32_t> indexes;
  location.GetAdapterIndexes(indexes);
  std::string matched;
  for (const std::uint32_t index : indexes)
    matched += (matched.empty() ? "" : ", ") + std::to_string(index) + " " + Printable(DescriptionOf(adapters, index));
  return Printable(location.GetName()) + " [" + matched + "]";
}
