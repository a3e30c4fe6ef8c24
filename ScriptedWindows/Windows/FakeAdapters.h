// The machine's adapters, as a test sets them.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/AdapterList.h"

// While it lives, the module gets its adapters from here. The list and the answers may be changed at any time and from
// any thread. One at a time in a process.
class FakeAdapters {
 public:
  // What the module asked for and what it was told.
  struct Call {
    ULONG family;
    ULONG flags;
    void* reserved;
    void* buffer;
    ULONG bytes;         // as the caller set it
    ULONG bytesWritten;  // as the call left it
    ULONG result;
    DWORD threadId;
  };

  // An answer in place of the list's; `bytes`, when set, is written back as the size.
  struct Answer {
    ULONG result;
    std::optional<ULONG> bytes;
  };

  explicit FakeAdapters(HMODULE module, AdapterList list = {});
  ~FakeAdapters();
  FakeAdapters(const FakeAdapters&) = delete;
  FakeAdapters& operator=(const FakeAdapters&) = delete;

  void Set(AdapterList list);

  // The next calls get these answers, one each; then the list's again.
  void Script(std::vector<Answer> answers);

  // Every call fails with this error from now on; ERROR_SUCCESS ends it.
  void FailAlways(ULONG error);

  // Called at the start of each call, on its thread, without any lock of this object's: a test can hold a caller here.
  void OnCall(std::function<void()> hook);

  std::vector<Call> Calls() const;
  std::size_t CallCount() const;
  void ClearCalls();

 private:
  struct State;
  static ULONG WINAPI GetAdapters(ULONG family, ULONG flags, void* reserved, IP_ADAPTER_ADDRESSES* buffer,
                                  ULONG* bytes);

  std::shared_ptr<State> m_state;
  ImportPatch m_patch;
};
