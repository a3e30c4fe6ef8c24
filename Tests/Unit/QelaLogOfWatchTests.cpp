// A log that qela watch has written, which looks at the adapters itself and so adds lines.
#include <gmock/gmock.h>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "Tools/qela/LoggedCalculation.h"

namespace {

constexpr wchar_t kTaken[] = L"GetAdaptersAddresses succeeds, the return value is : 0";

std::optional<LoggedCalculation> Read(const std::vector<std::wstring>& texts) {
  CalculationReader reader;
  for (const std::wstring& text : texts)
    EXPECT_EQ(reader.OnMessage({text, std::nullopt, 0, 0}), std::nullopt) << "a second calculation";
  return reader.End();
}

class QelaLogOfWatch : public ::testing::Test {
 protected:
  QelaLogOfWatch() {
    AdapterProps adapter;
    adapter.ifIndex = 2;
    adapter.description = L"eth0";
    m_report = L"Adapter properties:\n" + RenderAdapterProps(adapter);
  }

  std::wstring m_report;
};

TEST_F(QelaLogOfWatch, ALookBehindACalculationLeavesItWhole) {
  const auto calculation = Read(
      {L"Calculating current locations...", kTaken, L"Adapters List :", m_report,
       L"IsCurrentLocation checking location All", L"IsCurrentLocation bZeltReachabilityCriteria 0",
       L"IsCurrentLocation criteria count is 0", L"IsCurrentLocation returning matched criterias 1 for location All...",
       kTaken, L"Skipped raising a location changed event...", kTaken, kTaken});
  ASSERT_TRUE(calculation);
  EXPECT_EQ(calculation->broken, "");
  EXPECT_TRUE(calculation->IsWhole() && calculation->isComplete);
}

TEST_F(QelaLogOfWatch, TwoReportsOfAdaptersAreThoseOfTwoCalculationsStill) {
  const auto calculation = Read({L"Calculating current locations...", kTaken, L"Adapters List :", m_report, kTaken,
                                 L"Adapters List :", m_report});
  ASSERT_TRUE(calculation);
  EXPECT_FALSE(calculation->IsWhole());
}

}  // namespace
