// The versions of the two libraries, read from the files that are loaded.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <cstring>

#include "QeLaC/Call.h"

namespace {

// How the version resource begins: its length, that of its value, its type, its name, and then, at a multiple of four
// bytes, the value.
struct VersionHeader {
  WORD length;
  WORD valueLength;
  WORD type;
  wchar_t name[sizeof "VS_VERSION_INFO"];
  WORD padding;
  VS_FIXEDFILEINFO value;
};

// False when the module has no such resource.
bool ReadVersion(HMODULE module, std::uint32_t (&version)[3]) noexcept {
  HRSRC found = ::FindResourceW(module, MAKEINTRESOURCEW(VS_VERSION_INFO), reinterpret_cast<LPCWSTR>(RT_VERSION));
  if (found == nullptr || ::SizeofResource(module, found) < sizeof(VersionHeader)) return false;
  const HGLOBAL loaded = ::LoadResource(module, found);
  const void* const bytes = loaded == nullptr ? nullptr : ::LockResource(loaded);
  if (bytes == nullptr) return false;
  VersionHeader header{};
  std::memcpy(&header, bytes, sizeof header);
  if (header.value.dwSignature != VS_FFI_SIGNATURE) return false;
  version[0] = HIWORD(header.value.dwFileVersionMS);
  version[1] = LOWORD(header.value.dwFileVersionMS);
  version[2] = HIWORD(header.value.dwFileVersionLS);
  return true;
}

HMODULE ThisModule() noexcept {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<const wchar_t*>(&qela_get_versions), &module);
  return module;
}

}  // namespace

qela_status QELA_CALL qela_get_versions(qela_versions* versions) {
  if (versions == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
  if (versions->size != sizeof(qela_versions)) return QELA_STATUS_INVALID_SIZE;
  const HMODULE kit = ThisModule();
  const HMODULE library = ::GetModuleHandleW(L"QeLaLib.dll");
  qela_versions read = *versions;
  if (kit == nullptr || library == nullptr || !ReadVersion(kit, read.kit) || !ReadVersion(library, read.library))
    return QELA_STATUS_SYSTEM_ERROR;
  *versions = read;
  return QELA_STATUS_OK;
}
