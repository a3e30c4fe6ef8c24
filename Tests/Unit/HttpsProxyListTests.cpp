#include "FwClient/Service/QeLaLib/HttpsProxyList.h"

#include <gtest/gtest.h>

namespace {

struct Case {
  const wchar_t* list;
  const wchar_t* expected;
};

class HttpsProxyList : public testing::TestWithParam<Case> {};

TEST_P(HttpsProxyList, TakesTheHttpsEntry) { EXPECT_EQ(GetHttpsProxyFromList(GetParam().list), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(
    Lists, HttpsProxyList,
    testing::Values(
        // One proxy for all schemes; too short to name a scheme; another case is another name.
        Case{L"p1:8080", L"p1:8080"}, Case{L"", L""}, Case{L"http", L"http"}, Case{L"HTTPS=p:1", L"HTTPS=p:1"},
        Case{L"http=p1:80;ftp=p3:21", L"http=p1:80;ftp=p3:21"}, Case{L"ttps=p:1", L"ttps=p:1"},
        // The entry alone, last, and with others behind it, which come along.
        Case{L"https=p2:443", L"p2:443"}, Case{L"http=p1:80;https=p2:443", L"p2:443"},
        Case{L"http=p1:80;https=p2:443;ftp=p3:21", L"p2:443;ftp=p3:21"},
        Case{L"ftp=a:1;https=b:2;http=c:3", L"b:2;http=c:3"},
        // The separator's place in the list is the count: 12 characters here, 6 there, none of them meant.
        Case{L"https=p2:443;http=p1:80", L"p2:443;http="}, Case{L"https=;socks=long.name.test:1", L";socks"},
        // No "=" behind the name: nothing to look for a separator behind, so the list comes back whole.
        Case{L"https://p:8080", L"https://p:8080"}, Case{L"https://p1:8080;p2:8080", L"https://p1:8080;p2:8080"},
        Case{L"a;https;b", L"a;https;b"}, Case{L"https;b", L"https;b"}, Case{L"http=p1:80;https", L"http=p1:80;https"},
        Case{L"http=p1:80;https;b", L"http=p1:80;https;b"},
        // The first "=" behind the name, whatever it belongs to.
        Case{L"https;ftp=p3:21", L"p3:21"}, Case{L"https=", L""}));

}  // namespace
