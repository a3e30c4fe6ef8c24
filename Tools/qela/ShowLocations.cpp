#include "Commands.h"
#include "Json.h"
#include "LocationText.h"
#include "Output.h"
#include "StoredSet.h"

ExitCode ShowLocations(const Options& options) {
  const LocationSet set = ReadLocations();
  Json list = Json::array();
  std::string text;
  for (const CQeLocation& location : set) {
    if (options.json)
      list.push_back(LocationDetails(location));
    else
      text += (text.empty() ? "" : "\n") + LocationLines(location);
  }
  if (options.json)
    text = ToLine({{"locations", std::move(list)}});
  else if (text.empty())
    text = "No location is stored.\n";
  Print(text);
  return kDone;
}

ExitCode ShowLocation(const Options& options) {
  const LocationSet set = ReadLocations();
  const CQeLocation& location = set[Find(set, options.location)];
  Print(options.json ? ToLine(LocationDetails(location)) : LocationLines(location));
  return kDone;
}
