#include "Checks.h"
#include "Commands.h"
#include "Output.h"
#include "Text.h"

ExitCode CheckMachine(const Options& options) {
  const std::vector<Check> checks = Judge(GatherFacts());
  const std::size_t errors = CountOf(checks, Check::Result::kError);
  if (options.json) {
    Print(ToLine(ToJson(checks)));
  } else {
    std::string text;
    for (const Check& check : checks) {
      const std::string result = NameOf(check.result);
      const std::string shown = check.result == Check::Result::kError  ? Coloured(Colour::kRed, result)
                                : check.result == Check::Result::kWarn ? Coloured(Colour::kYellow, result)
                                                                       : result;
      text += shown + std::string(7 - result.size(), ' ') + check.name + ": " + check.found + "\n";
      if (!check.advice.empty()) text += "       do: " + check.advice + "\n";
    }
    Print(text + Counted(checks.size(), "check") + ": " + Counted(errors, "error") + ", " +
          Counted(CountOf(checks, Check::Result::kWarn), "warning") + "\n");
  }
  return errors != 0 ? kFailed : kDone;
}
