#include "Tools/qela/Checks.h"

#include <windows.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Support/RunQela.h"
#include "Tests/Support/StoredSet.h"
#include "Tests/Support/TestFile.h"
#include "Tests/Unit/QelaMachines.h"
#include "Tools/qela/Text.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Result = Check::Result;

// A machine of which every check says "ok".
MachineFacts Fine() {
  MachineFacts facts;
  facts.set = {Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}})};
  facts.programVersion = facts.libraryVersion = "1.2.3";
  facts.hostLibraries = {{"LogLib.dll", "4.5.6", ERROR_SUCCESS, 0, ""}};
  facts.identity = {L"pc7", L"anna", L"CORP", L"corp.example", L"S-1-5-21-1"};
  facts.isElevated = true;
  facts.adapters = {Adapter(2, L"eth0", {L"10.0.0.1"}, L"corp.example"), Adapter(5, L"wifi0")};
  facts.upSeconds = 100'000;
  facts.year = 2026;
  facts.time = "2026-01-01T00:00:00.000+00:00";
  return facts;
}

Check CheckNamed(const std::string& name, const MachineFacts& facts) {
  for (const Check& check : Judge(facts))
    if (check.name == name) return check;
  ADD_FAILURE() << "there is no check " << name;
  return {};
}

void ExpectCheck(const std::string& name, const MachineFacts& facts, Result result,
                 const testing::Matcher<std::string>& found) {
  const Check check = CheckNamed(name, facts);
  EXPECT_STREQ(NameOf(check.result), NameOf(result)) << check.found;
  EXPECT_THAT(check.found, found);
  EXPECT_THAT(check.found + check.advice, Not(HasSubstr("\n")));
  if (result != Result::kOk) {
    EXPECT_THAT(check.advice, Not(IsEmpty()));
  }
}

template <typename Change>
MachineFacts FineBut(Change change) {
  MachineFacts facts = Fine();
  change(facts);
  return facts;
}

TEST(QelaChecks, AreTenAndAllWellOnAMachineWhereNothingIsWrong) {
  const std::vector<Check> checks = Judge(Fine());
  EXPECT_EQ(checks.size(), 10U);
  for (const Check& check : checks) EXPECT_EQ(check.result, Result::kOk) << check.name << ": " << check.found;
}

TEST(QelaChecks, TheSetIsJudgedByWhatLintFindsInIt) {
  const MachineFacts clean = Fine();
  ExpectCheck("set", clean, Result::kOk, "1 location stored; lint finds 0 errors, 0 warnings and 0 notes");
  ExpectCheck("set", FineBut([](MachineFacts& facts) { facts.lintWarnings = 2; }), Result::kWarn,
              HasSubstr("2 warnings"));
  ExpectCheck("set", FineBut([](MachineFacts& facts) {
                facts.lintErrors = 1;
                facts.lintRules = "L102";
              }),
              Result::kError, HasSubstr("1 error (L102)"));
}

TEST(QelaChecks, ASetThatIsEmptyOrCannotBeReadIsTold) {
  ExpectCheck("set", FineBut([](MachineFacts& facts) { facts.set.clear(); }), Result::kWarn,
              HasSubstr("no location is stored"));
  ExpectCheck("set", FineBut([](MachineFacts& facts) { facts.setError = "cannot be read"; }), Result::kError,
              "cannot be read");
}

TEST(QelaChecks, VersionsOfProgramAndLibraryMustAgree) {
  ExpectCheck("versions", Fine(), Result::kOk, "qela 1.2.3, QeLaLib.dll 1.2.3");
  ExpectCheck("versions", FineBut([](MachineFacts& facts) { facts.libraryVersion = "1.2.4"; }), Result::kWarn,
              HasSubstr("qela 1.2.3, QeLaLib.dll 1.2.4: they differ"));
  ExpectCheck("versions", FineBut([](MachineFacts& facts) { facts.libraryVersion.clear(); }), Result::kWarn,
              HasSubstr("without a version"));
  ExpectCheck("versions", FineBut([](MachineFacts& facts) { facts.libraryError = ERROR_MOD_NOT_FOUND; }),
              Result::kError, HasSubstr("there is no QeLaLib.dll"));
  ExpectCheck("versions", FineBut([](MachineFacts& facts) { facts.libraryError = ERROR_BAD_EXE_FORMAT; }),
              Result::kError, HasSubstr("cannot be loaded (error 193)"));
}

