// The ordered collection of locations: the service's configured set, and every list that it hands out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaLocation.h"
#include "FwClient/Service/QeLaLib/QeLocation.h"

// A value type. IDs are compared exactly, code unit by code unit: "Office" and "office" are two locations.
class CQeLocations final : public _IEnumQeLocations {
 public:
  static constexpr char kClassName[] = "class CQeLocations";

  static CQeLocations ToBeRead() noexcept { return {}; }

  // These, in this order and as they are: as if they had been read from bytes.
  static CQeLocations Of(std::vector<CQeLocation> items);
  std::vector<CQeLocation> TakeItems() && noexcept { return std::move(m_items); }

  bool SerializeToBytes(std::vector<std::uint8_t>& bytes) const override;
  bool DeserializeFromBytes(const std::vector<std::uint8_t>& bytes) override;
  std::uint64_t GetCount() const override;
  std::shared_ptr<_IQeLocation> GetItem(std::uint64_t index) const override;
  std::shared_ptr<_IQeLocation> FindLocation(const std::wstring& id) const override;

  // The store operations. `location` may be null; results are of LocationStoreResult and deliberately not uniform.
  std::uint32_t Add(const _IQeLocation* location);     // LSR_OK, LSR_FAILED, LSR_DUPLICATE_ID
  std::uint32_t Update(const _IQeLocation* location);  // LSR_OK, LSR_FAILED, LSR_NO_LOCATION
  std::uint32_t Remove(const std::wstring& id);        // LSR_OK, LSR_NOT_FOUND
  // The same for a set that may give way to another in the middle: a location may be the host's own, whose code runs
  // while it is copied, and may edit or load. `set` hands out the one that there is.
  using CurrentSet = std::function<CQeLocations&()>;
  static std::uint32_t Add(const CurrentSet& set, const _IQeLocation* location);
  static std::uint32_t Update(const CurrentSet& set, const _IQeLocation* location);
  void Clear() noexcept;

  // Whether every ID is there once and no criterion would be changed or refused by copying its location. So it is in
  // sets that were filled by adding; bytes can hold others. In such a set the rules of adding and updating come down to
  // plain copies, since there is nothing for them to refuse.
  bool IsPlain() const noexcept { return m_isPlain; }

  // What updating the location at `index` with one that differs only in these comes to. Only in a plain set.
  void ReplaceAdapterIndexes(std::size_t index, const std::vector<std::uint32_t>& adapterIndexes) {
    // Most often they are the same: memory that is not written need not be written back.
    if (m_items[index].AdapterIndexes() != adapterIndexes) m_items[index].SetAdapterIndexes(adapterIndexes);
  }

  // Adds copies of the first locations with these IDs, in the order of the IDs: each by the rule of adding, so that an
  // ID is added once and a location that cannot be copied not at all. IDs that `source` does not have are passed over.
  // In linear time where `source` is plain and the IDs stand in its order. For an empty collection.
  void AddFrom(const CQeLocations& source, const std::vector<std::wstring>& ids);

  // The elements themselves; pointers hold until the next change of the collection.
  const CQeLocation* Find(const std::wstring& id) const noexcept;
  const std::vector<CQeLocation>& Items() const noexcept { return m_items; }

  void Pack(LaPacker& packer) const;
  void Unpack(LaReader& reader);

 private:
  std::vector<CQeLocation> m_items;
  bool m_isPlain = true;
};
