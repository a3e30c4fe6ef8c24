// Opening and closing, the stored set, and the lock.
#include <algorithm>

#include "Tests/Kit/KitTest.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Support/OtherThread.h"

namespace {

class KitService : public KitTest {};

TEST_F(KitService, ReadsTheStoredSetWhenItIsOpened) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}, {"home", "192.168.0.1"}});
  Open();
  EXPECT_EQ(StoredIds(), (Ids{L"office", L"home"}));
  EXPECT_EQ(CurrentIds(), Ids{L"office"});
}

TEST_F(KitService, IsOneAProcess) {
  Open();
  const qela_options options = QELA_OPTIONS_INIT;
  qela_service* second = m_service;
  EXPECT_EQ(qela_open(&options, &second), QELA_STATUS_ALREADY_OPEN);
  EXPECT_EQ(second, nullptr);
}

TEST_F(KitService, MayBeOpenedAgainAndReadsTheSetAnew) {
  Open();
  Add(L"never saved");
  EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Open();
  EXPECT_EQ(StoredIds(), Ids{L"office"});
  EXPECT_EQ(CurrentIds(), Ids{L"office"});
}

TEST_F(KitService, OpenedAgainWithoutAStoredSetIsEmpty) {
  Open();
  Add(L"never saved");
  EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
  Open();
  EXPECT_EQ(StoredIds(), Ids{});
  EXPECT_EQ(CurrentIds(), Ids{});
}

TEST_F(KitService, EndsWithItsLastOwner) {
  qela_service* const service = Open();
  EXPECT_EQ(qela_retain(service), QELA_STATUS_OK);
  EXPECT_EQ(qela_close(service), QELA_STATUS_OK);
  EXPECT_EQ(qela_lock(service), QELA_STATUS_OK);
  EXPECT_EQ(qela_unlock(service), QELA_STATUS_OK);
  EXPECT_EQ(qela_close(service), QELA_STATUS_OK);
  EXPECT_EQ(qela_lock(service), QELA_STATUS_INVALID_HANDLE);
  EXPECT_EQ(qela_close(service), QELA_STATUS_INVALID_HANDLE);
  Forget();
}

TEST_F(KitService, LocationsOutliveIt) {
  qela_location* const location = NewLocation(L"office");
  EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
  Forget();
  EXPECT_EQ(TextOf([&](wchar_t* text, std::uint32_t* length) { return qela_location_get_id(location, text, length); }),
            L"office");
}

TEST_F(KitService, EditsReachTheRegistryWhenSaved) {
  Add(L"office", kOfficeGateway);
  EXPECT_EQ(CurrentIds(), Ids{});
  EXPECT_FALSE(m_hive.HasKey());
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
  EXPECT_EQ(CurrentIds(), Ids{L"office"});
  EXPECT_TRUE(m_hive.Value().has_value());
}

TEST_F(KitService, SavesByItselfWhenAskedTo) {
  qela_options options = QELA_OPTIONS_INIT;
  options.flags = QELA_OPEN_AUTO_SAVE;
  Open(options);
  Add(L"office", kOfficeGateway);
  EXPECT_TRUE(m_hive.Value().has_value());
  EXPECT_EQ(CurrentIds(), Ids{L"office"});
  EXPECT_EQ(qela_remove_all_locations(m_service), QELA_STATUS_OK);
  EXPECT_EQ(m_hive.Value(), (Bytes{0x91, 0x91, 0x90}));
}

TEST_F(KitService, TellsThatTheSetCouldNotBeSaved) {
  Add(L"office");
  EXPECT_EQ(qela_location_set_name(m_locations.front(), L"\xd800"), QELA_STATUS_OK);
  EXPECT_EQ(qela_update_location(m_service, m_locations.front()), QELA_STATUS_OK);
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_NOT_SAVED);
}

