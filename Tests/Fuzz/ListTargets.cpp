// The list of management servers and the output of tasklist, against readers made of the C and C++ libraries' own.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "FwClient/Service/QeLaLib/InteractiveUser.h"
#include "FwClient/Service/QeLaLib/ZeltServerList.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

void RunServers(FuzzInput input) {
  const std::wstring text = FuzzText(input);
  if (text.find(static_cast<wchar_t>(WEOF)) != std::wstring::npos) return;  // a stream takes it for its end
  std::vector<std::wstring> expected;
  std::wistringstream entries(text);
  for (std::wstring entry; std::getline(entries, entry, L';');) {
    std::wistringstream fields(entry);
    std::wstring field;
    for (std::size_t number = 0; std::getline(fields, field, L'|'); ++number)
      if (number % 3 == 0) expected.push_back(field);
  }
  if (ParseZeltServerList(text) != expected) FuzzFail("other servers than the list has");
  FuzzKind(static_cast<std::uint32_t>(expected.size()));
}

const FuzzTarget g_servers("server-list", RunServers, {";", "|", ";;", "||", "srv1|10.0.0.1|443;", "a|b|c|d", " "});

// The first line is the image name, the rest tasklist's output.
void RunTasklist(FuzzInput input) {
  constexpr std::size_t kMostCharacters = 511;
  constexpr DWORD kUntouched = 77;
  const FuzzPair pair = FuzzCut(input, '\n');
  const std::wstring image = FuzzText(pair.first);
  const std::vector<char> block(pair.second.begin(), pair.second.end());  // without the NUL of a std::string
  const std::string_view text(block.data(), block.size());

  bool expected = false;
  DWORD expectedId = kUntouched;
  std::istringstream lines{std::string(text)};
  for (std::string line; !expected && std::getline(lines, line);) {
    line.resize(std::strlen(line.c_str()));
    if (line.empty() || line[0] != '"') continue;
    const char* const name = std::strtok(line.data(), "\",");
    std::wstring wide;
    for (const char* at = name; at != nullptr && *at != 0 && wide.size() < kMostCharacters; ++at)
      wide += static_cast<unsigned char>(*at);
    const char* const id = name != nullptr ? std::strtok(nullptr, "\",") : nullptr;
    if (wide != image || id == nullptr) continue;
    expected = true;
    expectedId = static_cast<DWORD>(std::strtol(id, nullptr, 10));
  }
  DWORD id = kUntouched;
  const bool found = FindProcessIdInCsv(text, image, &id);
  if (found != expected)
    FuzzFail(found ? "a process is found that is not listed" : "a process that is listed is not found");
  if (id != expectedId) FuzzFail("another process is found than the first");
  FuzzKind(found ? 1 + (id > 0 ? 1 : 0) : 0);
}

const FuzzTarget g_tasklist("tasklist", RunTasklist,
                            {"\"", ",", "\",\"", "\r\n", "\n\"",
                             "\"explorer.exe\",\"32\",\"Console\",\"1\",\"18,612 K\"\r\n", "explorer.exe", "4294967296",
                             "-1", "0x10", "INFO: "});

}  // namespace
