#include "Tools/qela/LocationSetFile.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <new>
#include <set>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Support/TestFile.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/CriterionKinds.h"
#include "Tools/qela/FileBytes.h"
#include "Tools/qela/JsonFile.h"
#include "Tools/qela/RegFile.h"
#include "Tools/qela/SetComparison.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// Of every kind of criterion and of text.
LocationSet Set() {
  LocationBlob office{.id = "B\xc3\xbcro-1",
                      .name = "B\xc3\xbcro \xe6\x97\xa5 \xf0\x9f\x98\x80",
                      .note = "\"a\"\n\\b\x01",
                      .enabled = false,
                      .adapterIndexes = {2, 7},
                      .zeltReachable = true};
  for (std::size_t kind = 0; kind < office.texts.size(); ++kind)
    office.texts[kind] = {"10.0.0." + std::to_string(kind), "*.corp-\xc3\xa4.example"};
  return DecodeSet(PackedSet({office, {.id = "2", .name = ""}}));
}

std::string Refusal(const std::string& bytes) {
  try {
    ParseSetFile(bytes, "set");
  } catch (const CommandError& error) {
    EXPECT_EQ(error.Code(), kFailed);
    return error.what();
  }
  ADD_FAILURE() << "not refused: " << bytes.substr(0, 1000);
  return {};
}

std::string WithLocation(const std::string& location) { return R"({"schema": 1, "locations": [)" + location + "]}"; }

// What reg.exe writes, in bytes of one letter.
std::string Reg(const std::string& lines, const std::string& header = "Windows Registry Editor Version 5.00") {
  return header + "\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Tessel\\Firewall\\LA]\r\n" + lines + "\r\n\r\n";
}
constexpr const char* kEmptySet = "\"la\"=hex:91,91,90";

TEST(QelaLocationSetFile, BothFormsKeepEverythingButTheAdapters) {
  const LocationSet set = Set();
  for (const std::string& bytes : {SetAsJson(set), SetAsReg(set)}) {
    const LocationSet read = ParseSetFile(bytes, "set");
    EXPECT_TRUE(Compare(set, read).empty());
    ASSERT_EQ(read.size(), 2u);
    EXPECT_TRUE(read[0].AdapterIndexes().empty());
  }
}

TEST(QelaLocationSetFile, ARegFileTakesNoAdaptersToOtherMachines) {
  for (const CQeLocation& location : DecodeSet(ParseRegFile(SetAsReg(Set()), "set").bytes))
    EXPECT_TRUE(location.AdapterIndexes().empty());
}

TEST(QelaLocationSetFile, AnEmptySetIsASet) {
  EXPECT_TRUE(ParseSetFile(SetAsJson({}), "set").empty());
  EXPECT_TRUE(ParseSetFile(SetAsReg({}), "set").empty());
}

TEST(QelaLocationSetFile, MembersThatAreMissingHaveTheirUsualValues) {
  const LocationSet set =
      ParseSetFile(WithLocation(R"({"name": "Office", "id": "1"}, {"id": "2", "name": "", "criteria": {}})"), "set");
  ASSERT_EQ(set.size(), 2u);
  EXPECT_EQ(set[0].Name(), L"Office");
  EXPECT_EQ(set[0].GetNote(), L"");
  EXPECT_TRUE(set[0].IsEnabled());
  EXPECT_EQ(set[0].Criterias().GetCount(), 0u);
  EXPECT_EQ(set[1].Criterias().GetCount(), 0u);
}

TEST(QelaLocationSetFile, CriteriaStayAsTheyStandInTheFile) {
  const char* const gateways = R"({"id": "1", "name": "", "criteria": {"gateways": ["a", "a", "", " "]}})";
  EXPECT_THAT(ParseSetFile(WithLocation(gateways), "set")[0].Criterias().Texts(LCT_DEFAULT_GATEWAY),
              ElementsAre(L"a", L"a", L"", L" "));
}

