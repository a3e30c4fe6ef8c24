// What the command line asks for.
#pragma once

#include <QeLaApi.h>
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
  kWatch,
  kMatch,
  kMacs,
  kMedia
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

  // match
  bool ownAddresses = false;  // those of the adapters; otherwise `addresses`
  std::vector<std::wstring> addresses;
  FirewallAddressType addressKind = FIAT_SINGLE_IP;
  std::wstring first;
  std::wstring second;

  // media
  std::uint8_t mediaMask = 0;  // the media types asked about; none: show them
  std::vector<std::uint32_t> indexes;
};
