// Criteria and what is seen instead of them, in words for people.
#pragma once

#include <QeLaCriteria.h>

#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/LocationMatcher.h"
#include "FwClient/Service/QeLaLib/QeLocation.h"

// "default gateway"; the management server's kind has a title, too.
const char* TitleOf(LOCATION_CRITERIA_TYPE kind);
// Of JSON: "gateways".
const char* MemberOf(LOCATION_CRITERIA_TYPE kind);

// An empty criterion holds where the adapter shows nothing, and so must be seen.
std::string ShownCriterion(const std::wstring& criterion);
// "a or b"
std::string AskedInWords(const std::vector<std::wstring>& criteria);
// "a, b", "none"
std::string SeenInWords(const std::vector<std::wstring>& texts);
// "adapter 2 (eth0)"
std::string AdapterInWords(std::uint32_t ifIndex, const std::wstring& description);

// For the matcher; points into `location`.
LocationCriteria CriteriaOf(const CQeLocation& location);
