// Edits of the stored set by qela, in a registry of the test's own.
#include "Tools/qela/StoredSet.h"

#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windns.h>
#include <winhttp.h>
#include <filesystem>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/UniqueName.h"
#include "Tests/Support/RunQela.h"
#include "Tests/Support/StoredSet.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Texts = std::vector<std::wstring>;

class QelaEdit : public testing::Test {
 protected:
  static constexpr wchar_t kId[] = L"11111111-2222-3333-4444-555555555555";

  void SetUp() override {
    Done({L"location", L"add", L"Office", L"--id", kId, L"--gateway", L"10.0.0.1", L"--dns-suffix", L"corp.example"});
  }

  static QelaAnswer Done(const Texts& arguments) {
    const QelaAnswer answer = RunQela(arguments);
    EXPECT_EQ(answer.code, kDone) << answer.err;
    return answer;
  }
  static void Set(Texts options) {
    options.insert(options.begin(), {L"location", L"set", L"Office"});
    Done(options);
  }
  static CQeLocation Office() {
    const LocationSet set = ReadLocations();
    return set[Find(set, kId)];
  }
  static Texts Gateways() { return Office().Criterias().Texts(LCT_DEFAULT_GATEWAY); }
  static Texts Names() {
    Texts names;
    for (const CQeLocation& location : ReadLocations()) names.push_back(location.Name());
    return names;
  }
  // What is stored stays as it is.
  static QelaAnswer Refused(const Texts& arguments, ExitCode code) {
    const StoredValue before = ReadStoredValue();
    const QelaAnswer answer = RunQela(arguments);
    EXPECT_EQ(answer.code, code) << answer.err;
    EXPECT_EQ(ReadStoredValue(), before);
    return answer;
  }

  WithStoredSet<ScriptedRegistry> m_registry{ThisProgram()};
};

TEST_F(QelaEdit, SetReplacesTheValuesOfAKind) {
  Set({L"--gateway", L"10.0.0.2", L"--gateway", L"10.0.0.3"});
  EXPECT_THAT(Gateways(), ElementsAre(L"10.0.0.2", L"10.0.0.3"));
  EXPECT_THAT(Office().Criterias().Texts(LCT_DNS_SUFFIX), ElementsAre(L"corp.example"));
  EXPECT_EQ(Office().Name(), L"Office");
}

TEST_F(QelaEdit, SetAddsRemovesAndClearsValuesOfEveryKind) {
  const struct {
    const wchar_t* option;
    LOCATION_CRITERIA_TYPE kind;
    const wchar_t* first;
    const wchar_t* second;
  } kKinds[] = {
      {L"dns-suffix", LCT_DNS_SUFFIX, L"a.example", L"b.example"},
      {L"gateway", LCT_DEFAULT_GATEWAY, L"10.1.0.1", L"fe80::1"},
      {L"dhcp-server", LCT_DHCP_SERVER, L"10.1.0.2", L"10.1.0.3"},
      {L"dns-server", LCT_DNS_SERVER, L"10.1.0.4", L"10.1.0.5"},
      {L"primary-wins", LCT_PRIMARY_WINS, L"10.1.0.6", L"10.1.0.7"},
      {L"secondary-wins", LCT_SECONDARY_WINS, L"10.1.0.8", L"10.1.0.9"},
      {L"registry", LCT_REGISTRY_KEY, L"HKEY_USERS\\a\\", L"HKEY_USERS\\b\\"},
      {L"https-host", LCT_DOMAIN_REACHABLE, L"a.example", L"b.example"},
  };
  for (const auto& kind : kKinds) {
    const std::wstring option = kind.option;
    const auto values = [&] { return Office().Criterias().Texts(kind.kind); };
    Set({L"--" + option, kind.first, L"--add-" + option, kind.second});
    EXPECT_THAT(values(), ElementsAre(kind.first, kind.second));
    Set({L"--remove-" + option, kind.first});
    EXPECT_THAT(values(), ElementsAre(kind.second));
    Set({L"--clear-" + option});
    EXPECT_THAT(values(), IsEmpty());
  }
}

TEST_F(QelaEdit, SetChangesEveryOtherField) {
  Set({L"--name", L"Main", L"--note", L"a note", L"--disabled", L"--management-server"});
  EXPECT_EQ(Office().Name(), L"Main");
  EXPECT_EQ(Office().GetNote(), L"a note");
  EXPECT_FALSE(Office().IsEnabled());
  EXPECT_TRUE(Office().Criterias().IsZeltReachable());
  Done({L"location", L"set", kId, L"--note", L"", L"--enabled", L"--no-management-server"});
  EXPECT_EQ(Office().GetNote(), L"");
  EXPECT_TRUE(Office().IsEnabled());
  EXPECT_FALSE(Office().Criterias().IsZeltReachable());
}

TEST_F(QelaEdit, SetWithoutAChangeIsRefused) {
  EXPECT_THAT(Refused({L"location", L"set", L"Office"}, kWrongUsage).err, HasSubstr("nothing is named"));
}