TEST_F(KitService, LoadTellsWhetherThereIsASet) {
  Add(L"mine");
  EXPECT_EQ(qela_load(m_service), QELA_STATUS_NOT_FOUND);
  EXPECT_EQ(StoredIds(), Ids{L"mine"});
  m_hive.Put({0xc1});
  EXPECT_EQ(qela_load(m_service), QELA_STATUS_BAD_DATA);
  EXPECT_EQ(StoredIds(), Ids{L"mine"});
  StoreAsSomebodyElse({{"theirs", ""}});
  EXPECT_EQ(qela_load(m_service), QELA_STATUS_OK);
  EXPECT_EQ(StoredIds(), Ids{L"theirs"});
}

TEST_F(KitService, AnEditTakesACopyAndTellsWhatBecameOfIt) {
  qela_location* const office = NewLocation(L"office", kOfficeGateway);
  EXPECT_EQ(qela_update_location(m_service, office), QELA_STATUS_NOT_FOUND);
  EXPECT_EQ(qela_add_location(m_service, office), QELA_STATUS_OK);
  EXPECT_EQ(qela_add_location(m_service, office), QELA_STATUS_DUPLICATE);
  EXPECT_EQ(qela_location_set_name(office, L"Office"), QELA_STATUS_OK);
  qela_location* stored = nullptr;
  const auto storedName = [&] {
    EXPECT_EQ(qela_get_location(m_service, L"office", &stored), QELA_STATUS_OK);
    m_locations.push_back(stored);
    return TextOf([&](wchar_t* text, std::uint32_t* length) { return qela_location_get_name(stored, text, length); });
  };
  EXPECT_NE(storedName(), L"Office");
  EXPECT_EQ(qela_update_location(m_service, office), QELA_STATUS_OK);
  EXPECT_EQ(storedName(), L"Office");
  EXPECT_EQ(qela_remove_location(m_service, L"office"), QELA_STATUS_OK);
  EXPECT_EQ(qela_remove_location(m_service, L"office"), QELA_STATUS_NOT_FOUND);
  EXPECT_EQ(qela_get_location(m_service, L"office", &stored), QELA_STATUS_NOT_FOUND);
  EXPECT_EQ(stored, nullptr);
}

TEST_F(KitService, ALocationWithAnEntryTwiceIsRefused) {
  qela_location* const location = NewLocation(L"twice");
  LocationBlob blob{.id = "twice"};
  blob.texts[QELA_CRITERION_DEFAULT_GATEWAY] = {"10.0.0.1", "10.0.0.1"};
  const Bytes bytes = blob.Pack();
  EXPECT_EQ(qela_location_from_bytes(location, bytes.data(), static_cast<std::uint32_t>(bytes.size())), QELA_STATUS_OK);
  EXPECT_EQ(qela_add_location(m_service, location), QELA_STATUS_BAD_DATA);
}

// ---- the lock ----

TEST_F(KitService, LockIsRecursiveAndItsOwnersAlone) {
  Open();
  EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_NOT_LOCKED);
  EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
  EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
  OtherThread([&] { EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_NOT_LOCKED); }).Join();
  EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
  EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
  EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_NOT_LOCKED);
}

TEST_F(KitService, CloseGivesUpWhatItsThreadHasLocked) {
  Open();
  EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
  EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
  Open();
  OtherThread([&] { EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK), qela_unlock(m_service); }).Join();
}

// Every function that takes the lock, while another thread has it.
TEST_F(KitService, WhoWouldWaitTooLongForTheLockIsTold) {
  qela_options options = QELA_OPTIONS_INIT;
  options.call_timeout_ms = 30;
  Open(options);
  qela_location* const location = NewLocation(L"office");
  Gate held;
  OtherThread holder([&] {
    EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
    held.Pass();
    EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
  });
  ASSERT_TRUE(held.WaitUntilReached());
  qela_locations* locations = nullptr;
  qela_location* found = nullptr;
  std::int32_t matches = 0;
  std::uint32_t length = 0;
  const std::uint32_t index = 1;
  const ULONGLONG start = ::GetTickCount64();
  EXPECT_EQ(qela_lock(m_service), QELA_STATUS_BUSY);
  const ULONGLONG waited = ::GetTickCount64() - start;
  EXPECT_GE(waited, 30u);
  EXPECT_LT(waited, 5000u);
  EXPECT_EQ(qela_load(m_service), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_add_location(m_service, location), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_update_location(m_service, location), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_remove_location(m_service, L"office"), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_remove_all_locations(m_service), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_get_location(m_service, L"office", &found), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_get_locations(m_service, &locations), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_get_current_locations(m_service, &locations), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_match_adapter_addresses(m_service, QELA_ADDRESS_SINGLE, L"", L"", &matches), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_is_adapter_media_type(m_service, 1, &index, 1, &matches), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_get_mac_address(m_service, 0, nullptr, &length), QELA_STATUS_BUSY);
  held.Open();
}