TEST(QelaChecks, AHostLibraryThatIsMissingOrDoesNotFitIsAnError) {
  constexpr const char* kName = "hostLibraries";
  const auto with = [](const HostLibrary& library) {
    return FineBut([&](MachineFacts& facts) { facts.hostLibraries.push_back(library); });
  };
  ExpectCheck(kName, Fine(), Result::kOk, "beside QeLaLib.dll: LogLib.dll 4.5.6");
  ExpectCheck(kName, with({"blframework.dll", "", ERROR_MOD_NOT_FOUND, 0, ""}), Result::kError,
              "blframework.dll is missing");
  ExpectCheck(kName, with({"blframework.dll", "", ERROR_BAD_EXE_FORMAT, 0, ""}), Result::kError,
              "blframework.dll cannot be loaded (error 193)");
  ExpectCheck(kName, with({"blframework.dll", "1.0.0", ERROR_SUCCESS, 2, "BLAlloc"}), Result::kError,
              "blframework.dll lacks 2 functions that QeLaLib.dll calls, such as BLAlloc");
  ExpectCheck(kName, FineBut([](MachineFacts& facts) { facts.libraryError = ERROR_MOD_NOT_FOUND; }), Result::kWarn,
              HasSubstr("nothing is known"));
}

TEST(QelaChecks, TheAccountIsNamedAndWhatItMayDo) {
  ExpectCheck("account", Fine(), Result::kOk,
              "qela runs as CORP\\anna, elevated; it may read and change the locations");
  EXPECT_THAT(CheckNamed("account", Fine()).advice, HasSubstr("another HKEY_CURRENT_USER and proxy"));
  ExpectCheck("account", FineBut([](MachineFacts& facts) {
                facts.isElevated = false;
                facts.writeError = ERROR_ACCESS_DENIED;
              }),
              Result::kWarn, HasSubstr("not elevated; it may read the locations, but not change them (error 5)"));
  ExpectCheck("account", FineBut([](MachineFacts& facts) { facts.readError = ERROR_ACCESS_DENIED; }), Result::kError,
              HasSubstr("may not read the locations (error 5)"));
}

