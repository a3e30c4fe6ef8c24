// Makes hostile inputs of good ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string_view>
#include <vector>

using FuzzBytes = std::vector<std::uint8_t>;

class Mutator {
 public:
  explicit Mutator(std::uint64_t seed) : m_random(seed) {}

  // From 0 up to, and without, `count`.
  std::size_t Below(std::size_t count) { return m_random() % count; }

  // One or some changes: of bits, bytes and numbers, pieces taken out, doubled, moved and brought in from another input
  // of the corpus, tokens, and lengthening. The result has `mostBytes` at most.
  void Change(FuzzBytes& bytes, const std::vector<FuzzBytes>& corpus, const std::vector<std::string_view>& tokens,
              std::size_t mostBytes);

 private:
  void ChangeOnce(FuzzBytes& bytes, const std::vector<FuzzBytes>& corpus, const std::vector<std::string_view>& tokens);

  std::mt19937_64 m_random;
};
