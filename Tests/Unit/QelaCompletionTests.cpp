#include "Tools/qela/Completion.h"

#include <gmock/gmock.h>

#include "Tools/qela/CommandParser.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

using Words = std::vector<std::string>;

Words After(const Words& words) {
  CommandParser parser;
  AddCommands(parser);
  return Completions(parser.Root(), words, [] { return Words{"Office", "My Office"}; });
}

TEST(QelaCompletion, CommandsAreOffered) {
  EXPECT_THAT(After({}), Contains("locations"));
  EXPECT_THAT(After({""}), Contains("apply"));
  EXPECT_THAT(After({""}), Not(Contains("complete")));
  EXPECT_THAT(After({"ap"}), ElementsAre("apply"));
  EXPECT_THAT(After({"location", "re"}), UnorderedElementsAre("rename", "remove"));
  EXPECT_THAT(After({"help", "location", "re"}), UnorderedElementsAre("rename", "remove"));
  EXPECT_THAT(After({"nonsense"}), IsEmpty());
}

TEST(QelaCompletion, OptionsAreOfferedOnceADashIsThere) {
  EXPECT_THAT(After({"apply", "--d"}), ElementsAre("--delete-missing", "--dry-run"));
  EXPECT_THAT(After({"apply", "set.json", "-"}), Contains("--dry-run"));
  EXPECT_THAT(After({"apply", "--dry-run", "--de"}), ElementsAre("--delete-missing"));
  // Those of option groups as well.
  EXPECT_THAT(After({"match", "--"}), UnorderedElementsAre("--adapters", "--address", "--exact", "--help", "--json",
                                                           "--range", "--subnet", "--verbose"));
}

TEST(QelaCompletion, KnownValuesAreOffered) {
  EXPECT_THAT(After({"export", "--format", ""}), ElementsAre("json", "reg"));
  EXPECT_THAT(After({"media", "--is", "wire"}), ElementsAre("wired", "wireless"));
  EXPECT_THAT(After({"location", "add", "--gateway", ""}), IsEmpty());
  EXPECT_THAT(After({"location", "add", "--gateway", "-"}), IsEmpty());
  // A value that stands there is passed over, even where it reads like a command; so is an option that nobody knows.
  EXPECT_THAT(After({"media", "--is", "apply", "--j"}), ElementsAre("--json"));
  EXPECT_THAT(After({"apply", "--nonsense", "--dr"}), ElementsAre("--dry-run"));
}

TEST(QelaCompletion, NamesOfLocationsAreOfferedWhereOneIsTaken) {
  EXPECT_THAT(After({"location", "set", ""}), ElementsAre("Office", "My Office"));
  EXPECT_THAT(After({"location", "set", "\"\""}), ElementsAre("Office", "My Office"));
  EXPECT_THAT(After({"location", "show", "\"My"}), ElementsAre("My Office"));
  EXPECT_THAT(After({"location", "move", "Office", "--before", "M"}), ElementsAre("My Office"));
  EXPECT_THAT(After({"location", "rename", "Office", ""}), IsEmpty());
  EXPECT_THAT(After({"location", "set", "Office", ""}), IsEmpty());
  EXPECT_THAT(After({"location", "add", ""}), IsEmpty());
}

TEST(QelaCompletion, WhatSupportAsksForIsOffered) {
  EXPECT_THAT(After({"explain", "Of"}), ElementsAre("Office"));
  EXPECT_THAT(After({"explain", "--from-log", ""}), IsEmpty());
  EXPECT_THAT(After({"report", "--redact", ""}), ElementsAre("full", "names", "none"));
}

TEST(QelaCompletion, FilesAreLeftToTheShell) {
  EXPECT_THAT(After({"apply", ""}), IsEmpty());
  EXPECT_THAT(After({"export", ""}), IsEmpty());
}

}  // namespace
