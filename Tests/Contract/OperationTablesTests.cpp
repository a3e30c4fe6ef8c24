// The tables of virtual operations, as a host's compiled code sees them: so many entries, in this order.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>

#include "Tests/Contract/ServiceTest.h"

namespace {

int g_printed = 0;
void CountPrinted(const char*, ...) { ++g_printed; }

CRITICAL_SECTION g_lock;

class OperationTables : public ServiceTest {
 protected:
  static const std::uintptr_t* TableOf(const void* object) {
    return *static_cast<const std::uintptr_t* const*>(object);
  }

  // Calls a slot by its number as compiled code does: the object is the first argument.
  template <typename Result, typename... Parameters>
  static Result Call(const void* object, std::size_t slot, std::type_identity_t<Parameters>... arguments) {
    return reinterpret_cast<Result (*)(const void*, Parameters...)>(TableOf(object)[slot])(
        object, std::forward<Parameters>(arguments)...);
  }

  bool IsCodeOfTheLibrary(std::uintptr_t address) const {
    const auto base = reinterpret_cast<std::uintptr_t>(Module());
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(
        reinterpret_cast<const std::byte*>(Module()) + reinterpret_cast<const IMAGE_DOS_HEADER*>(Module())->e_lfanew);
    const auto* section = reinterpret_cast<const IMAGE_SECTION_HEADER*>(
        reinterpret_cast<const std::byte*>(&headers->OptionalHeader) + headers->FileHeader.SizeOfOptionalHeader);
    for (WORD i = 0; i < headers->FileHeader.NumberOfSections; ++i, ++section) {
      const std::uintptr_t begin = base + section->VirtualAddress;
      if ((section->Characteristics & IMAGE_SCN_MEM_EXECUTE) != 0 && address >= begin &&
          address < begin + section->Misc.VirtualSize)
        return true;
    }
    return false;
  }

  // Consecutive pointers to code at the start of the object's table. What follows a table (the next one's offset
  // word) is no code.
  std::size_t EntriesOf(const void* object) const {
    std::size_t count = 0;
    while (IsCodeOfTheLibrary(TableOf(object)[count])) ++count;
    return count;
  }
};

TEST_F(OperationTables, HaveAsManyEntriesAsTheInterfacesHaveOperations) {
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(EntriesOf(service), 22u);
  EXPECT_EQ(EntriesOf(m_library.SmartApi().get()), 22u);
  EXPECT_EQ(EntriesOf(service->CreateLocation().get()), 16u);
  EXPECT_EQ(EntriesOf(service->CreateLocations().get()), 5u);
  EXPECT_EQ(EntriesOf(service->CreateLocation()->GetCriterias().get()), 6u);
}

TEST_F(OperationTables, SmartInterfaceIsTheWholeObject) {
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(static_cast<void*>(static_cast<_IQeLaApiSmart*>(service)), static_cast<void*>(service));
}

TEST_F(OperationTables, ServiceSlotsDoWhatTheirNumberSays) {
  ::InitializeCriticalSection(&g_lock);
  const std::shared_ptr<_IQeLaApiSmart> owner = m_library.SmartApi(&g_lock);
  const void* const service = owner.get();
  using Location = std::shared_ptr<_IQeLocation>;
  using Locations = std::shared_ptr<_IEnumQeLocations>;

  const auto location = Call<Location>(service, 0);
  EXPECT_EQ(location->GetId().size(), 36u);
  const std::wstring id = location->GetId();
  EXPECT_EQ((Call<Locations>(service, 1))->GetCount(), 0u);
  EXPECT_EQ((Call<std::uint32_t, Location>(service, 2, location)), 0u);
  EXPECT_EQ((Call<std::uint32_t, Location>(service, 2, location)), 2u);
  EXPECT_EQ((Call<Locations>(service, 10))->GetCount(), 1u);
  EXPECT_EQ((Call<Locations>(service, 9))->GetCount(), 0u) << "nothing was calculated since the edit";

  EXPECT_TRUE(Call<bool>(service, 6));
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 1u);
  EXPECT_EQ((Call<Locations>(service, 9))->GetCount(), 1u);
  EXPECT_EQ((Call<Location, const std::wstring&>(service, 7, id))->GetId(), id);
  EXPECT_EQ((Call<std::uint32_t, const std::wstring&>(service, 3, id)), 0u);
  EXPECT_EQ((Call<std::uint32_t, const std::wstring&>(service, 3, id)), 3u);
  EXPECT_EQ((Call<std::uint32_t, Location>(service, 8, location)), 1u);
  EXPECT_EQ((Call<std::uint32_t, Location>(service, 8, nullptr)), 4u);
  EXPECT_TRUE(Call<bool>(service, 5));
  EXPECT_EQ((Call<Locations>(service, 10))->GetCount(), 1u) << "read back";
  EXPECT_TRUE(Call<bool>(service, 4));
  EXPECT_EQ((Call<Locations>(service, 10))->GetCount(), 0u);

