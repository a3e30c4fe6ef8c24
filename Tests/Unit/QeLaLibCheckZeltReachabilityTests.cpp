#include <windows.h>
#include <gtest/gtest.h>
#include <windns.h>

#include <map>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "ScriptedWindows/ImportTable/HeapLimit.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using Lines = std::vector<std::wstring>;

// Answers DNS queries. It writes a line of its own to the log for each call, so that the order of calls and lines
// shows.
class DnsSpy {
 public:
  explicit DnsSpy(const ScriptedRegistry& registry) : m_registry(registry) { s_self = this; }
  ~DnsSpy() {
    s_self = nullptr;
    EXPECT_EQ(m_queries, m_frees) << "every record list is freed";
  }
  DnsSpy(const DnsSpy&) = delete;
  DnsSpy& operator=(const DnsSpy&) = delete;

  std::map<std::wstring, DNS_STATUS> statuses;  // of the names that are known; 9003 for others

 private:
  static DNS_STATUS WINAPI OnQuery(PCWSTR name, WORD type, DWORD options, PVOID extra, PDNS_RECORD* records,
                                   PVOID* reserved) {
    EXPECT_EQ(type, 1);
    EXPECT_EQ(options, 8u);
    EXPECT_EQ(extra, nullptr);
    EXPECT_EQ(reserved, nullptr);
    EXPECT_EQ(s_self->m_registry.OpenKeys(), 0u) << "a query may take long; nothing is kept open meanwhile";
    FW_LOG(kLogInfo, L"(query %s)", name);
    ++s_self->m_queries;
    // Also with a failure, as a server may send records with it.
    *records = &s_self->m_records;
    const auto status = s_self->statuses.find(name);
    return status != s_self->statuses.end() ? status->second : DNS_ERROR_RCODE_NAME_ERROR;
  }
  static void WINAPI OnFree(PVOID records, DNS_FREE_TYPE type) {
    EXPECT_EQ(records, &s_self->m_records);
    EXPECT_EQ(type, 1);
    FW_LOG(kLogInfo, L"(free)");
    ++s_self->m_frees;
  }

  static inline DnsSpy* s_self = nullptr;
  const ScriptedRegistry& m_registry;
  DNS_RECORD m_records{};
  int m_queries = 0;
  int m_frees = 0;
  ImportPatch m_queryPatch{ThisProgram(), "DnsQuery_W", &DnsSpy::OnQuery};
  ImportPatch m_freePatch{ThisProgram(), "DnsFree", &DnsSpy::OnFree};
};

std::wstring Found(const std::wstring& text) { return L"CheckZeltReachability found ZeltServerList value " + text; }

class ManagementServerProbe : public testing::Test {
 protected:
  ManagementServerProbe() {
    m_registry.MakeKey(kKey);
    m_registry.MakeKey(kKey, KEY_WOW64_32KEY);
  }

  void Expect(bool reachable, const Lines& lines) {
    const LogRecorder log;
    EXPECT_EQ(CheckZeltReachability(), reachable);
    EXPECT_EQ(log.Texts(), lines);
    EXPECT_EQ(m_registry.OpenKeys(), 0u);
    for (const LoggedEvent& event : log.Events()) {
      if (event.text.starts_with(L"(")) continue;
      ExpectFirewallEvent(event, kLogInfo, "FwClient/Service/QeLaLib/QeLaLib.cpp");
    }
  }

  void SetList(const std::wstring& text, REGSAM view = KEY_WOW64_64KEY) {
    m_registry.SetText(kKey, kValue, text, view);
  }
  void SetListOf32BitView(const std::wstring& text) { SetList(text, KEY_WOW64_32KEY); }
  void SetBytes(DWORD type, const wchar_t* data, std::size_t bytes) { m_registry.Set(kKey, kValue, type, data, bytes); }

  std::vector<ScriptedRegistry::Call> Opens() const { return m_registry.Calls("RegOpenKeyExW"); }

  static constexpr wchar_t kKey[] = L"SOFTWARE\\Quillon\\Mervo\\Shared Components\\Framework";
  static constexpr wchar_t kValue[] = L"ZeltServerList";
  ScriptedRegistry m_registry{ThisProgram()};
  DnsSpy m_dns{m_registry};
};

