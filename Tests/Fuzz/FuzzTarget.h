// One thing that is fed hostile bytes. A target is a file of its own with one object of FuzzTarget, and is run by
// FuzzMain.cpp under Wine, and by Clang's fuzzer on the building machine where its units need no Windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using FuzzInput = std::span<const std::uint8_t>;

class FuzzTarget {
 public:
  // The name is its corpus's folder, too (Tests/Fuzz/Corpus/NAME). `run` returns where all that it is about holds, and
  // calls FuzzFail where it does not; the input may lie at the end of a page behind which nothing can be read. `tokens`
  // are texts that the input's format is made of. The object registers itself; it and what it refers to live as long as
  // the program.
  using Run = void (*)(FuzzInput);
  FuzzTarget(std::string_view name, Run run, std::vector<std::string_view> tokens = {});

  std::string_view Name() const { return m_name; }
  const std::vector<std::string_view>& Tokens() const { return m_tokens; }
  void operator()(FuzzInput input) const { m_run(input); }

  // All of the program, by name.
  static const std::vector<const FuzzTarget*>& All();

 private:
  std::string_view m_name;
  Run m_run;
  std::vector<std::string_view> m_tokens;
};

// Tells what does not hold, and ends the program.
[[noreturn]] void FuzzFail(std::string_view what);

// Tells of which kind the result of a run is: inputs that lead to a new one are kept, and changed further.
void FuzzKind(std::uint32_t kind) noexcept;

// How much memory the run has asked for so far, freed or not; 0 where nobody counts.
std::size_t FuzzBytesAskedFor() noexcept;

// Whether the run is slowed down by what watches it, so that times say nothing.
bool FuzzIsSlow() noexcept;

// Reads an input as a row of choices, so that what is built from them has the structure of what is tested, and bytes
// that change a little change it a little. Where the input ends, every choice is the first.
class FuzzChoices {
 public:
  explicit FuzzChoices(FuzzInput input) : m_rest(input) {}

  bool Empty() const { return m_rest.empty(); }
  std::uint8_t Byte() {
    if (m_rest.empty()) return 0;
    const std::uint8_t byte = m_rest.front();
    m_rest = m_rest.subspan(1);
    return byte;
  }
  // From 0 up to, and without, `count`, which is not 0.
  std::size_t Below(std::size_t count) {
    std::size_t value = Byte();
    for (std::size_t reach = 256; reach < count && reach != 0; reach <<= 8) value = value << 8 | Byte();
    return value % count;
  }
  bool Flip() { return (Byte() & 1) != 0; }
  template <typename Range>
  auto& Pick(Range& range) {
    return range[Below(std::size(range))];
  }
  FuzzInput Bytes(std::size_t count) {
    const FuzzInput bytes = m_rest.first(count < m_rest.size() ? count : m_rest.size());
    m_rest = m_rest.subspan(bytes.size());
    return bytes;
  }
  // All that is left.
  FuzzInput Rest() { return Bytes(m_rest.size()); }

 private:
  FuzzInput m_rest;
};
