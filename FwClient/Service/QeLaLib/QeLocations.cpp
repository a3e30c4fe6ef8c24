#include "FwClient/Service/QeLaLib/QeLocations.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <new>
#include <utility>

namespace {

// Of a whole record: the headers of location and criteria set, eight empty lists, three empty texts, two booleans and
// an empty list of indexes. What bytes merely claim to hold is not allocated.
constexpr std::size_t kLeastBytes = 2 + 8 + 3 + 2 + 1;

std::shared_ptr<_IQeLocation> CopyOf(const CQeLocation& location) { return std::make_shared<CQeLocation>(location); }

// The first location with the ID; sets read from bytes may hold an ID twice.
template <typename Items>
auto FirstWithId(Items& items, const std::wstring& id) {
  return std::find_if(items.begin(), items.end(), [&](const CQeLocation& item) { return item.Id() == id; });
}

// Linear, in one table of positions: hash sets ask for memory for every element.
bool AreIdsDistinct(const std::vector<CQeLocation>& items) {
  std::vector<const std::wstring*> table(std::bit_ceil(2 * items.size() + 1));
  const std::size_t mask = table.size() - 1;
  return std::all_of(items.begin(), items.end(), [&](const CQeLocation& item) {
    std::size_t place = std::hash<std::wstring>()(item.Id()) & mask;
    for (; table[place] != nullptr; place = (place + 1) & mask)
      if (*table[place] == item.Id()) return false;
    table[place] = &item.Id();
    return true;
  });
}

// False as well where there is no memory to find out: then the rules are followed in full.
bool ArePlain(const std::vector<CQeLocation>& items) noexcept {
  try {
    return AreIdsDistinct(items) && std::all_of(items.begin(), items.end(),
                                                [](const CQeLocation& item) { return item.Criterias().AreAsAdded(); });
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

bool CQeLocations::SerializeToBytes(std::vector<std::uint8_t>& bytes) const { return SerializeObject(*this, bytes); }

bool CQeLocations::DeserializeFromBytes(const std::vector<std::uint8_t>& bytes) {
  return DeserializeObject(*this, bytes);
}

CQeLocations CQeLocations::Of(std::vector<CQeLocation> items) {
  CQeLocations locations;
  locations.m_items = std::move(items);
  locations.m_isPlain = ArePlain(locations.m_items);
  return locations;
}

std::uint64_t CQeLocations::GetCount() const { return m_items.size(); }

std::shared_ptr<_IQeLocation> CQeLocations::GetItem(std::uint64_t index) const {
  return index < m_items.size() ? CopyOf(m_items[static_cast<std::size_t>(index)]) : nullptr;
}

std::shared_ptr<_IQeLocation> CQeLocations::FindLocation(const std::wstring& id) const {
  const CQeLocation* location = Find(id);
  return location != nullptr ? CopyOf(*location) : nullptr;
}

const CQeLocation* CQeLocations::Find(const std::wstring& id) const noexcept {
  const auto found = FirstWithId(m_items, id);
  return found != m_items.end() ? &*found : nullptr;
}

std::uint32_t CQeLocations::Add(const _IQeLocation* location) {
  return Add([this]() -> CQeLocations& { return *this; }, location);
}

std::uint32_t CQeLocations::Add(const CurrentSet& set, const _IQeLocation* location) {
  if (location == nullptr) return LSR_FAILED;
  const std::wstring id = location->GetId();
  if (set().Find(id) != nullptr) return LSR_DUPLICATE_ID;
  CQeLocation copy;
  if (!copy.AssignFrom(*location)) return LSR_FAILED;
  // Looked for again: the location's code has just run.
  CQeLocations& locations = set();
  if (locations.Find(id) != nullptr) return LSR_DUPLICATE_ID;
  if (copy.Id() != id) locations.m_isPlain = false;  // a host's own location may change its mind
  locations.m_items.push_back(std::move(copy));
  return LSR_OK;
}

void CQeLocations::AddFrom(const CQeLocations& source, const std::vector<std::wstring>& ids) {
  const std::vector<CQeLocation>& items = source.m_items;
  std::size_t next = 0;  // behind the location that was added last
  for (const std::wstring& id : ids) {
    std::size_t at = next;
    if (source.m_isPlain)
      while (at < items.size() && items[at].Id() != id) ++at;
    else
      at = items.size();
    if (at < items.size()) {
      // Behind all that were added so far, so it is none of them.
      m_items.push_back(items[at]);
      next = at + 1;
    } else if (const CQeLocation* location = source.Find(id); location != nullptr) {
      Add(location);
    }
  }
}

std::uint32_t CQeLocations::Update(const _IQeLocation* location) {
  return Update([this]() -> CQeLocations& { return *this; }, location);
}

std::uint32_t CQeLocations::Update(const CurrentSet& set, const _IQeLocation* location) {
  if (location == nullptr) return LSR_NO_LOCATION;
  const std::wstring id = location->GetId();
  if (set().Find(id) == nullptr) return LSR_FAILED;
  CQeLocation copy;
  if (!copy.AssignFrom(*location)) return LSR_FAILED;
  CQeLocations& locations = set();
  const auto found = FirstWithId(locations.m_items, id);
  if (found == locations.m_items.end()) return LSR_FAILED;
  if (copy.Id() != id) locations.m_isPlain = false;
  *found = std::move(copy);
  return LSR_OK;
}

std::uint32_t CQeLocations::Remove(const std::wstring& id) {
  const auto found = FirstWithId(m_items, id);
  if (found == m_items.end()) return LSR_NOT_FOUND;
  m_items.erase(found);
  return LSR_OK;
}

void CQeLocations::Clear() noexcept {
  m_items.clear();
  m_isPlain = true;
}

void CQeLocations::Pack(LaPacker& packer) const {
  packer.Array(1);
  packer.Array(m_items.size());
  for (const CQeLocation& item : m_items) item.Pack(packer);
}

void CQeLocations::Unpack(LaReader& reader) {
  LaRecord record(reader);
  record.Next([&] {
    const std::size_t count = reader.Array();
    if (reader.For() != LaReader::Purpose::kPrepare)
      m_isPlain = false;  // until all is read, which may end in the middle
    if (reader.For() == LaReader::Purpose::kMake) {
      m_items.reserve(std::min(count, reader.BytesLeft() / kLeastBytes));
      while (m_items.size() < count) m_items.emplace_back(CQeLocation::ToBeRead()).Unpack(reader);
    } else {
      // Existing locations are overwritten in place, so a short record keeps the fields of the one at its position.
      reader.Resize(m_items, count);
      for (std::size_t i = 0; i < count; ++i) m_items[i].Unpack(reader);
    }
    if (reader.For() != LaReader::Purpose::kPrepare) m_isPlain = ArePlain(m_items);
  });
  record.End();
}
