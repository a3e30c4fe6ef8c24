// The shipped library, loaded as a host loads it, and the surroundings that make a test of it repeatable: a registry
// of the test's own and a ledger of the handles that the library opens and closes.
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

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "Tests/Support/ImportPatch.h"
#include "Tests/Support/RedirectedMachineHive.h"

// QeLaLib.dll from the folder of the test program. The exports' instances live as long as the library stays loaded, so
// a test declares this first and its patches after it.
class ServiceLibrary {
 public:
  ServiceLibrary();
  ~ServiceLibrary();
  ServiceLibrary(const ServiceLibrary&) = delete;
  ServiceLibrary& operator=(const ServiceLibrary&) = delete;

  HMODULE Module() const { return m_module; }

  // The two exports. Each makes, loads and calculates its instance at the first call; so patches come before it.
  _IQeLaApi* Api() const { return m_getApi(); }
  std::shared_ptr<_IQeLaApiSmart> SmartApi(CRITICAL_SECTION* hostLock = nullptr) const {
    return m_getApiSmart(reinterpret_cast<CQeCriticalSection*>(hostLock));
  }

  // Unloads before the end of the scope. No instance may be used afterwards.
  void Unload();

 private:
  HMODULE m_module = nullptr;
  decltype(&GetQeLaApi) m_getApi = nullptr;
  decltype(&GetQeLaApiSmart) m_getApiSmart = nullptr;
};

// Where the location set is stored, below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kLaKeyPath[] = L"SOFTWARE\\Corvane\\Tessel\\Firewall\\LA";
inline constexpr wchar_t kLaValueName[] = L"la";

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

// Notes every handle that the module opens and closes while it lives: events, threads, copies of both, registry keys,
// module references, and the counted states of COM and Winsock. Declare it after other patches of the same calls (it
// forwards to them) and read it before it ends. The module's runtime shares its import table; what that opens is noted
// as well.
class HandleLedger {
 public:
  explicit HandleLedger(HMODULE module);
  ~HandleLedger();
  HandleLedger(const HandleLedger&) = delete;
  HandleLedger& operator=(const HandleLedger&) = delete;

  // How often a function that opens has succeeded, or one that closes has been called.
  std::size_t Count(const char* function) const;

  // What was opened by the function and not closed since.
  std::size_t Open(const char* function) const;

  // Everything that was opened and not closed, as "CreateEventW x3"; empty when nothing is.
  std::vector<std::string> Leaks() const;

  // Handles closed by a function that is not theirs, or twice; empty when all went well. Handles that were opened
  // before the ledger are not judged.
  std::vector<std::string> Mistakes() const;

 private:
  struct Entry {
    const char* openedBy;
    const char* closedBy;
  };
  static HandleLedger& Current();
  template <typename Function>
  void Patch(HMODULE module, const char* function, Function* replacement);
  void* Original(const char* function) const;
  // What a replacement notes: a handle of its own; one of several equal references; a call that is only counted.
  void Opened(const char* function, const char* closedBy, const void* handle);
  bool IsOpen(const void* handle) const;
  void Closed(const char* function, const void* handle);
  void Entered(const char* function, bool succeeded);
  void Left(const char* function, const char* enteredBy);

  struct Replacements;

  mutable std::mutex m_mutex;
  std::map<const void*, Entry> m_open;
  std::map<const void*, Entry> m_closed;
  std::map<std::string, std::size_t> m_counts;
  std::map<std::string, std::size_t> m_entered;
  std::vector<std::string> m_mistakes;
  std::map<std::string, std::unique_ptr<ImportPatch>> m_patches;
};
