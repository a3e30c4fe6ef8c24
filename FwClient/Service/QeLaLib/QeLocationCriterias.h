// A location's criteria set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaCriteria.h"
#include "FwClient/Service/QeLaLib/LaMsgPack.h"

// A value type. Lists keep the order of adding; filled through Add they hold no two identical entries, read from bytes
// they are taken as stored.
class CQeLocationCriterias final : public _IEnumQeLocationCriterias {
 public:
  static constexpr char kClassName[] = "class CQeLocationCriterias";
  static constexpr std::uint32_t kTextKinds = 8;  // LCT_DNS_SUFFIX to LCT_DOMAIN_REACHABLE

  static CQeLocationCriterias ToBeRead() noexcept { return {}; }

  bool SerializeToBytes(std::vector<std::uint8_t>& bytes) const override;
  bool DeserializeFromBytes(const std::vector<std::uint8_t>& bytes) override;
  std::size_t GetCount() const override;
  bool GetAt(std::size_t index, LOCATION_CRITERIA_TYPE& kind, std::wstring& value) const override;
  bool GetBoolCriteria(LOCATION_CRITERIA_TYPE kind, bool& value) const override;
  bool GetStringCriteria(LOCATION_CRITERIA_TYPE kind, std::vector<std::wstring>& values) const override;

  // The list of a text kind without a copy.
  const std::vector<std::wstring>& Texts(std::uint32_t kind) const noexcept;
  bool IsZeltReachable() const noexcept { return zeltReachable; }

  // Puts a text kind's list in place as it is, as if it had been read from bytes.
  void SetTexts(std::uint32_t kind, std::vector<std::wstring> texts) noexcept {
    this->*kLists[kind] = std::move(texts);
  }

  // Whether the lists could have been filled by adding: no entry twice, none that would be stored as another text.
  bool AreAsAdded() const;

  // Behind _IQeLocation::AddCriteria, RemoveCriteria and ClearCriterias.
  std::uint32_t Add(LOCATION_CRITERIA_TYPE kind, const std::wstring& value);
  std::uint32_t Remove(LOCATION_CRITERIA_TYPE kind, const std::wstring& value);
  void Clear() noexcept;

  // Adds every entry of `source`. Returns true when each Add returned LCR_OK; never stops early.
  bool Merge(const _IEnumQeLocationCriterias& source);

  void Pack(LaPacker& packer) const;
  void Unpack(LaReader& reader);

 private:
  using TextList = std::vector<std::wstring>;

  // The list of a text kind, or null for any other kind.
  const TextList* Find(LOCATION_CRITERIA_TYPE kind) const noexcept;
  TextList* Find(LOCATION_CRITERIA_TYPE kind) noexcept;

  static TextList CQeLocationCriterias::* const kLists[kTextKinds];  // by kind; below the class, which is whole there

  TextList dnsSuffixes;
  TextList defaultGateways;
  TextList dhcpServers;
  TextList dnsServers;
  TextList primaryWinsServers;
  TextList secondaryWinsServers;
  TextList registryKeys;
  TextList reachableDomains;
  bool zeltReachable = false;
};

inline constexpr CQeLocationCriterias::TextList CQeLocationCriterias::* const CQeLocationCriterias::kLists[] = {
    &CQeLocationCriterias::dnsSuffixes,        &CQeLocationCriterias::defaultGateways,
    &CQeLocationCriterias::dhcpServers,        &CQeLocationCriterias::dnsServers,
    &CQeLocationCriterias::primaryWinsServers, &CQeLocationCriterias::secondaryWinsServers,
    &CQeLocationCriterias::registryKeys,       &CQeLocationCriterias::reachableDomains,
};

inline const std::vector<std::wstring>& CQeLocationCriterias::Texts(std::uint32_t kind) const noexcept {
  return this->*kLists[kind];
}
