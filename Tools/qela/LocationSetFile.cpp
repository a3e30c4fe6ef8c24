#include "LocationSetFile.h"

#include <string_view>
#include <unordered_set>
#include <utility>

#include "CommandError.h"
#include "CriterionKinds.h"
#include "Json.h"
#include "JsonFile.h"
#include "RegFile.h"

namespace {

constexpr std::uint32_t kSchema = 1;

CQeLocationCriterias ReadCriteria(const JsonNode& node) {
  static constexpr const char* kManagementServer = "managementServer";
  static const std::vector<std::string> kMembers = [] {
    std::vector<std::string> members;
    for (const CriterionKind& kind : kCriterionKinds) members.emplace_back(kind.member);
    members.emplace_back(kManagementServer);
    return members;
  }();
  node.RequireOnly(kMembers);
  CQeLocationCriterias criteria;
  for (const CriterionKind& kind : kCriterionKinds) {
    const auto values = node.FindMember(kind.member);
    if (!values) continue;
    std::vector<std::wstring> texts;
    for (const JsonNode& value : values->Elements()) texts.push_back(value.Text());
    criteria.SetTexts(kind.kind, std::move(texts));
  }
  const auto managementServer = node.FindMember(kManagementServer);
  if (managementServer && managementServer->Bool()) criteria.Add(LCT_ZELT_REACHABLE, {});
  return criteria;
}

CQeLocation ReadLocation(const JsonNode& node) {
  node.RequireOnly({"id", "name", "enabled", "note", "criteria"});
  CQeLocation location = CQeLocation::ToBeRead();
  location.SetId(node.Member("id").Text());
  location.SetName(node.Member("name").Text());
  if (const auto note = node.FindMember("note")) location.SetNote(note->Text());
  if (const auto enabled = node.FindMember("enabled")) {
    const bool value = enabled->Bool();
    location.SetEnabled(&value);
  }
  if (const auto criteria = node.FindMember("criteria")) location.SetCriterias(ReadCriteria(*criteria));
  return location;
}

LocationSet ReadSet(const JsonNode& root) {
  root.RequireOnly({"schema", "locations"});
  const JsonNode schema = root.Member("schema");
  if (schema.UInt32() != kSchema) schema.Fail("1, the only version that this qela reads");
  const std::vector<JsonNode> nodes = root.Member("locations").Elements();
  LocationSet set;
  set.reserve(nodes.size());
  for (const JsonNode& node : nodes) set.push_back(ReadLocation(node));
  if (const auto at = FindWithoutOwnId(set)) {
    const JsonNode id = nodes[*at].Member("id");
    if (set[*at].Id().empty()) id.Fail("an ID, such as a UUID");
    id.Fail("an earlier location has this ID", "write another, or leave one of the two out");
  }
  return set;
}

LocationSet DecodeRegValue(const RegValue& value, const std::string& fileName) {
  const auto fail = [&](const std::string& message) {
    throw CommandError(kFailed, fileName + ": line " + std::to_string(value.line) + ": " + message);
  };
  LocationSet set;
  try {
    set = DecodeSet(value.bytes);
  } catch (const CommandError&) {
    fail("the bytes are no whole location set; export it again");
  }
  for (CQeLocation& location : set) location.SetAdapterIndexes({});
  if (FindWithoutOwnId(set))
    fail("the set has a location without an ID, or two with the same; mend it and export it again");
  return set;
}

}  // namespace

LocationSet ParseSetFile(const std::string& bytes, const std::string& fileName) {
  if (LooksLikeRegFile(bytes)) return DecodeRegValue(ParseRegFile(bytes, fileName), fileName);
  return ReadSet(ParseJson(bytes, fileName).Root());
}

LocationSet ReadSetFile(const std::wstring& path) { return ParseSetFile(ReadFileBytes(path), ShownFileName(path)); }

std::string SetAsJson(const LocationSet& set) {
  constexpr int kIndent = 2;
  Json locations = Json::array();
  for (const CQeLocation& location : set) locations.push_back(LocationDetails(location));
  return Json{{"schema", kSchema}, {"locations", std::move(locations)}}.dump(kIndent) + "\n";
}

std::string SetAsReg(const LocationSet& set) {
  LocationSet bare = set;
  for (CQeLocation& location : bare) location.SetAdapterIndexes({});
  return FormatRegFile(EncodeSet(bare));
}

std::optional<std::size_t> FindWithoutOwnId(const LocationSet& set) {
  std::unordered_set<std::wstring_view> ids;
  for (std::size_t i = 0; i < set.size(); ++i)
    if (set[i].Id().empty() || !ids.insert(set[i].Id()).second) return i;
  return std::nullopt;
}