TEST_F(QelaEdit, ACriterionThatIsNotThereCannotBeRemoved) {
  EXPECT_THAT(
      Refused({L"location", L"set", L"Office", L"--gateway", L"10.0.0.9", L"--remove-dns-suffix", L"x"}, kFailed).err,
      HasSubstr("no criterion \"x\""));
}

TEST_F(QelaEdit, AValueThatOthersStoredInAnotherFormCanBeRemoved) {
  const std::wstring mapped = L"0000:0000:0000:0000:0000:ffff:0a00:0001";
  const auto store = [&] {
    CQeLocation location = Office();
    CQeLocationCriterias criteria;
    criteria.SetTexts(LCT_DEFAULT_GATEWAY, {mapped, L"10.0.0.1", L"10.0.0.2"});
    location.SetCriterias(criteria);
    m_registry.Put(EncodeSet({location}));
  };
  store();
  Set({L"--remove-gateway", mapped});
  EXPECT_THAT(Gateways(), ElementsAre(L"10.0.0.1", L"10.0.0.2"));
  Set({L"--remove-gateway", mapped});
  EXPECT_THAT(Gateways(), ElementsAre(L"10.0.0.2")) << "the same server in the form that the library stores";
  store();
  Set({L"--clear-gateway"});
  EXPECT_THAT(Gateways(), IsEmpty());
}

