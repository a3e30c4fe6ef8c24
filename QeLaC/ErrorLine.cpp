#include "QeLaC/ErrorLine.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "FwClient/Common/Utilities/HostCallback.h"
#include "QeLaC/Call.h"

namespace {

// Never destroyed: the library's thread may still print when the process ends.
HostCallback<qela_error_callback>& ErrorCallback() {
  static auto* const callback = new HostCallback<qela_error_callback>;
  return *callback;
}

std::string Line(const char* format, std::va_list arguments) {
  std::va_list once;
  va_copy(once, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, once);
  va_end(once);
  if (length < 0) return format;
  std::string line(static_cast<std::size_t>(length), '\0');
  static_cast<void>(std::vsnprintf(line.data(), line.size() + 1, format, arguments));
  line.erase(line.find_last_not_of("\r\n") + 1);
  return line;
}

}  // namespace

void PrintErrorLine(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  try {
    ErrorCallback().Run([&](const auto& target) { target.function(Line(format, arguments).c_str(), target.context); });
  } catch (...) {  // a line that there is no memory for is lost
  }
  va_end(arguments);
}

qela_status QELA_CALL qela_set_error_callback(qela_error_callback callback, void* context) {
  return Guarded([&] {
    ErrorCallback().Set(callback, context);
    ErrorCallback().WaitForEarlier(INFINITE);
    return QELA_STATUS_OK;
  });
}
