// The HTTPS entry of a proxy list, against the rule of how many characters are taken.
#include <algorithm>
#include <string>

#include "FwClient/Service/QeLaLib/HttpsProxyList.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

// Character by character.
std::wstring Expected(const std::wstring& list) {
  const std::wstring scheme = L"https";
  std::size_t at = 0;
  while (at + scheme.size() <= list.size() &&
         !std::equal(scheme.begin(), scheme.end(), list.begin() + static_cast<std::ptrdiff_t>(at)))
    ++at;
  if (at + scheme.size() > list.size()) return list;
  while (at < list.size() && list[at] != L'=') ++at;
  if (at == list.size()) return list;
  std::size_t count = at;
  while (count < list.size() && list[count] != L';') ++count;
  std::wstring proxy;
  for (std::size_t i = at + 1; i < list.size() && proxy.size() < count; ++i) proxy += list[i];
  return proxy;
}

void Run(FuzzInput input) {
  const std::wstring list = FuzzText(input);
  const std::wstring proxy = GetHttpsProxyFromList(list);
  if (proxy != Expected(list)) FuzzFail("another proxy than the rule gives");
  FuzzKind(proxy == list ? 0 : proxy.find(L';') == std::wstring::npos ? 1 : 2);
}

const FuzzTarget g_target("proxy-list", Run, {"https", "http", "ftp", "socks", "=", ";", "https=", ":443", "://", " "});

}  // namespace
