#include "Tests/Support/TestFile.h"

#include <windows.h>

#include <cstddef>
#include <string>

std::filesystem::path ProgramFolder() {
  constexpr std::size_t kLongestPath = 32767;
  std::wstring path(kLongestPath, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return std::filesystem::path(path).parent_path();
}

std::filesystem::path TestFile(std::string_view name) {
  // All or nothing: a copy that lacks a file must not be completed from a checkout that may have changed since.
  const std::filesystem::path carried = ProgramFolder();
  return (std::filesystem::exists(carried / "Tests") ? carried : std::filesystem::path(SOURCE_DIR)) / name;
}
