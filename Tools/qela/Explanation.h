// Why a location is current or not: what was asked, what was seen, and where it fails.
#pragma once

#include <QeLaCriteria.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/QeLocation.h"
#include "Json.h"
#include "LocationSet.h"
#include "LoggedCalculation.h"
#include "MachineSnapshot.h"
#include "Verdict.h"

struct LocationExplanation {
  enum class Outcome {
    kHeld,
    kFailed,    // the library stops here
    kFailsToo,  // it was not reached, and would have failed as well
    kNotReached,
    kUnknown,  // nobody has the answer
  };
  // A question to the registry, a web host or the management server.
  struct Question {
    std::wstring text;  // empty for the management server
    std::optional<bool> answer;
    std::optional<std::chrono::milliseconds> took;
    std::vector<std::string> details;  // what is known of the answer, for people
    std::string advice;                // what would make it a yes; empty when that is not known
  };
  struct Kind {
    LOCATION_CRITERIA_TYPE kind{};
    Outcome outcome = Outcome::kUnknown;
    std::vector<std::wstring> asked;   // empty when the location itself is not known
    std::vector<std::wstring> seen;    // of the adapter; empty for what is asked elsewhere
    std::optional<std::wstring> held;  // the criterion, where it is known
    std::vector<Question> questions;
  };
  struct Adapter {
    std::uint32_t ifIndex = 0;
    std::wstring description;
    std::optional<bool> matches;
    std::vector<Kind> kinds;
    // One of these failed, when more is not known.
    std::vector<LOCATION_CRITERIA_TYPE> oneOfFailed;
  };

  std::wstring id;  // empty when it is not known
  std::wstring name;
  bool isEnabled = true;
  Verdict verdict = Verdict::kUnknown;
  std::vector<Adapter> adapters;
  bool asksForManagementServer = false;
  std::optional<Question> managementServer;  // when it was asked

  // Of the adapter that came nearest: the position, and the kind that fails there; none when another thing decides, or
  // the kind is not known.
  struct Failure {
    std::size_t adapter;
    LOCATION_CRITERIA_TYPE kind;
  };
  std::optional<Failure> failure;
  // What was logged cannot come from the location's criteria, as they were given: it is explained without them.
  bool contradictsCriteria = false;
  std::string sentence;              // the verdict, where it fails, and what would make it hold
  std::vector<std::string> caveats;  // what else the reader must know
};

// Of what a machine shows and has answered. `adapters` and answers are the snapshot's; what it does not know is
// unknown.
LocationExplanation Explain(const CQeLocation& location, const MachineSnapshot& machine);

// Of the sentence.
enum class Tense { kPresent, kPast };

// Of a calculation that was logged, when the location's criteria are known. Where what the log tells cannot come from
// these criteria, it is explained as if they were not known, and a caveat says so.
LocationExplanation Explain(const CQeLocation& location, const LoggedCalculation& calculation,
                            const LoggedLocation& logged, Tense tense = Tense::kPast);

// The same when the criteria are not known: never more than the log proves.
LocationExplanation Explain(const LoggedCalculation& calculation, const LoggedLocation& logged,
                            Tense tense = Tense::kPast);

// For people, with its line breaks.
std::string ToText(const LocationExplanation& explanation);
Json ToJson(const LocationExplanation& explanation);