TEST(QelaLocationSetFile, WhatIsNoSetIsToldWithItsPlaceAndWhatToWrite) {
  const struct {
    std::string text;
    std::string message;
  } kCases[] = {
      {"[]", "set: at the root: an array stands here; write an object"},
      {R"({"locations": []})", "set: at the root: the member \"schema\" is missing; add it"},
      {R"({"schema": 1})", "set: at the root: the member \"locations\" is missing; add it"},
      {R"({"schema": 2, "locations": []})",
       "set: at /schema: 2 stands here; write 1, the only version that this qela reads"},
      {R"({"schema": "1", "locations": []})",
       "set: at /schema: the text \"1\" stands here; write a whole number from 0 to 4294967295"},
      {R"({"schema": 1, "locations": {}})", "set: at /locations: an object stands here; write an array"},
      {R"({"schema": 1, "location": []})", "set: at the root: the member \"location\" is unknown; write \"locations\""},
      {WithLocation("5"), "set: at /locations/0: 5 stands here; write an object"},
      {WithLocation(R"({"name": "a"})"), "set: at /locations/0: the member \"id\" is missing; add it"},
      {WithLocation(R"({"id": "a"})"), "set: at /locations/0: the member \"name\" is missing; add it"},
      {WithLocation(R"({"id": "", "name": "a"})"),
       "set: at /locations/0/id: the text \"\" stands here; write an ID, such as a UUID"},
      {WithLocation(R"({"id": 7, "name": "a"})"), "set: at /locations/0/id: 7 stands here; write a text"},
      {WithLocation(R"({"id": "a", "name": null})"), "set: at /locations/0/name: null stands here; write a text"},
      {WithLocation(R"({"id": "a", "name": "a", "enabled": 1})"),
       "set: at /locations/0/enabled: 1 stands here; write true or false"},
      {WithLocation(R"({"id": "a", "name": "a", "note": false})"),
       "set: at /locations/0/note: false stands here; write a text"},
      {WithLocation(R"({"id": "a", "name": "a", "adapters": []})"),
       "set: at /locations/0: the member \"adapters\" is unknown; leave it out, or write \"id\", \"name\", "
       "\"enabled\", \"note\", \"criteria\""},
      {WithLocation(R"({"id": "a", "name": "a", "criteria": {"gateway": []}})"),
       "set: at /locations/0/criteria: the member \"gateway\" is unknown; write \"gateways\""},
      {WithLocation(R"({"id": "a", "name": "a", "criteria": {"gateways": "10.0.0.1"}})"),
       "set: at /locations/0/criteria/gateways: the text \"10.0.0.1\" stands here; write an array"},
      {WithLocation(R"({"id": "a", "name": "a", "criteria": {"gateways": ["10.0.0.1", 10]}})"),
       "set: at /locations/0/criteria/gateways/1: 10 stands here; write a text"},
      {WithLocation(R"({"id": "a", "name": "a", "criteria": {"managementServer": "no"}})"),
       "set: at /locations/0/criteria/managementServer: the text \"no\" stands here; write true or false"},
      {WithLocation(R"({"id": "a", "name": "a"}, {"id": "b", "name": "a"}, {"id": "a", "name": "b"})"),
       "set: at /locations/2/id: an earlier location has this ID; write another, or leave one of the two out"},
  };
  for (const auto& [text, message] : kCases) EXPECT_EQ(Refusal(text), message);
  EXPECT_THAT(Refusal(WithLocation(R"({"id": "a", "name": "a\u0000b"})")), HasSubstr("without the character U+0000"));
}

TEST(QelaLocationSetFile, EveryTruncationOfAJsonFileIsRefused) {
  std::string whole = SetAsJson(Set());
  whole.erase(whole.find_last_not_of('\n') + 1);
  for (std::size_t size = 0; size < whole.size(); ++size)
    ASSERT_THAT(Refusal(whole.substr(0, size)), StartsWith("set: line ")) << size;
}

TEST(QelaLocationSetFile, EveryTruncationOfARegFileIsRefused) {
  std::string whole = SetAsReg(Set());
  constexpr std::size_t kUtf16Ends = 2 * std::char_traits<char>::length("\r\n\r\n");
  whole.erase(whole.size() - kUtf16Ends);
  for (std::size_t size = 0; size < whole.size(); ++size)
    ASSERT_THAT(Refusal(whole.substr(0, size)), StartsWith("set: line ")) << size;
  for (const char* header : {"Windows Registry Editor Version 5.00", "REGEDIT4"}) {
    const std::string ansi = Reg("\"la\"=hex:91,\\\r\n  91,90", header);
    for (std::size_t size = 0; size < ansi.size() - std::strlen("\r\n\r\n"); ++size)
      ASSERT_THAT(Refusal(ansi.substr(0, size)), StartsWith("set: line ")) << size;
  }
}

