// qela: the library's console host.
#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <exception>
#include <string>
#include <vector>

#include "CommandError.h"
#include "CommandLine.h"
#include "Commands.h"
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

ExitCode Run(const Options& options) {
  switch (options.command) {
    case Command::kAdapters:
      ShowAdapters(options);
      break;
    case Command::kLocations:
      ShowLocations(options);
      break;
    case Command::kCurrent:
      ShowCurrent(options);
      break;
    case Command::kAddLocation:
      AddLocation(options);
      break;
    case Command::kRemoveLocation:
      RemoveLocation(options);
      break;
    case Command::kEnableLocation:
    case Command::kDisableLocation:
      EnableLocation(options);
      break;
    case Command::kWatch:
      Watch(options);
      break;
    case Command::kMatch:
      return MatchAddresses(options);
    case Command::kMacs:
      ShowMacs(options);
      break;
    case Command::kMedia:
      return ShowMedia(options);
  }
  return kDone;
}

}  // namespace

int main() {
  try {
    const auto options = ParseCommandLine(Arguments());
    return options ? Run(*options) : kDone;
  } catch (const CommandError& error) {
    PrintDiagnostic(std::string("qela: error: ") + error.what() + "\n");
    return error.Code();
  } catch (const std::exception& error) {
    PrintDiagnostic(std::string("qela: error: ") + error.what() + "\n");
    return kFailed;
  }
}
