// A page for a support case: what was found, and the machine and its locations as data that other commands read back.
#pragma once

#include <string>
#include <vector>

#include "Checks.h"
#include "Explanation.h"
#include "LocationSet.h"
#include "MachineSnapshot.h"
#include "Redaction.h"

struct Report {
  std::string made;                // when
  std::vector<std::string> about;  // sentences in front
  std::vector<Redaction::Count> replaced;
  std::vector<Check> checks;
  std::vector<LocationExplanation> locations;  // of the set, in its order
  MachineSnapshot machine;
  LocationSet set;  // each location with an ID of its own
  struct Log {
    std::string name;
    std::string text;  // UTF-8, lines
  };
  std::vector<Log> logs;
};

std::string ReportPage(const Report& report);

// Whether the bytes are meant to be such a page, whole or not.
bool IsReport(const std::string& bytes);

// What the page tells of the machine and its locations. Throw CommandError (kFailed) when it is no whole report.
MachineSnapshot MachineInReport(const std::string& bytes, const std::wstring& path);
LocationSet SetInReport(const std::string& bytes, const std::wstring& path);
