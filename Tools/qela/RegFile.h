// .reg files with the stored location set. The rest of the format (other keys and values, deletions, other types) is
// refused, since nothing but the set would be taken over.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Whether the bytes are meant to be such a file, whole or not.
bool LooksLikeRegFile(const std::string& bytes);

struct RegValue {
  std::vector<std::uint8_t> bytes;
  std::size_t line;  // where it begins, from 1
};

// The value that holds the set. Reads UTF-16 with a byte order mark, UTF-8 and ANSI. Throws CommandError (kFailed) with
// the line.
RegValue ParseRegFile(const std::string& bytes, const std::string& fileName);

std::string FormatRegFile(std::span<const std::uint8_t> value);
