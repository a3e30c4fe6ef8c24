#include "FwClient/Common/Utilities/NtDllExports.h"

#include "FwClient/Common/Utilities/FwLog.h"

namespace {

constexpr wchar_t kNtDll[] = L"ntdll.dll";

template <typename Function>
Function* Find(HMODULE module, const char* name) noexcept {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// Makes the instance while the module loads, so that its log lines stand at the start of the log and no call pays for
// the look-up.
[[maybe_unused]] const NtDllExports& g_madeAtLoad = NtDllExports::Instance();

}  // namespace

NtDllExports::NtDllExports() noexcept {
  m_module = ::GetModuleHandleW(kNtDll);
  if (m_module == nullptr) {
    m_module = ::LoadLibraryW(kNtDll);
    m_loadedHere = m_module != nullptr;
  }
  if (m_module == nullptr) {
    FW_LOG(kLogError, L"NtDllExports - can't obtain a handle to ntdll");
    return;
  }
  m_ipv4StringToAddress = Find<Ipv4StringToAddress>(m_module, "RtlIpv4StringToAddressW");
  if (m_ipv4StringToAddress == nullptr)
    FW_LOG(kLogError, L"NtDllExports - can't obtain a handle to RtlIpv4StringToAddressW");
  m_ipv6StringToAddress = Find<Ipv6StringToAddress>(m_module, "RtlIpv6StringToAddressW");
  if (m_ipv6StringToAddress == nullptr)
    FW_LOG(kLogError, L"NtDllExports - can't obtain a handle to RtlIpv6StringToAddressW");
}

NtDllExports::~NtDllExports() {
  if (m_loadedHere) ::FreeLibrary(m_module);
}

const NtDllExports& NtDllExports::Instance() noexcept {
  static const NtDllExports instance;
  return instance;
}
