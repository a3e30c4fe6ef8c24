// What qela does when Windows or another program stands in its way. The library is the shipped DLL; its registry is a
// key of the test's own.
#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>

#include <functional>
#include <initializer_list>
#include <new>
#include <optional>
#include <string>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Support/HostLogs.h"
#include "Tests/Support/RunQela.h"
#include "Tests/Support/StoredSet.h"
#include "Tools/qela/AdapterView.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/Commands.h"
#include "Tools/qela/Interrupt.h"
#include "Tools/qela/Json.h"
#include "Tools/qela/Output.h"
#include "Tools/qela/Service.h"
#include "Tools/qela/StoredSet.h"

namespace {

using testing::HasSubstr;

class QelaFailure : public testing::Test {
 protected:
  WithStoredSet<RedirectedMachineHive> m_registry;
};

// Stays, as it does in qela.
HMODULE Library() { return ::LoadLibraryW(L"QeLaLib.dll"); }
HMODULE Program() { return ThisProgram(); }

// How a command failed.
template <typename Function>
CommandError FailureOf(Function function) {
  try {
    function();
  } catch (const CommandError& error) {
    return error;
  }
  ADD_FAILURE() << "it did not fail";
  return {kDone, ""};
}

Options Adding(const std::wstring& name) {
  Options options;
  options.location = name;
  options.edit.criteria = {{CriterionEdit::Change::kAdd, LCT_DEFAULT_GATEWAY, L"10.0.0.1"}};
  return options;
}

TEST_F(QelaFailure, ASaveThatWindowsRefusesIsToldAndStoresNothing) {
  const ImportPatch patch(
      Program(), "RegSetValueExW",
      +[](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
  const CommandError failure = FailureOf([] { AddLocation(Adding(L"Office")); });
  EXPECT_EQ(failure.Code(), kFailed);
  EXPECT_THAT(failure.what(), HasSubstr("could not be saved"));
  EXPECT_TRUE(ReadStoredValue().IsAbsent());
}

TEST_F(QelaFailure, ASetThatAnotherProgramChangedMeanwhileIsNotOverwritten) {
  StoredSetEdit edit;
  const std::vector<BYTE> other = {0x91, 0x91, 0x90};
  m_registry.Put(other);
  const CommandError failure = FailureOf([&] { edit.Save(); });
  EXPECT_EQ(failure.Code(), kFailed);
  EXPECT_THAT(failure.what(), HasSubstr("changed by another program"));
  EXPECT_EQ(ReadStoredValue().bytes, other);
}

TEST_F(QelaFailure, ASetThatWindowsDoesNotShowIsNotTakenForNone) {
  const auto refuse = +[](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY) -> LSTATUS { return ERROR_ACCESS_DENIED; };
  const ImportPatch patch(Program(), "RegOpenKeyExW", refuse);
  const CommandError failure = FailureOf([] { AddLocation(Adding(L"Office")); });
  EXPECT_EQ(failure.Code(), kUnreadableSet);
  EXPECT_THAT(failure.what(), HasSubstr("error 5"));
}

TEST_F(QelaFailure, ASetThatGrowsWhileItIsReadIsReadWhole) {
  m_registry.Put({1, 2, 3, 4, 5});
  static decltype(&::RegQueryValueExW) query;
  static int calls;
  calls = 0;
  const ImportPatch patch(
      Program(), "RegQueryValueExW",
      +[](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
        const LSTATUS status = query(key, name, reserved, type, data, size);
        if (++calls == 1) *size = 2;  // what it was before it grew
        return status;
      });
  query = patch.Original<LSTATUS(HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD)>();
  EXPECT_EQ(ReadStoredValue().bytes, (std::vector<BYTE>{1, 2, 3, 4, 5}));
  EXPECT_EQ(calls, 3);
}

TEST_F(QelaFailure, WhatIsStoredOddlyStaysSoWhenAnotherFieldIsEdited) {
  // One location whose gateways hold 10.0.0.1 twice: ID "i", name "n", enabled.
  std::vector<BYTE> stored = {0x91, 0x91, 0x91, 0x96, 0x99, 0x90, 0x92, 0xa8, '1',  '0', '.',  '0',  '.',
                              '0',  '.',  '1',  0xa8, '1',  '0',  '.',  '0',  '.',  '0', '.',  '1',  0x90,
                              0x90, 0x90, 0x90, 0x90, 0x90, 0xc2, 0xa1, 'i',  0xa1, 'n', 0xa0, 0xc3, 0x90};
  m_registry.Put(stored);
  Options options;
  options.location = L"n";
  EXPECT_EQ(DisableLocation(options), kDone);
  stored[stored.size() - 2] = 0xc2;
  EXPECT_EQ(ReadStoredValue().bytes, stored);
}

TEST_F(QelaFailure, ADiscoveryThreadThatCannotStartIsTold) {
  const ImportPatch patch(
      Library(), "CreateThread",
      +[](LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD) -> HANDLE { return nullptr; });
  Options options;
  options.seconds = 0;
  const CommandError failure = FailureOf([&] { Watch(options); });
  EXPECT_EQ(failure.Code(), kFailed);
  EXPECT_THAT(failure.what(), HasSubstr("discovery thread"));
}

TEST_F(QelaFailure, AnEditWaitsNoLongerThanAMinuteForAnotherOne) {
  static DWORD waited = 0;
  const ImportPatch patch(
      Program(), "WaitForSingleObject", +[](HANDLE, DWORD waitMs) -> DWORD {
        waited = waitMs;
        return WAIT_TIMEOUT;
      });
  const CommandError failure = FailureOf([] { AddLocation(Adding(L"Office")); });
  EXPECT_EQ(waited, 60'000u);
  EXPECT_EQ(failure.Code(), kFailed);
  EXPECT_THAT(failure.what(), HasSubstr("another qela is changing the locations. Nothing was changed"));
  EXPECT_TRUE(ReadStoredValue().IsAbsent());
}

TEST_F(QelaFailure, AnAdapterThatIsNotThereIsToldWithThoseThatAre) {
  AdapterList adapters;
  adapters.Add(L"eth0").Index(2);
  const FakeAdapters fake(Program(), adapters);
  Options options = Adding(L"Office");
  options.edit.fromAdapter = 3;
  const CommandError failure = FailureOf([&] { AddLocation(options); });
  EXPECT_EQ(failure.Code(), kFailed);
  EXPECT_THAT(failure.what(), HasSubstr("no adapter that is up has the index 3; there are:\n  2 eth0"));
}

// Standard output is a pipe whose reader has gone.
class QelaWithoutReader : public QelaFailure {
 protected:
  void SetUp() override {
    QelaFailure::SetUp();
    UniqueKernelHandle reader;
    ASSERT_TRUE(::CreatePipe(reader.put(), m_writer.put(), nullptr, 0));
    m_output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    ::SetStdHandle(STD_OUTPUT_HANDLE, m_writer.get());
  }
  void TearDown() override {
    ::SetStdHandle(STD_OUTPUT_HANDLE, m_output);
    QelaFailure::TearDown();
  }

  UniqueKernelHandle m_writer;
  HANDLE m_output = nullptr;
};

TEST_F(QelaWithoutReader, EveryReadingCommandFails) {
  for (const auto command : {ShowAdapters, ShowLocations, ShowMacs, ShowMedia, ShowCurrent, Watch}) {
    const CommandError failure = FailureOf([&] { command({}); });
    EXPECT_EQ(failure.Code(), kFailed);
    EXPECT_THAT(failure.what(), HasSubstr("output could not be written"));
  }
}

TEST_F(QelaWithoutReader, AnEditIsSavedAllTheSame) {
  EXPECT_THAT(FailureOf([] { AddLocation(Adding(L"Office")); }).what(), HasSubstr("output could not be written"));
  EXPECT_FALSE(ReadStoredValue().IsAbsent());
}

// Both read the set for themselves: between them it may change.
TEST_F(QelaFailure, AnExplanationThatTheLibraryDoesNotBearOutIsToldAndFails) {
  AddLocation(Adding(L"Office"));
  static std::vector<BYTE> seen;
  LocationSet other = ReadLocations();
  other.front().ClearCriterias();
  seen = EncodeSet(other);
  const ImportPatch patch(
      Library(), "RegQueryValueExW",
      +[](HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) -> LSTATUS {
        if (std::wstring_view(name) != kLaValueName) return ::RegQueryValueExW(key, name, reserved, type, data, size);
        if (type != nullptr) *type = REG_BINARY;
        const DWORD room = data == nullptr ? 0 : *size;
        *size = static_cast<DWORD>(seen.size());
        if (data == nullptr) return ERROR_SUCCESS;
        if (room < seen.size()) return ERROR_MORE_DATA;
        std::copy(seen.begin(), seen.end(), data);
        return ERROR_SUCCESS;
      });
  AdapterList adapters;
  adapters.Add(L"eth0").Index(2);
  const FakeAdapters fake(Library(), adapters);
  const CommandError failure = FailureOf([] { ExplainLocations({}); });
  EXPECT_EQ(failure.Code(), kFailed);
  EXPECT_THAT(failure.what(), HasSubstr("the library says that \"Office\""));
}

// What was looked up in the one set would be told of the other.
TEST_F(QelaFailure, ASetThatAnotherProgramChangesWhileItIsExplainedIsTold) {
  AddLocation(Adding(L"Office"));
  LocationSet more = ReadLocations();
  more.push_back(more.front());
  more.back().SetId(L"another");
  static std::function<void()> change;
  static int reads;
  reads = 0;
  change = [&] { m_registry.Put(EncodeSet(more)); };
  static decltype(&::RegOpenKeyExW) open;
  const ImportPatch patch(
      Program(), "RegOpenKeyExW", +[](HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) -> LSTATUS {
        if (++reads == 2) change();
        return open(key, path, options, access, opened);
      });
  open = patch.Original<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)>();
  AdapterList adapters;
  adapters.Add(L"eth0").Index(2);
  const FakeAdapters fake(Library(), adapters);
  const CommandError failure = FailureOf([] { ExplainLocations({}); });
  EXPECT_EQ(failure.Code(), kFailed);
  EXPECT_THAT(failure.what(), HasSubstr("the stored set was changed meanwhile; run the command again"));
}

TEST_F(QelaFailure, NamesOfASetThatCannotBeReadAreNotOfferedAndNobodyIsTold) {
  m_registry.Put({1, 2, 3});
  const QelaAnswer answer = RunQela({L"complete", L"--", L"location", L"set", L""});
  EXPECT_EQ(answer.code, kDone);
  EXPECT_EQ(answer.out + answer.err, "");
}

TEST_F(QelaFailure, WithoutAnEventNothingListensForCtrlCAndNothingIsWatched) {
  const ImportPatch patch(
      Program(), "CreateEventW", +[](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE {
        ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
      });
  for (const auto& function : std::initializer_list<std::function<void()>>{Interrupt::Listen, [] { Watch({}); }}) {
    const CommandError failure = FailureOf(function);
    EXPECT_EQ(failure.Code(), kFailed);
    EXPECT_STREQ(failure.what(), "Windows has no event to give (error 1450)");
  }
}

TEST_F(QelaFailure, AdaptersThatThereIsNoMemoryForAreNotTakenForNone) {
  AdapterList adapters;
  adapters.Add(L"eth0").Index(2);
  const FakeAdapters fake(Program(), adapters);
  bool isTold = false;
  FailEveryAllocation(Program(), [&](auto attempt) {
    std::size_t count = 1;
    std::optional<CommandError> failure;
    attempt([&] {
      try {
        count = TakeAdapters()->size();
      } catch (const CommandError& error) {
        failure = error;
      } catch (const std::bad_alloc&) {
      }
    });
    EXPECT_EQ(count, 1U);
    if (!failure) return;
    EXPECT_STREQ(failure->what(), "there is not enough memory for the adapters");
    isTold = true;
  });
  EXPECT_TRUE(isTold);
}

// What the process finds out the first time holds for its life.
TEST_F(QelaFailure, AConsoleThatCanGetsColours) {
  const ImportPatch mode(
      Program(), "GetConsoleMode", +[](HANDLE, DWORD* flags) -> BOOL {
        *flags = ENABLE_PROCESSED_OUTPUT;
        return TRUE;
      });
  static DWORD set;
  const ImportPatch change(
      Program(), "SetConsoleMode", +[](HANDLE, DWORD flags) -> BOOL {
        set = flags;
        return TRUE;
      });
  EXPECT_EQ(Coloured(Colour::kRed, "gone"), "\x1b[31mgone\x1b[0m");
  EXPECT_EQ(Coloured(Colour::kRed, ""), "");
  EXPECT_EQ(set, DWORD{ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING});
}

// Locations and a machine, in files of the test's own.
class QelaTestFailure : public testing::Test {
 protected:
  QelaAnswer Test(const std::wstring& machines) const {
    return RunQela({L"test", L"--set", m_set, L"--machines", machines, L"--json"});
  }

  const LogFolder m_folder;
  const std::wstring m_set = m_folder.Write(L"set", R"({"schema": 1, "locations": []})");
};

TEST_F(QelaTestFailure, ASnapshotThatCannotBeReadIsToldInTheJson) {
  const QelaAnswer answer = Test(m_folder.Write(L"broken.json", "{"));
  EXPECT_EQ(answer.code, kFailed);
  const Json json = Json::parse(answer.out);
  EXPECT_EQ(json["errors"], 1);
  EXPECT_THAT(json["machines"][0]["error"].get<std::string>(), HasSubstr("broken.json"));
  EXPECT_FALSE(json["machines"][0].contains("current"));
}

TEST_F(QelaTestFailure, AFolderThatFailsWhileItIsListedIsNotTestedInPart) {
  m_folder.Write(L"broken.json", "{");
  const ImportPatch patch(
      Program(), "FindNextFileW", +[](HANDLE, WIN32_FIND_DATAW*) -> BOOL {
        ::SetLastError(ERROR_NETNAME_DELETED);
        return FALSE;
      });
  const QelaAnswer answer = Test(m_folder.Path(L"*.json"));
  EXPECT_EQ(answer.code, kFailed);
  EXPECT_EQ(answer.out, "");
  EXPECT_THAT(answer.err, HasSubstr("*.json: the files cannot be listed (error 64)"));
}

// Where the results go elsewhere.
TEST_F(QelaTestFailure, AConsoleShowsHowManyMachinesAreDone) {
  static std::wstring shown;
  static HANDLE console;
  shown.clear();
  const CapturedOutput out(STD_OUTPUT_HANDLE);
  console = ::GetStdHandle(STD_ERROR_HANDLE);
  const ImportPatch mode(Program(), "GetConsoleMode", +[](HANDLE handle, DWORD*) -> BOOL { return handle == console; });
  const ImportPatch write(
      Program(), "WriteConsoleW", +[](HANDLE, const void* text, DWORD units, DWORD* written, void*) -> BOOL {
        shown.append(static_cast<const wchar_t*>(text), units);
        *written = units;
        return TRUE;
      });
  Options options;
  options.json = true;
  options.machines.set = m_set;
  options.machines.machines = {m_folder.Write(L"broken.json", "{")};
  EXPECT_EQ(TestMachines(options), kFailed);
  const std::wstring blank(40, L' ');
  std::wstring progress = L"1 of 1 machine";
  progress.resize(blank.size(), L' ');
  EXPECT_EQ(shown, L"\r" + progress + L"\r" + blank + L"\r");
}

// ---- what the timeline's JSON tells ----

TEST(QelaTimelineJson, TellsTheQuestionsThatTookLong) {
  const LogFolder folder;
  std::string lines;
  const auto say = [&](const char* second, const char* text) {
    lines += "2025-11-21T12:00:0" + std::string(second) + "+01:00\t8\tFirewall\tFIREWALL\tFwClient/File.cpp:42\t" +
             text + "\n";
  };
  say("0.000", "Calculating current locations...");
  say("0.000", "GetAdaptersAddresses succeeds, the return value is : 0");
  say("0.000", "Adapters List :");
  say("0.000", R"(Adapter properties:\n\n\tInterface Index:2\n\tDescription :a\n\tDefault Gateways:\n\t\tCount (0)\n)"
               R"(\tDHCP Enabled status:0\n\tDHCP Server:\n\tDHCPV6 Server:\n\tIP Addresses:\n\t\tCount (0)\n)"
               R"(\tDNS Domain:\n\tDNS Servers:\n\t\tCount (0)\n\tWINS Primary Server:\n\tWINS Secondary Server:)");
  say("0.000", R"(//---------------------------------------------\n)");
  say("0.000", "IsCurrentLocation checking location Office");
  say("0.000", "IsCurrentLocation bZeltReachabilityCriteria 1");
  say("0.000", "Matching all the location criterias with the properties of adapter with index 2 and description a.");
  say("3.000", "IsDomainReachable was able to match domain web.example");
  say("3.000", "Location: Domain reachable test passed for adapter with index 2 and description a.");
  say("3.000",
      "All the criteria's given in location matches adapter index 2 with description a. Hence this adapter will be "
      "matching.");
  say("3.000", "IsZELTReachable calling DnsQuery on server.example");
  say("5.500", "CheckZeltReachability succeeded");
  say("5.500", "IsCurrentLocation returning matched criterias 1 for location Office...");
  say("5.500", "Adding current location ID 1");
  say("5.500", "Raising a location changed event...");
  const QelaAnswer answer = RunQela({L"timeline", L"--from-log", folder.Write(L"host.log", lines), L"--json"});
  ASSERT_EQ(answer.code, kDone) << answer.err;
  const Json slow = Json::parse(answer.out)["slow"];
  ASSERT_EQ(slow.size(), 1U) << answer.out;
  EXPECT_EQ(slow[0]["seconds"], 5.5);
  EXPECT_EQ(slow[0]["probes"],
            Json::parse(R"([{"kind": "httpsHosts", "asked": "web.example", "questions": 1, "seconds": 3.0},
                            {"kind": "managementServer", "asked": "", "questions": 1, "seconds": 2.5}])"));
}

}  // namespace
