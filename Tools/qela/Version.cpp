#include "Version.h"

#include <windows.h>
#include <QeLaVersion.h>

#include <cstdint>
#include <vector>

#include "Text.h"

namespace {

constexpr wchar_t kLibrary[] = L"QeLaLib.dll";

}  // namespace

// The path may have any length.
std::wstring FolderOfThisProgram() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) {
      path.resize(length);
      return path.substr(0, path.find_last_of(L'\\') + 1);
    }
    path.resize(path.size() * 2);
  }
}

std::string FileVersion(const std::wstring& path) {
  std::vector<std::uint8_t> resource(::GetFileVersionInfoSizeW(path.c_str(), nullptr));
  void* found = nullptr;
  UINT size = 0;
  if (resource.empty() ||
      !::GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()) ||
      !::VerQueryValueW(resource.data(), L"\\", &found, &size) || size < sizeof(VS_FIXEDFILEINFO))
    return {};
  const auto* const info = static_cast<const VS_FIXEDFILEINFO*>(found);
  return std::to_string(HIWORD(info->dwFileVersionMS)) + "." + std::to_string(LOWORD(info->dwFileVersionMS)) + "." +
         std::to_string(HIWORD(info->dwFileVersionLS));
}

std::string VersionText() {
  const std::wstring path = FolderOfThisProgram() + kLibrary;
  const std::string version = FileVersion(path);
  return std::string("qela " QELA_VERSION_TEXT "\n") + (version.empty()
                                                            ? "QeLaLib.dll: none beside qela.exe"
                                                            : "QeLaLib.dll " + version + " (" + Printable(path) + ")");
}