TEST_F(ManagementServerProbe, StopsAtTheFirstNameThatAnswers) {
  SetList(L"srv1|10.0.0.1|443;srv2|10.0.0.2|443;srv3|10.0.0.3|443");
  m_dns.statuses = {{L"srv2", 0}, {L"srv3", 0}};
  Expect(true,
         {Found(L"srv1|10.0.0.1|443;srv2|10.0.0.2|443;srv3|10.0.0.3|443"), L"(query srv1)",
          L"IsZELTReachable calling DnsQuery on srv1", L"ZELT reachability failed with DNS_STATUS 9003", L"(free)",
          L"CheckZeltReachability failed for srv1", L"(query srv2)", L"IsZELTReachable calling DnsQuery on srv2",
          L"ZELT reachability DnsQuery succeeded", L"(free)", L"CheckZeltReachability succeeded for srv2"});
}

TEST_F(ManagementServerProbe, IsNegativeWhenNoNameAnswers) {
  SetList(L"a|b|c|d;|x");
  m_dns.statuses = {{L"a", 9002}, {L"d", -1}, {L"", 123}};
  Expect(false, {Found(L"a|b|c|d;|x"), L"(query a)", L"IsZELTReachable calling DnsQuery on a",
                 L"ZELT reachability failed with DNS_STATUS 9002", L"(free)", L"CheckZeltReachability failed for a",
                 L"(query d)", L"IsZELTReachable calling DnsQuery on d", L"ZELT reachability failed with DNS_STATUS -1",
                 L"(free)", L"CheckZeltReachability failed for d", L"(query )", L"IsZELTReachable calling DnsQuery on ",
                 L"ZELT reachability failed with DNS_STATUS 123", L"(free)", L"CheckZeltReachability failed for "});
}

TEST_F(ManagementServerProbe, AsksAgainForANameThatIsListedTwice) {
  SetList(L"a;a");
  const LogRecorder log;
  EXPECT_FALSE(CheckZeltReachability());
  EXPECT_EQ(log.Count(L"(query a)"), 2u);
}

TEST_F(ManagementServerProbe, AnEmptyListIsNegative) {
  SetList(L"");
  Expect(false, {Found(L"")});
  SetBytes(REG_SZ, nullptr, 0);
  Expect(false, {Found(L"")});
  SetList(L";;");
  Expect(false, {Found(L";;")});
}

TEST_F(ManagementServerProbe, AMissingKeyIsNegativeWithoutALookAtThe32BitView) {
  SetListOf32BitView(L"a");
  m_dns.statuses = {{L"a", 0}};
  m_registry.RemoveKey(kKey);
  Expect(false, {L"CheckZeltReachability RegOpenKey failed with 2"});
  EXPECT_EQ(Opens().size(), 1u);
  EXPECT_EQ(Opens()[0].access, 0x20019u);
}

TEST_F(ManagementServerProbe, AMissingValueIsReadFromThe32BitView) {
  SetListOf32BitView(L"a|b");
  m_dns.statuses = {{L"a", 0}};
  Expect(true, {L"CheckZeltReachability RegQueryValueEx failed with 2 (this is expected on x64 systems)",
                L"CheckZeltReachability found ZeltServerList value a|b at the alternate KEY_WOW64_32KEY location",
                L"(query a)", L"IsZELTReachable calling DnsQuery on a", L"ZELT reachability DnsQuery succeeded",
                L"(free)", L"CheckZeltReachability succeeded for a"});
  ASSERT_EQ(Opens().size(), 2u);
  EXPECT_EQ(Opens()[1].access, 0x20219u);
}

TEST_F(ManagementServerProbe, TheFirstViewsKeyIsClosedBeforeThe32BitViewIsOpened) {
  SetListOf32BitView(L"");
  std::size_t openAtSecond = 99;
  m_registry.OnCall([&](const ScriptedRegistry::Call& call) {
    if (call.function == "RegOpenKeyExW") openAtSecond = m_registry.OpenKeys();
  });
  const LogRecorder log;
  EXPECT_FALSE(CheckZeltReachability());
  EXPECT_EQ(Opens().size(), 2u);
  EXPECT_EQ(openAtSecond, 0u);
}

