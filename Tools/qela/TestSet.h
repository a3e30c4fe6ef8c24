// Which locations of a set would be current on a recorded machine, decided by the library's own matcher.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/LocationMatcher.h"
#include "LocationSet.h"
#include "MachineSnapshot.h"
#include "Verdict.h"

// The locations of a file, as they are once they are stored.
LocationSet ReadSetToTest(const std::wstring& path);

// A set under test. Its questions can be put on several threads at once.
class TestSet {
 public:
  explicit TestSet(LocationSet set);

  const LocationSet& Locations() const noexcept { return m_set; }

  // The name, for people and for files of expectations; with the ID behind it where the name fits several locations.
  const std::wstring& LabelOf(std::size_t location) const { return m_labels[location]; }

  // Of each location, in the set's order.
  std::vector<Verdict> VerdictsOn(const MachineSnapshot& machine) const;

  struct Question {
    LOCATION_CRITERIA_TYPE kind;
    std::wstring text;  // empty for the management server
  };
  // What must be known for an unknown verdict to become one: the questions of each kind of which none is answered with
  // yes.
  std::vector<Question> QuestionsLeft(const MachineSnapshot& machine, std::size_t location) const;

  // Why the location has this verdict there: for people, a sentence each, such as
  //   adapter 2 (eth0): default gateway asked for 10.0.0.1, seen 10.20.0.1
  std::vector<std::string> Reasons(const MachineSnapshot& machine, std::size_t location, Verdict verdict) const;

 private:
  const LocationSet m_set;
  std::vector<LocationCriteria> m_criteria;  // point into m_set
  std::vector<std::wstring> m_labels;
};

// "web host vpn.example"
std::string InWords(const TestSet::Question& question);
