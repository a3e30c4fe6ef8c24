#include "Tests/Soak/Watchdog.h"

#include <tlhelp32.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cwchar>
#include <utility>

namespace {

constexpr DWORD kTickMs = 250;
constexpr DWORD kStacksMs = 5000;
constexpr std::size_t kMostFrames = 40;

using Frames = std::array<DWORD64, kMostFrames>;

// Where a thread stands, the innermost call first.
std::size_t Walk(CONTEXT context, Frames& frames) {
  std::size_t count = 0;
  while (context.Rip != 0 && count < kMostFrames) {
    frames[count++] = context.Rip;
    DWORD64 image = 0;
    void* data = nullptr;
    DWORD64 frame = 0;
    const PRUNTIME_FUNCTION entry = ::RtlLookupFunctionEntry(context.Rip, &image, nullptr);
    if (entry != nullptr) {
      ::RtlVirtualUnwind(UNW_FLAG_NHANDLER, image, context.Rip, entry, &context, &data, &frame, nullptr);
      continue;
    }
    // A function that calls no other: the return address lies on top.
    if (count != 1) break;
    const auto* const top = reinterpret_cast<const DWORD64*>(context.Rsp);
    context.Rip = *top;
    context.Rsp += sizeof *top;
  }
  return count;
}

// With addresses in modules, as addr2line takes them.
void Print(const Frames& frames, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH] = L"?";
    if (::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                             reinterpret_cast<const wchar_t*>(frames[i]),  // NOLINT: an address, as the flag says
                             &module))
      ::GetModuleFileNameW(module, path, MAX_PATH);
    const wchar_t* const name = std::wcsrchr(path, L'\\');
    std::fprintf(stderr, "  %ls+0x%llx\n", name != nullptr ? name + 1 : path,
                 frames[i] - reinterpret_cast<DWORD64>(module));
  }
}

void PrintStack(DWORD id) {
  HANDLE thread = ::OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE, id);
  if (thread == nullptr) return;
  CONTEXT context{};
  context.ContextFlags = CONTEXT_FULL;
  Frames frames{};
  ::SuspendThread(thread);
  const std::size_t count = ::GetThreadContext(thread, &context) ? Walk(context, frames) : 0;
  ::ResumeThread(thread);
  ::CloseHandle(thread);
  std::fprintf(stderr, "thread %lu:\n", id);
  Print(frames, count);
}

DWORD WINAPI PrintStacks(void*) {
  HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Thread32First(snapshot, &entry); more; more = ::Thread32Next(snapshot, &entry))
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId() && entry.th32ThreadID != ::GetCurrentThreadId())
      PrintStack(entry.th32ThreadID);
  ::CloseHandle(snapshot);
  return 0;
}

}  // namespace

Watchdog::Watchdog(std::uint64_t silenceMs, std::function<void()> tick)
    : m_silenceMs(silenceMs), m_tick(std::move(tick)), m_thread([this] { Watch(); }) {
  s_current = this;
  m_filter = ::SetUnhandledExceptionFilter(&Crashed);
}

Watchdog::~Watchdog() {
  ::SetUnhandledExceptionFilter(m_filter);
  ::SetEvent(m_end);
  m_thread.join();
  ::CloseHandle(m_end);
}

Watchdog::Doing::Doing(Watchdog& watchdog, const char* what) : m_watchdog(watchdog) {
  const DWORD thread = ::GetCurrentThreadId();
  auto& slots = m_watchdog.m_slots;
  m_slot = thread / 4 % slots.size();  // numbers of threads are multiples of 4
  for (DWORD free = 0; !slots[m_slot].thread.compare_exchange_strong(free, thread); free = 0)
    m_slot = (m_slot + 1) % slots.size();
  slots[m_slot].since = ::GetTickCount64();
  slots[m_slot].what = what;
}

Watchdog::Doing::~Doing() {
  Slot& slot = m_watchdog.m_slots[m_slot];
  slot.what = nullptr;
  slot.thread = 0;
  ++m_watchdog.m_progress;
}

void Watchdog::Watch() {
  std::uint64_t seen = m_progress;
  std::uint64_t since = ::GetTickCount64();
  while (::WaitForSingleObject(m_end, kTickMs) == WAIT_TIMEOUT) {
    m_tick();
    const std::uint64_t progress = m_progress;
    const std::uint64_t now = ::GetTickCount64();
    if (std::exchange(seen, progress) != progress) since = now;
    if (now - since >= m_silenceMs) Bark();
  }
}

void Watchdog::PrintDoings() const {
  const std::uint64_t now = ::GetTickCount64();
  for (const Slot& slot : m_slots)
    if (const char* what = slot.what; what != nullptr)
      std::fprintf(stderr, "thread %lu: %s, for %llu ms\n", slot.thread.load(), what, now - slot.since);
  std::fflush(stderr);
}

void Watchdog::Bark() {
  std::fprintf(stderr, "Nothing was done for %llu ms. What each thread is doing:\n", m_silenceMs);
  PrintDoings();
  std::fputs("Where each thread stands:\n", stderr);
  // By another thread, and not for ever: one of those that stand still may hold what walking takes.
  HANDLE stacks = ::CreateThread(nullptr, 0, &PrintStacks, nullptr, 0, nullptr);
  ::WaitForSingleObject(stacks, kStacksMs);
  std::fflush(stderr);
  ::TerminateProcess(::GetCurrentProcess(), 1);
  std::abort();
}

LONG WINAPI Watchdog::Crashed(EXCEPTION_POINTERS* crash) {
  std::fprintf(stderr, "Thread %lu crashed, exception 0x%lx. What each thread was doing:\n", ::GetCurrentThreadId(),
               crash->ExceptionRecord->ExceptionCode);
  s_current->PrintDoings();
  std::fputs("Where it crashed:\n", stderr);
  Frames frames{};
  Print(frames, Walk(*crash->ContextRecord, frames));
  std::fflush(stderr);
  ::TerminateProcess(::GetCurrentProcess(), 1);
  return EXCEPTION_EXECUTE_HANDLER;
}
