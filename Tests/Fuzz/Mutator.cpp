#include "Tests/Fuzz/Mutator.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::size_t kMostPiece = 64;
constexpr std::size_t kMostLengthening = 600;
constexpr std::uint64_t kBounds[] = {
    0,       1,        2,    9,    10,         15,         16,         31,         32,         99,        100,
    127,     128,      129,  255,  256,        0x7fff,     0x8000,     0xd800,     0xdfff,     0xfffe,    0xffff,
    0x10000, 0x10ffff, 1023, 1024, 0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff, UINT64_MAX, 1ull << 63};

auto At(FuzzBytes& bytes, std::size_t place) { return bytes.begin() + static_cast<std::ptrdiff_t>(place); }

}  // namespace

void Mutator::Change(FuzzBytes& bytes, const std::vector<FuzzBytes>& corpus,
                     const std::vector<std::string_view>& tokens, std::size_t mostBytes) {
  // Most formats survive one change better than many.
  for (std::size_t changes = Below(2) == 0 ? 1 : std::size_t{1} << Below(4); changes > 0; --changes)
    ChangeOnce(bytes, corpus, tokens);
  if (bytes.size() > mostBytes) bytes.resize(mostBytes);
}

void Mutator::ChangeOnce(FuzzBytes& bytes, const std::vector<FuzzBytes>& corpus,
                         const std::vector<std::string_view>& tokens) {
  const std::size_t place = Below(bytes.size() + 1);
  const std::size_t piece =
      bytes.empty() ? 0 : std::min(1 + Below(kMostPiece), bytes.size() - std::min(place, bytes.size()));
  const auto random = static_cast<std::uint8_t>(Below(256));
  switch (Below(13)) {
    case 0:
      if (place < bytes.size()) bytes[place] ^= static_cast<std::uint8_t>(1u << Below(8));
      break;
    case 1:
      if (place < bytes.size()) bytes[place] = random;
      break;
    case 2:
      if (place < bytes.size()) bytes[place] = static_cast<std::uint8_t>(bytes[place] + (random & 1 ? 1 : -1));
      break;
    case 3:
      bytes.insert(At(bytes, place), 1 + Below(3), random);
      break;
    case 4:
      bytes.erase(At(bytes, place), At(bytes, place + piece));
      break;
    case 5:  // cut off
      if (Below(8) == 0) bytes.resize(place);
      break;
    case 6: {  // doubled, perhaps many times
      const FuzzBytes copy(At(bytes, place), At(bytes, place + piece));
      const std::size_t times = Below(8) == 0 ? 1 + Below(40) : 1;
      for (std::size_t i = 0; i < times; ++i) bytes.insert(At(bytes, place), copy.begin(), copy.end());
      break;
    }
    case 7: {  // copied over another place
      const FuzzBytes copy(At(bytes, place), At(bytes, place + piece));
      const std::size_t to = Below(bytes.size() - copy.size() + 1);
      std::copy(copy.begin(), copy.end(), At(bytes, to));
      break;
    }
    case 8: {  // a piece of another input, or its whole end
      const FuzzBytes& other = corpus[Below(corpus.size())];
      const std::size_t from = Below(other.size() + 1);
      const bool isEnd = Below(3) == 0;
      const std::size_t length = isEnd ? other.size() - from : std::min(Below(kMostPiece), other.size() - from);
      if (isEnd) bytes.resize(place);
      const auto begin = other.begin() + static_cast<std::ptrdiff_t>(from);
      bytes.insert(At(bytes, place), begin, begin + static_cast<std::ptrdiff_t>(length));
      break;
    }
    case 9:
    case 10:
      if (!tokens.empty()) {
        const std::string_view token = tokens[Below(tokens.size())];
        if (random & 1) bytes.erase(At(bytes, place), At(bytes, place + std::min(token.size(), bytes.size() - place)));
        bytes.insert(At(bytes, place), token.begin(), token.end());
      }
      break;
    case 11: {  // a number at a bound
      std::uint64_t number = kBounds[Below(std::size(kBounds))];
      const std::size_t size = std::size_t{1} << Below(4);
      if (bytes.size() < place + size) break;
      const bool isBigEndian = random & 1;
      for (std::size_t i = 0; i < size; ++i, number >>= 8)
        bytes[place + (isBigEndian ? size - 1 - i : i)] = static_cast<std::uint8_t>(number);
      break;
    }
    default:  // lengthened
      if (Below(8) == 0)
        bytes.insert(At(bytes, place), Below(kMostLengthening), bytes.empty() ? random : bytes[place % bytes.size()]);
  }
}