TEST_F(ManagementServerProbe, AListThatCanBeSizedButNotReadIsNegative) {
  SetList(L"a");
  SetListOf32BitView(L"a");
  m_dns.statuses = {{L"a", 0}};
  m_registry.Fail("RegQueryValueExW", ERROR_MORE_DATA, 2);
  Expect(false, {L"CheckZeltReachability RegQueryValueEx failed with 234  (this is expected on x64 systems)"});
  EXPECT_EQ(Opens().size(), 1u);
}

TEST_F(ManagementServerProbe, AMissingKeyOfThe32BitViewIsNegative) {
  m_registry.Fail("RegOpenKeyExW", ERROR_ACCESS_DENIED, 2);
  Expect(false, {L"CheckZeltReachability RegQueryValueEx failed with 2 (this is expected on x64 systems)",
                 L"CheckZeltReachability RegOpenKey KEY_WOW64_32KEY failed with 5"});
}

TEST_F(ManagementServerProbe, AMissingValueOfThe32BitViewIsNegative) {
  Expect(false, {L"CheckZeltReachability RegQueryValueEx failed with 2 (this is expected on x64 systems)",
                 L"CheckZeltReachability RegQueryValueEx KEY_WOW64_32KEY failed with 2"});
}

TEST_F(ManagementServerProbe, AListOfThe32BitViewThatCannotBeSizedIsNotRead) {
  SetListOf32BitView(L"a");
  m_registry.Fail("RegQueryValueExW", ERROR_ACCESS_DENIED, 2);
  Expect(false, {L"CheckZeltReachability RegQueryValueEx failed with 2 (this is expected on x64 systems)",
                 L"CheckZeltReachability RegQueryValueEx KEY_WOW64_32KEY failed with 5"});
}

TEST_F(ManagementServerProbe, AListOfThe32BitViewThatCanBeSizedButNotReadIsNegative) {
  SetListOf32BitView(L"a");
  m_dns.statuses = {{L"a", 0}};
  m_registry.Fail("RegQueryValueExW", ERROR_MORE_DATA, 3);
  Expect(false, {L"CheckZeltReachability RegQueryValueEx failed with 2 (this is expected on x64 systems)",
                 L"CheckZeltReachability RegQueryValueEx KEY_WOW64_32KEY failed with 234"});
}

TEST_F(ManagementServerProbe, TheValueIsSizedThenReadIntoABufferOfThatSize) {
  SetList(L"abc");
  const LogRecorder log;
  EXPECT_FALSE(CheckZeltReachability());
  EXPECT_EQ(m_registry.Calls("RegQueryValueExW"),
            (std::vector{ScriptedRegistry::Query(kValue, false, 0), ScriptedRegistry::Query(kValue, true, 8)}));
}

TEST_F(ManagementServerProbe, TheTypeOfTheListDoesNotMatterAndItsTextEndsByItself) {
  m_dns.statuses = {{L"ab", 0}};
  const auto expectReachable = [this] {
    Expect(true, {Found(L"ab"), L"(query ab)", L"IsZELTReachable calling DnsQuery on ab",
                  L"ZELT reachability DnsQuery succeeded", L"(free)", L"CheckZeltReachability succeeded for ab"});
  };
  SetBytes(REG_BINARY, L"ab", 4);  // not terminated
  expectReachable();
  SetBytes(REG_BINARY, L"abc", 5);  // half a character behind it
  expectReachable();
  SetBytes(REG_MULTI_SZ, L"ab\0cd\0", 14);
  expectReachable();
  SetBytes(REG_EXPAND_SZ, L"ab", 6);
  expectReachable();
}

TEST_F(ManagementServerProbe, WantOfMemoryReachesTheCallerAfterTheKeyWasClosed) {
  constexpr std::size_t kCharacters = 50'000;
  SetList(std::wstring(kCharacters, L'x'));
  const LogRecorder log;
  {
    const HeapLimit memory(ThisProgram(), kCharacters);
    EXPECT_THROW(CheckZeltReachability(), std::bad_alloc);
  }
  EXPECT_EQ(Opens().size(), 1u);
  EXPECT_EQ(m_registry.OpenKeys(), 0u);
}

}  // namespace
