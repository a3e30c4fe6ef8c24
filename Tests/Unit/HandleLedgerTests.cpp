#include "ScriptedWindows/ImportTable/HandleLedger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HandleLedgerTest : public testing::Test {
 protected:
  HandleLedger m_ledger;
  const int m_a = 0;
  const int m_b = 0;
};

TEST_F(HandleLedgerTest, TellsWhatIsOpenByKindAndByName) {
  m_ledger.Opened("token", "CloseHandle", &m_a);
  m_ledger.Opened("token", "CloseHandle", &m_b);
  EXPECT_EQ(m_ledger.Open("token"), 2u);
  EXPECT_THAT(m_ledger.Leaks(), ElementsAre("token x2"));
  EXPECT_THAT(m_ledger.OpenHandles(), testing::UnorderedElementsAre("token", "token2"));
  m_ledger.Closed("CloseHandle", &m_a);
  EXPECT_THAT(m_ledger.OpenHandles(), ElementsAre("token2"));
  EXPECT_EQ(m_ledger.Count("token"), 2u);
  EXPECT_EQ(m_ledger.Count("CloseHandle"), 1u);
  EXPECT_THAT(m_ledger.Mistakes(), IsEmpty());
}

TEST_F(HandleLedgerTest, NotesEveryWrongClosingAndUse) {
  m_ledger.Opened("key", "RegCloseKey", &m_a);
  m_ledger.Closed("CloseHandle", &m_a);
  m_ledger.Closed("RegCloseKey", &m_a);
  EXPECT_EQ(m_ledger.Use(&m_a), "key");
  EXPECT_EQ(m_ledger.Use(&m_b), "?");
  EXPECT_EQ(m_ledger.Use(nullptr), "null");
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre("key closed by CloseHandle", "key closed twice",
                                               "key used after it was closed", "a handle used that nobody gave out"));
}

TEST_F(HandleLedgerTest, DoesNotJudgeAHandleFromBeforeTheBooks) {
  m_ledger.Closed("CloseHandle", &m_a);
  EXPECT_THAT(m_ledger.Mistakes(), IsEmpty());
  EXPECT_FALSE(m_ledger.Knows(&m_a));
}

TEST_F(HandleLedgerTest, TakesAValueThatComesAgainForANewHandle) {
  m_ledger.Opened("event", "CloseHandle", &m_a);
  m_ledger.Closed("CloseHandle", &m_a);
  m_ledger.Opened("event", "CloseHandle", &m_a);
  m_ledger.Closed("CloseHandle", &m_a);
  EXPECT_THAT(m_ledger.Mistakes(), IsEmpty());
  EXPECT_THAT(m_ledger.Leaks(), IsEmpty());
}

TEST_F(HandleLedgerTest, CountsWhatIsEnteredAndLeft) {
  m_ledger.Entered("WSAStartup");
  EXPECT_THAT(m_ledger.Leaks(), ElementsAre("WSAStartup x1"));
  m_ledger.Left("WSACleanup", "WSAStartup");
  m_ledger.Left("WSACleanup", "WSAStartup");
  EXPECT_THAT(m_ledger.Leaks(), IsEmpty());
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre("WSACleanup without WSAStartup"));
}

}  // namespace
