// The stored locations, as the commands read and change them: with the library's own records, and without a service.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/QeLocation.h"

// In the order that the library keeps and tests.
using LocationSet = std::vector<CQeLocation>;

// The stored form. Throws CommandError: for bytes that are not a whole set (kUnreadableSet), and for a set with a text
// that is not valid UTF-16 (kFailed).
LocationSet DecodeSet(std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> EncodeSet(const LocationSet& set);

// The position of the one location with this ID, or else with this name, both compared exactly. Throws CommandError
// when there is none or several.
std::size_t Find(const LocationSet& set, const std::wstring& nameOrId);

// "Name" (ID), for messages.
std::string Quoted(const CQeLocation& location);
