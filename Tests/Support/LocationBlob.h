// The stored location set written byte by byte, without the library's own packing: for sets that no edit can make
// (entries and IDs twice, raw texts) and as a second opinion on what is written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

Bytes Joined(std::initializer_list<Bytes> parts);

// MessagePack: up to 15 elements, texts below 65536 bytes (ASCII as given), any unsigned number.
Bytes PackedArray(const std::vector<Bytes>& elements);
Bytes PackedText(const std::string& utf8);
Bytes PackedBool(bool value);
Bytes PackedNumber(std::uint32_t value);

// One location as it is stored. The defaults make one without criteria, which every adapter matches.
struct LocationBlob {
  std::string id;
  std::string name = "Name";
  std::string note = {};
  bool enabled = true;
  std::vector<std::uint32_t> adapterIndexes = {};
  std::array<std::vector<std::string>, 8> texts = {};  // by criterion kind
  bool zeltReachable = false;

  Bytes Pack() const;
};

// The whole registry value.
Bytes PackedSet(const std::vector<LocationBlob>& locations);
