// What is waited for, as it follows from the log of a calculation.
#include <gtest/gtest.h>

#include "Tools/qela/CalculationProgress.h"

namespace {

CQeLocation Location(const wchar_t* name, std::initializer_list<const wchar_t*> hosts) {
  CQeLocation location;
  location.SetName(name);
  constexpr LOCATION_CRITERIA_TYPE kKind = LCT_DOMAIN_REACHABLE;
  for (const wchar_t* host : hosts) location.AddCriteria(&kKind, host);
  return location;
}

class QelaAwaitedProbe : public testing::Test {
 protected:
  std::string After(std::initializer_list<const wchar_t*> events) {
    for (const wchar_t* event : events) m_awaited.OnEvent(event);
    return m_awaited.Words();
  }

  LocationSet m_set = {Location(L"Office", {L"a.example", L"b.example"}), Location(L"Home", {})};
  AwaitedProbe m_awaited{m_set};
};

TEST_F(QelaAwaitedProbe, IsTheLibraryBeforeALocationIsTested) { EXPECT_EQ(After({}), "the library"); }

TEST_F(QelaAwaitedProbe, IsTheFirstHostOfTheLocation) {
  EXPECT_EQ(After({L"IsCurrentLocation checking location Office"}), "the web host a.example (location \"Office\")");
}

TEST_F(QelaAwaitedProbe, IsTheNextHostWhenOneDoesNotAnswer) {
  EXPECT_EQ(
      After({L"IsCurrentLocation checking location Office", L"IsDomainReachable was unable to match domain a.example"}),
      "the web host b.example (location \"Office\")");
  EXPECT_EQ(After({L"IsDomainReachable was unable to match domain b.example"}),
            "the web host a.example (location \"Office\")")
      << "for the next adapter";
}

TEST_F(QelaAwaitedProbe, IsTheFirstHostAgainAfterOneThatAnswered) {
  EXPECT_EQ(
      After({L"IsCurrentLocation checking location Office", L"IsDomainReachable was unable to match domain a.example",
             L"IsDomainReachable was able to match domain b.example"}),
      "the web host a.example (location \"Office\")");
}

TEST_F(QelaAwaitedProbe, IsDnsWhileTheManagementServerIsLookedFor) {
  EXPECT_EQ(After({L"IsCurrentLocation checking location Home", L"IsZELTReachable calling DnsQuery on m.example"}),
            "DNS for the management server m.example (location \"Home\")");
  EXPECT_EQ(After({L"CheckZeltReachability failed for m.example"}), "the library (location \"Home\")");
}

TEST_F(QelaAwaitedProbe, NamesALocationThatTheSetDoesNotHave) {
  EXPECT_EQ(After({L"IsCurrentLocation checking location Elsewhere",
                   L"IsDomainReachable was unable to match domain x.example"}),
            "the library (location \"Elsewhere\")");
}

}  // namespace
