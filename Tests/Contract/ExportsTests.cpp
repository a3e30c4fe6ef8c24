// What the first call of an export does, and what loading the library does not.
#include <windows.h>

#include <gmock/gmock.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Tests/Contract/ServiceTest.h"

namespace {

using ::testing::StartsWith;

class Exports : public ServiceTest {};

TEST_F(Exports, LoadingTheLibraryAloneDoesNothing) {
  EXPECT_TRUE(m_registry.Calls().empty());
  EXPECT_EQ(m_adapters.CallCount(), 0u);
  EXPECT_TRUE(m_log.Events().empty());
}

TEST_F(Exports, FirstCallLoadsTheStoredSetAndThenCalculates) {
  m_registry.Put(PackedSet({{.id = "A"}}));
  std::size_t readsBeforeSnapshot = 0;
  m_adapters.OnCall([&] { readsBeforeSnapshot = m_registry.Count("RegQueryValueExW"); });
  _IQeLaApi* const service = m_library.Api();

  EXPECT_EQ(readsBeforeSnapshot, 2u);
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});
  EXPECT_EQ(CurrentIds(*service), Ids{L"A"});
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 0u);
}

TEST_F(Exports, FirstCallLogsTheReport) {
  m_library.Api();
  const std::vector<std::wstring> texts = m_log.Texts();
  ASSERT_EQ(texts.size(), 5u);
  EXPECT_EQ(texts[0], L"Calculating current locations...");
  EXPECT_EQ(texts[1], L"GetAdaptersAddresses succeeds, the return value is : 0");
  EXPECT_EQ(texts[2], L"Adapters List :");
  EXPECT_THAT(texts[3], StartsWith(L"Adapter properties:\n\n\tInterface Index:5\n\tDescription :Office"));
  EXPECT_EQ(texts[4], L"//---------------------------------------------\n");
}

TEST_F(Exports, LaterCallsDoNotLoadAgain) {
  m_library.Api();
  m_library.SmartApi();
  m_registry.ClearCalls();
  m_adapters.ClearCalls();
  m_library.Api();
  m_library.SmartApi();
  EXPECT_TRUE(m_registry.Calls().empty());
  EXPECT_EQ(m_adapters.CallCount(), 0u);
}

TEST_F(Exports, LogEventsCarryTheirPlaceInTheProduct) {
  m_library.Api();
  ASSERT_FALSE(m_log.Events().empty());
  for (const LoggedEvent& event : m_log.Events())
    ExpectFirewallEvent(event, 8, StartsWith("FwClient/Service/QeLaLib/"));
}

}  // namespace
