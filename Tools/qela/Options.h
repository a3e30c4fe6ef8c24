// What the command line asks for.
#pragma once

#include <QeLaCriteria.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

enum class Command {
  kAdapters,
  kLocations,
  kAddLocation,
  kRemoveLocation,
  kEnableLocation,
  kDisableLocation,
  kCurrent,
  kWatch
};

struct Criterion {
  LOCATION_CRITERIA_TYPE kind;
  std::wstring value;  // empty for LCT_ZELT_REACHABLE
};

struct Options {
  Command command = Command::kAdapters;
  bool json = false;
  bool verbose = false;

  std::wstring location;  // the name to add, or the name or ID to change

  // location add
  std::vector<Criterion> criteria;
  std::wstring note;
  bool disabled = false;
  bool force = false;

  // watch
  std::optional<std::uint32_t> seconds;
};
