#pragma once

#include <cstdint>
#include <string>

// Whether the registry holds what the text asks for: 1 or 0.
std::uint32_t IsRegistryKeyCriterionMet(const std::wstring& text);
