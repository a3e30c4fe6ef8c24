// What qela does when Windows or another program stands in its way. The library is the shipped DLL; its registry is a
// key of the test's own.
#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>

#include <functional>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Support/StoredSet.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/Commands.h"
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

}  // namespace
