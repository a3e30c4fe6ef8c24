// Files with location sets, in JSON and as .reg text: what is accepted is the same set after it has been written and
// read.
#include <string>
#include <vector>

#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/Lint.h"
#include "Tools/qela/LocationSetFile.h"
#include "Tools/qela/SetComparison.h"

namespace {

constexpr const char* kFile = "set.json";

void Run(FuzzInput input) {
  LocationSet set;
  try {
    set = ParseSetFile(FuzzBytes(input), kFile);
  } catch (const CommandError& error) {
    RequireRefusal(error, kFailed, kFile);
    return FuzzKind(0);
  }
  const std::vector<std::uint8_t> stored = EncodeSet(set);
  for (const std::string& written : {SetAsJson(set), SetAsReg(set)}) {
    const LocationSet again = ParseSetFile(written, kFile);
    if (EncodeSet(again) != stored) FuzzFail("another set after it was written and read");
    if (!Compare(set, again).empty()) FuzzFail("a set differs from itself");
  }
  const std::vector<Finding> findings = Lint(set);
  for (const Finding& finding : findings) {
    if (finding.location >= set.size()) FuzzFail("a finding about no location");
    RequireShowable(finding.detail, "a finding");
    RequireShowable(finding.fix, "a finding's remedy");
  }
  std::uint32_t kind = 1;
  for (const Finding& finding : findings) kind = kind * 31 + static_cast<std::uint32_t>(finding.rule->number[3]);
  FuzzKind(kind);
}

const FuzzTarget g_target("location-set", Run,
                          {R"({"schema":1,"locations":[)",
                           R"({"id":"a","name":"b"})",
                           R"("criteria":{)",
                           R"("dnsSuffixes":["*.example"])",
                           R"("gateways":["10.0.0.1"])",
                           R"("registry":["HKEY_LOCAL_MACHINE\\a\\b=c"])",
                           R"("httpsHosts":["h"])",
                           R"("managementServer":true)",
                           R"("enabled":false)",
                           R"("note":"")",
                           "null",
                           "\\u0000",
                           "\\ud800",
                           "]}",
                           "Windows Registry Editor Version 5.00\r\n\r\n",
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Tessel\\Firewall\\LA]\r\n",
                           "\"la\"=hex:",
                           "\"la.former\"=hex:",
                           "REGEDIT4\n",
                           ",\\\r\n  "});

}  // namespace
