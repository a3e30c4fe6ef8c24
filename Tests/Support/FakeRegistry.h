// A registry in memory that takes the place of the system's.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/StoredSet.h"

// A registry in memory with one key, the library's, and one value, "la"; there is neither at first. It takes the place
// of the registry calls of the module while it lives, one such object at a time. Another key or value is not found; a
// wrong hive or value name fails the test.
class FakeRegistry {
 public:
  explicit FakeRegistry(HMODULE module);
  ~FakeRegistry();
  FakeRegistry(const FakeRegistry&) = delete;
  FakeRegistry& operator=(const FakeRegistry&) = delete;

  // The stored value. Put makes the key; Remove takes the key away with it.
  void Put(std::vector<std::uint8_t> bytes, DWORD type = REG_BINARY);
  void MakeEmptyKey();
  void Remove();
  bool HasKey() const;
  std::optional<std::vector<std::uint8_t>> Value() const;
  DWORD ValueType() const;

  // Lets every call of the function fail with the status, or only the `nth` from now (1 is the next).
  void Fail(const char* function, LSTATUS status, std::size_t nth = 0);
  void StopFailing();

  // Called before each call is carried out, on the thread that makes it; may change the registry.
  void OnCall(std::function<void(const char* function)> hook);

  // What the library called, in order, and the access that an open or create asked for.
  struct Call {
    std::string function;
    REGSAM access = 0;
    LSTATUS status = ERROR_SUCCESS;
  };
  std::vector<Call> Calls() const;
  std::size_t Count(const char* function) const;
  void ClearCalls();

  // Keys that were opened and not closed.
  std::size_t OpenKeys() const;

 private:
  struct Failure {
    LSTATUS status;
    std::size_t nth;
  };
  static FakeRegistry& Current();
  // Notes the call and answers with the status that a test asked for, if any.
  LSTATUS Enter(const char* function, REGSAM access = 0);
  LSTATUS Leave(LSTATUS status);
  LSTATUS NewKey(HKEY* key);
  bool IsOpen(HKEY key) const;

  static LSTATUS WINAPI Open(HKEY hive, const wchar_t* path, DWORD options, REGSAM access, HKEY* key);
  static LSTATUS WINAPI Create(HKEY hive, const wchar_t* path, DWORD reserved, wchar_t* keyClass, DWORD options,
                               REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* key, DWORD* disposition);
  static LSTATUS WINAPI Query(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);
  static LSTATUS WINAPI Set(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
  static LSTATUS WINAPI Flush(HKEY key);
  static LSTATUS WINAPI Close(HKEY key);

  mutable std::recursive_mutex m_mutex;
  bool m_hasKey = false;
  std::optional<std::vector<std::uint8_t>> m_value;
  DWORD m_type = REG_BINARY;
  std::map<std::string, Failure> m_failures;
  std::function<void(const char*)> m_hook;
  std::vector<Call> m_calls;
  std::vector<HKEY> m_openKeys;
  std::uintptr_t m_nextKey = 0x51A00;
  std::vector<std::unique_ptr<ImportPatch>> m_patches;
};
