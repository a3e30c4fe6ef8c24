#include "FwClient/Common/Utilities/SystemDirectory.h"

#include <winsock2.h>
#include <windows.h>

bool GetSystemDirectoryPath(std::wstring& path) {
  std::wstring directory(MAX_PATH, L'\0');
  UINT length = ::GetSystemDirectoryW(directory.data(), static_cast<UINT>(directory.size()));
  if (length > directory.size()) {
    // It did not fit; the answer was the size that it needs with its terminator.
    directory.resize(length);
    length = ::GetSystemDirectoryW(directory.data(), length);
  }
  if (length == 0 || length >= directory.size()) return false;
  directory.resize(length);
  path = directory;
  return true;
}
