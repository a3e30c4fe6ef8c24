// What became of the question to a web host, in words for people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "LoggedCalculation.h"

// A sentence for each request that has left a line, in order, such as: error 12007 (DNS does not know the name)
std::vector<std::string> InWords(const LoggedHostProbe& probe);

// What would let the host count as reachable; empty when that is not known.
std::string AdviceFor(const LoggedHostProbe::Request& request);
