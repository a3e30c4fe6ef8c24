// What is wrong with a location set, or hardly meant, found without asking anything of the machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "LintRules.h"
#include "LocationSet.h"

// How long one calculation may wait for the web hosts of a location.
struct ProbeCost {
  std::uint64_t silentSeconds;  // where the hosts do not answer
  std::uint64_t worstSeconds;   // where they are made to be slow
};

struct Finding {
  const LintRule* rule;
  std::size_t location;                        // its place in the set
  std::optional<LOCATION_CRITERIA_TYPE> kind;  // of the criterion that it is about, if it is about one
  std::wstring value;                          // of that criterion
  std::string detail;                          // more than the rule's sentence says; may be empty
  std::string fix;                             // what to do
  std::optional<ProbeCost> cost;
};

// In the order of the set. `adapters` is how many there are to ask for. Takes time in proportion to the set.
std::vector<Finding> Lint(const LocationSet& set, std::size_t adapters = 1);

// Those of the locations with these IDs, with which the others are compared.
std::vector<Finding> LintLocations(const LocationSet& set, const std::vector<std::wstring>& ids,
                                   std::size_t adapters = 1);

// For commands that change locations: tells on standard error, as notes, what is found in those with these IDs. Same
// and similar names are left out, which those commands look at themselves. Where a great many are found, the command
// that tells all is named instead of the rest.
void NoteFindings(const LocationSet& set, const std::vector<std::wstring>& ids);
inline void NoteFindings(const LocationSet& set, const std::wstring& id) {
  NoteFindings(set, std::vector<std::wstring>{id});
}

const char* NameOf(Severity severity);  // "error", "warning" or "note"
