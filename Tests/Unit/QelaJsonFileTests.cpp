#include "Tools/qela/JsonFile.h"

#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>

#include <filesystem>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/UniqueName.h"
#include "Tests/Support/CommandFailure.h"
#include "Tests/Support/TestFile.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

JsonNode Read(const std::string& text) { return ParseJson(text, "set.json").Root(); }

std::string Refusal(const std::string& text) {
  return FailureOf([&] { Read(text); });
}

TEST(QelaJsonFile, ValuesAreReadAsWhatTheyAre) {
  const JsonNode root = Read("\xef\xbb\xbf{\"a\": [true, 4294967295, \"B\xc3\xbcro \\ud83d\\ude00\"], \"n\": null}");
  const auto elements = root.Member("a").Elements();
  EXPECT_TRUE(elements[0].Bool());
  EXPECT_EQ(elements[1].UInt32(), 4294967295u);
  EXPECT_EQ(elements[2].Text(), L"B\u00fcro \U0001f600");
  EXPECT_TRUE(root.Member("n").IsNull());
  EXPECT_FALSE(root.FindMember("b").has_value());
}

TEST(QelaJsonFile, AValueOfAnotherTypeIsToldWithItsPlaceAndWhatToWrite) {
  const JsonNode root = Read(R"({"a/b~": [5, "x", {}, [], 1.5, -1, 4294967296, null, "a\u0000b"]})");
  const auto elements = root.Member("a/b~").Elements();
  EXPECT_EQ(FailureOf([&] { elements[0].Text(); }), "set.json: at /a~1b~0/0: 5 stands here; write a text");
  EXPECT_EQ(FailureOf([&] { elements[0].Bool(); }), "set.json: at /a~1b~0/0: 5 stands here; write true or false");
  EXPECT_EQ(FailureOf([&] { elements[1].UInt32(); }),
            "set.json: at /a~1b~0/1: the text \"x\" stands here; write a whole number from 0 to 4294967295");
  EXPECT_THAT(FailureOf([&] { elements[1].Elements(); }), HasSubstr("/1: the text \"x\" stands here; write an array"));
  EXPECT_THAT(FailureOf([&] { elements[2].Text(); }), HasSubstr("/2: an object stands here; write a text"));
  EXPECT_THAT(FailureOf([&] { elements[3].Member("x"); }), HasSubstr("/3: an array stands here; write an object"));
  for (const std::size_t i : {4u, 5u, 6u, 7u})
    EXPECT_THAT(FailureOf([&] { elements[i].UInt32(); }), HasSubstr("write a whole number"));
  EXPECT_THAT(FailureOf([&] { elements[8].Text(); }), HasSubstr("a\\u0000b\" stands here; write a text without"));
  EXPECT_EQ(FailureOf([&] { root.Text(); }), "set.json: at the root: an object stands here; write a text");
}

TEST(QelaJsonFile, AMissingMemberIsNamed) {
  EXPECT_EQ(FailureOf([] { Read("{}").Member("id"); }), "set.json: at the root: the member \"id\" is missing; add it");
}

TEST(QelaJsonFile, AnUnknownMemberIsNamedWithTheKnownOneThatIsClose) {
  const std::vector<std::string> known = {"gateways", "enabled"};
  Read(R"({"gateways": 1, "enabled": 2})").RequireOnly(known);
  EXPECT_EQ(FailureOf([&] { Read(R"({"gatways": 1})").RequireOnly(known); }),
            "set.json: at the root: the member \"gatways\" is unknown; write \"gateways\"");
  EXPECT_EQ(
      FailureOf([&] { Read(R"({"colour": 1})").RequireOnly(known); }),
      "set.json: at the root: the member \"colour\" is unknown; leave it out, or write \"gateways\", \"enabled\"");
}

TEST(QelaJsonFile, WhatIsNoJsonIsToldWithLineAndColumn) {
  EXPECT_THAT(Refusal("{\n  \"\xc3\xa4\": x\n}"), StartsWith("set.json: line 2, column 8: "));
  EXPECT_THAT(Refusal(""), StartsWith("set.json: line 1, column 1: "));
  EXPECT_THAT(Refusal("{} {}"), StartsWith("set.json: line 1, column 4: "));
  EXPECT_THAT(Refusal("{\"a\": 1,}"), StartsWith("set.json: line 1, column 9: "));
  EXPECT_THAT(Refusal("[1e999]"), HasSubstr("number overflow"));
  EXPECT_THAT(Refusal("[NaN]"), StartsWith("set.json: line 1, column "));
  EXPECT_THAT(Refusal(std::string("\xff\xfe{\0}\0", 6)), HasSubstr("UTF-16"));
  EXPECT_THAT(Refusal(std::string(3, '\0')), StartsWith("set.json: line 1, column 1: "));
}

