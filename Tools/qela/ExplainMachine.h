// Explanations of this machine, for the commands that show them.
#pragma once

#include <string>
#include <vector>

#include "Explanation.h"

struct ThisMachine {
  std::vector<LocationExplanation> locations;  // of the set, in its order
  std::vector<AdapterProps> adapters;
  // Between this program's verdicts and the library's, in sentences; none, unless one of the two is wrong.
  std::vector<std::string> differences;
};

// The stored locations, as the library decides on them: it calculates once, with probes, and its log is explained.
// Loads the library; see Service.
ThisMachine ExplainByService();

// These locations as the adapters are now. With `probes`, what they ask for is asked, all of it and by this program;
// otherwise what depends on it is unknown.
ThisMachine ExplainByAdapters(const LocationSet& set, bool probes);

// The record of each location that the calculation tested: those of the set that are enabled, in their order. Where the
// set is another one, by the name, and null where it has no location that could be it, or several.
std::vector<const CQeLocation*> RecordsOf(const LoggedCalculation& calculation, const LocationSet& set);
