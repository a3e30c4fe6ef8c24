#include "Tests/Kit/KitTest.h"

#include <LogLibHost.h>

#include <utility>

#include "Tests/Support/LocationBlob.h"

Ids IdsIn(qela_locations* locations) {
  Ids ids;
  std::uint32_t count = 0;
  EXPECT_EQ(qela_locations_count(locations, &count), QELA_STATUS_OK);
  for (std::uint32_t i = 0; i < count; ++i) {
    qela_location* location = nullptr;
    EXPECT_EQ(qela_locations_at(locations, i, &location), QELA_STATUS_OK);
    ids.push_back(
        TextOf([&](wchar_t* text, std::uint32_t* length) { return qela_location_get_id(location, text, length); }));
    EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
  }
  return ids;
}

void QELA_CALL ToldHost::OnChange(qela_locations* current, void* context) {
  static_cast<ToldHost*>(context)->Note(IdsIn(current), current);
}

void ToldHost::Note(Ids ids, qela_locations* current) {
  std::function<void(qela_locations*)> hook;
  {
    const std::lock_guard lock(m_mutex);
    m_calls.push_back(std::move(ids));
    hook = m_hook;
    m_called.notify_all();
  }
  if (hook) hook(current);
}

void ToldHost::OnCall(std::function<void(qela_locations*)> hook) {
  const std::lock_guard lock(m_mutex);
  m_hook = std::move(hook);
}

std::optional<Ids> ToldHost::Take() {
  std::unique_lock lock(m_mutex);
  if (!m_called.wait_for(lock, std::chrono::seconds(10), [&] { return !m_calls.empty(); })) return std::nullopt;
  Ids ids = std::move(m_calls.front());
  m_calls.pop_front();
  return ids;
}

std::size_t ToldHost::Untaken() {
  const std::lock_guard lock(m_mutex);
  return m_calls.size();
}

KitTest::KitTest() {
  LogUtils::setConsoleLogging(false);
  m_hive.Set(L"SOFTWARE", L"", REG_SZ, L"", sizeof(wchar_t));  // every machine has this key
}

KitTest::~KitTest() {
  m_adapters.OnCall(nullptr);
  for (qela_location* location : m_locations) EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
  if (m_service != nullptr) {
    EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
  }
  LogUtils::setConsoleLogging(true);
}

bool KitTest::Listens() const {
  const ULONGLONG start = ::GetTickCount64();
  while (m_changes.Pending() == 0 && ::GetTickCount64() - start < 10'000) ::Sleep(1);
  return m_changes.Pending() != 0;
}

qela_service* KitTest::Open(qela_options options) {
  EXPECT_EQ(qela_open(&options, &m_service), QELA_STATUS_OK);
  EXPECT_NE(m_service, nullptr);
  return m_service;
}

qela_location* KitTest::NewLocation(const wchar_t* id, const wchar_t* gateway) {
  qela_location* location = nullptr;
  EXPECT_EQ(qela_create_location(Service(), &location), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_set_id(location, id), QELA_STATUS_OK);
  if (gateway != nullptr) {
    EXPECT_EQ(qela_location_add_criterion(location, QELA_CRITERION_DEFAULT_GATEWAY, gateway), QELA_STATUS_OK);
  }
  m_locations.push_back(location);
  return location;
}

Ids KitTest::StoredIds() {
  qela_locations* locations = nullptr;
  EXPECT_EQ(qela_get_locations(Service(), &locations), QELA_STATUS_OK);
  Ids ids = IdsIn(locations);
  EXPECT_EQ(qela_locations_release(locations), QELA_STATUS_OK);
  return ids;
}

Ids KitTest::CurrentIds() {
  qela_locations* locations = nullptr;
  EXPECT_EQ(qela_get_current_locations(Service(), &locations), QELA_STATUS_OK);
  Ids ids = IdsIn(locations);
  EXPECT_EQ(qela_locations_release(locations), QELA_STATUS_OK);
  return ids;
}

Bytes KitTest::SetOf(const std::vector<Foreign>& locations) {
  std::vector<LocationBlob> blobs;
  for (const Foreign& location : locations) {
    LocationBlob blob{.id = location.id};
    if (!location.gateway.empty()) blob.texts[QELA_CRITERION_DEFAULT_GATEWAY] = {location.gateway};
    blobs.push_back(blob);
  }
  return PackedSet(blobs);
}
