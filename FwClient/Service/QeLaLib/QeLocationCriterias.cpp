#include "FwClient/Service/QeLaLib/QeLocationCriterias.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <unordered_set>

#include "FwClient/Service/QeLaLib/CriteriaValue.h"

namespace {

constexpr std::size_t kFewTexts = 16;  // compared each with each sooner than hashed

bool AreDistinct(const std::vector<std::wstring>& texts) {
  if (texts.size() <= kFewTexts) {
    for (auto text = texts.begin(); text != texts.end(); ++text)
      if (std::find(texts.begin(), text, *text) != text) return false;
    return true;
  }
  const std::unordered_set<std::wstring_view> distinct(texts.begin(), texts.end());
  return distinct.size() == texts.size();
}

}  // namespace

const CQeLocationCriterias::TextList* CQeLocationCriterias::Find(LOCATION_CRITERIA_TYPE kind) const noexcept {
  return kind < kTextKinds ? &(this->*kLists[kind]) : nullptr;
}

CQeLocationCriterias::TextList* CQeLocationCriterias::Find(LOCATION_CRITERIA_TYPE kind) noexcept {
  return kind < kTextKinds ? &(this->*kLists[kind]) : nullptr;
}

bool CQeLocationCriterias::SerializeToBytes(std::vector<std::uint8_t>& bytes) const {
  return SerializeObject(*this, bytes);
}

bool CQeLocationCriterias::DeserializeFromBytes(const std::vector<std::uint8_t>& bytes) {
  return DeserializeObject(*this, bytes);
}

std::size_t CQeLocationCriterias::GetCount() const {
  std::size_t count = zeltReachable ? 1 : 0;
  for (const auto list : kLists) count += (this->*list).size();
  return count;
}

bool CQeLocationCriterias::GetAt(std::size_t index, LOCATION_CRITERIA_TYPE& kind, std::wstring& value) const {
  for (std::uint32_t i = 0; i < kTextKinds; ++i) {
    const TextList& list = this->*kLists[i];
    if (index < list.size()) {
      value = list[index];
      kind = static_cast<LOCATION_CRITERIA_TYPE>(i);
      return true;
    }
    index -= list.size();
  }
  if (index != 0 || !zeltReachable) return false;
  kind = LCT_ZELT_REACHABLE;
  return true;
}

bool CQeLocationCriterias::GetBoolCriteria(LOCATION_CRITERIA_TYPE kind, bool& value) const {
  if (kind != LCT_ZELT_REACHABLE) return false;
  value = zeltReachable;
  return true;
}

bool CQeLocationCriterias::GetStringCriteria(LOCATION_CRITERIA_TYPE kind, std::vector<std::wstring>& values) const {
  const TextList* list = Find(kind);
  if (list == nullptr) return false;
  values = *list;
  return true;
}

std::uint32_t CQeLocationCriterias::Add(LOCATION_CRITERIA_TYPE kind, const std::wstring& value) {
  if (kind == LCT_ZELT_REACHABLE) {
    if (zeltReachable) return LCR_ALREADY_PRESENT;
    zeltReachable = true;
    return LCR_OK;
  }
  TextList* list = Find(kind);
  if (list == nullptr) return LCR_INVALID_KIND;
  std::wstring normalized = NormalizeCriteriaValue(value);
  if (std::find(list->begin(), list->end(), normalized) != list->end()) return LCR_ALREADY_PRESENT;
  list->push_back(std::move(normalized));
  return LCR_OK;
}

std::uint32_t CQeLocationCriterias::Remove(LOCATION_CRITERIA_TYPE kind, const std::wstring& value) {
  if (kind == LCT_ZELT_REACHABLE) {
    if (!zeltReachable) return LCR_NOT_FOUND;
    zeltReachable = false;
    return LCR_OK;
  }
  TextList* list = Find(kind);
  if (list == nullptr) return LCR_INVALID_KIND;
  const auto entry = std::find(list->begin(), list->end(), NormalizeCriteriaValue(value));
  if (entry == list->end()) return LCR_NOT_FOUND;
  list->erase(entry);
  return LCR_OK;
}

void CQeLocationCriterias::Clear() noexcept {
  for (const auto list : kLists) (this->*list).clear();
  zeltReachable = false;
}

bool CQeLocationCriterias::Merge(const _IEnumQeLocationCriterias& source) {
  bool all = true;
  const std::size_t count = source.GetCount();
  LOCATION_CRITERIA_TYPE kind{};
  std::wstring value;
  for (std::size_t i = 0; i < count; ++i)
    if (source.GetAt(i, kind, value) && Add(kind, value) != LCR_OK) all = false;
  return all;
}

bool CQeLocationCriterias::AreAsAdded() const {
  return std::all_of(std::begin(kLists), std::end(kLists), [this](const auto list) {
    const TextList& texts = this->*list;
    return std::all_of(texts.begin(), texts.end(), IsNormalCriteriaValue) && AreDistinct(texts);
  });
}

void CQeLocationCriterias::Pack(LaPacker& packer) const {
  packer.Array(kTextKinds + 1);
  for (const auto list : kLists) {
    packer.Array((this->*list).size());
    for (const std::wstring& text : this->*list) packer.Text(text);
  }
  packer.Bool(zeltReachable);
}

void CQeLocationCriterias::Unpack(LaReader& reader) {
  LaRecord record(reader);
  for (const auto list : kLists) record.Next([&] { reader.Texts(this->*list); });
  record.Next([&] { reader.Bool(zeltReachable); });
  record.End();
}
