#pragma once

#include <QeLaCriteria.h>

#include <string>

// The value as it is to be stored. The library takes any text and compares it as text, so a value that no adapter can
// ever show would make a location that is silently never current; such a value throws CommandError, and an address in
// another spelling is put into the one that the library compares with. `option` is named in the messages.
std::wstring CheckCriterionValue(LOCATION_CRITERIA_TYPE kind, const std::string& option, const std::wstring& value);
