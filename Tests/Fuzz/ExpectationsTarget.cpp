// Files of expectations: any bytes, and tables that were written down as RFC 4180 says, against what they mean.
#include <map>
#include <string>
#include <vector>

#include "Tests/Fuzz/FuzzText.h"
#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/ExpectationFile.h"

namespace {

constexpr const char* kFile = "expect.csv";
const std::wstring kNames[] = {L"Office", L"A \"b\", c", L"B\u00fcro"};

const TestSet& Set() {
  static const TestSet set = [] {
    LocationSet locations;
    for (const std::wstring& name : kNames) {
      CQeLocation location = CQeLocation::ToBeRead();
      location.SetId(L"id-" + std::to_wstring(locations.size()));
      location.SetName(name);
      locations.push_back(location);
    }
    return TestSet(locations);
  }();
  return set;
}

std::string Field(const std::wstring& text, bool isQuoted) {
  const std::string utf8 = ToUtf8(text);
  if (!isQuoted && utf8.find_first_of("\",\r\n") == std::string::npos) return utf8;
  std::string quoted = "\"";
  for (const char letter : utf8) quoted += letter == '"' ? "\"\"" : std::string(1, letter);
  return quoted + "\"";
}

// A machine may have any name that can be written down.
std::wstring MachineName(FuzzChoices& choices) {
  const FuzzInput size = choices.Bytes(1);
  std::wstring name = ToWide(ToUtf8(FuzzText(choices.Bytes(size.empty() ? 0 : size[0] % 16))));
  return name.empty() ? L"pc" : name;
}

void RequireTable(FuzzChoices& choices) {
  static const std::string kLineEnds[] = {"\r\n", "\n"};
  static const std::wstring kBlanks[] = {L"", L" ", L"\t "};
  const std::string lineEnd = choices.Pick(kLineEnds);
  std::string text = (choices.Flip() ? "\xef\xbb\xbf" : "") + Field(L"machine", choices.Flip()) + "," +
                     Field(L"locations", choices.Flip()) + lineEnd;
  std::map<std::wstring, std::vector<bool>> expected;
  for (std::size_t lines = choices.Below(6); lines != 0; --lines) {
    const std::wstring machine = MachineName(choices);
    std::vector<bool> isCurrent(std::size(kNames));
    std::wstring locations;
    for (std::size_t i = 0; i < isCurrent.size(); ++i) {
      isCurrent[i] = choices.Flip();
      if (!isCurrent[i]) continue;
      locations += choices.Pick(kBlanks) + (choices.Flip() ? L"id-" + std::to_wstring(i) : kNames[i]) +
                   choices.Pick(kBlanks) + L";";
    }
    if (!locations.empty() && choices.Flip()) locations.pop_back();
    if (!expected.emplace(machine, isCurrent).second) continue;
    text += Field(machine, choices.Flip()) + "," + Field(locations, choices.Flip()) + lineEnd;
    if (choices.Flip()) text += lineEnd;
  }
  const Expectations read = ParseExpectations(text, kFile, Set());
  if (read.size() != expected.size()) FuzzFail("other machines than were written down");
  for (const auto& [machine, isCurrent] : expected)
    if (read.at(machine).isCurrent != isCurrent) FuzzFail("other locations than were written down");
}

void Run(FuzzInput input) {
  FuzzChoices choices(input);
  if (choices.Flip()) {
    RequireTable(choices);
    return FuzzKind(2);
  }
  try {
    ParseExpectations(FuzzBytes(choices.Rest()), kFile, Set());
    FuzzKind(1);
  } catch (const CommandError& error) {
    RequireRefusal(error, kFailed, "expect.csv, line ");
    FuzzKind(0);
  }
}

const FuzzTarget g_target("expectations", Run,
                          {"machine,locations\n", "pc-1,Office\n", "\"A \"\"b\"\", c\"", "B\xc3\xbcro", "id-1", ";",
                           ",", "\"", "\"\"", "\r\n", "\r", "\n", "\xef\xbb\xbf", "\xff"});

}  // namespace
