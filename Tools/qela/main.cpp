// qela: the library's console host.
#include <windows.h>
#include <LogLibHost.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "CommandError.h"
#include "CommandLine.h"
#include "Json.h"
#include "Output.h"

namespace {

// main's own arguments have lost what the code page does not hold.
std::vector<std::wstring> Arguments() {
  int count = 0;
  wchar_t** const arguments = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (arguments == nullptr) throw CommandError(kFailed, "the command line could not be read");
  std::vector<std::wstring> result(arguments + 1, arguments + count);
  ::LocalFree(static_cast<HLOCAL>(arguments));
  return result;
}

ExitCode Fail(const std::vector<std::wstring>& arguments, ExitCode code, const std::string& message) {
  // Looked for by hand: the command line itself may be what is wrong.
  if (std::find(arguments.begin(), arguments.end(), L"--json") != arguments.end())
    PrintDiagnostic(ToLine({{"error", {{"code", static_cast<int>(code)}, {"message", message}}}}));
  else
    PrintDiagnostic("qela: error: " + message + "\n");
  return code;
}

}  // namespace

int main() {
  std::vector<std::wstring> arguments;
  try {
    arguments = Arguments();
    const auto options = ParseCommandLine(arguments);
    if (!options) return kDone;
    LogUtils::setConsoleLogging(options->verbose);
    return options->run(*options);
  } catch (const CommandError& error) {
    return Fail(arguments, error.Code(), error.what());
  } catch (const std::exception& error) {
    return Fail(arguments, kFailed, error.what());
  }
}
