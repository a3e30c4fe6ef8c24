#include "ScriptedWindows/Windows/WindowsScript.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <format>

#include "FwClient/Common/Utilities/ScopeGuards.h"

namespace {

WindowsScript* current = nullptr;
// Kept outside, since the patched runtime calls them while the script is being made and unmade.
decltype(&::CloseHandle) realCloseHandle = nullptr;
decltype(&::GlobalFree) realGlobalFree = nullptr;
decltype(&::CreateEventW) realCreateEvent = nullptr;
decltype(&::SetEvent) realSetEvent = nullptr;
decltype(&::ResetEvent) realResetEvent = nullptr;
decltype(&::WaitForSingleObject) realWait = nullptr;

}  // namespace

WindowsScript::WindowsScript(HMODULE module) : m_module(module) {
  EXPECT_EQ(current, nullptr) << "one script lives at a time";
  current = this;
  ::InitializeCriticalSection(&m_lock);
  const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
  const auto real = [&]<typename Function>(Function*& function, const char* name) {
    function = reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(kernel, name)));
  };
  real(realCloseHandle, "CloseHandle");
  real(realGlobalFree, "GlobalFree");
  real(realCreateEvent, "CreateEventW");
  real(realSetEvent, "SetEvent");
  real(realResetEvent, "ResetEvent");
  real(realWait, "WaitForSingleObject");
  m_patches.emplace_back(module, "CloseHandle", &WindowsScript::CloseHandle);
  m_patches.emplace_back(module, "GlobalFree", &WindowsScript::GlobalFree);
  m_patches.emplace_back(module, "CreateEventW", &WindowsScript::CreateEventW);
  m_patches.emplace_back(module, "SetEvent", &WindowsScript::SetEvent);
  m_patches.emplace_back(module, "ResetEvent", &WindowsScript::ResetEvent);
  m_patches.emplace_back(module, "WaitForSingleObject", &WindowsScript::WaitForSingleObject);
}

WindowsScript::~WindowsScript() {
  while (!m_patches.empty()) m_patches.pop_back();
  for (const std::string& name : OpenHandles()) ADD_FAILURE() << name << " was left open";
  ::DeleteCriticalSection(&m_lock);
  current = nullptr;
}

WindowsScript& WindowsScript::Current() { return *current; }

void WindowsScript::Fail(const std::string& function, DWORD error, std::size_t call) {
  m_failures.push_back({function, call, error});
}

void WindowsScript::FailAlways(const std::string& function, DWORD error) {
  const CriticalSectionGuard lock(m_lock);
  m_broken[function] = error;
}

void WindowsScript::Heal(const std::string& function) {
  const CriticalSectionGuard lock(m_lock);
  m_broken.erase(function);
}

void WindowsScript::FailCallNumber(std::size_t number) { m_failNumber = number; }

std::vector<std::string> WindowsScript::Calls() const {
  const CriticalSectionGuard lock(m_lock);
  std::vector<std::string> calls;
  for (const auto& [function, arguments] : m_calls) calls.push_back(function + "(" + arguments + ")");
  return calls;
}

std::vector<std::string> WindowsScript::Calls(const std::set<std::string>& functions) const {
  const CriticalSectionGuard lock(m_lock);
  std::vector<std::string> calls;
  for (const auto& [function, arguments] : m_calls)
    if (functions.contains(function)) calls.push_back(function + "(" + arguments + ")");
  return calls;
}

std::size_t WindowsScript::Count(const std::string& function) const {
  const CriticalSectionGuard lock(m_lock);
  return static_cast<std::size_t>(
      std::count_if(m_calls.begin(), m_calls.end(), [&](const auto& call) { return call.first == function; }));
}

std::size_t WindowsScript::FallibleCalls() const { return m_fallible; }

bool WindowsScript::Enter(const std::string& function, const std::string& arguments) {
  const CriticalSectionGuard lock(m_lock);
  Note(function, arguments);
  const std::size_t call = ++m_counts[function];
  if (++m_fallible == m_failNumber) {
    ::SetLastError(ERROR_GEN_FAILURE);
    return false;
  }
  if (const auto broken = m_broken.find(function); broken != m_broken.end()) {
    ::SetLastError(broken->second);
    return false;
  }
  const auto failure = std::find_if(m_failures.begin(), m_failures.end(), [&](const PlannedFailure& planned) {
    return planned.function == function && planned.call == call;
  });
  if (failure == m_failures.end()) return true;
  ::SetLastError(failure->error);
  return false;
}

void WindowsScript::Note(const std::string& function, const std::string& arguments) {
  const CriticalSectionGuard lock(m_lock);
  m_calls.emplace_back(function, arguments);
}

HANDLE WindowsScript::Open(const std::string& kind) {
  const CriticalSectionGuard lock(m_lock);
  const HANDLE handle = reinterpret_cast<HANDLE>(m_nextHandle);
  m_nextHandle += 0x10;
  OpenAt(kind, handle);
  return handle;
}

void WindowsScript::OpenAt(const std::string& kind, const void* address) {
  const CriticalSectionGuard lock(m_lock);
  const std::size_t number = ++m_kinds[kind];
  m_handles[address] = {number == 1 ? kind : std::format("{}{}", kind, number), kind, true};
}

