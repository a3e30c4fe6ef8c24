#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <set>
#include <string>

#include "Tests/Support/TestFile.h"
#include "Tools/qela/LibraryMessages.h"

namespace {

TEST(QelaLibraryMessages, AreKnownByTheirFixedBeginnings) {
  EXPECT_EQ(FixedBeginningOfMessage(L"Calculating current locations..."), 32u);
  EXPECT_EQ(FixedBeginningOfMessage(L"Calculating current locations... and more"), 32u);
  EXPECT_EQ(FixedBeginningOfMessage(L"IsCurrentLocation checking location B\u00fcro"), 36u);
  EXPECT_EQ(FixedBeginningOfMessage(L"Adapter properties:\n\n\tInterface Index:2"), 19u);
  EXPECT_EQ(FixedBeginningOfMessage(L"CheckZeltReachability succeeded"), 31u);
  EXPECT_EQ(FixedBeginningOfMessage(L"CheckZeltReachability succeeded for zelt.corp.example"), 36u);
  for (const wchar_t* text :
       {L"", L"C", L"Calculating current locations..", L"Something else", L" Adapters List :", L"\u00fc"})
    EXPECT_EQ(FixedBeginningOfMessage(text), 0u) << text;
}

TEST(QelaLibraryMessages, EachIsFoundByItsOwnFormat) {
  for (const LibraryMessage& message : LibraryMessages()) {
    const LibraryMessage* const found = LibraryMessageAt(message.format);
    ASSERT_NE(found, nullptr) << message.format;
    EXPECT_EQ(found->beginning, message.beginning) << message.format;
  }
}

// Which is compared with the library's own texts elsewhere.
TEST(QelaLibraryMessages, AreThoseOfTheDocument) {
  std::ifstream file(TestFile("Docs/log.md"), std::ios::binary);
  std::set<std::string> documented;
  bool isInside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("| Line |"))
      isInside = true;
    else if (!line.starts_with('|'))
      isInside = false;
    else if (isInside && !line.starts_with("|-"))
      documented.insert(line.substr(3, line.find('`', 3) - 3));
  }
  std::set<std::string> known;
  for (const LibraryMessage& message : LibraryMessages()) {
    std::string format(message.format);
    for (std::size_t at = format.find('\n'); at != std::string::npos; at = format.find('\n'))
      format.replace(at, 1, "\\n");
    known.insert(format);
  }
  EXPECT_EQ(known, documented);
}

}  // namespace
