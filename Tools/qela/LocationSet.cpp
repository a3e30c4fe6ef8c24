#include "LocationSet.h"

#include <algorithm>
#include <new>
#include <utility>

#include "CommandError.h"
#include "FwClient/Common/Utilities/StlStringUtfConv.h"
#include "FwClient/Service/QeLaLib/StoredSetRecord.h"
#include "Text.h"

LocationSet DecodeSet(std::span<const std::uint8_t> bytes) {
  LocationSet set;
  try {
    ReadObject(CQeLocations::ToBeRead(), bytes, UnpackStoredSet,
               [&](CQeLocations&& read) { set = std::move(read).TakeItems(); });
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    throw CommandError(kUnreadableSet, "the bytes are no whole location set");
  }
  return set;
}

std::vector<std::uint8_t> EncodeSet(const LocationSet& set) {
  try {
    LaPacker packer;
    PackStoredSet(CQeLocations::Of(set), packer);
    return packer.TakeBytes();
  } catch (const StlStringUtfConv::Exception&) {
    throw CommandError(kFailed,
                       "a text of a location is not valid Unicode, and cannot be stored. Nothing was changed.");
  }
}

std::size_t Find(const LocationSet& set, const std::wstring& nameOrId) {
  std::vector<std::size_t> named;
  for (std::size_t i = 0; i < set.size(); ++i) {
    if (set[i].Id() == nameOrId) return i;
    if (set[i].Name() == nameOrId) named.push_back(i);
  }
  if (named.size() == 1) return named.front();
  if (named.empty())
    throw CommandError(kNoSuchLocation, "no location has the name or ID \"" + Printable(nameOrId) + "\"");
  std::string message =
      std::to_string(named.size()) + " locations have the name \"" + Printable(nameOrId) + "\"; give the ID of one:";
  for (const std::size_t i : named) message += "\n  " + Printable(set[i].Id());
  throw CommandError(kNoSuchLocation, message);
}

std::string Quoted(const CQeLocation& location) {
  return "\"" + Printable(location.Name()) + "\" (" + Printable(location.Id()) + ")";
}