  const std::vector<std::wstring> addresses{L"10.0.0.1"};
  EXPECT_FALSE(
      (Call<bool, const std::vector<std::wstring>&, const std::uint32_t*, const std::wstring&, const std::wstring&>(
          service, 11, addresses, nullptr, L"10.0.0.1", L"")));
  EXPECT_FALSE((Call<bool, const std::uint32_t*, const std::wstring&, const std::wstring&>(service, 12, nullptr,
                                                                                           L"10.0.0.1", L"")));
  const std::vector<std::uint32_t> indexes{kOfficeIndex};
  EXPECT_FALSE((Call<bool, std::uint8_t, const std::vector<std::uint32_t>&>(service, 13, 0, indexes)));
  EXPECT_EQ(Call<std::vector<std::wstring>>(service, 14), std::vector<std::wstring>{});

  {
    // Without a thread: StartDiscovery stores the callback and fails, StopDiscovery finds it once.
    const ImportPatch noEvents(
        Module(), "CreateEventW", +[](SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*) -> HANDLE { return nullptr; });
    EXPECT_FALSE(Call<bool>(service, 16));
    EXPECT_FALSE((Call<bool, QeLaLocationsChanged>(service, 15, [](Locations) {})));
    EXPECT_TRUE(Call<bool>(service, 16));
    EXPECT_FALSE(Call<bool>(service, 16));
  }

  Call<void, QeLaErrorPrinter>(service, 17, &CountPrinted);
  m_registry.Put({0xc1});
  g_printed = 0;
  EXPECT_FALSE(Call<bool>(service, 5));
  EXPECT_EQ(g_printed, 1);

  Call<void>(service, 18);
  EXPECT_FALSE(OtherThreadCanEnter(g_lock));
  Call<void>(service, 19);
  EXPECT_TRUE(OtherThreadCanEnter(g_lock));
  EXPECT_EQ(Call<std::uint32_t>(service, 20), 2u);
  EXPECT_EQ(Call<std::uint32_t>(service, 21), 1u);
}

TEST_F(OperationTables, LocationSlotsDoWhatTheirNumberSays) {
  const std::shared_ptr<_IQeLocation> owner = m_library.Api()->CreateLocation();
  const void* const location = owner.get();
  const LOCATION_CRITERIA_TYPE gateway = LCT_DEFAULT_GATEWAY;
  const std::wstring address = L"10.0.0.1";

  EXPECT_EQ((Call<std::uint32_t, const LOCATION_CRITERIA_TYPE*, const std::wstring&>(location, 7, &gateway, address)),
            0u);
  EXPECT_EQ((Call<std::uint32_t, const LOCATION_CRITERIA_TYPE*, const std::wstring&>(location, 7, &gateway, address)),
            2u);
  EXPECT_EQ((Call<std::shared_ptr<_IEnumQeLocationCriterias>>(location, 2))->GetCount(), 1u);
  EXPECT_EQ((Call<std::uint32_t, const LOCATION_CRITERIA_TYPE*, const std::wstring&>(location, 8, &gateway, address)),
            0u);
  EXPECT_EQ((Call<std::uint32_t, const LOCATION_CRITERIA_TYPE*, const std::wstring&>(location, 8, &gateway, address)),
            3u);
  owner->AddCriteria(&gateway, address);
  EXPECT_TRUE(Call<bool>(location, 9));
  EXPECT_EQ((Call<std::shared_ptr<_IEnumQeLocationCriterias>>(location, 2))->GetCount(), 0u);

  const bool disabled = false;
  EXPECT_TRUE(Call<bool>(location, 4));
  Call<void, const bool*>(location, 10, &disabled);
  EXPECT_FALSE(Call<bool>(location, 4));
  Call<void, const std::wstring&>(location, 11, L"name");
  EXPECT_EQ(Call<std::wstring>(location, 5), L"name");
  Call<void, const std::wstring&>(location, 12, L"note");
  EXPECT_EQ(Call<std::wstring>(location, 6), L"note");
  Call<void, const std::wstring&>(location, 13, L"id");
  EXPECT_EQ(Call<std::wstring>(location, 3), L"id");
  const std::vector<std::uint32_t> indexes{3, 300};
  Call<void, const std::vector<std::uint32_t>&>(location, 15, indexes);
  std::vector<std::uint32_t> read{9};
  Call<void, std::vector<std::uint32_t>&>(location, 14, read);
  EXPECT_EQ(read, indexes);

  Bytes bytes;
  EXPECT_TRUE((Call<bool, Bytes&>(location, 0, bytes)));
  LocationBlob expected{.id = "id", .name = "name", .note = "note", .enabled = false, .adapterIndexes = {3, 300}};
  EXPECT_EQ(bytes, expected.Pack());
  expected.name = "other";
  EXPECT_TRUE((Call<bool, const Bytes&>(location, 1, expected.Pack())));
  EXPECT_EQ(Call<std::wstring>(location, 5), L"other");
}

