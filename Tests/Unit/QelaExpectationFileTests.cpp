#include "Tools/qela/ExpectationFile.h"

#include <gmock/gmock.h>

#include "Tests/Unit/QelaMachines.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

CQeLocation SecondTwin() {
  CQeLocation twin = Location(L"Twin");
  twin.SetId(L"id-2");
  return twin;
}

const TestSet& Places() {
  static const TestSet places({Location(L"Office"), Location(L"Home, \"sweet\""), Location(L"Twin"), SecondTwin()});
  return places;
}

Expectations Read(const std::string& text) { return ParseExpectations(text, "e.csv", Places()); }
std::string Refusal(const std::string& text) {
  return FailureOf([&] { Read(text); });
}

TEST(QelaExpectationFile, MachinesAndTheirLocationsAreReadByNameAndById) {
  const Expectations read = Read("machine,locations\npc1,Office;id-2\npc2,\npc3, Office ; Twin (id-Twin);\n");
  EXPECT_EQ(read.size(), 3u);
  EXPECT_THAT(read.at(L"pc1").isCurrent, ElementsAre(true, false, false, true));
  EXPECT_THAT(read.at(L"pc2").isCurrent, ElementsAre(false, false, false, false));
  EXPECT_THAT(read.at(L"pc3").isCurrent, ElementsAre(true, false, true, false));
  EXPECT_EQ(read.at(L"pc3").line, 4u);
}

TEST(QelaExpectationFile, QuotedFieldsMayHoldAnything) {
  const Expectations read = Read(
      "\xef\xbb\xbf\"machine\",\"locations\"\r\n\r\n\"B\xc3\xbcro,\r\n\"\"1\"\"\",\"Home, "
      "\"\"sweet\"\"\"\r\nlast,Office");
  EXPECT_THAT(read.at(L"B\u00fcro,\r\n\"1\"").isCurrent, ElementsAre(false, true, false, false));
  EXPECT_EQ(read.at(L"B\u00fcro,\r\n\"1\"").line, 3u);
  EXPECT_EQ(read.at(L"last").line, 5u);
}

TEST(QelaExpectationFile, ErrorsNameTheLine) {
  const std::string head = "machine,locations\n";
  EXPECT_EQ(Refusal(""), "e.csv, line 1: the first line must be \"machine,locations\"");
  EXPECT_EQ(Refusal("\n\n"), "e.csv, line 1: the first line must be \"machine,locations\"");
  EXPECT_EQ(Refusal("pc1,Office\n"), "e.csv, line 1: the first line must be \"machine,locations\"");
  EXPECT_EQ(Refusal(head + "pc1\n"),
            "e.csv, line 2: 1 field stands here; write the machine, a comma, and its locations separated by \";\"");
  EXPECT_THAT(Refusal(head + "pc1,Office,Twin\n"), HasSubstr("line 2: 3 fields stand here"));
  EXPECT_EQ(Refusal(head + ",Office\n"), "e.csv, line 2: the machine has no name");
  EXPECT_EQ(Refusal(head + "pc1,Office\npc2,office\n"),
            "e.csv, line 3: no location of the set has the name or ID \"office\"; several are separated by \";\"");
  EXPECT_EQ(Refusal(head + "pc1,Twin\n"),
            "e.csv, line 2: several locations have the name \"Twin\"; write the ID of one");
  EXPECT_EQ(Refusal(head + "pc1,Office\n\npc1,\n"), "e.csv, line 4: \"pc1\" stands in line 2 already");
  EXPECT_THAT(Refusal(head + "pc1,a\"b\n"), HasSubstr("line 2: a quotation mark stands inside a field"));
  EXPECT_THAT(Refusal(head + "\"pc1\"x,Office\n"), HasSubstr("line 2: text follows a closing quotation mark"));
  EXPECT_EQ(Refusal(head + "pc1,\"Office\npc2,\n"), "e.csv, line 2: a quotation mark is not closed");
  EXPECT_THAT(Refusal(head + "pc1,Office\rpc2,\n"), HasSubstr("line 2: a line ends with CR alone"));
  EXPECT_EQ(Refusal(head + "pc\xfc,Office\n"), "e.csv, line 2: it is not UTF-8; save the file as \"CSV UTF-8\"");
  EXPECT_THAT(Refusal("\xff\xfem"), HasSubstr("line 1: "));
}

}  // namespace