TEST(QelaChecks, LongWaitsForWebHostsAreTold) {
  const auto waiting = [](std::uint64_t seconds) {
    return FineBut([seconds](MachineFacts& facts) {
      facts.webHosts = 2;
      facts.cost = {seconds, 433'090};
    });
  };
  ExpectCheck("waiting", Fine(), Result::kOk, HasSubstr("no enabled location asks a web host"));
  ExpectCheck("waiting", waiting(60), Result::kOk,
              HasSubstr("2 web hosts and 2 adapters a change of network takes up to 60 s"));
  ExpectCheck("waiting", waiting(90), Result::kWarn,
              HasSubstr("up to 90 s where hosts are silent, and up to 433090 s"));
}

TEST(QelaChecks, AdaptersThatLookWrongAreTold) {
  ExpectCheck("adapters", Fine(), Result::kOk, "2 adapters up");
  ExpectCheck("adapters", FineBut([](MachineFacts& facts) { facts.adapters.clear(); }), Result::kError,
              HasSubstr("no adapter is up"));
  ExpectCheck("adapters", FineBut([](MachineFacts& facts) { facts.adapters[0].gateways.clear(); }), Result::kWarn,
              HasSubstr("no adapter has a default gateway"));
  ExpectCheck("adapters", FineBut([](MachineFacts& facts) { facts.adapters[1].description = L"eth0"; }), Result::kWarn,
              HasSubstr("several adapters have the description eth0"));
  ExpectCheck("adapters", FineBut([](MachineFacts& facts) { facts.adapters[1].ifIndex = 0; }), Result::kWarn,
              HasSubstr("adapter wifi0 has no IPv4"));
}

TEST(QelaChecks, WhatTheSetWasStoredWithIsComparedWithTheAdapters) {
  constexpr const char* kName = "lastCalculation";
  const auto stored = [](std::uint32_t index) {
    return FineBut([index](MachineFacts& facts) { facts.set[0].SetAdapterIndexes({index}); });
  };
  ExpectCheck(kName, Fine(), Result::kOk, HasSubstr("nothing can be compared"));
  ExpectCheck(kName, stored(2), Result::kOk, HasSubstr("nothing speaks against what 1 location was stored with"));
  ExpectCheck(kName, stored(7), Result::kWarn, HasSubstr("Office was on an adapter that is not there now"));
  MachineFacts moved = stored(2);
  moved.adapters[0].gateways = {L"10.0.0.2"};
  ExpectCheck(kName, moved, Result::kWarn, HasSubstr("Office is not current now"));
  const bool disabled = false;
  moved.set[0].SetEnabled(&disabled);
  ExpectCheck(kName, moved, Result::kOk, HasSubstr("nothing can be compared"));
}

TEST(QelaChecks, AMachineWithoutADnsDomainIsToldWhereWebHostsAreAsked) {
  const auto without = [](std::size_t hosts) {
    return FineBut([hosts](MachineFacts& facts) {
      facts.identity.dnsDomain.clear();
      facts.webHosts = hosts;
    });
  };
  ExpectCheck("dnsDomain", Fine(), Result::kOk, HasSubstr("corp.example"));
  ExpectCheck("dnsDomain", without(0), Result::kOk, HasSubstr("no DNS domain"));
  ExpectCheck("dnsDomain", without(1), Result::kWarn, HasSubstr("no DNS domain"));
}

TEST(QelaChecks, AMachineThatHasJustStartedAndAWrongClockAreTold) {
  ExpectCheck("clock", Fine(), Result::kOk,
              "the machine started 1 d 3 h 46 min ago; its clock shows 2026-01-01T00:00:00.000+00:00");
  ExpectCheck("clock", FineBut([](MachineFacts& facts) { facts.upSeconds = 299; }), Result::kWarn,
              HasSubstr("0 h 4 min ago"));
  ExpectCheck("clock", FineBut([](MachineFacts& facts) { facts.year = 2001; }), Result::kError,
              HasSubstr("no certificate"));
}

TEST(QelaChecks, ItIsAlwaysSaidThatARunningServiceIsNotSeen) {
  ExpectCheck("service", Fine(), Result::kOk, HasSubstr("cannot see inside a running service"));
  ExpectCheck("service", {}, Result::kOk, HasSubstr("cannot see inside a running service"));
}

TEST(QelaChecks, JsonHasEachCheckAndTheCounts) {
  const Json json = ToJson(Judge(FineBut([](MachineFacts& facts) {
    facts.adapters.clear();
    facts.upSeconds = 0;
  })));
  EXPECT_EQ(json["checks"].size(), 10U);
  EXPECT_EQ(json["checks"][5]["name"], "adapters");
  EXPECT_EQ(json["checks"][5]["result"], "error");
  EXPECT_EQ(json["errors"], 1);
  EXPECT_EQ(json["warnings"], 1);
}

TEST(QelaChecks, TheDocumentHasThemInTheirOrder) {
  std::ifstream file(TestFile("Docs/qela.md"), std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  std::size_t at = text.find("| Check | Warns | Error |");
  for (const Check& check : Judge(Fine())) {
    const std::size_t row = text.find("\n| `" + std::string(check.name) + "` |", at);
    ASSERT_NE(row, std::string::npos) << check.name;
    at = row;
  }
}

// What is gathered, with Windows' answers replaced.
class QelaCheck : public testing::Test {
 protected:
  QelaCheck() {
    AdapterList list;
    list.Add(L"eth0").Index(2).Ip("10.0.0.2").Gateway("10.0.0.1");
    m_adapters.emplace(ThisProgram(), list);
  }

  WithStoredSet<RedirectedMachineHive> m_registry;
  std::optional<FakeAdapters> m_adapters;
};

TEST_F(QelaCheck, GathersTheSetAndWhatLintFinds) {
  RunQela({L"location", L"add", L"Office", L"--https-host", L"a.example", L"--https-host", L"b.example"});
  const MachineFacts facts = GatherFacts();
  ASSERT_EQ(facts.set.size(), 1U);
  EXPECT_EQ(facts.webHosts, 2U);
  EXPECT_EQ(facts.cost.silentSeconds, 60U);
  EXPECT_GT(facts.lintWarnings + facts.lintNotes, 0U);
  EXPECT_EQ(facts.adapters.size(), 1U);
}

TEST_F(QelaCheck, ASetThatCannotBeReadMakesItFail) {
  m_registry.Put({1, 2, 3});
  const QelaAnswer answer = RunQela({L"check"});
  EXPECT_EQ(answer.code, kFailed);
  EXPECT_THAT(answer.out, AllOf(HasSubstr("error  set: a location set is stored but cannot be read"),
                                HasSubstr("10 checks: 1 error")));
}

TEST_F(QelaCheck, FindsTheHostLibrariesThatTheLibraryImports) {
  const MachineFacts facts = GatherFacts();
  EXPECT_EQ(facts.libraryError, 0U);
  EXPECT_EQ(facts.libraryVersion, facts.programVersion);
  ASSERT_EQ(facts.hostLibraries.size(), 3U);
  for (const HostLibrary& library : facts.hostLibraries) {
    EXPECT_EQ(library.error, 0U) << library.name;
    EXPECT_EQ(library.missing, 0U) << library.name << ": " << library.firstMissing;
    EXPECT_FALSE(library.version.empty()) << library.name;
  }
}

TEST_F(QelaCheck, AHostLibraryThatIsNotThereIsFound) {
  static decltype(&::LoadLibraryExW) load;
  const ImportPatch patch(
      ThisProgram(), "LoadLibraryExW", +[](LPCWSTR path, HANDLE file, DWORD flags) -> HMODULE {
        if (!std::wstring_view(path).ends_with(L"blframework.dll")) return load(path, file, flags);
        ::SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
      });
  load = patch.Original<HMODULE(LPCWSTR, HANDLE, DWORD)>();
  EXPECT_THAT(RunQela({L"check"}).out, HasSubstr("error  hostLibraries: blframework.dll is missing"));
}

TEST_F(QelaCheck, AHostLibraryWithoutAFunctionIsFound) {
  static decltype(&::GetProcAddress) get;
  const ImportPatch patch(
      ThisProgram(), "GetProcAddress", +[](HMODULE module, LPCSTR name) -> FARPROC {
        return std::string_view(name) == "BLAlloc" ? nullptr : get(module, name);
      });
  get = patch.Original<FARPROC(HMODULE, LPCSTR)>();
  EXPECT_THAT(RunQela({L"check"}).out,
              HasSubstr("blframework.dll lacks 1 function that QeLaLib.dll calls, such as BLAlloc"));
}

TEST_F(QelaCheck, AKeyThatMayNotBeWrittenIsFoundAndNothingIsMade) {
  EXPECT_EQ(GatherFacts().writeError, 0U);
  EXPECT_FALSE(m_registry.HasKey());
  static decltype(&::RegOpenKeyExW) open;
  const ImportPatch patch(
      ThisProgram(), "RegOpenKeyExW",
      +[](HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result) -> LSTATUS {
        const bool isWriting = (access & (KEY_SET_VALUE | KEY_CREATE_SUB_KEY)) != 0;
        return isWriting ? ERROR_ACCESS_DENIED : open(key, path, options, access, result);
      });
  open = patch.Original<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)>();
  const MachineFacts facts = GatherFacts();
  EXPECT_EQ(facts.writeError, ERROR_ACCESS_DENIED);
  EXPECT_EQ(facts.readError, 0U);
}

TEST_F(QelaCheck, AKeyThatIsNotThereAndMayNotBeMadeIsFound) {
  static decltype(&::RegOpenKeyExW) open;
  const ImportPatch patch(
      ThisProgram(), "RegOpenKeyExW",
      +[](HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result) -> LSTATUS {
        return (access & KEY_CREATE_SUB_KEY) != 0 ? ERROR_ACCESS_DENIED : open(key, path, options, access, result);
      });
  open = patch.Original<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)>();
  EXPECT_EQ(GatherFacts().writeError, ERROR_ACCESS_DENIED);
}

