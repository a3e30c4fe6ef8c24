#include <gmock/gmock.h>

#include "Tools/qela/MissedChanges.h"

namespace {

using ::testing::IsEmpty;

std::vector<AdapterProps> Machine(const std::wstring& gateway) {
  std::vector<AdapterProps> adapters(1);
  adapters.front().ifIndex = 2;
  adapters.front().description = L"eth0";
  if (!gateway.empty()) adapters.front().gateways = {gateway};
  return adapters;
}

class QelaMissedChanges : public ::testing::Test {
 protected:
  // What is told, in words, "; " between; the library has calculated with the gateway 10.0.0.1.
  std::string Look(const std::wstring& gateway) {
    std::string words;
    for (const AdapterChange& change : m_missed.Look(Machine(L"10.0.0.1"), Machine(gateway)))
      words += (words.empty() ? "" : "; ") + InWords(change);
    return words;
  }

  MissedChanges m_missed;
};

TEST_F(QelaMissedChanges, ADifferenceIsToldWhenItStandsAtTwoLooksInARow) {
  EXPECT_THAT(Look(L"10.0.0.2"), IsEmpty());
  EXPECT_EQ(Look(L"10.0.0.2"), "adapter 2 (eth0): default gateway 10.0.0.1 -> 10.0.0.2");
}

TEST_F(QelaMissedChanges, WhatTheLibraryTakesOverMeanwhileIsNotTold) {
  EXPECT_THAT(Look(L"10.0.0.2"), IsEmpty());
  EXPECT_THAT(m_missed.Look(Machine(L"10.0.0.2"), Machine(L"10.0.0.2")), IsEmpty());
  EXPECT_THAT(m_missed.Look(Machine(L"10.0.0.2"), Machine(L"10.0.0.2")), IsEmpty());
}

TEST_F(QelaMissedChanges, ADifferenceThatKeepsChangingIsNotTold) {
  for (const wchar_t* gateway : {L"10.0.0.2", L"10.0.0.3", L"10.0.0.2", L"10.0.0.1"})
    EXPECT_THAT(Look(gateway), IsEmpty());
}

TEST_F(QelaMissedChanges, IsToldOnceUntilThereIsAnother) {
  Look(L"10.0.0.2");
  Look(L"10.0.0.2");
  EXPECT_THAT(Look(L"10.0.0.2"), IsEmpty());
  EXPECT_THAT(Look(L""), IsEmpty());
  EXPECT_EQ(Look(L""), "adapter 2 (eth0): default gateway 10.0.0.1 -> none");
}

TEST_F(QelaMissedChanges, IsToldAgainWhenItHasBeenAwayMeanwhile) {
  for (const wchar_t* gateway : {L"10.0.0.2", L"10.0.0.2", L"10.0.0.1", L"10.0.0.1", L"10.0.0.2"}) Look(gateway);
  EXPECT_EQ(Look(L"10.0.0.2"), "adapter 2 (eth0): default gateway 10.0.0.1 -> 10.0.0.2");
}

TEST_F(QelaMissedChanges, ALookThatIsPassedOverBreaksTheRow) {
  Look(L"10.0.0.2");
  m_missed.PassOver();
  EXPECT_THAT(Look(L"10.0.0.2"), IsEmpty());
  EXPECT_NE(Look(L"10.0.0.2"), "");
}

}  // namespace
