#include "ScriptedWindows/Windows/WindowsScript.h"

#include <algorithm>
#include <cstring>
#include <format>
#include <mutex>

WindowsScript::WindowsScript(HMODULE module)
    : m_module(module),
      m_closeHandle(module, "CloseHandle", &CloseHandle),
      m_globalFree(module, "GlobalFree", &GlobalFree) {}

WindowsScript::~WindowsScript() {
  for (const std::string& mistake : m_handles.Mistakes()) Complain(mistake);
  for (const std::string& name : OpenHandles()) Complain(name + " was left open");
}

std::vector<std::string> WindowsScript::Calls() const {
  const std::lock_guard lock(m_lock);
  std::vector<std::string> calls;
  for (const auto& [function, arguments] : m_calls) calls.push_back(function + "(" + arguments + ")");
  return calls;
}

std::vector<std::string> WindowsScript::Calls(const std::set<std::string>& functions) const {
  std::vector<std::string> calls = Calls();
  std::erase_if(calls, [&](const std::string& call) { return !functions.contains(call.substr(0, call.find('('))); });
  return calls;
}

std::size_t WindowsScript::Count(const std::string& function) const {
  const std::lock_guard lock(m_lock);
  return static_cast<std::size_t>(
      std::count_if(m_calls.begin(), m_calls.end(), [&](const auto& call) { return call.first == function; }));
}

bool WindowsScript::Enter(const std::string& function, const std::string& arguments) {
  Note(function, arguments);
  const DWORD error = NextError(function);
  if (error != ERROR_SUCCESS) ::SetLastError(error);
  return error == ERROR_SUCCESS;
}

void WindowsScript::Note(const std::string& function, const std::string& arguments) {
  const std::lock_guard lock(m_lock);
  m_calls.emplace_back(function, arguments);
}

HANDLE WindowsScript::Open(const std::string& kind, const std::string& closer) {
  const std::lock_guard lock(m_lock);
  const HANDLE handle = reinterpret_cast<HANDLE>(m_nextHandle);
  m_nextHandle += 0x10;
  OpenAt(kind, closer, handle);
  return handle;
}

void WindowsScript::OpenAt(const std::string& kind, const std::string& closer, const void* address) {
  m_handles.Opened(kind, closer, address);
}

void WindowsScript::Adopt(const std::string& kind, HANDLE handle) {
  const std::lock_guard lock(m_lock);
  OpenAt(kind, "CloseHandle", handle);
  m_adopted.insert(handle);
}

bool WindowsScript::IsAdopted(HANDLE handle) const {
  const std::lock_guard lock(m_lock);
  return m_adopted.contains(handle);
}

void WindowsScript::Close(const std::string& closer, const void* handle) {
  Note(closer, Name(handle));
  Closed(closer, handle);
}

void* WindowsScript::GlobalMemory(const std::string& kind, std::size_t size) {
  // Never given back before the end, so that a use after GlobalFree cannot meet other memory.
  m_memory.push_back(std::make_unique<std::byte[]>(size));
  OpenAt(kind, "GlobalFree", m_memory.back().get());
  return m_memory.back().get();
}

wchar_t* WindowsScript::GlobalText(const std::string& kind, const std::wstring& text) {
  const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
  void* const memory = GlobalMemory(kind, size);
  std::memcpy(memory, text.c_str(), size);
  return static_cast<wchar_t*>(memory);
}

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
  {
    const std::lock_guard lock(script.m_lock);
    if (script.Knows(handle)) {
      script.Close("CloseHandle", handle);
      if (script.m_adopted.erase(handle) == 0) return TRUE;
      script.m_handles.Forget(handle);
    }
  }
  return script.m_closeHandle.Original<BOOL WINAPI(HANDLE)>()(handle);
}

HGLOBAL WINAPI WindowsScript::GlobalFree(HGLOBAL memory) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current();
  if (!script.Knows(memory)) return script.m_globalFree.Original<HGLOBAL WINAPI(HGLOBAL)>()(memory);
  script.Close("GlobalFree", memory);
  return nullptr;
}
