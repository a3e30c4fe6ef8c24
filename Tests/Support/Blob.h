// MessagePack bytes, spelled out by hand, so that tests do not trust the code they test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Blob {

using Bytes = std::vector<std::uint8_t>;

inline Bytes Join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// The lowest `count` bytes of the value, the highest of them first.
inline Bytes BigEndian(std::uint32_t value, int count) {
  Bytes bytes;
  for (int shift = (count - 1) * 8; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(value >> shift));
  return bytes;
}

inline Bytes Repeat(const Bytes& part, std::size_t times) {
  Bytes all;
  all.reserve(part.size() * times);
  for (std::size_t i = 0; i < times; ++i) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A str below 65536 bytes, without the form str8.
inline Bytes Str(std::string_view text) {
  const auto size = static_cast<std::uint32_t>(text.size());
  return Join({size < 32 ? Bytes{static_cast<std::uint8_t>(0xa0 | size)} : Join({{0xda}, BigEndian(size, 2)}),
               Bytes(text.begin(), text.end())});
}

// An array of fewer than 16 elements.
inline Bytes Array(const std::vector<Bytes>& elements) {
  return Join({{static_cast<std::uint8_t>(0x90 | elements.size())}, Join(elements)});
}

// An unsigned number in its shortest form.
inline Bytes Number(std::uint32_t value) {
  if (value < 0x80) return BigEndian(value, 1);
  if (value < 0x100) return Join({{0xcc}, BigEndian(value, 1)});
  if (value < 0x10000) return Join({{0xcd}, BigEndian(value, 2)});
  return Join({{0xce}, BigEndian(value, 4)});
}

inline const Bytes kTrue{0xc3};
inline const Bytes kFalse{0xc2};
inline const Bytes kNoCriteria{0x99, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0xc2};

// A location without criteria and matched adapters.
inline Bytes Location(std::string_view id, std::string_view name = "n") {
  return Array({kNoCriteria, Str(id), Str(name), Str(""), kTrue, Array({})});
}

}  // namespace Blob
