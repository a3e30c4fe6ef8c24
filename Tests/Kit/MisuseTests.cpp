// Wrong handles, null arguments, wrong sizes: each is a status, for every function.
#include <iterator>

#include "Tests/Kit/KitTest.h"

namespace {

struct Function {
  const char* name;
  qela_status (*call)(void* handle);
};

template <typename Handle>
Handle* As(void* handle) {
  return static_cast<Handle*>(handle);
}

wchar_t g_text[100];
std::uint8_t g_bytes[1000];
std::uint32_t g_length;
std::int32_t g_flag;
const std::uint32_t g_index = 1;
const wchar_t* const g_addresses[] = {L"10.0.0.1"};
qela_location* g_location;
qela_locations* g_locations;
qela_criteria* g_criteria;
qela_criterion_kind g_kind;
void QELA_CALL OnChange(qela_locations*, void*) {}

const Function kOfService[] = {
    {"retain", [](void* s) { return qela_retain(As<qela_service>(s)); }},
    {"close", [](void* s) { return qela_close(As<qela_service>(s)); }},
    {"start", [](void* s) { return qela_start(As<qela_service>(s), &OnChange, nullptr); }},
    {"stop", [](void* s) { return qela_stop(As<qela_service>(s)); }},
    {"load", [](void* s) { return qela_load(As<qela_service>(s)); }},
    {"save", [](void* s) { return qela_save(As<qela_service>(s)); }},
    {"lock", [](void* s) { return qela_lock(As<qela_service>(s)); }},
    {"unlock", [](void* s) { return qela_unlock(As<qela_service>(s)); }},
    {"add_location", [](void* s) { return qela_add_location(As<qela_service>(s), nullptr); }},
    {"update_location", [](void* s) { return qela_update_location(As<qela_service>(s), nullptr); }},
    {"remove_location", [](void* s) { return qela_remove_location(As<qela_service>(s), L"id"); }},
    {"remove_all_locations", [](void* s) { return qela_remove_all_locations(As<qela_service>(s)); }},
    {"get_location", [](void* s) { return qela_get_location(As<qela_service>(s), L"id", &g_location); }},
    {"get_locations", [](void* s) { return qela_get_locations(As<qela_service>(s), &g_locations); }},
    {"get_current_locations", [](void* s) { return qela_get_current_locations(As<qela_service>(s), &g_locations); }},
    {"match_addresses",
     [](void* s) {
       return qela_match_addresses(As<qela_service>(s), g_addresses, 1, QELA_ADDRESS_SINGLE, L"", L"", &g_flag);
     }},
    {"match_adapter_addresses",
     [](void* s) { return qela_match_adapter_addresses(As<qela_service>(s), QELA_ADDRESS_SINGLE, L"", L"", &g_flag); }},
    {"is_adapter_media_type",
     [](void* s) { return qela_is_adapter_media_type(As<qela_service>(s), 1, &g_index, 1, &g_flag); }},
    {"get_mac_address", [](void* s) { return qela_get_mac_address(As<qela_service>(s), 0, g_text, &g_length); }},
    {"create_location", [](void* s) { return qela_create_location(As<qela_service>(s), &g_location); }},
    {"create_locations", [](void* s) { return qela_create_locations(As<qela_service>(s), &g_locations); }},
};

const Function kOfLocation[] = {
    {"release", [](void* l) { return qela_location_release(As<qela_location>(l)); }},
    {"get_id", [](void* l) { return qela_location_get_id(As<qela_location>(l), g_text, &g_length); }},
    {"set_id", [](void* l) { return qela_location_set_id(As<qela_location>(l), L""); }},
    {"get_name", [](void* l) { return qela_location_get_name(As<qela_location>(l), g_text, &g_length); }},
    {"set_name", [](void* l) { return qela_location_set_name(As<qela_location>(l), L""); }},
    {"get_note", [](void* l) { return qela_location_get_note(As<qela_location>(l), g_text, &g_length); }},
    {"set_note", [](void* l) { return qela_location_set_note(As<qela_location>(l), L""); }},
    {"is_enabled", [](void* l) { return qela_location_is_enabled(As<qela_location>(l), &g_flag); }},
    {"set_enabled", [](void* l) { return qela_location_set_enabled(As<qela_location>(l), 1); }},
    {"add_criterion",
     [](void* l) { return qela_location_add_criterion(As<qela_location>(l), QELA_CRITERION_DNS_SUFFIX, L"x"); }},
    {"remove_criterion",
     [](void* l) { return qela_location_remove_criterion(As<qela_location>(l), QELA_CRITERION_DNS_SUFFIX, L"x"); }},
    {"clear_criteria", [](void* l) { return qela_location_clear_criteria(As<qela_location>(l)); }},
    {"get_criteria", [](void* l) { return qela_location_get_criteria(As<qela_location>(l), &g_criteria); }},
    {"get_adapters", [](void* l) { return qela_location_get_adapters(As<qela_location>(l), nullptr, &g_length); }},
    {"set_adapters", [](void* l) { return qela_location_set_adapters(As<qela_location>(l), nullptr, 0); }},
    {"to_bytes", [](void* l) { return qela_location_to_bytes(As<qela_location>(l), g_bytes, &g_length); }},
    {"from_bytes", [](void* l) { return qela_location_from_bytes(As<qela_location>(l), g_bytes, 1); }},
};

const Function kOfCriteria[] = {
    {"release", [](void* c) { return qela_criteria_release(As<qela_criteria>(c)); }},
    {"count", [](void* c) { return qela_criteria_count(As<qela_criteria>(c), &g_length); }},
    {"at", [](void* c) { return qela_criteria_at(As<qela_criteria>(c), 0, &g_kind, g_text, &g_length); }},
    {"text",
     [](void* c) { return qela_criteria_text(As<qela_criteria>(c), QELA_CRITERION_DNS_SUFFIX, 0, g_text, &g_length); }},
    {"flag", [](void* c) { return qela_criteria_flag(As<qela_criteria>(c), QELA_CRITERION_ZELT_REACHABLE, &g_flag); }},
    {"to_bytes", [](void* c) { return qela_criteria_to_bytes(As<qela_criteria>(c), g_bytes, &g_length); }},
    {"from_bytes", [](void* c) { return qela_criteria_from_bytes(As<qela_criteria>(c), g_bytes, 1); }},
};

const Function kOfLocations[] = {
    {"release", [](void* l) { return qela_locations_release(As<qela_locations>(l)); }},
    {"count", [](void* l) { return qela_locations_count(As<qela_locations>(l), &g_length); }},
    {"at", [](void* l) { return qela_locations_at(As<qela_locations>(l), 0, &g_location); }},
    {"find", [](void* l) { return qela_locations_find(As<qela_locations>(l), L"id", &g_location); }},
    {"to_bytes", [](void* l) { return qela_locations_to_bytes(As<qela_locations>(l), g_bytes, &g_length); }},
    {"from_bytes", [](void* l) { return qela_locations_from_bytes(As<qela_locations>(l), g_bytes, 1); }},
};

class KitMisuse : public KitTest {
 protected:
  template <std::size_t Count>
  static void ExpectRefused(const Function (&functions)[Count], void* handle, const char* what) {
    for (const Function& function : functions)
      EXPECT_EQ(function.call(handle), QELA_STATUS_INVALID_HANDLE) << function.name << " with " << what;
  }
  template <std::size_t Count>
  static void ExpectWrongHandlesRefused(const Function (&functions)[Count], void* closed, void* another) {
    int local = 0;
    ExpectRefused(functions, nullptr, "null");
    ExpectRefused(functions, closed, "a closed handle");
    ExpectRefused(functions, another, "a handle of another kind");
    ExpectRefused(functions, &local, "an address");
    ExpectRefused(functions, reinterpret_cast<void*>(~std::uintptr_t{0}), "no address at all");
  }
};

TEST_F(KitMisuse, WrongHandlesOfAServiceAreRefused) {
  qela_service* const closed = Open();
  EXPECT_EQ(qela_close(closed), QELA_STATUS_OK);
  Open();
  ExpectWrongHandlesRefused(kOfService, closed, NewLocation(L"id"));
  ExpectRefused(kOfService, static_cast<void*>(m_locations.front()), "a location");
}

TEST_F(KitMisuse, WrongHandlesOfLocationsCriteriaAndCollectionsAreRefused) {
  qela_location* const location = NewLocation(L"id");
  qela_location* closedLocation = nullptr;
  qela_criteria* closedCriteria = nullptr;
  qela_locations* closedLocations = nullptr;
  ASSERT_EQ(qela_create_location(m_service, &closedLocation), QELA_STATUS_OK);
  ASSERT_EQ(qela_location_get_criteria(location, &closedCriteria), QELA_STATUS_OK);
  ASSERT_EQ(qela_create_locations(m_service, &closedLocations), QELA_STATUS_OK);
  ASSERT_EQ(qela_location_release(closedLocation), QELA_STATUS_OK);
  ASSERT_EQ(qela_criteria_release(closedCriteria), QELA_STATUS_OK);
  ASSERT_EQ(qela_locations_release(closedLocations), QELA_STATUS_OK);
  ExpectWrongHandlesRefused(kOfLocation, closedLocation, m_service);
  ExpectWrongHandlesRefused(kOfCriteria, closedCriteria, location);
  ExpectWrongHandlesRefused(kOfLocations, closedLocations, location);
}

TEST_F(KitMisuse, AnEditWithoutALocationIsRefused) {
  Open();
  EXPECT_EQ(qela_add_location(m_service, nullptr), QELA_STATUS_INVALID_HANDLE);
  EXPECT_EQ(qela_update_location(m_service, nullptr), QELA_STATUS_INVALID_HANDLE);
}

TEST_F(KitMisuse, WrongOptionsAreRefused) {
  qela_options options = QELA_OPTIONS_INIT;
  qela_service* service = nullptr;
  EXPECT_EQ(qela_open(nullptr, &service), QELA_STATUS_INVALID_ARGUMENT);
  EXPECT_EQ(qela_open(&options, nullptr), QELA_STATUS_INVALID_ARGUMENT);
  for (const std::uint32_t size : {0u, 4u, std::uint32_t{sizeof options} - 1, std::uint32_t{sizeof options} + 1}) {
    options.size = size;
    EXPECT_EQ(qela_open(&options, &service), QELA_STATUS_INVALID_SIZE) << size;
  }
  options = QELA_OPTIONS_INIT;
  options.flags = 4;
  EXPECT_EQ(qela_open(&options, &service), QELA_STATUS_INVALID_ARGUMENT);
  qela_versions versions{};
  EXPECT_EQ(qela_get_versions(nullptr), QELA_STATUS_INVALID_ARGUMENT);
  EXPECT_EQ(qela_get_versions(&versions), QELA_STATUS_INVALID_SIZE);
  options.flags = 0;
  EXPECT_EQ(qela_open(&options, &m_service), QELA_STATUS_OK) << "nothing is left of the refused ones";
}

TEST_F(KitMisuse, NullArgumentsAreRefused) {
  qela_location* const location = NewLocation(L"id");
  qela_criteria* criteria = nullptr;
  qela_locations* locations = nullptr;
  ASSERT_EQ(qela_location_get_criteria(location, &criteria), QELA_STATUS_OK);
  ASSERT_EQ(qela_create_locations(m_service, &locations), QELA_STATUS_OK);
  qela_service* const service = m_service;
  qela_location* found = nullptr;
  qela_criterion_kind kind{};
  const wchar_t* const holes[] = {L"10.0.0.1", nullptr};
  const qela_status statuses[] = {
      qela_start(service, nullptr, nullptr),
      qela_remove_location(service, nullptr),
      qela_get_location(service, nullptr, &found),
      qela_get_location(service, L"id", nullptr),
      qela_get_locations(service, nullptr),
      qela_get_current_locations(service, nullptr),
      qela_create_location(service, nullptr),
      qela_create_locations(service, nullptr),
      qela_match_addresses(service, nullptr, 1, QELA_ADDRESS_SINGLE, L"", L"", &g_flag),
      qela_match_addresses(service, holes, 2, QELA_ADDRESS_SINGLE, L"", L"", &g_flag),
      qela_match_addresses(service, holes, 1, QELA_ADDRESS_SINGLE, nullptr, L"", &g_flag),
      qela_match_addresses(service, holes, 1, QELA_ADDRESS_SINGLE, L"", nullptr, &g_flag),
      qela_match_addresses(service, holes, 1, QELA_ADDRESS_SINGLE, L"", L"", nullptr),
      qela_match_adapter_addresses(service, QELA_ADDRESS_SINGLE, nullptr, L"", &g_flag),
      qela_match_adapter_addresses(service, QELA_ADDRESS_SINGLE, L"", nullptr, &g_flag),
      qela_match_adapter_addresses(service, QELA_ADDRESS_SINGLE, L"", L"", nullptr),
      qela_is_adapter_media_type(service, 1, nullptr, 1, &g_flag),
      qela_is_adapter_media_type(service, 1, &g_index, 1, nullptr),
      qela_is_adapter_media_type(service, 0x100, &g_index, 1, &g_flag),
      qela_get_mac_address(service, 0, g_text, nullptr),
      qela_location_get_id(location, g_text, nullptr),
      qela_location_get_name(location, g_text, nullptr),
      qela_location_get_note(location, g_text, nullptr),
      qela_location_set_id(location, nullptr),
      qela_location_set_name(location, nullptr),
      qela_location_set_note(location, nullptr),
      qela_location_is_enabled(location, nullptr),
      qela_location_add_criterion(location, QELA_CRITERION_DNS_SUFFIX, nullptr),
      qela_location_remove_criterion(location, QELA_CRITERION_DNS_SUFFIX, nullptr),
      qela_location_add_criterion(location, static_cast<qela_criterion_kind>(9), L"x"),
      qela_location_remove_criterion(location, static_cast<qela_criterion_kind>(1000), L"x"),
      qela_location_get_criteria(location, nullptr),
      qela_location_get_adapters(location, nullptr, nullptr),
      qela_location_set_adapters(location, nullptr, 1),
      qela_location_to_bytes(location, g_bytes, nullptr),
      qela_location_from_bytes(location, nullptr, 1),
      qela_criteria_count(criteria, nullptr),
      qela_criteria_at(criteria, 0, nullptr, g_text, &g_length),
      qela_criteria_at(criteria, 0, &kind, g_text, nullptr),
      qela_criteria_text(criteria, QELA_CRITERION_ZELT_REACHABLE, 0, g_text, &g_length),
      qela_criteria_text(criteria, static_cast<qela_criterion_kind>(9), 0, g_text, &g_length),
      qela_criteria_flag(criteria, QELA_CRITERION_ZELT_REACHABLE, nullptr),
      qela_criteria_flag(criteria, QELA_CRITERION_DNS_SUFFIX, &g_flag),
      qela_criteria_to_bytes(criteria, g_bytes, nullptr),
      qela_criteria_from_bytes(criteria, nullptr, 1),
      qela_locations_count(locations, nullptr),
      qela_locations_at(locations, 0, nullptr),
      qela_locations_find(locations, nullptr, &found),
      qela_locations_find(locations, L"id", nullptr),
      qela_locations_to_bytes(locations, g_bytes, nullptr),
      qela_locations_from_bytes(locations, nullptr, 1),
  };
  for (std::size_t i = 0; i < std::size(statuses); ++i)
    EXPECT_EQ(statuses[i], QELA_STATUS_INVALID_ARGUMENT) << "call number " << i;
  EXPECT_EQ(qela_criteria_release(criteria), QELA_STATUS_OK);
  EXPECT_EQ(qela_locations_release(locations), QELA_STATUS_OK);
}

}  // namespace