TEST_F(QelaEdit, WhatIsAsAskedForAlreadyIsNotWritten) {
  const ImportPatch patch(
      ThisProgram(), "RegSetValueExW",
      +[](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
  for (const Texts& command :
       {Texts{L"location", L"set", L"Office", L"--gateway", L"10.0.0.1"},
        Texts{L"location", L"rename", L"Office", L"Office"}, Texts{L"location", L"enable", L"Office"},
        Texts{L"location", L"move", L"Office", L"--first"},
        Texts{L"location", L"add", L"Office", L"--id", kId, L"--gateway", L"10.0.0.1", L"--dns-suffix",
              L"corp.example"}}) {
    Texts json = command;
    json.emplace_back(L"--json");
    EXPECT_THAT(Done(json).out, HasSubstr(R"("action":"unchanged")"));
  }
}

TEST_F(QelaEdit, AnIdBelongsToOneLocation) {
  EXPECT_THAT(Refused({L"location", L"add", L"Other", L"--id", kId}, kNoSuchLocation).err, HasSubstr("is another one"));
  EXPECT_THAT(Refused({L"location", L"add", L"Other", L"--id", L"1"}, kWrongUsage).err, HasSubstr("is not a UUID"));
  EXPECT_THAT(
      Refused({L"location", L"add", L"Other", L"--id", L"1111111g-2222-3333-4444-555555555555"}, kWrongUsage).err,
      HasSubstr("is not a UUID"));
}

TEST_F(QelaEdit, ANameIsTakenOnceUnlessForced) {
  Done({L"location", L"add", L"Home", L"--gateway", L"10.9.0.1"});
  EXPECT_THAT(Refused({L"location", L"rename", L"Home", L"Office"}, kNoSuchLocation).err, HasSubstr("stored already"));
  EXPECT_THAT(Refused({L"location", L"set", L"Home", L"--name", L"Office"}, kNoSuchLocation).err, HasSubstr("--force"));
  Done({L"location", L"rename", L"Home", L"Office", L"--force"});
  EXPECT_THAT(Names(), ElementsAre(L"Office", L"Office"));
}

TEST_F(QelaEdit, NamesThatDifferOnlyInCaseOrBlanksAreTold) {
  const char* const kNote = "only in case or blanks";
  EXPECT_THAT(Done({L"location", L"add", L"OFFICE", L"--gateway", L"10.9.0.1"}).err, HasSubstr(kNote));
  EXPECT_THAT(Done({L"location", L"add", L" off ice", L"--gateway", L"10.9.0.1"}).err, HasSubstr(kNote));
  EXPECT_THAT(Done({L"location", L"add", L"Offices", L"--gateway", L"10.9.0.1"}).err, Not(HasSubstr(kNote)));
  EXPECT_THAT(Done({L"location", L"rename", L"Offices", L"office"}).err, HasSubstr(kNote));
}

TEST_F(QelaEdit, ALocationMovesToEveryPlace) {
  Done({L"location", L"add", L"B", L"--gateway", L"10.9.0.1"});
  Done({L"location", L"add", L"C", L"--gateway", L"10.9.0.2"});
  const auto move = [](Texts options) {
    options.insert(options.begin(), {L"location", L"move"});
    Done(options);
    return Names();
  };
  EXPECT_THAT(move({L"Office", L"--last"}), ElementsAre(L"B", L"C", L"Office"));
  EXPECT_THAT(move({L"C", L"--first"}), ElementsAre(L"C", L"B", L"Office"));
  EXPECT_THAT(move({L"Office", L"--before", L"B"}), ElementsAre(L"C", L"Office", L"B"));
  EXPECT_THAT(move({L"C", L"--before", L"B"}), ElementsAre(L"Office", L"C", L"B"));
  EXPECT_THAT(move({L"Office", L"--after", L"C"}), ElementsAre(L"C", L"Office", L"B"));
  EXPECT_THAT(move({L"B", L"--after", L"C"}), ElementsAre(L"C", L"B", L"Office"));
  EXPECT_THAT(Refused({L"location", L"move", L"B", L"--after", L"B"}, kWrongUsage).err, HasSubstr("itself"));
  EXPECT_THAT(Refused({L"location", L"move", L"B", L"--after", L"X"}, kNoSuchLocation).err, HasSubstr("\"X\""));
  EXPECT_EQ(Refused({L"location", L"move", L"B"}, kWrongUsage).out, "");
  EXPECT_EQ(Refused({L"location", L"move", L"B", L"--first", L"--last"}, kWrongUsage).out, "");
}

TEST_F(QelaEdit, TheSetBeforeTheLastEditIsKept) {
  Done({L"location", L"disable", L"Office"});
  Done({L"location", L"remove", L"Office"});
  const LocationSet former = StoredSetEdit::Former();
  ASSERT_EQ(former.size(), 1u);
  EXPECT_EQ(former[0].Id(), kId);
  EXPECT_FALSE(former[0].IsEnabled());
}

TEST_F(QelaEdit, AnEditWhoseCallsFailInTurnLeavesTheOldSetOrTheNewOne) {
  const std::vector<std::uint8_t> before = ReadStoredValue().bytes;
  const std::size_t callsBefore = m_registry.FallibleCalls();
  Done({L"location", L"disable", L"Office"});
  const std::size_t calls = m_registry.FallibleCalls() - callsBefore;
  EXPECT_GT(calls, 8u);
  for (std::size_t number = 1; number <= calls; ++number) {
    m_registry.Put(before);
    m_registry.FailCallNumber(number);
    const QelaAnswer answer = RunQela({L"location", L"disable", L"Office"});
    const bool isOld = ReadStoredValue().bytes == before;
    // The last call flushes what is stored by then.
    EXPECT_TRUE(number == calls || isOld == (answer.code != kDone)) << "at call " << number << ": " << answer.err;
    EXPECT_EQ(Office().IsEnabled(), isOld) << "at call " << number;
  }
}

// Everything that a probe begins with.
class NoProbes {
 public:
  static inline int calls;
  NoProbes() { calls = 0; }

 private:
  template <typename Result>
  static Result Count() {
    ++calls;
    return {};
  }
  ImportPatch m_http{ThisProgram(), "WinHttpOpen",
                     +[](LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) { return Count<HINTERNET>(); }};
  ImportPatch m_dns{ThisProgram(), "DnsQuery_W",
                    +[](PCWSTR, WORD, DWORD, PVOID, PDNS_RECORD*, PVOID*) { return Count<DNS_STATUS>(); }};
};

TEST_F(QelaEdit, NoCommandWithoutTheServiceProbes) {
  const NoProbes probes;
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / UniqueName();
  std::filesystem::create_directory(folder);
  const std::wstring set = (folder / L"set.json").wstring();
  const std::wstring machine = (folder / L"machine.json").wstring();
  const HMODULE before = ::GetModuleHandleW(L"QeLaLib.dll");
  Done({L"location", L"add", L"Slow", L"--https-host", L"silent.example", L"--management-server", L"--registry",
        L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\", L"--id", L"21111111-2222-3333-4444-555555555555"});
  for (const Texts& command : {Texts{L"locations"},
                               Texts{L"location", L"show", L"Slow"},
                               Texts{L"location", L"set", L"Slow", L"--note", L"n"},
                               Texts{L"location", L"disable", L"Slow"},
                               Texts{L"location", L"enable", L"Slow"},
                               Texts{L"location", L"move", L"Slow", L"--first"},
                               Texts{L"location", L"rename", L"Slow", L"Slower"},
                               Texts{L"adapters"},
                               Texts{L"macs"},
                               Texts{L"media"},
                               Texts{L"lint"},
                               Texts{L"export", set},
                               Texts{L"location", L"remove", L"Slower"},
                               Texts{L"validate", set},
                               Texts{L"lint", set},
                               Texts{L"apply", set},
                               Texts{L"diff", set},
                               Texts{L"restore"},
                               Texts{L"snapshot", machine},
                               Texts{L"test", L"--set", set, L"--machines", machine}})
    Done(command);
  RunQela({L"match", L"--adapters", L"--exact", L"10.0.0.1"});
  std::filesystem::remove_all(folder);
  EXPECT_EQ(NoProbes::calls, 0);
  EXPECT_EQ(::GetModuleHandleW(L"QeLaLib.dll"), before) << "the library is loaded";
}

TEST_F(QelaEdit, AnAdapterThatIsNotThereIsToldWithThoseThatAre) {
  EXPECT_THAT(Refused({L"location", L"add", L"Here", L"--from-adapter", L"4000000000"}, kFailed).err,
              HasSubstr("no adapter that is up has the index 4000000000"));
}

}  // namespace
