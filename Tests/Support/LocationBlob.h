// The stored location set written byte by byte, without the library's own packing: for sets that no edit can make
// (entries and IDs twice, raw texts) and as a second opinion on what is written.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "Tests/Support/Blob.h"

using Blob::Bytes;

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
