// Locations, criteria, collections, their byte form, and the questions about addresses.
#include <utility>

#include "Tests/Kit/KitTest.h"
#include "Tests/Support/LocationBlob.h"

namespace {

class KitLocation : public KitTest {
 protected:
  static std::wstring Id(qela_location* location) {
    return TextOf([&](wchar_t* text, std::uint32_t* length) { return qela_location_get_id(location, text, length); });
  }
  static std::wstring Name(qela_location* location) {
    return TextOf([&](wchar_t* text, std::uint32_t* length) { return qela_location_get_name(location, text, length); });
  }
  static std::wstring Note(qela_location* location) {
    return TextOf([&](wchar_t* text, std::uint32_t* length) { return qela_location_get_note(location, text, length); });
  }
  using Entry = std::pair<int, std::wstring>;
  static std::vector<Entry> Entries(qela_criteria* criteria) {
    std::vector<Entry> entries;
    std::uint32_t count = 0;
    EXPECT_EQ(qela_criteria_count(criteria, &count), QELA_STATUS_OK);
    for (std::uint32_t i = 0; i < count; ++i) {
      qela_criterion_kind kind{};
      std::wstring value = TextOf(
          [&](wchar_t* text, std::uint32_t* length) { return qela_criteria_at(criteria, i, &kind, text, length); });
      entries.emplace_back(kind, std::move(value));
    }
    return entries;
  }
};

TEST_F(KitLocation, IsNewWithAnIdAndEnabled) {
  qela_location* location = nullptr;
  ASSERT_EQ(qela_create_location(Service(), &location), QELA_STATUS_OK);
  EXPECT_EQ(Id(location).size(), 36u);
  EXPECT_EQ(Name(location), Id(location) + L" Location");
  EXPECT_EQ(Note(location), L"");
  std::int32_t enabled = 0;
  EXPECT_EQ(qela_location_is_enabled(location, &enabled), QELA_STATUS_OK);
  EXPECT_EQ(enabled, 1);
  EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_release(location), QELA_STATUS_INVALID_HANDLE);
}

TEST_F(KitLocation, KeepsWhatIsSet) {
  qela_location* const location = NewLocation(L"id");
  EXPECT_EQ(qela_location_set_name(location, L"B\u00fcro \u6771\u4eac"), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_set_note(location, L"note"), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_set_enabled(location, 0), QELA_STATUS_OK);
  EXPECT_EQ(Id(location), L"id");
  EXPECT_EQ(Name(location), L"B\u00fcro \u6771\u4eac");
  EXPECT_EQ(Note(location), L"note");
  std::int32_t enabled = 1;
  EXPECT_EQ(qela_location_is_enabled(location, &enabled), QELA_STATUS_OK);
  EXPECT_EQ(enabled, 0);
}

TEST_F(KitLocation, ATextIsCopiedOnlyWhereItFitsWithItsEnd) {
  qela_location* const location = NewLocation(L"four");
  wchar_t text[] = L"??????";
  std::uint32_t length = 4;
  EXPECT_EQ(qela_location_get_id(location, text, &length), QELA_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 5u);
  EXPECT_STREQ(text, L"??????");
  EXPECT_EQ(qela_location_get_id(location, text, &length), QELA_STATUS_OK);
  EXPECT_STREQ(text, L"four");
  EXPECT_EQ(text[5], L'?');
}

