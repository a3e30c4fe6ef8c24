// Owners of operating-system handles: one template, one alias a kind.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <utility>

// Owns one handle and closes it with Traits::Close. Traits names the handle's type, its invalid value and how it is
// closed. Closing keeps the thread's last error, so that an error code can still be read after an owner has gone.
template <typename Traits>
class UniqueHandle {
 public:
  using Handle = typename Traits::Handle;

  UniqueHandle() noexcept = default;
  explicit UniqueHandle(Handle handle) noexcept : m_handle(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { reset(); }

  Handle get() const noexcept { return m_handle; }
  explicit operator bool() const noexcept { return m_handle != Traits::Invalid(); }

  // For a call that writes a handle through a pointer: closes what is held first.
  Handle* put() noexcept {
    reset();
    return &m_handle;
  }

  // Gives up ownership.
  Handle release() noexcept { return std::exchange(m_handle, Traits::Invalid()); }

  void reset(Handle handle = Traits::Invalid()) noexcept {
    const Handle old = std::exchange(m_handle, handle);
    if (old == Traits::Invalid()) return;
    const DWORD error = ::GetLastError();
    Traits::Close(old);
    ::SetLastError(error);
  }

 private:
  Handle m_handle = Traits::Invalid();
};

struct RegKeyTraits {
  using Handle = HKEY;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::RegCloseKey(handle); }
};
using UniqueRegKey = UniqueHandle<RegKeyTraits>;

// Kernel objects whose invalid value is null: processes, threads, events, tokens, pipes.
struct KernelHandleTraits {
  using Handle = HANDLE;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::CloseHandle(handle); }
};
using UniqueKernelHandle = UniqueHandle<KernelHandleTraits>;

struct WsaEventTraits {
  using Handle = WSAEVENT;
  static Handle Invalid() noexcept { return WSA_INVALID_EVENT; }
  static void Close(Handle handle) noexcept { ::WSACloseEvent(handle); }
};
using UniqueWsaEvent = UniqueHandle<WsaEventTraits>;
