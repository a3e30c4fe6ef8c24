#pragma once

#include <QeLaLocation.h>

#include <string>
#include <vector>

#include "AdapterReport.h"

// A location and the adapters that matched on one line, such as: Office [2 eth0, 5 wlan0]
std::string LocationText(const _IQeLocation& location, const std::vector<ReportedAdapter>& adapters);
