#include "FwClient/Service/QeLaLib/HostComState.h"

#include <objbase.h>

#include <atomic>
#include <cstddef>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/ScopeGuards.h"

static_assert(offsetof(HostComState, hostComActive) == sizeof(CRITICAL_SECTION));
static_assert(offsetof(HostComState, forceComInit) == offsetof(HostComState, hostComActive) + 1);
static_assert(offsetof(HostComState, initCount) == sizeof(CRITICAL_SECTION) + 4);
static_assert(offsetof(HostComState, uninitCount) == offsetof(HostComState, initCount) + 4);

namespace {

using HostComStateFunction = HostComState* (*)();

HostComState* LookUpHostComState() noexcept {
  const HMODULE host = ::GetModuleHandleA(nullptr);
  if (host == nullptr) return nullptr;
  FARPROC function = ::GetProcAddress(host, "CisbMs");
  if (function == nullptr) return nullptr;
  // Through void*, since the look-up's own function type is not that of any function.
  return reinterpret_cast<HostComStateFunction>(reinterpret_cast<void*>(function))();
}

// What the look-up found. Not a function-local static: the host's function may call the library, which would then wait
// for itself, and other threads for both. Until there is an answer, each asks for itself.
char g_noAnswer;
void* const kNotLookedUp = &g_noAnswer;
std::atomic<void*> g_answer{&g_noAnswer};

}  // namespace

HostComState* FindHostComState() noexcept {
  // A failed look-up is as final as a successful one: the host's exports do not change while it runs. The first answer
  // stays.
  void* answer = g_answer.load();
  if (answer == kNotLookedUp) {
    void* const found = LookUpHostComState();
    if (g_answer.compare_exchange_strong(answer, found)) answer = found;
  }
  return static_cast<HostComState*>(answer);
}

ComBracket::ComBracket() noexcept {
  if (HostComState* host = FindHostComState(); host != nullptr) {
    const CriticalSectionGuard lock(host->lock);
    ++host->initCount;
    if (host->hostComActive && !host->forceComInit) return;
  }
  m_outcome = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  // The probes that need COM then fail by themselves; the other criteria are still worth a calculation.
  if (FAILED(m_outcome)) FW_LOG(kLogError, L"QeLaLib failed to init COM, hr 0x%x", static_cast<unsigned>(m_outcome));
}

ComBracket::~ComBracket() {
  if (FAILED(m_outcome)) return;
  if (HostComState* host = FindHostComState(); host != nullptr) {
    const CriticalSectionGuard lock(host->lock);
    ++host->uninitCount;
    if (host->hostComActive) return;
  }
  ::CoUninitialize();
}
