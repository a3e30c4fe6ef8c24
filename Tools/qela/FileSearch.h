// The search for files by a pattern.
#pragma once

#include "FwClient/Common/Utilities/UniqueHandle.h"

struct FileSearchTraits {
  using Handle = HANDLE;
  static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) noexcept { ::FindClose(handle); }
};
using UniqueFileSearch = UniqueHandle<FileSearchTraits>;
