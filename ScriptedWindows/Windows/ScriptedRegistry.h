// A registry in memory in place of the system's.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/Windows/WindowsScript.h"

// Takes the place of the registry calls that the module imports. It holds keys of the machine's hive, at first none but
// the hive itself; keys of other hives are not found. Names are compared without letter case. Complains of a key that
// is used while it is not open.
class ScriptedRegistry : public PlannedFailures, public OnlyOne<ScriptedRegistry> {
 public:
  using Bytes = std::vector<std::uint8_t>;

  explicit ScriptedRegistry(HMODULE module) : ScriptedRegistry(module, nullptr) {}
  // The script notes the calls, may let them fail, and gives out the keys.
  explicit ScriptedRegistry(WindowsScript& script) : ScriptedRegistry(script.Module(), &script) {}

  // What it holds: in the 64-bit view, unless `view` is KEY_WOW64_32KEY. Set makes the key.
  void MakeKey(const std::wstring& path, REGSAM view = KEY_WOW64_64KEY);
  void RemoveKey(const std::wstring& path, REGSAM view = KEY_WOW64_64KEY);
  void Set(const std::wstring& path, const std::wstring& name, DWORD type, const void* data, std::size_t bytes,
           REGSAM view = KEY_WOW64_64KEY);
  void SetText(const std::wstring& path, const std::wstring& name, const std::wstring& text,
               REGSAM view = KEY_WOW64_64KEY);
  bool HasKey(const std::wstring& path) const;
  std::optional<Bytes> Value(const std::wstring& path, const std::wstring& name) const;
  DWORD TypeOf(const std::wstring& path, const std::wstring& name) const;

  // What the module called: what an open or a create asked for, what a query offered.
  struct Call {
    std::string function;
    std::wstring name = {};  // of the key or the value
    HKEY hive = nullptr;
    REGSAM access = 0;
    bool hasBuffer = false;
    DWORD bytes = 0;

    bool operator==(const Call&) const = default;
  };
  static Call Open(HKEY hive, std::wstring path, REGSAM access) {
    return {.function = "RegOpenKeyExW", .name = std::move(path), .hive = hive, .access = access};
  }
  static Call Query(std::wstring name, bool hasBuffer, DWORD bytes) {
    return {.function = "RegQueryValueExW", .name = std::move(name), .hasBuffer = hasBuffer, .bytes = bytes};
  }
  // Called before each call is carried out, on the thread that makes it, with the lock held; may change the registry.
  void OnCall(std::function<void(const Call&)> hook);

  // In order.
  std::vector<Call> Calls() const;
  std::vector<Call> Calls(const std::string& function) const;
  std::size_t Count(const std::string& function) const { return Calls(function).size(); }
  void ClearCalls();

  // Keys that were opened and not closed.
  std::size_t OpenKeys() const;

 private:
  struct WithoutCase {
    using is_transparent = void;
    bool operator()(const std::wstring& left, const std::wstring& right) const;
  };
  struct Data {
    DWORD type;
    Bytes bytes;
  };
  using Values = std::map<std::wstring, Data, WithoutCase>;
  using Keys = std::map<std::wstring, Values, WithoutCase>;

  ScriptedRegistry(HMODULE module, WindowsScript* script);
  Keys& View(REGSAM access) { return (access & KEY_WOW64_32KEY) != 0 ? m_keys32 : m_keys64; }
  const Data* Find(const std::wstring& path, const std::wstring& name) const;
  // Notes the call, `arguments` for the script, and answers with the status that a test asked for, if any.
  LSTATUS Enter(const Call& call, const std::string& arguments);
  LSTATUS NewKey(const std::wstring& path, REGSAM access, HKEY* key);
  std::string Name(HKEY key) const;
  bool IsOpen(HKEY key) const;  // complains when not
  // The values of an open key; null for any other and for one that was removed.
  Values* ValuesOf(HKEY key);

  static LSTATUS WINAPI OpenKey(HKEY hive, const wchar_t* path, DWORD options, REGSAM access, HKEY* key);
  static LSTATUS WINAPI CreateKey(HKEY hive, const wchar_t* path, DWORD reserved, wchar_t* keyClass, DWORD options,
                                  REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* key, DWORD* disposition);
  static LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data,
                                   DWORD* size);
  static LSTATUS WINAPI SetValue(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data,
                                 DWORD size);
  static LSTATUS WINAPI FlushKey(HKEY key);
  static LSTATUS WINAPI CloseKey(HKEY key);

  WindowsScript* const m_script;
  Keys m_keys64{{L"", {}}};
  Keys m_keys32{{L"", {}}};
  std::function<void(const Call&)> m_hook;
  std::vector<Call> m_calls;
  std::map<HKEY, std::pair<std::wstring, REGSAM>> m_openKeys;
  std::uintptr_t m_nextKey = 0x51A00;
  std::map<std::string, ImportPatch> m_patches;
};