TEST_F(KitLocation, AdapterIndexesAreKept) {
  qela_location* const location = NewLocation(L"id");
  std::uint32_t count = 9;
  EXPECT_EQ(qela_location_get_adapters(location, nullptr, &count), QELA_STATUS_OK);
  EXPECT_EQ(count, 0u);
  const std::uint32_t indexes[] = {7, 8};
  EXPECT_EQ(qela_location_set_adapters(location, indexes, 2), QELA_STATUS_OK);
  std::uint32_t read[3] = {};
  count = 1;
  EXPECT_EQ(qela_location_get_adapters(location, read, &count), QELA_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(qela_location_get_adapters(location, read, &count), QELA_STATUS_OK);
  EXPECT_THAT(read, testing::ElementsAre(7, 8, 0));
  EXPECT_EQ(qela_location_set_adapters(location, nullptr, 0), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_get_adapters(location, nullptr, &count), QELA_STATUS_OK);
}

TEST_F(KitLocation, CriteriaAreAddedReadAndRemoved) {
  qela_location* const location = NewLocation(L"id");
  for (int kind = QELA_CRITERION_DOMAIN_REACHABLE; kind >= 0; --kind)
    EXPECT_EQ(
        qela_location_add_criterion(location, static_cast<qela_criterion_kind>(kind), std::to_wstring(kind).c_str()),
        QELA_STATUS_OK);
  EXPECT_EQ(qela_location_add_criterion(location, QELA_CRITERION_DNS_SUFFIX, L"0"), QELA_STATUS_DUPLICATE);
  EXPECT_EQ(qela_location_add_criterion(location, QELA_CRITERION_DNS_SUFFIX, L"more"), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_add_criterion(location, QELA_CRITERION_ZELT_REACHABLE, nullptr), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_remove_criterion(location, QELA_CRITERION_DNS_SERVER, L"3"), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_remove_criterion(location, QELA_CRITERION_DNS_SERVER, L"3"), QELA_STATUS_NOT_FOUND);

  qela_criteria* criteria = nullptr;
  ASSERT_EQ(qela_location_get_criteria(location, &criteria), QELA_STATUS_OK);
  EXPECT_EQ(Entries(criteria),
            (std::vector<Entry>{
                {0, L"0"}, {0, L"more"}, {1, L"1"}, {2, L"2"}, {4, L"4"}, {5, L"5"}, {6, L"6"}, {7, L"7"}, {8, L""}}));
  EXPECT_EQ(TextOf([&](wchar_t* text, std::uint32_t* length) {
              return qela_criteria_text(criteria, QELA_CRITERION_DNS_SUFFIX, 1, text, length);
            }),
            L"more");
  std::uint32_t length = 0;
  EXPECT_EQ(qela_criteria_text(criteria, QELA_CRITERION_DNS_SUFFIX, 2, nullptr, &length), QELA_STATUS_NOT_FOUND);
  qela_criterion_kind kind{};
  EXPECT_EQ(qela_criteria_at(criteria, 9, &kind, nullptr, &length), QELA_STATUS_NOT_FOUND);
  std::int32_t set = 0;
  EXPECT_EQ(qela_criteria_flag(criteria, QELA_CRITERION_ZELT_REACHABLE, &set), QELA_STATUS_OK);
  EXPECT_EQ(set, 1);

  EXPECT_EQ(qela_location_clear_criteria(location), QELA_STATUS_OK);
  EXPECT_EQ(Entries(criteria).size(), 9u) << "a copy";
  EXPECT_EQ(qela_criteria_release(criteria), QELA_STATUS_OK);
  ASSERT_EQ(qela_location_get_criteria(location, &criteria), QELA_STATUS_OK);
  EXPECT_EQ(Entries(criteria), std::vector<Entry>{});
  EXPECT_EQ(qela_criteria_release(criteria), QELA_STATUS_OK);
  EXPECT_EQ(qela_criteria_release(criteria), QELA_STATUS_INVALID_HANDLE);
}

TEST_F(KitLocation, HasTheStoredByteForm) {
  LocationBlob blob{.id = "id", .name = "name"};
  const Bytes bytes = blob.Pack();
  qela_location* const location = NewLocation(L"another");
  EXPECT_EQ(qela_location_from_bytes(location, bytes.data(), static_cast<std::uint32_t>(bytes.size())), QELA_STATUS_OK);
  EXPECT_EQ(Id(location), L"id");
  EXPECT_EQ(
      BytesOf([&](void* buffer, std::uint32_t* length) { return qela_location_to_bytes(location, buffer, length); }),
      bytes);
  const std::uint8_t bad = 0xc1;
  EXPECT_EQ(qela_location_from_bytes(location, &bad, 1), QELA_STATUS_BAD_DATA);
  EXPECT_EQ(qela_location_from_bytes(location, &bad, 0), QELA_STATUS_BAD_DATA);
  EXPECT_EQ(Id(location), L"id");
  EXPECT_EQ(qela_location_set_note(location, L"\xdc00"), QELA_STATUS_OK);
  std::uint32_t length = 77;
  EXPECT_EQ(qela_location_to_bytes(location, nullptr, &length), QELA_STATUS_BAD_DATA);
  EXPECT_EQ(length, 77u);
}

TEST_F(KitLocation, CriteriaHaveTheStoredByteForm) {
  qela_criteria* criteria = nullptr;
  ASSERT_EQ(qela_location_get_criteria(NewLocation(L"id", L"10.0.0.1"), &criteria), QELA_STATUS_OK);
  const Bytes bytes =
      BytesOf([&](void* buffer, std::uint32_t* length) { return qela_criteria_to_bytes(criteria, buffer, length); });
  EXPECT_EQ(bytes, Blob::Join({{0x99, 0x90, 0x91}, Blob::Str("10.0.0.1"), {0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0xc2}}));
  EXPECT_EQ(qela_criteria_from_bytes(criteria, Blob::kNoCriteria.data(),
                                     static_cast<std::uint32_t>(Blob::kNoCriteria.size())),
            QELA_STATUS_OK);
  EXPECT_EQ(Entries(criteria), std::vector<Entry>{});
  EXPECT_EQ(qela_criteria_release(criteria), QELA_STATUS_OK);
}

TEST_F(KitLocation, CollectionsAreFilledFromBytes) {
  qela_locations* locations = nullptr;
  ASSERT_EQ(qela_create_locations(Service(), &locations), QELA_STATUS_OK);
  std::uint32_t count = 7;
  EXPECT_EQ(qela_locations_count(locations, &count), QELA_STATUS_OK);
  EXPECT_EQ(count, 0u);
  Bytes set = SetOf({{"a", ""}, {"b", ""}});
  set.erase(set.begin());  // the collection without the service around it
  EXPECT_EQ(qela_locations_from_bytes(locations, set.data(), static_cast<std::uint32_t>(set.size())), QELA_STATUS_OK);
  EXPECT_EQ(IdsIn(locations), (Ids{L"a", L"b"}));
  EXPECT_EQ(
      BytesOf([&](void* buffer, std::uint32_t* length) { return qela_locations_to_bytes(locations, buffer, length); }),
      set);
  qela_location* found = nullptr;
  EXPECT_EQ(qela_locations_find(locations, L"b", &found), QELA_STATUS_OK);
  EXPECT_EQ(Id(found), L"b");
  EXPECT_EQ(qela_location_release(found), QELA_STATUS_OK);
  EXPECT_EQ(qela_locations_find(locations, L"B", &found), QELA_STATUS_NOT_FOUND);
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(qela_locations_at(locations, 2, &found), QELA_STATUS_NOT_FOUND);
  EXPECT_EQ(qela_locations_release(locations), QELA_STATUS_OK);
  EXPECT_EQ(qela_locations_release(locations), QELA_STATUS_INVALID_HANDLE);
}

// ---- addresses ----

TEST_F(KitLocation, AddressesAreMatched) {
  Open();
  const wchar_t* const addresses[] = {L"10.0.0.7", L"192.168.0.9"};
  const auto matches = [&](qela_address_kind kind, const wchar_t* first, const wchar_t* second) {
    std::int32_t result = 7;
    EXPECT_EQ(qela_match_addresses(m_service, addresses, 2, kind, first, second, &result), QELA_STATUS_OK);
    return result;
  };
  EXPECT_EQ(matches(QELA_ADDRESS_SINGLE, L"10.0.0.7", L""), 1);
  EXPECT_EQ(matches(QELA_ADDRESS_SINGLE, L"10.0.0.8", L""), 0);
  EXPECT_EQ(matches(QELA_ADDRESS_SUBNET, L"192.168.0.0/16", L""), 1);
  EXPECT_EQ(matches(QELA_ADDRESS_RANGE, L"192.168.0.1", L"192.168.0.8"), 0);
  EXPECT_EQ(matches(static_cast<qela_address_kind>(2), L"10.0.0.7", L""), 0);
  std::int32_t result = 7;
  EXPECT_EQ(qela_match_addresses(m_service, nullptr, 0, QELA_ADDRESS_SINGLE, L"", L"", &result), QELA_STATUS_OK);
  EXPECT_EQ(result, 0);
}

TEST_F(KitLocation, AdaptersAreAskedFor) {
  Open();
  std::int32_t result = 0;
  EXPECT_EQ(qela_match_adapter_addresses(m_service, QELA_ADDRESS_SINGLE, L"10.0.0.7", L"", &result), QELA_STATUS_OK);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(qela_match_adapter_addresses(m_service, QELA_ADDRESS_SINGLE, L"10.0.0.9", L"", &result), QELA_STATUS_OK);
  EXPECT_EQ(result, 0);
  const std::uint32_t indexes[] = {1, kOfficeIndex};
  EXPECT_EQ(qela_is_adapter_media_type(m_service, QELA_MEDIA_WIRED, indexes, 2, &result), QELA_STATUS_OK);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(qela_is_adapter_media_type(m_service, QELA_MEDIA_WIRELESS, indexes, 2, &result), QELA_STATUS_OK);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(qela_is_adapter_media_type(m_service, QELA_MEDIA_WIRED, nullptr, 0, &result), QELA_STATUS_OK);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(
      TextOf([&](wchar_t* text, std::uint32_t* length) { return qela_get_mac_address(m_service, 0, text, length); }),
      L"00-1A-2B-3C-4D-5E");
  std::uint32_t length = 0;
  EXPECT_EQ(qela_get_mac_address(m_service, 1, nullptr, &length), QELA_STATUS_NOT_FOUND);
}

}  // namespace
