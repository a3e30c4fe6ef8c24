// The moments between which a module's code may run.
#pragma once

#include <windows.h>
#include <winternl.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <functional>
#include <string>
#include <utility>

// While it lives, `loaded` is called before the first instruction of the module of that name, with its imports at their
// places, and `unloaded` after the last one while it is still there. The system's loader is locked meanwhile.
class LoadNotice {
 public:
  LoadNotice(std::wstring name, std::function<void(HMODULE)> loaded, std::function<void()> unloaded)
      : m_name(std::move(name)), m_loaded(std::move(loaded)), m_unloaded(std::move(unloaded)) {
    EXPECT_EQ(Ntdll<RegisterFunction>("LdrRegisterDllNotification")(0, &OnModule, this, &m_cookie), 0);
  }
  ~LoadNotice() { Ntdll<UnregisterFunction>("LdrUnregisterDllNotification")(m_cookie); }
  LoadNotice(const LoadNotice&) = delete;
  LoadNotice& operator=(const LoadNotice&) = delete;

 private:
  // As documented; the headers lack them.
  struct Notification {
    ULONG flags;
    const UNICODE_STRING* fullName;
    const UNICODE_STRING* baseName;
    void* base;
    ULONG size;
  };
  using NotificationFunction = void CALLBACK(ULONG reason, const Notification* data, void* context);
  using RegisterFunction = NTSTATUS NTAPI(ULONG, NotificationFunction*, void*, void**);
  using UnregisterFunction = NTSTATUS NTAPI(void*);
  static constexpr ULONG kLoaded = 1;

  template <typename Function>
  static Function* Ntdll(const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), name)));
  }

  static void CALLBACK OnModule(ULONG reason, const Notification* data, void* context) {
    const auto& self = *static_cast<const LoadNotice*>(context);
    if (self.m_name != std::wstring(data->baseName->Buffer)) return;
    reason == kLoaded ? self.m_loaded(static_cast<HMODULE>(data->base)) : self.m_unloaded();
  }

  const std::wstring m_name;
  const std::function<void(HMODULE)> m_loaded;
  const std::function<void()> m_unloaded;
  void* m_cookie = nullptr;
};
