// The commands for whole sets, on a registry in memory: what they store, and what a process that ends in between
// leaves.
#include <windows.h>
#include <gmock/gmock.h>

#include <filesystem>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/UniqueName.h"
#include "Tests/Support/CommandFailure.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Support/StoredSet.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/Commands.h"
#include "Tools/qela/FileBytes.h"
#include "Tools/qela/JsonFile.h"
#include "Tools/qela/LocationSetFile.h"
#include "Tools/qela/StoredSet.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;

class QelaRollOut : public testing::Test {
 protected:
  QelaRollOut() { std::filesystem::create_directory(m_folder); }
  ~QelaRollOut() override { std::filesystem::remove_all(m_folder); }

  std::wstring Path(const std::string& name) const { return (m_folder / name).wstring(); }

  // A file of the test's own with this content.
  std::wstring File(const std::string& bytes) const {
    WriteFileBytes(Path("set"), bytes);
    return Path("set");
  }

  // The command's standard output, and its exit code in m_code.
  std::string Run(ExitCode (*command)(const Options&), const RollOut& rollOut, bool json = false) {
    Options options;
    options.rollOut = rollOut;
    options.json = json;
    const HANDLE before = ::GetStdHandle(STD_OUTPUT_HANDLE);
    UniqueKernelHandle output(
        ::CreateFileW(Path("output").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    ::SetStdHandle(STD_OUTPUT_HANDLE, output.get());
    struct Restore {
      HANDLE handle;
      ~Restore() { ::SetStdHandle(STD_OUTPUT_HANDLE, handle); }
    } const restore{before};
    m_code = command(options);
    output.reset();
    return ReadFileBytes(Path("output"));
  }
  nlohmann::json RunJson(ExitCode (*command)(const Options&), const RollOut& rollOut) {
    return nlohmann::json::parse(Run(command, rollOut, true));
  }

  std::vector<std::wstring> StoredIds() const {
    std::vector<std::wstring> ids;
    for (const CQeLocation& location : ReadLocations()) ids.push_back(location.Id());
    return ids;
  }

  const std::filesystem::path m_folder = std::filesystem::temp_directory_path() / (L"QelaRollOut-" + UniqueName());
  StoredRegistry m_registry{ThisProgram()};
  ExitCode m_code = kDone;
};

// {"id": ..., "name": ...} for each letter, in a set.
std::string SetOf(const std::string& letters, const std::string& more = {}) {
  std::string text;
  for (const char letter : letters)
    text += (text.empty() ? R"({"id": ")" : R"(, {"id": ")") + std::string(1, letter) + R"(", "name": ")" + letter +
            "\"" + more + "}";
  return R"({"schema": 1, "locations": [)" + text + "]}";
}

// Differences as "added a", "changed b name".
std::vector<std::string> DifferencesIn(const nlohmann::json& answer) {
  std::vector<std::string> words;
  for (const auto& difference : answer["differences"]) {
    std::string word = difference["difference"].get<std::string>() + " " + difference["id"].get<std::string>();
    if (difference.contains("fields"))
      for (const auto& field : difference["fields"]) word += " " + field["field"].get<std::string>();
    words.push_back(word);
  }
  return words;
}

TEST_F(QelaRollOut, ApplyKeepsTheOrderOfTheFileAndPutsTheRestBehindIt) {
  m_registry.Put(PackedSet({{.id = "x", .name = "x"}, {.id = "b", .name = "b"}, {.id = "y", .name = "y"}}));
  EXPECT_THAT(DifferencesIn(RunJson(ApplySet, {.file = File(SetOf("abc"))})),
              ElementsAre("added a", "moved b place", "added c"));
  EXPECT_THAT(StoredIds(), ElementsAre(L"a", L"b", L"c", L"x", L"y"));
}

TEST_F(QelaRollOut, ApplyRemovesWhatIsMissingWhenAsked) {
  m_registry.Put(PackedSet({{.id = "x", .name = "x"}, {.id = "b", .name = "old"}}));
  const auto answer = RunJson(ApplySet, {.file = File(SetOf("ab")), .deleteMissing = true});
  EXPECT_EQ(answer["action"], "applied");
  EXPECT_THAT(DifferencesIn(answer), ElementsAre("added a", "changed b name", "removed x"));
  EXPECT_THAT(StoredIds(), ElementsAre(L"a", L"b"));
}

TEST_F(QelaRollOut, ASecondApplyWritesNothing) {
  const std::wstring file = File(SetOf("ab", R"(, "criteria": {"gateways": ["10.0.0.1", "10.0.0.1"]})"));
  Run(ApplySet, {.file = file});
  m_registry.ClearCalls();
  const auto answer = RunJson(ApplySet, {.file = file});
  EXPECT_EQ(m_code, kDone);
  EXPECT_EQ(answer["action"], "unchanged");
  EXPECT_TRUE(answer["differences"].empty());
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 0u);
  EXPECT_EQ(Run(DiffSet, {.file = file}), "The stored set and the file are the same.\n");
  EXPECT_EQ(m_code, kDone);
}

TEST_F(QelaRollOut, ADryRunShowsWhatApplyWouldDoAndWritesNothing) {
  m_registry.Put(PackedSet({{.id = "b", .name = "old"}, {.id = "x", .name = "X"}}));
  const auto before = m_registry.Value();
  const std::string text = Run(ApplySet, {.file = File(SetOf("ab")), .dryRun = true, .deleteMissing = true});
  EXPECT_EQ(m_code, kDifferences);
  EXPECT_EQ(text,
            "would add \"a\" (a)\n  no criteria: current everywhere while enabled\n"
            "would change \"b\" (b)\n  name: \"old\" -> \"b\"\n"
            "would remove \"X\" (x)\n"
            "3 locations in all. Nothing was changed.\n");
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 0u);
  EXPECT_EQ(m_registry.Value(), before);
  EXPECT_EQ(RunJson(ApplySet, {.file = Path("set"), .dryRun = true})["action"], "planned");
  Run(ApplySet, {.file = Path("set")});
  EXPECT_EQ(RunJson(ApplySet, {.file = Path("set"), .dryRun = true})["action"], "unchanged");
  EXPECT_EQ(m_code, kDone);
}

TEST_F(QelaRollOut, DiffTellsBothSides) {
  m_registry.Put(
      PackedSet({{.id = "b", .name = "b", .note = "n"}, {.id = "a", .name = "a"}, {.id = "x", .name = "X"}}));
  EXPECT_EQ(Run(DiffSet, {.file = File(SetOf("abc"))}),
            "in another place \"a\" (a)\n  place: 2 -> 1\n"
            "differs \"b\" (b)\n  note: \"n\" -> none\n"
            "only in the file \"c\" (c)\n  no criteria: current everywhere while enabled\n"
            "only stored \"X\" (x)\n"
            "4 locations in all. Before the arrow: stored.\n");
  EXPECT_EQ(m_code, kDifferences);
  const auto answer = RunJson(DiffSet, {.file = Path("set")});
  ASSERT_THAT(DifferencesIn(answer), ElementsAre("moved a place", "changed b note", "added c", "removed x"));
  EXPECT_EQ(answer["differences"][1]["fields"][0], (nlohmann::json{{"field", "note"}, {"before", "n"}, {"after", ""}}));
  EXPECT_EQ(answer["differences"][3]["location"]["name"], "X");
}

TEST_F(QelaRollOut, WhatGoesOutAndComesBackChangesNothing) {
  // All that no check would let in: texts twice, empty and mapped ones, no name, adapters.
  LocationBlob odd{.id = " ", .name = "", .note = "\x01", .adapterIndexes = {3}};
  odd.texts.fill({"", "x", "x", "0000:0000:0000:0000:0000:ffff:0a00:0001"});
  m_registry.Put(PackedSet({odd, {.id = "a"}}));
  const auto before = m_registry.Value();
  for (const char* name : {"set.json", "set.reg", "set.REG"}) {
    Run(ExportSet, {.file = Path(name)});
    EXPECT_EQ(RunJson(ApplySet, {.file = Path(name), .deleteMissing = true})["action"], "unchanged") << name;
    Run(DiffSet, {.file = Path(name)});
    EXPECT_EQ(m_code, kDone);
  }
  EXPECT_EQ(m_registry.Value(), before);
  EXPECT_EQ(ReadFileBytes(Path("set.json")).front(), '{');
  EXPECT_EQ(ReadFileBytes(Path("set.reg")), ReadFileBytes(Path("set.REG")));
}

TEST_F(QelaRollOut, ApplyKeepsTheAdaptersOfWhatItLeavesAndStoresTheRestAsAddingDoes) {
  m_registry.Put(PackedSet({{.id = "a", .name = "a", .adapterIndexes = {3}}}));
  Run(ApplySet,
      {.file = File(SetOf(
           "ab", R"(, "criteria": {"gateways": ["x", "x", "0000:0000:0000:0000:0000:FFFF:0a00:0001", "10.0.0.1"]})"))});
  for (const CQeLocation& location : ReadLocations())
    EXPECT_THAT(location.Criterias().Texts(LCT_DEFAULT_GATEWAY), ElementsAre(L"x", L"10.0.0.1"));
  m_registry.Put(PackedSet({{.id = "a", .name = "a", .adapterIndexes = {3}}}));
  Run(ApplySet, {.file = File(SetOf("ba"))});
  EXPECT_THAT(ReadLocations()[1].AdapterIndexes(), ElementsAre(3u));
}

TEST_F(QelaRollOut, WhatTheFileOnlySpellsInAnotherWayStaysAsItIsStored) {
  LocationBlob stored{.id = "a", .name = "a", .adapterIndexes = {3}};
  stored.texts[LCT_DEFAULT_GATEWAY] = {"x"};
  m_registry.Put(PackedSet({stored}));
  Run(ApplySet, {.file = File(SetOf("ab", R"(, "criteria": {"gateways": ["x", "x"]})"))});
  EXPECT_THAT(ReadLocations()[0].AdapterIndexes(), ElementsAre(3u));
}

TEST_F(QelaRollOut, ALocationOfVeryManyCriteriaIsAppliedInShortTime) {
  std::string gateways = R"("x", "x")";
  for (int i = 0; i < 200'000; ++i) gateways += ", \"" + std::to_string(i) + "\"";
  Run(ApplySet, {.file = File(SetOf("a", R"(, "criteria": {"gateways": [)" + gateways + "]}"))});
  EXPECT_EQ(ReadLocations()[0].Criterias().Texts(LCT_DEFAULT_GATEWAY).size(), 200'001u);
}

TEST_F(QelaRollOut, AFileThatIsNoSetChangesNothing) {
  m_registry.Put(PackedSet({{.id = "a"}}));
  m_registry.ClearCalls();
  const std::wstring file = File(SetOf("ab").substr(0, 40));
  for (const auto command : {ApplySet, DiffSet, ValidateSet})
    EXPECT_THAT(FailureOf([&] { Run(command, {.file = file}); }), HasSubstr("set: line 1, column 41: "));
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 0u);
}

TEST_F(QelaRollOut, ASetWhoseLocationsCannotBeToldApartIsNotExported) {
  m_registry.Put(PackedSet({{.id = "a", .name = "1"}, {.id = "a", .name = "2"}}));
  EXPECT_THAT(
      FailureOf([&] { Run(ExportSet, {.file = Path("out")}); }),
      HasSubstr("a second location has the ID of \"2\" (a). \"qela location remove a\" removes the first of them"));
  EXPECT_FALSE(std::filesystem::exists(Path("out")));
  // A file mends it.
  EXPECT_THAT(DifferencesIn(RunJson(ApplySet, {.file = File(SetOf("a"))})), ElementsAre("changed a name", "removed a"));
  EXPECT_THAT(StoredIds(), ElementsAre(L"a"));
  m_registry.Put(PackedSet({{.id = "", .name = "1"}}));
  EXPECT_THAT(FailureOf([&] { Run(ExportSet, {.file = Path("out")}); }), HasSubstr("the location \"1\" has no ID"));
}

TEST_F(QelaRollOut, AStoredSetThatCannotBeReadStaysAsItIs) {
  m_registry.Put({0x01});
  const std::wstring file = File(SetOf("a"));
  for (const auto command : {ApplySet, DiffSet, ExportSet, RestoreSet})
    EXPECT_THAT(FailureOf([&] { Run(command, {.file = file}); }, kUnreadableSet), HasSubstr("cannot be read"));
  FailureOf([&] { Run(ApplySet, {.file = file, .dryRun = true}); }, kUnreadableSet);
  EXPECT_EQ(m_registry.Value(), (std::vector<std::uint8_t>{0x01}));
}

TEST_F(QelaRollOut, AnExportThatFailsLeavesTheFormerFile) {
  m_registry.Put(PackedSet({{.id = "a"}}));
  Run(ExportSet, {.file = Path("out.json")});
  const std::string before = ReadFileBytes(Path("out.json"));
  m_registry.Put(PackedSet({{.id = "b"}}));
  const ImportPatch patch(
      ThisProgram(), "WriteFile", +[](HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) -> BOOL {
        ::SetLastError(ERROR_DISK_FULL);
        return FALSE;
      });
  EXPECT_THAT(FailureOf([&] { Run(ExportSet, {.file = Path("out.json")}); }),
              HasSubstr("cannot be written: Windows refuses it with error 112"));
  EXPECT_EQ(ReadFileBytes(Path("out.json")), before);
  EXPECT_FALSE(std::filesystem::exists(Path("out.json.new")));
}

TEST_F(QelaRollOut, RestoreChangesTheFormerSetAndTheStoredOneAbout) {
  EXPECT_THAT(FailureOf([&] { Run(RestoreSet, {}); }), HasSubstr("no former set is kept"));
  m_registry.Put(PackedSet({{.id = "a", .name = "a"}}));
  Run(ApplySet, {.file = File(SetOf("b")), .deleteMissing = true});
  const auto answer = RunJson(RestoreSet, {});
  EXPECT_EQ(answer["action"], "restored");
  EXPECT_THAT(DifferencesIn(answer), ElementsAre("added a", "removed b"));
  EXPECT_THAT(StoredIds(), ElementsAre(L"a"));
  Run(RestoreSet, {});
  EXPECT_THAT(StoredIds(), ElementsAre(L"b"));
}

// The process ends at a registry call, before it is carried out.
struct Ended {};

TEST_F(QelaRollOut, AProcessThatEndsAtAnyRegistryCallLeavesTheOldOrTheNewSet) {
  const std::vector<std::uint8_t> old = PackedSet({{.id = "a", .name = "a"}, {.id = "b", .name = "b"}});
  const std::wstring file = File(SetOf("cab"));
  m_registry.Put(old);
  Run(ApplySet, {.file = file});
  const auto updated = m_registry.Value();
  int endings = 0;
  int unchanged = 0;
  for (bool done = false; !done; ++endings) {
    m_registry.MakeEmptyKey();
    m_registry.Put(old);
    int left = endings;
    m_registry.OnCall([&](const ScriptedRegistry::Call& call) {
      if (call.function != "RegCloseKey" && left-- == 0) throw Ended();
    });
    try {
      Run(ApplySet, {.file = file});
      done = true;
    } catch (const Ended&) {
    }
    m_registry.OnCall({});
    ASSERT_THAT(m_registry.Value(), AnyOf(Eq(old), Eq(updated))) << endings;
    if (m_registry.Value() == old) ++unchanged;
    // Whatever was left: the next command works, and can be taken back.
    Run(ApplySet, {.file = file});
    EXPECT_EQ(m_registry.Value(), updated);
    EXPECT_EQ(m_registry.ScriptedRegistry::Value(kLaKeyPath, L"la.former"), old);
  }
  EXPECT_GT(endings, 6);
  EXPECT_GT(unchanged, 4);
}

TEST_F(QelaRollOut, ARegistryCallThatFailsLeavesTheOldOrTheNewSetAndSaysWhich) {
  const std::vector<std::uint8_t> old = PackedSet({{.id = "a", .name = "a"}});
  const std::vector<std::uint8_t> updated = PackedSet({{.id = "b", .name = "b"}});
  const std::wstring file = File(SetOf("b"));
  int failures = 0;
  for (std::size_t number = 1; number <= 12; ++number) {
    m_registry.MakeEmptyKey();
    m_registry.Put(old);
    m_registry.FailCallNumber(number);
    std::string message;
    try {
      Run(ApplySet, {.file = file, .deleteMissing = true});
    } catch (const CommandError& error) {
      message = error.what();
      ++failures;
    }
    m_registry.HealAll();
    const bool isOld = message.find("Nothing was ") != std::string::npos;
    EXPECT_TRUE(isOld || message.empty() || message.find("are in place") != std::string::npos) << message;
    EXPECT_EQ(m_registry.Value(), isOld ? old : updated) << number << message;
  }
  EXPECT_GT(failures, 6);
}

}  // namespace
