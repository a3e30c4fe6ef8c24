// The tables of Docs/criteria.md, each row asked of the library.
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include "FwClient/Service/QeLaLib/CriteriaValue.h"
#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "FwClient/Service/QeLaLib/LocationMatcher.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"
#include "Tests/Support/TestFile.h"
#include "Tools/qela/Text.h"

namespace {

// The cells of a row, without the backticks. A bar in a cell is written "\|".
std::vector<std::wstring> CellsOf(const std::string& row) {
  std::vector<std::wstring> cells;
  std::string cell;
  for (std::size_t i = 1; i < row.size(); ++i) {
    if (row[i] == '\\' && row.substr(i + 1, 1) == "|") {
      cell += row[++i];
    } else if (row[i] != '|') {
      cell += row[i];
    } else {
      cell.erase(0, cell.find_first_not_of(' '));
      cell.erase(cell.find_last_not_of(' ') + 1);
      if (cell.starts_with('`')) cell = cell.substr(1, cell.size() - 2);
      cells.push_back(ToWide(cell));
      cell.clear();
    }
  }
  return cells;
}

// The rows of all tables with this head.
std::vector<std::vector<std::wstring>> RowsBelow(const std::string& head) {
  std::ifstream file(TestFile("Docs/criteria.md"), std::ios::binary);
  std::vector<std::vector<std::wstring>> rows;
  bool isInside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line == head)
      isInside = true;
    else if (!line.starts_with('|'))
      isInside = false;
    else if (isInside && !line.starts_with("|-"))
      rows.push_back(CellsOf(line));
  }
  return rows;
}

TEST(QelaCriteriaDocument, SuffixesAgreeAsItSays) {
  const auto rows = RowsBelow("| Criterion | Adapter's suffix | Agree |");
  EXPECT_EQ(rows.size(), 25U);
  for (const auto& row : rows) {
    ASSERT_EQ(row.size(), 3U);
    EXPECT_EQ(DnsSuffixMatches(row[0], row[1] == L"(none)" ? L"" : row[1]), row[2] == L"yes")
        << ToUtf8(row[0]) << " and " << ToUtf8(row[1]);
  }
}

TEST(QelaCriteriaDocument, AddressesAgreeAsItSays) {
  const auto rows = RowsBelow("| Criterion | Adapter shows | Agree |");
  EXPECT_EQ(rows.size(), 6U);
  struct Silent final : MatchObserver {
  } observer;
  const LocationProbes probes;
  for (const auto& row : rows) {
    ASSERT_EQ(row.size(), 3U);
    std::vector<AdapterProps> adapters(1);
    adapters.front().gateways = {row[1]};
    LocationMatcher<Silent> matcher(adapters, probes, observer);
    EXPECT_EQ(matcher.Matches(adapters.front(), LCT_DEFAULT_GATEWAY, {NormalizeCriteriaValue(row[0])}),
              row[2] == L"yes")
        << ToUtf8(row[0]);
  }
}

TEST(QelaCriteriaDocument, RegistryTextsAskForWhatItSays) {
  const auto rows = RowsBelow("| Text | Key | Value | Data |");
  EXPECT_EQ(rows.size(), 11U);
  for (const auto& row : rows) {
    ASSERT_EQ(row.size(), 4U);
    const auto criterion = ParseRegistryKeyCriterion(row[0]);
    ASSERT_EQ(criterion.has_value(), row[1] != L"never") << ToUtf8(row[0]);
    if (!criterion) continue;
    EXPECT_EQ(criterion->subkey, row[1]) << ToUtf8(row[0]);
    EXPECT_EQ(criterion->IsExistenceOnly(), row[2] == L"exists") << ToUtf8(row[0]);
    if (criterion->IsExistenceOnly()) continue;
    EXPECT_EQ(criterion->valueName, row[2] == L"default" ? L"" : row[2]) << ToUtf8(row[0]);
    EXPECT_EQ(criterion->data, row[3] == L"empty" ? L"" : row[3]) << ToUtf8(row[0]);
  }
}

}  // namespace
