// The byte form of the three classes, against a reader that knows nothing but the format.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/ErrorPrinter.h"
#include "FwClient/Service/QeLaLib/QeLocation.h"
#include "FwClient/Service/QeLaLib/QeLocationCriterias.h"
#include "FwClient/Service/QeLaLib/QeLocations.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// ---- what the bytes say, by the format alone ----

struct CriteriasModel {
  std::array<std::vector<std::wstring>, CQeLocationCriterias::kTextKinds> lists;
  bool zeltReachable = false;
};
struct LocationModel {
  CriteriasModel criterias;
  std::optional<std::wstring> id, name;  // nothing: what a new location gives itself
  std::wstring note;
  bool enabled = true;
  std::vector<std::uint32_t> adapterIndexes;
};
using LocationsModel = std::vector<LocationModel>;

// Every function that answers with false has come to something else than it was to read.
class ModelReader {
 public:
  explicit ModelReader(FuzzInput bytes) : m_bytes(bytes) {}

  // Whether there is one whole object, whatever it is.
  bool Skip() {
    for (std::uint64_t left = 1; left > 0; --left) {
      std::uint64_t type = 0, size = 0;
      if (!Number(1, type)) return false;
      if (type <= 0x7f || type >= 0xe0 || type == 0xc0 || type == 0xc2 || type == 0xc3) continue;
      if (type == 0xc1) return false;
      if (type <= 0x8f) {
        left += 2 * (type & 0xf);
      } else if (type <= 0x9f) {
        left += type & 0xf;
      } else if (type <= 0xbf) {
        if (!Pass(type & 0x1f)) return false;
      } else if (type >= 0xcc && type <= 0xd3) {
        if (!Pass(std::uint64_t{1} << (type & 3))) return false;
      } else if (type == 0xca || type == 0xcb) {
        if (!Pass(type == 0xca ? 4 : 8)) return false;
      } else if (type >= 0xd4 && type <= 0xd8) {
        if (!Pass(1 + (std::uint64_t{1} << (type - 0xd4)))) return false;
      } else {
        // Sizes of 1, 2 and 4 bytes: of bin, ext and str, and of 2 and 4: of arrays and maps.
        const std::uint64_t first = type >= 0xde   ? 0xde - 1
                                    : type >= 0xdc ? 0xdc - 1
                                    : type >= 0xd9 ? 0xd9
                                    : type >= 0xc7 ? 0xc7
                                                   : 0xc4;
        if (!Number(std::size_t{1} << (type - first), size)) return false;
        if (type >= 0xdc)
          left += type >= 0xde ? 2 * size : size;
        else if (!Pass(size + (first == 0xc7 ? 1 : 0)))
          return false;
      }
    }
    return true;
  }

  bool Read(CriteriasModel& criterias) {
    return Record(
        [&](std::size_t field) {
          return field < criterias.lists.size() ? ReadList(criterias.lists[field]) : Read(criterias.zeltReachable);
        },
        criterias.lists.size() + 1);
  }
  bool Read(LocationModel& location) {
    return Record(
        [&](std::size_t field) {
          switch (field) {
            case 0:
              return Read(location.criterias);
            case 1:
              return ReadSome(location.id);
            case 2:
              return ReadSome(location.name);
            case 3:
              return Read(location.note);
            case 4:
              return Read(location.enabled);
            default:
              return ReadList(location.adapterIndexes);
          }
        },
        6);
  }
  bool Read(LocationsModel& locations) {
    return Record([&](std::size_t) { return ReadList(locations); }, 1);
  }

  std::uint8_t Latest() const { return m_at > 0 ? m_bytes[m_at - 1] : 0; }

