// A location as plain data, and the sets of them that are measured.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaCriteria.h"
#include "ScriptedWindows/Windows/AdapterList.h"

inline constexpr std::size_t kTextKinds = 8;

struct PlainLocation {
  std::array<std::vector<std::wstring>, kTextKinds> texts;  // by criterion kind
  bool zeltReachable = false;
  std::wstring id;
  std::wstring name;
  std::wstring note;
  bool enabled = true;
  std::vector<std::uint32_t> adapterIndexes;
};

using PlainSet = std::vector<PlainLocation>;

// Adapters that share a second gateway (10.0.99.1), a second DNS server, the DHCP and WINS servers and the end of their
// suffix, and differ in the rest.
AdapterList Adapters(std::size_t count);

// What the locations of a set ask for.
enum class Shape {
  kGatewayMiss,
  kSuffixLiteral,
  kSuffixWildcard,
  kDhcp,
  kFiveKinds,  // four held by every adapter, the last by none
  kTwoOfThreeKinds,
  kOneInTenCurrent,
  kAllCurrent,
  kNoCriteria,
};

struct NamedShape {
  const char* name;
  Shape shape;
};
inline constexpr NamedShape kShapes[] = {
    {"gateway miss", Shape::kGatewayMiss},
    {"suffix literal", Shape::kSuffixLiteral},
    {"suffix wildcard", Shape::kSuffixWildcard},
    {"DHCP", Shape::kDhcp},
    {"five kinds", Shape::kFiveKinds},
    {"two suffixes, two gateways, two DNS", Shape::kTwoOfThreeKinds},
    {"one in ten current", Shape::kOneInTenCurrent},
    {"all current", Shape::kAllCurrent},
    {"no criteria", Shape::kNoCriteria},
};

PlainSet LocationsOf(Shape shape, std::size_t count);

// As administrators make them: two or three criteria, names, one or two matched adapters; none is current.
PlainSet UsualLocations(std::size_t count);