void WindowsScript::Close(const std::string& kind, const void* handle) {
  const CriticalSectionGuard lock(m_lock);
  const auto found = m_handles.find(handle);
  if (found == m_handles.end()) {
    ADD_FAILURE() << "an unknown " << kind << " was closed";
    return;
  }
  EXPECT_EQ(found->second.kind, kind) << found->second.name << " was closed by the wrong function";
  EXPECT_TRUE(found->second.open) << found->second.name << " was closed twice";
  found->second.open = false;
}

bool WindowsScript::Knows(const void* handle) const {
  const CriticalSectionGuard lock(m_lock);
  return m_handles.contains(handle);
}

std::string WindowsScript::Name(const void* handle) const {
  if (handle == nullptr) return "null";
  const CriticalSectionGuard lock(m_lock);
  const auto found = m_handles.find(handle);
  if (found == m_handles.end()) {
    ADD_FAILURE() << "an unknown handle was used";
    return "?";
  }
  EXPECT_TRUE(found->second.open) << found->second.name << " was used after it was closed";
  return found->second.name;
}

std::vector<std::string> WindowsScript::OpenHandles() const {
  const CriticalSectionGuard lock(m_lock);
  std::vector<std::string> names;
  for (const auto& [handle, entry] : m_handles)
    if (entry.open) names.push_back(entry.name);
  return names;
}

void* WindowsScript::GlobalMemory(const std::string& kind, std::size_t size) {
  // Never given back before the end, so that a use after GlobalFree cannot meet other memory.
  m_memory.push_back(std::make_unique<std::byte[]>(size));
  OpenAt(kind, m_memory.back().get());
  return m_memory.back().get();
}

wchar_t* WindowsScript::GlobalText(const std::string& kind, const std::wstring& text) {
  const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
  void* const memory = GlobalMemory(kind, size);
  std::memcpy(memory, text.c_str(), size);
  return static_cast<wchar_t*>(memory);
}

std::vector<DWORD> WindowsScript::Waits() const {
  const CriticalSectionGuard lock(m_lock);
  return m_waits;
}

void WindowsScript::CutWaitsShort() { m_cutWaits = true; }

std::string WindowsScript::Text(const wchar_t* text) {
  if (text == nullptr) return "null";
  std::string narrow;
  for (; *text != L'\0'; ++text) narrow += *text < 0x80 ? static_cast<char>(*text) : '?';
  return narrow;
}

std::string WindowsScript::Hex(DWORD number) { return std::format("0x{:x}", number); }

BOOL WINAPI WindowsScript::CloseHandle(HANDLE handle) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current();
  if (!script.Knows(handle)) return realCloseHandle(handle);
  {
    const CriticalSectionGuard lock(script.m_lock);
    const Entry entry = script.m_handles.at(handle);
    script.Note("CloseHandle", entry.name);
    script.Close(entry.kind, handle);
    for (const char* kind : {"session", "connection", "request", "key", "module", "store", "chain", "certificate"})
      EXPECT_NE(entry.kind, kind) << "CloseHandle is not how this is closed";
    if (script.m_events.erase(handle) == 0) return TRUE;
    // A real handle: the system may give its value to another object next.
    script.m_handles.erase(handle);
  }
  return realCloseHandle(handle);
}

HGLOBAL WINAPI WindowsScript::GlobalFree(HGLOBAL memory) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current();
  if (!script.Knows(memory)) return realGlobalFree(memory);
  const CriticalSectionGuard lock(script.m_lock);
  const Entry entry = script.m_handles.at(memory);
  script.Note("GlobalFree", entry.name);
  script.Close(entry.kind, memory);
  return nullptr;
}

// The events of the code under test are real ones that the script watches. The runtime's own, made on other threads or
// named or in another state, are left alone.
HANDLE WINAPI WindowsScript::CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL signalled, LPCWSTR name) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current();
  const bool ours = ::GetCurrentThreadId() == script.m_thread && manual && !signalled && name == nullptr;
  if (ours && !script.Enter("CreateEventW")) return nullptr;
  const HANDLE event = realCreateEvent(attributes, manual, signalled, name);
  if (!ours || event == nullptr) return event;
  const CriticalSectionGuard lock(script.m_lock);
  script.OpenAt("event", event);
  script.m_events.insert(event);
  return event;
}

BOOL WINAPI WindowsScript::SetEvent(HANDLE event) {
  const BOOL done = realSetEvent(event);
  EXPECT_TRUE(done) << "an event was set after it was closed";
  return done;
}

BOOL WINAPI WindowsScript::ResetEvent(HANDLE event) {
  const BOOL done = realResetEvent(event);
  EXPECT_TRUE(done) << "an event was reset after it was closed";
  return done;
}

DWORD WINAPI WindowsScript::WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  {
    const HeapWatch::Pause pause;
    WindowsScript& script = Current();
    const CriticalSectionGuard lock(script.m_lock);
    if (script.m_events.contains(handle)) {
      script.m_waits.push_back(milliseconds);
      if (script.m_cutWaits) milliseconds = 0;
    }
  }
  return realWait(handle, milliseconds);
}