// Not even where the text in front of it is whole: who wrote the rest meant something by it.
TEST(QelaJsonFile, ANulIsRefusedWhereverItStands) {
  using namespace std::string_literals;
  EXPECT_THAT(Refusal("{}\n \0{\"a\": 1}"s),
              StartsWith("set.json: line 2, column 2: the character U+0000 stands here"));
  for (const std::string& text : {"{}\0"s, "\0{}"s, "{\0}"s, "[1\0]"s, "\"\0\""s})
    EXPECT_THAT(Refusal(text), StartsWith("set.json: line 1, column ")) << text.size();
}

TEST(QelaJsonFile, EveryTruncationIsRefused) {
  const std::string whole = R"({"schema": 1, "a": [true, "\ud83d\ude00", -1.5e3, {"b": null}]})";
  Read(whole);
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_THAT(Refusal(whole.substr(0, size)), StartsWith("set.json: line 1, column ")) << size;
}

TEST(QelaJsonFile, WhatIsNoUtf8OrNoWholeCharacterIsRefused) {
  for (const char* text : {"\"\xff\"", "\"\xc0\x80\"", "\"\xed\xa0\x80\"", "\"\xf4\x90\x80\x80\"", "\"\xe2\x82\"",
                           R"("\ud800")", R"("\udc00")", R"("\ud800\ud800")", R"("\ud83dx")"})
    EXPECT_THAT(Refusal(text), StartsWith("set.json: line 1, column ")) << text;
}

TEST(QelaJsonFile, AMessageHoldsNoMoreOfTheFileThanALine) {
  EXPECT_LT(Refusal("[\"" + std::string(1'000'000, 'a') + "\xff\"]").size(), 200u);
  EXPECT_LT(Refusal("[" + std::string(1'000'000, '9') + "e999999]").size(), 400u);
  const std::string member = "{\"" + std::string(1'000'000, 'a') + "\": 1}";
  EXPECT_LT(FailureOf([&] { Read(member).RequireOnly({"id"}); }).size(), 400u);
  EXPECT_LT(FailureOf([&] { Read("\"" + std::string(1'000'000, 'a') + "\"").Bool(); }).size(), 400u);
  EXPECT_THAT(FailureOf([&] { Read("\"\\u001b[2J\"").Bool(); }), HasSubstr("\\u001B[2J"));
}

TEST(QelaJsonFile, AMemberThatStandsTwiceIsRefused) {
  EXPECT_EQ(Refusal("{\"a\": {\"id\": 1,\n\"id\": 1}}"),
            "set.json: line 2, column 4: the member \"id\" stands here a second time; write it once");
  EXPECT_THAT(Refusal(R"({"id": 1, "\u0069d": 1})"), HasSubstr("a second time"));
  Read(R"([{"id": 1}, {"id": {"id": 1}}])");
}

TEST(QelaJsonFile, DeepNestingIsRefused) {
  Read(std::string(64, '[') + std::string(64, ']'));
  EXPECT_THAT(Refusal(std::string(65, '[') + std::string(65, ']')),
              HasSubstr("column 65: nested deeper than 64 levels"));
  EXPECT_THAT(Refusal(std::string(5'000'000, '[')), HasSubstr("nested deeper"));
  std::string objects;
  for (int i = 0; i < 100'000; ++i) objects += "{\"a\":";
  EXPECT_THAT(Refusal(objects), HasSubstr("nested deeper"));
}

TEST(QelaJsonFile, AnObjectOfManyMembersIsReadInShortTime) {
  std::string text = "{";
  for (int i = 0; i < 300'000; ++i) text += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":0";
  EXPECT_THAT(FailureOf([&] { Read(text + "}").RequireOnly({"id"}); }), HasSubstr("is unknown"));
}

TEST(QelaJsonFile, AFileThatCannotBeReadIsNamedWithTheReason) {
  EXPECT_THAT(FailureOf([] { ReadFileBytes(L"C:\\no such folder\\set.json"); }),
              HasSubstr("C:\\no such folder\\set.json: it cannot be read: there is no such file"));
  EXPECT_THAT(FailureOf([] { ReadFileBytes(ProgramFolder().wstring()); }), HasSubstr("it is a folder"));
  const std::wstring held = (std::filesystem::temp_directory_path() / UniqueName()).wstring();
  const UniqueKernelHandle holder(
      ::CreateFileW(held.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  EXPECT_THAT(FailureOf([&] { ReadFileBytes(held); }), HasSubstr("another program has it open"));
}

TEST(QelaJsonFile, AFileBeyondTheLimitIsRefused) {
  const std::wstring file = TestFile("Tests/Data/README.md").wstring();
  EXPECT_FALSE(ReadFileBytes(file).empty());
  EXPECT_THAT(FailureOf([&] { ReadFileBytes(file, 10); }), HasSubstr("it is larger than 10 bytes"));
}

}  // namespace