TEST(QelaLocationSetFile, ARegFileIsWrittenAsRegWritesIt) {
  const std::string utf16 = SetAsReg(LocationSet(2, DecodeSet(PackedSet({{.id = "1234567890"}}))[0]));
  ASSERT_THAT(utf16, StartsWith("\xff\xfe"));
  std::string text;
  for (std::size_t i = 2; i < utf16.size(); i += 2) text += utf16[i];
  EXPECT_EQ(
      text,
      "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Tessel\\Firewall\\LA]\r\n"
      "\"la\"=hex:91,91,92,96,99,90,90,90,90,90,90,90,90,c2,aa,31,32,33,34,35,36,37,38,39,30,\\\r\n"
      "  a4,4e,61,6d,65,a0,c3,90,96,99,90,90,90,90,90,90,90,90,c2,aa,31,32,33,34,35,\\\r\n"
      "  36,37,38,39,30,a4,4e,61,6d,65,a0,c3,90\r\n\r\n");
}

TEST(QelaLocationSetFile, RegFilesOfOtherProgramsAreRead) {
  for (const std::string& bytes :
       {Reg(kEmptySet), Reg(kEmptySet, "REGEDIT4"), "\xef\xbb\xbf" + Reg(kEmptySet), Reg("\"LA\"=hex(3):91,91,90"),
        Reg("; a comment \xc3\xa4\n\"la\"=hex:\\\n91,\\\n 91,\\\n  90\n"),
        Reg("\"la.former\"=hex:91,\\\r\n  91,90\r\n\"la\"=hex:91,91,90"),
        Reg("\"la\"=hex:91,91,90\r\n\"la.former\"=hex:01"),
        std::string("Windows Registry Editor Version "
                    "5.00\n[hkey_local_machine\\software\\corvane\\tessel\\firewall\\la]\n\"la\"=hex:91,91,90")})
    EXPECT_TRUE(ParseSetFile(bytes, "set").empty());
  EXPECT_EQ(ParseRegFile(Reg("\"la\"=hex:0A,aF"), "set").bytes, (std::vector<std::uint8_t>{0x0a, 0xaf}));
}

TEST(QelaLocationSetFile, AnythingElseInARegFileIsToldWithItsLine) {
  const std::string kAboutBytes = "these are not bytes of two hexadecimal digits each";
  const struct {
    std::string text;
    std::string message;
  } kCases[] = {
      {"Windows Registry Editor Version 6.00\r\n", "set: line 1: this is no header of a .reg file"},
      {"REGEDIT5\r\n", "set: line 1: this is no header of a .reg file"},
      {"REGEDIT4\r\n\"la\"=hex:91,91,90\r\n", "set: line 2: a value stands outside of a key"},
      {"REGEDIT4\r\n", "set: line 2: the value \"la\" of the location set is missing"},
      {"REGEDIT4\r\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Tessel\\Firewall\\LA]\r\n",
       "set: line 2: this is not the key of the location set"},
      {"REGEDIT4\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\r\n", "set: line 2: this is not the key of the location set"},
      {Reg(""), "set: line 6: the value \"la\" of the location set is missing"},
      {Reg("\"la\"=\"text\""), "set: line 4: the value is not binary"},
      {Reg("\"la\"=dword:00000001"), "set: line 4: the value is not binary"},
      {Reg("\"la\"=hex(2):91"), "set: line 4: the value is not binary"},
      {Reg("\"la\"=-"), "set: line 4: the value is not binary"},
      {Reg("\"other\"=hex:91"), "set: line 4: only the value \"la\" of the location set can be read"},
      {Reg("@=hex:91"), "set: line 4: only the value \"la\" of the location set can be read"},
      {Reg(std::string(kEmptySet) + "\r\n" + kEmptySet), "set: line 5: the value \"la\" stands here a second time"},
      {Reg("\"la\"=hex:9"), "set: line 4: " + kAboutBytes},
      {Reg("\"la\"=hex:911"), "set: line 4: " + kAboutBytes},
      {Reg("\"la\"=hex:91 91"), "set: line 4: " + kAboutBytes},
      {Reg("\"la\"=hex:91,,91"), "set: line 4: " + kAboutBytes},
      {Reg("\"la\"=hex:91,"), "set: line 4: " + kAboutBytes},
      {Reg("\"la\"=hex:91\\\r\n91"), "set: line 4: " + kAboutBytes},
      {Reg("\"la\"=hex:91,\\\r\n9g"), "set: line 5: " + kAboutBytes},
      {Reg("\"la\"=hex:9\xc3\xa4"), "set: line 4: " + kAboutBytes},
      {Reg("\"la\"=hex:"), "set: line 4: the bytes are no whole location set"},
      {Reg("\"la\"=hex:01"), "set: line 4: the bytes are no whole location set"},
      {Reg("\"la\"=hex:91,91,92,\\\r\n  90"), "set: line 4: the bytes are no whole location set"},
  };
  for (const auto& [text, message] : kCases) EXPECT_THAT(Refusal(text), StartsWith(message)) << text;
  const auto twice = SetAsReg(DecodeSet(PackedSet({{.id = "1"}, {.id = "1"}})));
  EXPECT_THAT(Refusal(twice), StartsWith("set: line 4: the set has a location without an ID, or two with the same"));
  EXPECT_THAT(Refusal(SetAsReg(DecodeSet(PackedSet({{.id = ""}})))),
              StartsWith("set: line 4: the set has a location without an ID"));
}

