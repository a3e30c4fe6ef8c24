// Locations for people.
#pragma once

#include <QeLaLocation.h>

#include <string>
#include <string_view>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"

// A location and the adapters that matched on one line, such as: Office [2 eth0, 5 wlan0]
std::string LocationText(const _IQeLocation& location, const std::vector<AdapterProps>& adapters);

// The name, and whether it is disabled.
std::string NameLine(const _IQeLocation& location);

// Name, ID, note and criteria, a line each.
std::string LocationLines(const _IQeLocation& location);

// The criteria, each as the option that adds it.
std::string CriteriaLines(const _IQeLocation& location);

// "  label             value\n"; control characters are shown as \uXXXX. Nothing for an empty value.
std::string LabelledLine(std::string_view label, const std::wstring& value);
