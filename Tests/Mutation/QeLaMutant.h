// The switch of the faults that `./dev mutate` puts into copies of the sources. Nothing that ships includes this.
//
// Which fault is on stands in the environment variable QELA_MUTANT as a number. It is read where the process keeps its
// environment, without a call of Windows: a module under test imports nothing for the switch, so that tests which take
// its imports apart find what they expect. A test program that records which faults its tests pass hands the address
// of its marks on in QELA_MUTANT_MARKS, for its modules in the same process, which QELA_MUTANT_MARKS_OF names:
// processes that it starts inherit both.
#pragma once
#pragma GCC system_header

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace qela_mutation {

constexpr std::size_t kMarks = 16384;

template <typename T>
T At(const void* base, std::size_t offset) noexcept {
  return *reinterpret_cast<const T*>(static_cast<const char*>(base) + offset);
}

inline std::uint32_t ThisProcess() noexcept {
  std::uint32_t id;
  __asm__("movl %%gs:0x40, %0" : "=r"(id));
  return id;
}

// 0 where there is no such variable, or no number in it.
inline std::uint64_t Number(const wchar_t* name) noexcept {
  const void* process;
  __asm__("movq %%gs:0x60, %0" : "=r"(process));
  const auto* entry = At<const wchar_t*>(At<const void*>(process, 0x20), 0x80);
  while (*entry != 0) {
    std::size_t same = 0;
    while (name[same] != 0 && entry[same] == name[same]) ++same;
    if (name[same] == 0 && entry[same] == L'=') {
      std::uint64_t number = 0;
      for (entry += same + 1; *entry >= L'0' && *entry <= L'9'; ++entry)
        number = number * 10 + static_cast<std::uint64_t>(*entry - L'0');
      return number;
    }
    while (*entry != 0) ++entry;
    ++entry;
  }
  return 0;
}

enum Mode : int { kUnread, kOn, kAwaitsMarks, kMarksAll };

struct State {
  volatile int mode;
  volatile unsigned fault;
  unsigned char* volatile marks;
};
inline State g_state{kUnread, 0, nullptr};

inline bool IsOn(unsigned fault) noexcept {
  State& state = g_state;
  if (state.mode == kOn) return fault == state.fault;
  if (state.mode == kUnread) {
    state.fault = static_cast<unsigned>(Number(L"QELA_MUTANT"));
    state.mode = Number(L"QELA_MUTANT_RECORDS") == 0 ? kOn : kAwaitsMarks;
    if (state.mode == kOn) return fault == state.fault;
  }
  if (state.mode == kAwaitsMarks) {
    if (Number(L"QELA_MUTANT_MARKS_OF") != ThisProcess()) return false;
    state.marks = reinterpret_cast<unsigned char*>(Number(L"QELA_MUTANT_MARKS"));
    state.mode = kMarksAll;
  }
  state.marks[fault] = 1;
  return false;
}

}  // namespace qela_mutation

constexpr bool QeLaMutant(unsigned fault) noexcept {
  if (__builtin_is_constant_evaluated()) return false;
  return qela_mutation::IsOn(fault);
}

namespace qela_mutation {

// A guard that may be left out.
template <typename T>
class Unless {
 public:
  template <typename... Arguments>
  explicit Unless(bool out, Arguments&&... arguments) : m_out(out) {
    if (!m_out) new (m_bytes) T(std::forward<Arguments>(arguments)...);
  }
  ~Unless() {
    if (!m_out) reinterpret_cast<T*>(m_bytes)->~T();
  }
  Unless(const Unless&) = delete;
  Unless& operator=(const Unless&) = delete;

 private:
  alignas(T) unsigned char m_bytes[sizeof(T)];
  bool m_out;
};

}  // namespace qela_mutation
