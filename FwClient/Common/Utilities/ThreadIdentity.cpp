#include "FwClient/Common/Utilities/ThreadIdentity.h"

#include <cstdint>

namespace {

enum class Identity : std::uintptr_t { kOwn, kUsers, kStuckAsUser };

// One value a thread, kOwn on all at first. A slot of the system's rather than thread_local, for which the runtime
// allocates on each thread and ends the process when it cannot. The slot is made while the module loads and freed when
// it unloads. Its values are no addresses, so nothing is left behind by a thread that ends.
class IdentitySlot {
 public:
  IdentitySlot() noexcept : m_slot(::TlsAlloc()) {}
  ~IdentitySlot() {
    if (m_slot != TLS_OUT_OF_INDEXES) ::TlsFree(m_slot);
  }
  IdentitySlot(const IdentitySlot&) = delete;
  IdentitySlot& operator=(const IdentitySlot&) = delete;

  Identity Get() const noexcept {
    return static_cast<Identity>(reinterpret_cast<std::uintptr_t>(::TlsGetValue(m_slot)));
  }

  // May fail for a thread's first value: the system keeps the higher slots in memory of its own.
  bool Set(Identity identity) const noexcept {
    return ::TlsSetValue(m_slot, reinterpret_cast<void*>(static_cast<std::uintptr_t>(identity))) != FALSE;
  }

 private:
  const DWORD m_slot;
};

const IdentitySlot g_identity;

// After a first call that failed: once more, then the hard way.
bool TryHarderToRevert() noexcept { return ::RevertToSelf() || ::SetThreadToken(nullptr, nullptr); }

}  // namespace

// Noted before it happens: where it cannot be noted the thread stays itself.
ImpersonationGuard::ImpersonationGuard(HANDLE token) noexcept {
  if (g_identity.Get() != Identity::kOwn || !g_identity.Set(Identity::kUsers)) return;
  m_active = ::ImpersonateLoggedOnUser(token) != FALSE;
  if (!m_active) g_identity.Set(Identity::kOwn);
}

bool ImpersonationGuard::Revert() noexcept {
  if (!m_active) return false;
  m_active = false;
  if (::RevertToSelf()) {
    g_identity.Set(Identity::kOwn);
    return true;
  }
  g_identity.Set(TryHarderToRevert() ? Identity::kOwn : Identity::kStuckAsUser);
  return false;
}

bool ThreadActsAsItself() noexcept { return g_identity.Get() == Identity::kOwn; }

bool RestoreThreadIdentity() noexcept {
  if (g_identity.Get() == Identity::kStuckAsUser && (::RevertToSelf() || TryHarderToRevert()))
    g_identity.Set(Identity::kOwn);
  return ThreadActsAsItself();
}