TEST_F(OperationTables, CollectionSlotsDoWhatTheirNumberSays) {
  _IQeLaApi* const service = m_library.Api();
  service->AddLocation(NewLocation(*service, L"A"));
  const std::shared_ptr<_IEnumQeLocations> owner = service->GetLocations();
  const void* const locations = owner.get();
  EXPECT_EQ(Call<std::uint64_t>(locations, 2), 1u);
  EXPECT_EQ((Call<std::shared_ptr<_IQeLocation>, std::uint64_t>(locations, 3, 0))->GetId(), L"A");
  EXPECT_EQ((Call<std::shared_ptr<_IQeLocation>, const std::wstring&>(locations, 4, L"A"))->GetId(), L"A");
  EXPECT_EQ((Call<std::shared_ptr<_IQeLocation>, const std::wstring&>(locations, 4, L"B")), nullptr);
  Bytes bytes;
  EXPECT_TRUE((Call<bool, Bytes&>(locations, 0, bytes)));
  EXPECT_EQ(Blob::Array({bytes}), m_registry.Value());
  EXPECT_TRUE((Call<bool, const Bytes&>(locations, 1, {0x91, 0x90})));
  EXPECT_EQ(Call<std::uint64_t>(locations, 2), 0u);
}

TEST_F(OperationTables, CriteriaSlotsDoWhatTheirNumberSays) {
  const std::shared_ptr<_IEnumQeLocationCriterias> owner =
      NewLocation(*m_library.Api(), L"A", L"10.0.0.1")->GetCriterias();
  const void* const criteria = owner.get();
  EXPECT_EQ(Call<std::size_t>(criteria, 2), 1u);
  LOCATION_CRITERIA_TYPE kind = LCT_DNS_SUFFIX;
  std::wstring text;
  EXPECT_TRUE((Call<bool, std::size_t, LOCATION_CRITERIA_TYPE&, std::wstring&>(criteria, 3, 0, kind, text)));
  EXPECT_EQ(kind, LCT_DEFAULT_GATEWAY);
  EXPECT_EQ(text, L"10.0.0.1");
  bool zelt = true;
  EXPECT_TRUE((Call<bool, LOCATION_CRITERIA_TYPE, bool&>(criteria, 4, LCT_ZELT_REACHABLE, zelt)));
  EXPECT_FALSE(zelt);
  std::vector<std::wstring> texts;
  EXPECT_TRUE(
      (Call<bool, LOCATION_CRITERIA_TYPE, std::vector<std::wstring>&>(criteria, 5, LCT_DEFAULT_GATEWAY, texts)));
  EXPECT_EQ(texts, std::vector<std::wstring>{L"10.0.0.1"});
  Bytes bytes;
  EXPECT_TRUE((Call<bool, Bytes&>(criteria, 0, bytes)));
  EXPECT_EQ(bytes.front(), 0x99);
  EXPECT_TRUE((Call<bool, const Bytes&>(criteria, 1, {0x92, 0x90, 0x90})));
  EXPECT_EQ(Call<std::size_t>(criteria, 2), 0u);
}

}  // namespace
