#include "Media.h"

// An adapter of any other type has the bits of all three kinds.
std::string MediaOf(_IQeLaApiSmart& api, std::uint32_t index) {
  const bool wired = api.IsAdapterMediaType(Wired, {index});
  const bool wireless = api.IsAdapterMediaType(Wireless, {index});
  if (wired && wireless) return "other";
  if (wired) return "wired";
  return wireless ? "wireless" : "virtual";
}
