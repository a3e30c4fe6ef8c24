// Location sets in files: as JSON, which Docs/location-set.schema.json describes, and as .reg text of the stored value,
// which group policy and reg.exe take. Neither holds which adapters matched: that is the machine's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "LocationSet.h"

// Recognises the form by the content; "-" is standard input. The criteria are as they stand in the file, which may hold
// one twice. Throws CommandError (kFailed) that names the place when it is no such file, or one whose locations cannot
// be told apart by their IDs.
LocationSet ReadSetFile(const std::wstring& path);
LocationSet ParseSetFile(const std::string& bytes, const std::string& fileName);

std::string SetAsJson(const LocationSet& set);
// UTF-16 with a byte order mark, as reg.exe writes it.
std::string SetAsReg(const LocationSet& set);

// The first location without an ID, or with that of one before it. No file can hold such a set: what is in it could not
// be found again.
std::optional<std::size_t> FindWithoutOwnId(const LocationSet& set);
