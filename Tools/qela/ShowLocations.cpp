#include <algorithm>

#include "Commands.h"
#include "Json.h"
#include "LocationText.h"
#include "Output.h"
#include "Service.h"
#include "StoredSet.h"
#include "Text.h"

namespace {

std::vector<std::wstring> CurrentIds() {
  const Service service;
  std::vector<std::wstring> ids;
  for (const auto& location : ToVector(*service.Api().GetCurrentLocations())) ids.push_back(location->GetId());
  return ids;
}

}  // namespace

ExitCode ShowLocations(const Options& options) {
  LocationSet set = ReadLocations();
  const bool isAnyStored = !set.empty();
  if (options.nameFilter)
    std::erase_if(set, [&](const CQeLocation& each) { return !MatchesGlob(*options.nameFilter, each.Name()); });
  if (options.onlyDisabled) std::erase_if(set, [](const CQeLocation& each) { return each.IsEnabled(); });
  if (options.onlyCurrent)
    std::erase_if(set, [ids = CurrentIds()](const CQeLocation& each) {
      return std::find(ids.begin(), ids.end(), each.Id()) == ids.end();
    });
  Json list = Json::array();
  std::string text;
  for (const CQeLocation& location : set) {
    if (options.json)
      list.push_back(options.brief ? Json{{"id", ToUtf8(location.Id())}, {"name", ToUtf8(location.Name())}}
                                   : LocationDetails(location));
    else if (options.brief)
      text += NameLine(location);
    else
      text += (text.empty() ? "" : "\n") + LocationLines(location);
  }
  if (options.json)
    text = ToLine({{"locations", std::move(list)}});
  else if (text.empty())
    text = isAnyStored ? "No stored location is of this kind.\n" : "No location is stored.\n";
  Print(text);
  return kDone;
}

ExitCode ShowLocation(const Options& options) {
  const LocationSet set = ReadLocations();
  const CQeLocation& location = set[Find(set, options.location)];
  Print(options.json ? ToLine(LocationDetails(location)) : LocationLines(location));
  return kDone;
}