 private:
  bool Pass(std::uint64_t size) {
    if (size > m_bytes.size() - m_at) return false;
    m_at += static_cast<std::size_t>(size);
    return true;
  }
  bool Number(std::size_t size, std::uint64_t& number) {
    number = 0;
    if (!Pass(size)) return false;
    for (std::size_t i = m_at - size; i < m_at; ++i) number = number << 8 | m_bytes[i];
    return true;
  }
  bool Array(std::uint64_t& count) {
    if (!Number(1, count)) return false;
    if (count == 0xdc || count == 0xdd) return Number(count == 0xdc ? 2 : 4, count);
    if (count >> 4 != 9) return false;
    count &= 0xf;
    return true;
  }
  template <typename Field>
  bool Record(Field readField, std::size_t fields) {
    std::uint64_t count = 0;
    if (!Array(count)) return false;
    for (std::uint64_t i = 0; i < count; ++i)
      if (!(i < fields ? readField(static_cast<std::size_t>(i)) : Skip())) return false;
    return true;
  }
  template <typename Element>
  bool ReadList(std::vector<Element>& list) {
    std::uint64_t count = 0;
    if (!Array(count)) return false;
    list.resize(static_cast<std::size_t>(count));
    return std::all_of(list.begin(), list.end(), [this](Element& element) { return Read(element); });
  }
  bool Read(bool& value) {
    std::uint64_t type = 0;
    if (!Number(1, type) || type >> 1 != 0xc2 >> 1) return false;
    value = type == 0xc3;
    return true;
  }
  bool Read(std::uint32_t& value) {
    std::uint64_t number = 0;
    if (!Number(1, number)) return false;
    if (number > 0x7f) {
      if (number < 0xcc || number > 0xd3) return false;
      const std::uint64_t type = number;
      const std::size_t size = std::size_t{1} << (type & 3);
      if (!Number(size, number)) return false;
      if (type >= 0xd0 && m_bytes[m_at - size] >= 0x80) return false;  // it is negative
    }
    if (number > UINT32_MAX) return false;
    value = static_cast<std::uint32_t>(number);
    return true;
  }
  bool Read(std::wstring& text) {
    std::uint64_t size = 0;
    if (!Number(1, size)) return false;
    if (size >> 5 == 5)
      size &= 0x1f;
    else if (size < 0xd9 || size > 0xdb || !Number(std::size_t{1} << (size - 0xd9), size))
      return false;
    if (!Pass(size)) return false;
    const FuzzInput bytes = m_bytes.subspan(m_at - static_cast<std::size_t>(size), static_cast<std::size_t>(size));
    const std::optional<std::wstring> decoded = FuzzDecodeUtf8(FuzzCut(bytes, 0).first);
    if (decoded) text = *decoded;
    return decoded.has_value();
  }
  bool ReadSome(std::optional<std::wstring>& text) {
    std::wstring read;
    if (!Read(read)) return false;
    text = read;
    return true;
  }

  FuzzInput m_bytes;
  std::size_t m_at = 0;
};

// ---- the comparison ----

bool Is(const CQeLocationCriterias& criterias, const CriteriasModel& model) {
  for (std::uint32_t kind = 0; kind < CQeLocationCriterias::kTextKinds; ++kind)
    if (criterias.Texts(kind) != model.lists[kind]) return false;
  return criterias.IsZeltReachable() == model.zeltReachable;
}
bool Is(const CQeLocation& location, const LocationModel& model) {
  constexpr std::size_t kIdCharacters = 36;
  return Is(location.Criterias(), model.criterias) &&
         (model.id ? location.Id() == *model.id : location.Id().size() == kIdCharacters) &&
         (model.name ? location.Name() == *model.name : location.Name().ends_with(L" Location")) &&
         location.Note() == model.note && location.IsEnabled() == model.enabled &&
         location.AdapterIndexes() == model.adapterIndexes;
}
bool Is(const CQeLocations& locations, const LocationsModel& model) {
  return std::equal(locations.Items().begin(), locations.Items().end(), model.begin(), model.end(),
                    [](const CQeLocation& location, const LocationModel& itsModel) { return Is(location, itsModel); });
}

unsigned g_printed = 0;
void CountPrinted(const char*, ...) { ++g_printed; }

// The bytes of an object that has something in most of its fields.
CQeLocation SomeLocation() {
  CQeLocation location;
  location.SetId(L"some ID");
  location.SetName(L"some name that takes more than a short one's memory");
  location.SetAdapterIndexes({7, 700});
  for (std::uint32_t kind = LCT_DNS_SUFFIX; kind <= LCT_ZELT_REACHABLE; kind += 2) {
    const auto its = static_cast<LOCATION_CRITERIA_TYPE>(kind);
    location.AddCriteria(&its, L"10.0.0.1");
    location.AddCriteria(&its, L"corp.example");
  }
  return location;
}
template <typename Object>
Bytes Some();

template <typename Object>
Bytes Written(const Object& object) {
  Bytes bytes;
  if (!object.SerializeToBytes(bytes)) FuzzFail("what was read cannot be written");
  return bytes;
}

