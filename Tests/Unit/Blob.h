// MessagePack bytes, spelled out by hand, so that tests do not trust the code they test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Blob {

using Bytes = std::vector<std::uint8_t>;

inline Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

inline Bytes Repeat(const Bytes& part, std::size_t times) {
  Bytes all;
  all.reserve(part.size() * times);
  for (std::size_t i = 0; i < times; ++i) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A str below 32 bytes.
inline Bytes Str(std::string_view text) {
  Bytes bytes{static_cast<std::uint8_t>(0xa0 | text.size())};
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}

// An array of fewer than 16 elements.
inline Bytes Array(std::initializer_list<Bytes> elements) {
  return Join({{static_cast<std::uint8_t>(0x90 | elements.size())}, Join(elements)});
}

inline const Bytes kTrue{0xc3};
inline const Bytes kFalse{0xc2};
inline const Bytes kNoCriteria{0x99, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0xc2};

// A location without criteria and matched adapters.
inline Bytes Location(std::string_view id, std::string_view name = "n") {
  return Array({kNoCriteria, Str(id), Str(name), Str(""), kTrue, Array({})});
}

}  // namespace Blob