TEST_F(KitService, WhoWaitsForEverGetsTheLockInTheEnd) {
  qela_options options = QELA_OPTIONS_INIT;
  options.call_timeout_ms = QELA_WAIT_FOREVER;
  Open(options);
  Gate held;
  OtherThread holder([&] {
    EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
    held.Pass();
    EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
  });
  ASSERT_TRUE(held.WaitUntilReached());
  const OtherThread waiting([&] {
    EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
    EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
  });
  EXPECT_FALSE(waiting.HasEnded(50));
  held.Open();
  EXPECT_TRUE(waiting.HasEnded());
}

TEST_F(KitService, ACalculationOfTheDiscoveryThreadKeepsNobodyLongerThanAsked) {
  qela_options options = QELA_OPTIONS_INIT;
  options.call_timeout_ms = 30;
  Open(options);
  ToldHost host;
  Start(host);
  ExpectTold(host, {});
  Gate calculating;
  m_adapters.OnCall([&] { calculating.Pass(); });
  ASSERT_TRUE(Listens());
  m_changes.Fire();
  ASSERT_TRUE(calculating.WaitUntilReached());
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_BUSY);
  m_adapters.OnCall(nullptr);
  calculating.Open();
}

TEST_F(KitService, UsesTheHostsLock) {
  // The library keeps the lock for as long as the process lives.
  static CRITICAL_SECTION section;
  ::InitializeCriticalSection(&section);
  qela_options options = QELA_OPTIONS_INIT;
  options.critical_section = &section;
  options.call_timeout_ms = 30;
  if (qela_open(&options, &m_service) == QELA_STATUS_INVALID_ARGUMENT) GTEST_SKIP() << "needs a process of its own";
  ::EnterCriticalSection(&section);
  EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
  OtherThread([&] { EXPECT_EQ(qela_lock(m_service), QELA_STATUS_BUSY); }).Join();
  EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
  ::LeaveCriticalSection(&section);

  EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
  Forget();
  qela_service* service = nullptr;
  options.critical_section = nullptr;
  EXPECT_EQ(qela_open(&options, &service), QELA_STATUS_INVALID_ARGUMENT);
  options.critical_section = &section;
  EXPECT_EQ(qela_open(&options, &service), QELA_STATUS_OK);
  EXPECT_EQ(qela_close(service), QELA_STATUS_OK);
}

// ---- what belongs to no service ----

TEST(KitStatus, EveryOneHasASentenceOfItsOwn) {
  std::vector<std::string> texts;
  for (int status = QELA_STATUS_OK; status <= QELA_STATUS_INTERNAL_ERROR; ++status) {
    texts.emplace_back(qela_status_text(static_cast<qela_status>(status)));
    EXPECT_TRUE(texts.back().ends_with(".")) << texts.back();
  }
  std::sort(texts.begin(), texts.end());
  EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
  EXPECT_STREQ(qela_status_text(static_cast<qela_status>(1000)), "The status is not known.");
}

TEST(KitVersions, AreThoseOfTheLoadedFiles) {
  qela_versions versions{};
  versions.size = sizeof versions;
  EXPECT_EQ(qela_get_versions(&versions), QELA_STATUS_OK);
  EXPECT_THAT(versions.kit, testing::ElementsAre(1, 0, 0));
  EXPECT_THAT(versions.library, testing::ElementsAre(1, 0, 0));
}

}  // namespace
