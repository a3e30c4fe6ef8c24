#include "Tests/Support/LocationBlob.h"

#include <gtest/gtest.h>

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes PackedArray(const std::vector<Bytes>& elements) {
  EXPECT_LT(elements.size(), 16u);
  Bytes all{static_cast<std::uint8_t>(0x90 | elements.size())};
  for (const Bytes& element : elements) all.insert(all.end(), element.begin(), element.end());
  return all;
}

Bytes PackedText(const std::string& utf8) {
  EXPECT_LT(utf8.size(), 65536u);
  Bytes header;
  if (utf8.size() < 32)
    header = {static_cast<std::uint8_t>(0xa0 | utf8.size())};
  else
    header = {0xda, static_cast<std::uint8_t>(utf8.size() >> 8), static_cast<std::uint8_t>(utf8.size())};
  return Joined({header, Bytes(utf8.begin(), utf8.end())});
}

Bytes PackedBool(bool value) { return {static_cast<std::uint8_t>(value ? 0xc3 : 0xc2)}; }

Bytes PackedNumber(std::uint32_t value) {
  if (value < 0x80) return {static_cast<std::uint8_t>(value)};
  if (value < 0x100) return {0xcc, static_cast<std::uint8_t>(value)};
  if (value < 0x10000) return {0xcd, static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
  return {0xce, static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
          static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

Bytes LocationBlob::Pack() const {
  std::vector<Bytes> criteria;
  for (const std::vector<std::string>& list : texts) {
    std::vector<Bytes> entries;
    for (const std::string& entry : list) entries.push_back(PackedText(entry));
    criteria.push_back(PackedArray(entries));
  }
  criteria.push_back(PackedBool(zeltReachable));
  std::vector<Bytes> indexes;
  for (const std::uint32_t index : adapterIndexes) indexes.push_back(PackedNumber(index));
  return PackedArray({PackedArray(criteria), PackedText(id), PackedText(name), PackedText(note), PackedBool(enabled),
                      PackedArray(indexes)});
}

Bytes PackedSet(const std::vector<LocationBlob>& locations) {
  std::vector<Bytes> packed;
  for (const LocationBlob& location : locations) packed.push_back(location.Pack());
  return PackedArray({PackedArray({PackedArray(packed)})});
}
