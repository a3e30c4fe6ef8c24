// The log and the proxy credentials, which the host's libraries bring. The kit's own take callbacks; the product's,
// which may stand in their place, do not.
#include <winsock2.h>
#include <windows.h>
#include <BLFrameworkCallback.h>
#include <LogLibCallback.h>

#include "QeLaC/Call.h"

namespace {

// The function of a library that the process has loaded, or null.
template <typename Function>
Function* FindSetter(const wchar_t* library, const char* name) noexcept {
  const HMODULE module = ::GetModuleHandleW(library);
  if (module == nullptr) return nullptr;
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace

qela_status QELA_CALL qela_set_log_callback(qela_log_callback callback, void* context, qela_log_level level) {
  if (level != QELA_LOG_ERRORS && level != QELA_LOG_ALL) return QELA_STATUS_INVALID_ARGUMENT;
  auto* const set = FindSetter<decltype(LogLibSetCallback)>(L"LogLib.dll", "LogLibSetCallback");
  return set == nullptr ? QELA_STATUS_NOT_SUPPORTED : set(callback, context, level);
}

qela_status QELA_CALL qela_set_credentials_callback(qela_credentials_callback callback, void* context) {
  auto* const set =
      FindSetter<decltype(BLFrameworkSetCredentialsCallback)>(L"blframework.dll", "BLFrameworkSetCredentialsCallback");
  return set == nullptr ? QELA_STATUS_NOT_SUPPORTED : set(callback, context);
}