TEST(QelaLocationSetFile, BytesOfNeitherFormAreRefused) {
  for (const std::string& bytes : {std::string(), std::string("\0\0", 2), std::string("\xfe\xff\0{", 4),
                                   std::string("\x91\x91\x90"), std::string("MZ"), std::string(100, '\xff')})
    EXPECT_THAT(Refusal(bytes), StartsWith("set: line 1"));
}

// Every object of the schema, by where it stands.
void ForEachSchema(const nlohmann::json& schema, const std::function<void(const nlohmann::json&)>& visit) {
  if (schema.is_object() && schema.contains("properties")) visit(schema);
  for (const auto& part : schema)
    if (part.is_structured()) ForEachSchema(part, visit);
}

std::set<std::string> NamesOf(const nlohmann::json& object) {
  std::set<std::string> names;
  for (const auto& [name, value] : object.items()) names.insert(name);
  return names;
}

TEST(QelaLocationSetFile, TheSchemaNamesWhatIsReadAndWritten) {
  const auto schema = nlohmann::json::parse(ReadFileBytes(TestFile("Docs/location-set.schema.json").wstring()));
  EXPECT_EQ(schema["$schema"], "https://json-schema.org/draft/2020-12/schema");
  int objects = 0;
  ForEachSchema(schema, [&](const nlohmann::json& object) {
    EXPECT_EQ(object["additionalProperties"], false) << object;
    ++objects;
  });
  EXPECT_EQ(objects, 3);
  const auto& location = schema["$defs"]["location"];
  EXPECT_EQ(schema["required"], nlohmann::json({"schema", "locations"}));
  EXPECT_EQ(location["required"], nlohmann::json({"id", "name"}));
  const auto written = nlohmann::json::parse(SetAsJson(Set()));
  EXPECT_EQ(NamesOf(written), NamesOf(schema["properties"]));
  EXPECT_EQ(NamesOf(written["locations"][0]), NamesOf(location["properties"]));
  EXPECT_EQ(NamesOf(written["locations"][0]["criteria"]), NamesOf(schema["$defs"]["criteria"]["properties"]));
  EXPECT_EQ(written["schema"], schema["properties"]["schema"]["const"]);
}

TEST(QelaLocationSetFile, BytesThatThereIsNoMemoryForAreNotCalledBroken) {
  const auto bytes = PackedSet({{.id = "an identifier that needs memory of its own"}});
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    std::size_t locations = 0;
    bool lackedMemory = false;
    attempt([&] {
      try {
        locations = DecodeSet(bytes).size();
      } catch (const std::bad_alloc&) {
        lackedMemory = true;
      }
    });
    EXPECT_EQ(locations, lackedMemory ? 0U : 1U);
  });
}

}  // namespace
