// The usual way to write locations as MessagePack and to read them back, which the library's way is measured against:
// msgpack-c, and the system's conversions, each called for the size first.
#pragma once

#include <cstdint>
#include <msgpack.hpp>
#include <vector>

#include "Bench/PlainLocation.h"

// The byte form of a collection.
void PackCollection(msgpack::sbuffer& buffer, const PlainSet& set);

// The registry value that a service reads the set from.
std::vector<std::uint8_t> PackStoredSet(const PlainSet& set);

// Validates the bytes, makes a tree of them, converts the tree. False where the library would refuse, too.
bool UnpackCollection(const std::vector<std::uint8_t>& bytes, PlainSet& set);
