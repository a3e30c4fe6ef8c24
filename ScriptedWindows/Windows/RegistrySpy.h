// Watches, and where a test says so answers, the registry calls of one module.
#pragma once

#include <windows.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

// Calls go on to the real registry, except those that a script answers. One at a time.
class RegistrySpy {
 public:
  struct Open {
    HKEY hive;
    std::wstring subkey;
    REGSAM access;
    bool operator==(const Open&) const = default;
  };
  struct Query {
    std::wstring valueName;
    bool hasBuffer;
    DWORD bytes;  // offered
    bool operator==(const Query&) const = default;
  };

  explicit RegistrySpy(HMODULE module);
  ~RegistrySpy();
  RegistrySpy(const RegistrySpy&) = delete;
  RegistrySpy& operator=(const RegistrySpy&) = delete;

  // The status of the next calls in turn; nothing, or no entry left: the real call.
  std::deque<std::optional<LSTATUS>> openScript;
  std::deque<std::optional<LSTATUS>> queryScript;

  // Where an opening goes instead of its own subkey; for tests of a fixed key, which all tests would share. Set it for
  // every key that the module opens, or not at all.
  std::function<std::wstring(const Open&)> redirect;

  std::vector<Open> opens;
  std::vector<Query> queries;

  // Keys that were opened and are still open, and closings of what was not open.
  std::size_t OpenKeys() const { return m_open.size(); }
  int WrongCloses() const { return m_wrongCloses; }

 private:
  static LSTATUS WINAPI OnOpen(HKEY hive, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY key);
  static LSTATUS WINAPI OnQuery(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD bytes);
  static LSTATUS WINAPI OnClose(HKEY key);

  static inline RegistrySpy* s_self = nullptr;
  std::vector<HKEY> m_open;
  int m_wrongCloses = 0;
  ImportPatch m_openPatch;
  ImportPatch m_queryPatch;
  ImportPatch m_closePatch;
};
