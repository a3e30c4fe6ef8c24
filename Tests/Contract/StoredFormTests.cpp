// The example of Docs/stored-form.md, taken from the document.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/TestFile.h"

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

// A line of the example: bytes, two blanks or more, and what they are.
struct ExampleLine {
  Bytes bytes;
  std::string meaning;
};

// No bytes for a line of text.
ExampleLine ParseLine(std::string_view line) {
  constexpr std::string_view kCodeBlock = "    ";
  if (!line.starts_with(kCodeBlock)) return {};
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  ExampleLine parsed;
  while (line.size() > 2) {
    const std::size_t high = kHexDigits.find(line[0]);
    const std::size_t low = kHexDigits.find(line[1]);
    if (high == std::string_view::npos || low == std::string_view::npos || line[2] != ' ') break;
    parsed.bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    line.remove_prefix(3);
  }
  parsed.meaning = line.substr(std::min(line.find_first_not_of(' '), line.size()));
  return parsed;
}

// All bytes of the example. A quoted text must be that of the bytes beside it.
Bytes ExampleOfTheDocument() {
  std::ifstream document(TestFile("Docs/stored-form.md"), std::ios::binary);
  EXPECT_TRUE(document.is_open());
  Bytes all;
  for (std::string text; std::getline(document, text);) {
    const ExampleLine line = ParseLine(text);
    if (line.meaning.starts_with('"')) {
      EXPECT_EQ('"' + std::string(line.bytes.begin(), line.bytes.end()) + '"', line.meaning);
    }
    all.insert(all.end(), line.bytes.begin(), line.bytes.end());
  }
  return all;
}

std::vector<std::wstring> Criteria(const _IQeLocation& location, LOCATION_CRITERIA_TYPE kind) {
  std::vector<std::wstring> texts;
  EXPECT_TRUE(location.GetCriterias()->GetStringCriteria(kind, texts));
  return texts;
}

bool NeedsTheManagementServer(const _IQeLocation& location) {
  bool needed = false;
  EXPECT_TRUE(location.GetCriterias()->GetBoolCriteria(LCT_ZELT_REACHABLE, needed));
  return needed;
}

std::vector<std::uint32_t> AdapterIndexes(const _IQeLocation& location) {
  std::vector<std::uint32_t> indexes;
  location.GetAdapterIndexes(indexes);
  return indexes;
}

using StoredForm = ServiceTest;
using Texts = std::vector<std::wstring>;
using Indexes = std::vector<std::uint32_t>;

TEST_F(StoredForm, OfTheDocumentIsReadAsItSaysAndWrittenTheSame) {
  const Bytes example = ExampleOfTheDocument();
  m_registry.Put(example);
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  const std::shared_ptr<_IEnumQeLocations> set = service->GetLocations();
  ASSERT_EQ(set->GetCount(), 2u);

  const std::shared_ptr<_IQeLocation> office = set->GetItem(0);
  EXPECT_EQ(office->GetId(), L"1f0c7a52-3b7e-4d7c-9a51-0d3f6b9e2c84");
  EXPECT_EQ(office->GetName(), L"Office");
  EXPECT_EQ(office->GetNote(), L"Second floor, the door beside the lift");
  EXPECT_TRUE(office->IsEnabled());
  EXPECT_EQ(Criteria(*office, LCT_DNS_SUFFIX), (Texts{L"*.example"}));
  EXPECT_EQ(Criteria(*office, LCT_DEFAULT_GATEWAY), (Texts{L"10.0.0.1", L"10.0.0.2"}));
  EXPECT_EQ(office->GetCriterias()->GetCount(), 3u);
  EXPECT_FALSE(NeedsTheManagementServer(*office));
  EXPECT_EQ(AdapterIndexes(*office), (Indexes{5}));

  const std::shared_ptr<_IQeLocation> home = set->GetItem(1);
  EXPECT_EQ(home->GetId(), L"7d9e1b40-65aa-4f0e-8c2d-52b1e7f3a906");
  EXPECT_EQ(home->GetName(), L"Caf\u00e9");
  EXPECT_EQ(home->GetNote(), L"");
  EXPECT_FALSE(home->IsEnabled());
  EXPECT_EQ(Criteria(*home, LCT_REGISTRY_KEY), (Texts{L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Name=Home"}));
  EXPECT_EQ(home->GetCriterias()->GetCount(), 2u);
  EXPECT_TRUE(NeedsTheManagementServer(*home));
  EXPECT_EQ(AdapterIndexes(*home), (Indexes{300}));

  EXPECT_TRUE(service->Save());
  EXPECT_EQ(m_registry.Value(), example);
}

}  // namespace
