// Joins a burst of news into one.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <optional>

// News is due when none has come for the quiet time, or ten times that after the first: a burst without an end must not
// keep the host from ever being told. Times are GetTickCount64's.
class QuietTime {
 public:
  static constexpr ULONGLONG kMostQuietTimes = 10;

  explicit QuietTime(DWORD quietMs) noexcept : m_quietMs(quietMs) {}

  void Note(ULONGLONG now) noexcept {
    if (!m_first) m_first = now;
    m_last = now;
  }
  void Forget() noexcept { m_first.reset(); }

  // How long until it is due, which is never INFINITE; nothing when there is no news.
  std::optional<DWORD> Remaining(ULONGLONG now) const noexcept {
    if (!m_first) return std::nullopt;
    const ULONGLONG due = std::min(m_last + m_quietMs, *m_first + kMostQuietTimes * m_quietMs);
    return static_cast<DWORD>(due > now ? std::min<ULONGLONG>(due - now, INFINITE - 1) : 0);
  }

 private:
  ULONGLONG m_quietMs;
  std::optional<ULONGLONG> m_first;
  ULONGLONG m_last = 0;
};
