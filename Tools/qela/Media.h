// The media types of adapters, by name.
#pragma once

#include <QeLaApi.h>

#include <cstdint>
#include <string>

// "wired", "wireless", "virtual" or "other".
std::string MediaOf(_IQeLaApiSmart& api, std::uint32_t index);
