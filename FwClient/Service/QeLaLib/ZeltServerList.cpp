#include "FwClient/Service/QeLaLib/ZeltServerList.h"

#include <cstddef>
#include <string_view>

#include "FwClient/Common/Utilities/SplitFields.h"

namespace {
constexpr std::size_t kFieldsPerServer = 3;
}  // namespace

std::vector<std::wstring> ParseZeltServerList(const std::wstring& text) {
  std::vector<std::wstring> names;
  for (const std::wstring_view entry : SplitFields(text, L';')) {
    const std::vector<std::wstring_view> fields = SplitFields(entry, L'|');
    for (std::size_t i = 0; i < fields.size(); i += kFieldsPerServer) names.emplace_back(fields[i]);
  }
  return names;
}
