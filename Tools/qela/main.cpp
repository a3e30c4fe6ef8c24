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
  ::LocalFree(arguments);
  return result;
}

void Run(const Options& options) {
  switch (options.command) {
    case Command::kAdapters:
      return ShowAdapters(options);
    case Command::kLocations:
      return ShowLocations(options);
    case Command::kCurrent:
      return ShowCurrent(options);
    case Command::kAddLocation:
      return AddLocation(options);
    case Command::kRemoveLocation:
      return RemoveLocation(options);
    case Command::kEnableLocation:
    case Command::kDisableLocation:
      return EnableLocation(options);
    case Command::kWatch:
      return Watch(options);
  }
}

}  // namespace

int main() {
  try {
    if (const auto options = ParseCommandLine(Arguments())) Run(*options);
    return kDone;
  } catch (const CommandError& error) {
    PrintError(std::string("qela: error: ") + error.what() + "\n");
    return error.Code();
  } catch (const std::exception& error) {
    PrintError(std::string("qela: error: ") + error.what() + "\n");
    return kFailed;
  }
}
