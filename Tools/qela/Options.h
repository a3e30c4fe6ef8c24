// What the command line asks for.
#pragma once

#include <QeLaApi.h>
#include <QeLaCriteria.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CommandError.h"

// One change of a location's criteria, in the order given.
struct CriterionEdit {
  enum class Change {
    kAdd,
    kRemove,
    kReplace,  // the first of its kind takes the place of all that are stored; the others are added to it
    kClear,    // all of the kind; has no value
  };
  Change change;
  LOCATION_CRITERIA_TYPE kind;
  std::wstring value;

  bool operator==(const CriterionEdit&) const = default;
};

// Changes of one location. What has no value stays as it is.
struct LocationEdit {
  std::optional<std::wstring> id;  // add
  std::optional<std::wstring> name;
  std::optional<std::wstring> note;
  std::optional<bool> enabled;
  std::optional<bool> managementServer;
  std::vector<CriterionEdit> criteria;
  std::optional<std::uint32_t> fromAdapter;  // add: what the adapter with this index shows becomes criteria
  bool force = false;                        // add: although the name is taken

  // move
  enum class Place { kFirst, kLast, kBefore, kAfter };
  Place place = Place::kLast;
  std::wstring neighbour;  // a name or ID

  bool operator==(const LocationEdit&) const = default;
};

// A set in a file.
struct RollOut {
  enum class Format { kByName, kJson, kReg };  // kByName: .reg files by the end of their name, all others JSON

  std::wstring file;  // "-" is standard input or output
  Format format = Format::kByName;
  bool dryRun = false;
  bool deleteMissing = false;
};

// Recorded machines: snapshot and test.
struct MachineOptions {
  std::wstring set;  // a file; empty: the stored locations
  // snapshot
  std::wstring file;  // empty or "-": standard output
  std::wstring label;
  bool probes = false;
  // test
  std::vector<std::wstring> machines;  // files, folders and patterns
  std::wstring expect;                 // empty: nothing is expected
  std::wstring junit;                  // empty: none
};

struct LintOptions {
  std::optional<std::wstring> file;  // otherwise the stored set
  bool strict = false;
  std::optional<std::uint32_t> adapters;  // otherwise those of this machine
};

// What support asks for: explain, timeline, check, report.
struct SupportOptions {
  std::vector<std::wstring> logs;  // files; none: this machine, now
  std::wstring at;                 // a time in the log; empty: its end
  std::wstring set;                // a file; empty: for this machine the stored locations, for a log none
  std::wstring machine;            // explain: a snapshot or a report; empty: this machine
  std::wstring html;               // timeline: the page to write; empty: none
  std::wstring file;               // report: where to
  std::wstring location;           // explain: a name or ID
  bool all = false;                // explain: every location
  bool noProbes = false;

  enum class Redaction { kFull, kNames, kNone };  // report: see Redaction.h
  Redaction redaction = Redaction::kFull;
};

struct Options {
  ExitCode (*run)(const Options& options) = nullptr;  // the command
  bool json = false;
  bool verbose = false;

  std::wstring location;  // the name to add, or the name or ID to show or change
  LocationEdit edit;

  // locations
  std::optional<std::wstring> nameFilter;  // a glob
  bool brief = false;
  bool onlyCurrent = false;  // as the library decides, with probes
  bool onlyDisabled = false;

  // export, apply, diff, validate
  RollOut rollOut;

  LintOptions lint;

  // complete
  std::vector<std::string> words;

  // watch
  std::optional<std::uint32_t> seconds;

  // match
  std::vector<std::wstring> addresses;
  bool ownAddresses = false;  // those of the adapters; otherwise `addresses`
  FirewallAddressType addressKind = FIAT_SINGLE_IP;
  std::wstring first;
  std::wstring second;

  // media
  std::uint8_t mediaMask = 0;  // the media types asked about; none: show them
  std::vector<std::uint32_t> indexes;

  MachineOptions machines;

  SupportOptions support;
};
