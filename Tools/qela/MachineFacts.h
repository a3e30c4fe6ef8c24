// What check judges and a report shows: found out without a service, without a probe and without changing anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "Lint.h"
#include "LocationSet.h"
#include "Redaction.h"

// A library of the host that QeLaLib.dll imports.
struct HostLibrary {
  std::string name;
  std::string version;      // empty where it has none
  unsigned long error = 0;  // why it cannot be loaded
  std::size_t missing = 0;  // functions that QeLaLib.dll calls, and it has not
  std::string firstMissing;
};

struct MachineFacts {
  LocationSet set;
  std::string setError;  // why it cannot be read; empty when it can
  std::size_t lintErrors = 0;
  std::size_t lintWarnings = 0;
  std::size_t lintNotes = 0;
  std::string lintRules;     // of errors, each once: "L102, L107"
  std::size_t webHosts = 0;  // that enabled locations ask
  ProbeCost cost = {0, 0};   // of all of them

  std::string programVersion;
  std::string libraryVersion;      // empty: there is no library beside the program, or it has none
  unsigned long libraryError = 0;  // why it cannot be loaded
  std::vector<HostLibrary> hostLibraries;

  Identity identity;
  bool isElevated = false;
  unsigned long readError = 0;   // of the key of the set; one that is not there can be read
  unsigned long writeError = 0;  // the same, and of the right to make it

  std::vector<AdapterProps> adapters;
  std::uint64_t upSeconds = 0;
  int year = 0;
  std::string time;  // now
};

MachineFacts GatherFacts();

// As a report tells them.
MachineFacts Redacted(const MachineFacts& facts, Redaction& redaction);
