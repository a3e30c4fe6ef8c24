// A requirement on the machine's registry: "Hive\SubKey\ValueName" or "Hive\SubKey\ValueName=Data". The parser is
// declared for its tests.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

struct RegistryKeyCriterion {
  HKEY hive;
  std::wstring subkey;     // empty: the hive itself
  std::wstring valueName;  // empty: the key's default value
  std::wstring data;       // the text, or the decimal digits of the number

  // Only the key must exist; the default value is asked for by giving its data.
  bool IsExistenceOnly() const noexcept { return valueName.empty() && data.empty(); }
};

// Nothing when the text is malformed: no backslash, a hive other than the four full names, or more than one "=" with
// text behind it.
std::optional<RegistryKeyCriterion> ParseRegistryKeyCriterion(const std::wstring& text);

// Whether the registry holds what the text asks for: 1 or 0. A named value without data must exist and be empty. The
// key is looked for in the process's own view, then in the 64-bit view. A malformed text gives 0 without a log line,
// and so does a thread that is left with a user's identity. Throws nothing but std::bad_alloc.
std::uint32_t IsRegistryKeyCriterionMet(const std::wstring& text);
