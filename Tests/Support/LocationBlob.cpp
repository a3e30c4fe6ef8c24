#include "Tests/Support/LocationBlob.h"

using Blob::Array;
using Blob::Str;

Bytes LocationBlob::Pack() const {
  std::vector<Bytes> criteria;
  for (const std::vector<std::string>& list : texts) {
    std::vector<Bytes> entries;
    for (const std::string& entry : list) entries.push_back(Str(entry));
    criteria.push_back(Array(entries));
  }
  criteria.push_back(zeltReachable ? Blob::kTrue : Blob::kFalse);
  std::vector<Bytes> indexes;
  for (const std::uint32_t index : adapterIndexes) indexes.push_back(Blob::Number(index));
  return Array({Array(criteria), Str(id), Str(name), Str(note), enabled ? Blob::kTrue : Blob::kFalse, Array(indexes)});
}

Bytes PackedSet(const std::vector<LocationBlob>& locations) {
  std::vector<Bytes> packed;
  for (const LocationBlob& location : locations) packed.push_back(location.Pack());
  return Array({Array({Array(packed)})});
}