template <>
Bytes Some<CQeLocation>() {
  return Written(SomeLocation());
}
template <>
Bytes Some<CQeLocationCriterias>() {
  return Written(SomeLocation().Criterias());
}
template <>
Bytes Some<CQeLocations>() {
  Bytes bytes = {0x91, 0x93};
  for (int i = 0; i < 3; ++i) {
    const Bytes location = Some<CQeLocation>();
    bytes.insert(bytes.end(), location.begin(), location.end());
  }
  return bytes;
}

template <typename Object, typename Model>
void ReadAndCompare(Object& object, Model& model, const Bytes& bytes) {
  const bool isWhole = ModelReader(bytes).Skip();
  ModelReader reader(bytes);
  const bool expected = isWhole && reader.Read(model);
  FuzzKind(static_cast<std::uint32_t>(isWhole) << 9 | static_cast<std::uint32_t>(expected) << 8 | reader.Latest());

  g_printed = 0;
  const std::size_t before = FuzzBytesAskedFor();
  const bool read = object.DeserializeFromBytes(bytes);
  // For each byte at most a location, the largest thing that one byte can stand for, in the old set and in the new one.
  if (FuzzBytesAskedFor() - before > 65'536u + 2048u * bytes.size())
    FuzzFail("reading asks for much more memory than there are bytes");
  if (read != expected) FuzzFail(read ? "bytes are read that are none of ours" : "bytes are refused that are ours");
  if (g_printed != (read || bytes.empty() ? 0u : 1u)) FuzzFail("a failure is told once, and nothing else is");
  if (!Is(object, model)) FuzzFail("what was read is not what the bytes say");
}

template <typename Object, typename Model>
void Run(FuzzInput input) {
  errorPrinter = &CountPrinted;
  const Bytes bytes(input.begin(), input.end());
  Object object;
  Model model{};
  ReadAndCompare(object, model, bytes);

  // From now on the bytes are the same.
  const Bytes first = Written(object);
  Object again;
  if (!again.DeserializeFromBytes(first) || Written(again) != first)
    FuzzFail("what was written reads as something else");
  // A second time over itself, in the memory that it has.
  if (!again.DeserializeFromBytes(first) || Written(again) != first) FuzzFail("the same bytes change what they made");

  // Cut anywhere, they are refused and change nothing.
  const std::size_t cut = bytes.empty() ? 0 : (bytes.front() + 256u * bytes.back() + bytes.size()) % first.size();
  if (again.DeserializeFromBytes(Bytes(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(cut))) ||
      Written(again) != first)
    FuzzFail("bytes that are cut off are taken");

  // Read over another object.
  static const Bytes some = Some<Object>();
  if (!again.DeserializeFromBytes(some)) FuzzFail("good bytes are refused by an object that was read");
  model = {};
  ModelReader(some).Read(model);
  ReadAndCompare(again, model, bytes);
}

const std::vector<std::string_view> kTokens = {"\x90",
                                               "\x91",
                                               "\x93",
                                               "\x96",
                                               "\x97",
                                               "\x99",
                                               "\x9a",
                                               "\x9f",
                                               "\xa0",
                                               "\xa3xyz",
                                               "\xbf",
                                               "\xc0",
                                               "\xc1",
                                               "\xc2",
                                               "\xc3",
                                               "\xcc\xff",
                                               "\xcd\x01\x2c",
                                               "\xce\xff\xff\xff\xff",
                                               "\xcf\x01",
                                               "\xd0\x7f",
                                               "\xd0\x80",
                                               "\xd1\xff",
                                               "\xd9\x02xy",
                                               "\xda",
                                               "\xdb",
                                               "\xdc",
                                               "\xdd",
                                               "\xde",
                                               "\xdf",
                                               "\xdd\x7f\xff\xff\xff",
                                               "\xdb\xff\xff\xff\xff",
                                               "\xc4\x01",
                                               "\xc7\x01\x01",
                                               "\xd4\x01\x01",
                                               "\xca",
                                               "\xcb",
                                               "\xa4\xf0\x9f\x98\x80",
                                               "\xa2\xc0\x80",
                                               "\xa3\xed\xa0\x80",
                                               "\x99\x90\x90\x90\x90\x90\x90\x90\x90\xc2"};

const FuzzTarget g_criterias("criterias-bytes", Run<CQeLocationCriterias, CriteriasModel>, kTokens);
const FuzzTarget g_location("location-bytes", Run<CQeLocation, LocationModel>, kTokens);
const FuzzTarget g_locations("locations-bytes", Run<CQeLocations, LocationsModel>, kTokens);

}  // namespace
