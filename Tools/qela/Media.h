// The media types of adapters, by name.
#pragma once

#include <QeLaApi.h>

#include <cstdint>
#include <string>

// Bits of the library's mask.
constexpr std::uint8_t kWired = 1;
constexpr std::uint8_t kWireless = 2;
constexpr std::uint8_t kVirtual = 4;

// "wired", "wireless", "virtual" or "other".
std::string MediaOf(_IQeLaApiSmart& api, std::uint32_t index);
