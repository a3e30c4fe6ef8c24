#include "Interrupt.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "CommandError.h"
#include "Output.h"

namespace {

std::atomic<HANDLE> g_interrupted;  // never closed: the handler may run until the process is gone
HANDLE g_ended;
std::atomic<bool> g_wasRequested;
std::mutex g_mutex;
std::function<std::string()> g_awaited;

void Answer() {
  const std::lock_guard lock(g_mutex);
  if (g_awaited)
    PrintDiagnostic("qela: Ctrl-C: this ends when " + g_awaited() +
                    " has answered or timed out. Ctrl-C once more ends it now.\n");
}

BOOL WINAPI OnControl(DWORD control) {
  const bool isKey = control == CTRL_C_EVENT || control == CTRL_BREAK_EVENT;
  if (g_wasRequested.exchange(true) && isKey) ::TerminateProcess(::GetCurrentProcess(), kInterrupted);
  ::SetEvent(g_interrupted);
  constexpr DWORD kFinishMs = 3000;
  if (isKey)
    Answer();
  else
    ::WaitForSingleObject(g_ended, kFinishMs);
  return TRUE;
}

HANDLE MakeEvent() {
  HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr)
    throw CommandError(kFailed, "Windows has no event to give (error " + std::to_string(::GetLastError()) + ")");
  return event;
}

}  // namespace

void Interrupt::Listen() {
  if (g_interrupted != nullptr) return;
  g_ended = MakeEvent();
  g_interrupted = MakeEvent();
  ::SetConsoleCtrlHandler(OnControl, TRUE);
}

HANDLE Interrupt::Event() noexcept { return g_interrupted; }

bool Interrupt::WasRequested() noexcept { return g_wasRequested; }

void Interrupt::Finished() noexcept {
  if (g_ended != nullptr) ::SetEvent(g_ended);
}

Interrupt::Wait::Wait(std::function<std::string()> awaited) {
  const std::lock_guard lock(g_mutex);
  g_awaited = std::move(awaited);
}

Interrupt::Wait::~Wait() {
  const std::lock_guard lock(g_mutex);
  g_awaited = nullptr;
}
