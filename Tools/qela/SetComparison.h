// What differs between two location sets, field by field.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Json.h"
#include "LocationSet.h"

// One of "name", "note", "enabled", "place" (in the order, from 1) and the criteria's members of JSON.
struct FieldDifference {
  std::string field;
  Json before;
  Json after;
};

// Of one location, which either set may lack. Points into the sets.
struct LocationDifference {
  const CQeLocation* before = nullptr;
  const CQeLocation* after = nullptr;
  std::vector<FieldDifference> fields;  // where both have it
};

// Locations belong together by their IDs; the adapters that matched do not count. "place" is told of as few locations
// as, put elsewhere, bring those that both sets have from the one order into the other. In the order of `after`; what
// it lacks comes last. Takes time in proportion to the sets.
std::vector<LocationDifference> Compare(const LocationSet& before, const LocationSet& after);

// Whether two locations differ in nothing but the adapters that matched.
bool HaveSameContent(const CQeLocation& left, const CQeLocation& right);