TEST_F(QelaCheck, AKeyThatMayNotBeReadIsFound) {
  const ImportPatch patch(
      ThisProgram(), "RegOpenKeyExW",
      +[](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY) -> LSTATUS { return ERROR_ACCESS_DENIED; });
  EXPECT_EQ(GatherFacts().readError, ERROR_ACCESS_DENIED);
}

// With the real registry, which has the names.
TEST(QelaChecks, NameAccountAndMachine) {
  const Identity who = GatherFacts().identity;
  wchar_t user[256];
  DWORD size = std::size(user);
  ASSERT_TRUE(::GetUserNameW(user, &size));
  EXPECT_EQ(who.user, user);
  EXPECT_THAT(ToUtf8(who.sid), testing::StartsWith("S-1-"));
  EXPECT_FALSE(who.machine.empty());
}

TEST_F(QelaCheck, WhereWindowsTellsNothingOfTheAccountItGoesOn) {
  const ImportPatch token(ThisProgram(), "OpenProcessToken", +[](HANDLE, DWORD, PHANDLE) -> BOOL { return FALSE; });
  const ImportPatch name(
      ThisProgram(), "GetComputerNameExW", +[](COMPUTER_NAME_FORMAT, LPWSTR, LPDWORD) -> BOOL { return FALSE; });
  const MachineFacts facts = GatherFacts();
  EXPECT_TRUE(facts.identity.user.empty());
  EXPECT_TRUE(facts.identity.dnsDomain.empty());
  EXPECT_THAT(CheckNamed("account", facts).found, HasSubstr("an account without a name"));
}

TEST_F(QelaCheck, AsksNoProbeAndStartsNoService) {
  RunQela({L"location", L"add", L"Office", L"--https-host", L"silent.invalid"});
  const ImportPatch http(
      ThisProgram(), "WinHttpOpen", +[](LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) -> void* {
        ADD_FAILURE() << "a web host was asked";
        return nullptr;
      });
  EXPECT_THAT(RunQela({L"check", L"--json"}).out, HasSubstr("\"schema\":1"));
}

}  // namespace
