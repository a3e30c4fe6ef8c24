// What the host is told, and when.
#include <utility>

#include "Tests/Kit/KitTest.h"
#include "Tests/Support/OtherThread.h"

namespace {

class KitDiscovery : public KitTest {
 protected:
  qela_service* OpenWithOffice(qela_options options = QELA_OPTIONS_INIT) {
    StoreAsSomebodyElse({{"office", "10.0.0.1"}, {"home", "192.168.0.1"}});
    return Open(options);
  }
};

TEST_F(KitDiscovery, TellsFirstWhatIsCurrentNow) {
  OpenWithOffice();
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
}

TEST_F(KitDiscovery, TellsEachChangeWithItsContext) {
  OpenWithOffice();
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
  Move({"192.168.0.1"});
  ExpectTold(host, {L"home"});
  Move({});
  ExpectTold(host, {});
}

// The library has reported nothing yet, and so would not report that nothing is current.
TEST_F(KitDiscovery, TellsThatTheFirstLocationWasLeft) {
  OpenWithOffice();
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
  Move({});
  ExpectTold(host, {});
}

TEST_F(KitDiscovery, TellsWhatASaveChanges) {
  Open();
  ToldHost host;
  Start(host);
  ExpectTold(host, {});
  Add(L"office", kOfficeGateway);
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
  ExpectTold(host, {L"office"});
}

TEST_F(KitDiscovery, TellsWhatALoadChanges) {
  qela_options options = QELA_OPTIONS_INIT;
  options.flags = QELA_OPEN_NO_RELOAD;
  Open(options);
  ToldHost host;
  Start(host);
  ExpectTold(host, {});
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  EXPECT_EQ(qela_load(m_service), QELA_STATUS_OK);
  ExpectTold(host, {L"office"});
}

TEST_F(KitDiscovery, ASecondStartReplacesTheCallback) {
  OpenWithOffice();
  ToldHost first;
  Start(first);
  ExpectTold(first, {L"office"});
  ToldHost second;
  Start(second);
  ExpectTold(second, {L"office"});
  Move({});
  ExpectTold(second, {});
  EXPECT_EQ(first.Untaken(), 0u);
}

TEST_F(KitDiscovery, IsStoppedAndStartedAgain) {
  OpenWithOffice();
  ToldHost host;
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_NOT_STARTED);
  Start(host);
  ExpectTold(host, {L"office"});
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_NOT_STARTED);
  Join({"192.168.0.1"});
  Start(host);
  ExpectTold(host, {L"office"});  // nobody has calculated since
  Move({"192.168.0.1"});
  ExpectTold(host, {L"home"});
}

TEST_F(KitDiscovery, StopWaitsForTheCallback) {
  Open();
  ToldHost host;
  Gate inside;
  bool left = false;
  host.OnCall([&](qela_locations*) {
    inside.Pass();
    ::Sleep(20);  // longer than a stop that does not wait
    left = true;
  });
  Start(host);
  ASSERT_TRUE(inside.WaitUntilReached());
  inside.Open();
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
  EXPECT_TRUE(left);
}

TEST_F(KitDiscovery, StopAndCloseAreBusyWhileACallbackDoesNotReturn) {
  qela_options options = QELA_OPTIONS_INIT;
  options.call_timeout_ms = 30;
  Open(options);
  ToldHost host;
  Gate inside;
  host.OnCall([&](qela_locations*) { inside.Pass(); });
  Start(host);
  ASSERT_TRUE(inside.WaitUntilReached());
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_close(m_service), QELA_STATUS_BUSY);
  EXPECT_EQ(qela_start(m_service, &ToldHost::OnChange, &host), QELA_STATUS_BUSY);
  inside.Open();
}

TEST_F(KitDiscovery, TheCallbackMayUseTheService) {
  OpenWithOffice();
  ToldHost host;
  Ids inside;
  host.OnCall([&](qela_locations* current) {
    qela_location* location = nullptr;
    EXPECT_EQ(qela_lock(m_service), QELA_STATUS_OK);
    EXPECT_EQ(qela_get_location(m_service, L"home", &location), QELA_STATUS_OK);
    EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
    EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
    EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
    EXPECT_EQ(qela_locations_release(current), QELA_STATUS_OK);
  });
  Start(host);
  ExpectTold(host, {L"office"});
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
}

TEST_F(KitDiscovery, TheCollectionEndsWithTheCall) {
  OpenWithOffice();
  ToldHost host;
  qela_locations* seen = nullptr;
  qela_location* kept = nullptr;
  host.OnCall([&](qela_locations* current) {
    seen = current;
    EXPECT_EQ(qela_locations_at(current, 0, &kept), QELA_STATUS_OK);
  });
  Start(host);
  ExpectTold(host, {L"office"});
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
  std::uint32_t count = 0;
  EXPECT_EQ(qela_locations_count(seen, &count), QELA_STATUS_INVALID_HANDLE);
  EXPECT_EQ(qela_location_release(kept), QELA_STATUS_OK);
}

TEST_F(KitDiscovery, TheCallbackMayStopTheService) {
  Open();
  ToldHost host;
  Gate done;
  host.OnCall([&](qela_locations*) {
    EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
    done.Pass();
  });
  Start(host);
  ASSERT_TRUE(done.WaitUntilReached());
  done.Open();
  host.OnCall(nullptr);
  ExpectTold(host, {});
  Start(host);
  ExpectTold(host, {});
}

TEST_F(KitDiscovery, TheCallbackMayCloseTheService) {
  Open();
  ToldHost host;
  Gate done;
  host.OnCall([&](qela_locations*) {
    EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
    EXPECT_EQ(qela_save(m_service), QELA_STATUS_INVALID_HANDLE);
    done.Pass();
  });
  Start(host);
  ASSERT_TRUE(done.WaitUntilReached());
  done.Open();
  Forget();
  ASSERT_TRUE(m_threads.WaitForEnd());
  EXPECT_EQ(host.Untaken(), 1u);
}

TEST_F(KitDiscovery, TheCallbackMayReplaceItself) {
  Open();
  ToldHost first;
  ToldHost second;
  first.OnCall(
      [&](qela_locations*) { EXPECT_EQ(qela_start(m_service, &ToldHost::OnChange, &second), QELA_STATUS_OK); });
  Start(first);
  ExpectTold(first, {});
  ExpectTold(second, {});
}

// The library's thread is in a calculation that outlives the stop, and ends after the next start has taken it for the
// thread that it needs.
TEST_F(KitDiscovery, AStartRightAfterAStopThatCameLateIsListenedTo) {
  OpenWithOffice();
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
  Gate calculating;
  ASSERT_TRUE(Listens());
  m_adapters.OnCall([&] { calculating.Pass(); });
  m_changes.Fire();
  ASSERT_TRUE(calculating.WaitUntilReached());
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
  m_adapters.OnCall(nullptr);
  Start(host);
  calculating.Open();
  ExpectTold(host, {L"office"});
  Move({"192.168.0.1"});
  ExpectTold(host, {L"home"});
}

// ---- the quiet time ----

TEST_F(KitDiscovery, ABurstIsToldOnceAsItEnds) {
  qela_options options = QELA_OPTIONS_INIT;
  options.quiet_ms = 300;
  OpenWithOffice(options);
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
  // Each is calculated and reported by the library before the next comes.
  for (const char* gateway : {"192.168.0.1", "10.9.9.9", "192.168.0.1", "10.9.9.9", "192.168.0.1"}) {
    const std::size_t requests = m_changes.Requests();
    Move({gateway});
    ASSERT_TRUE(m_changes.WaitForRequests(requests + 1));
    ::Sleep(20);  // the pace of the burst
  }
  ExpectTold(host, {L"home"});
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
  EXPECT_EQ(host.Untaken(), 0u);
}

TEST_F(KitDiscovery, WhatABurstUndoesIsNotTold) {
  qela_options options = QELA_OPTIONS_INIT;
  options.quiet_ms = 200;
  OpenWithOffice(options);
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
  for (const char* gateway : {"192.168.0.1", "10.0.0.1"}) {
    const std::size_t requests = m_changes.Requests();
    Move({gateway});
    ASSERT_TRUE(m_changes.WaitForRequests(requests + 1));
    ::Sleep(20);  // the pace of the burst
  }
  EXPECT_EQ(CurrentIds(), Ids{L"office"});
  Move({"192.168.0.1"});
  ExpectTold(host, {L"home"});
  EXPECT_EQ(host.Untaken(), 0u);
}

TEST_F(KitDiscovery, ABurstWithoutAnEndIsToldAllTheSame) {
  qela_options options = QELA_OPTIONS_INIT;
  options.quiet_ms = 100;
  OpenWithOffice(options);
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
  Join({"192.168.0.1"});
  // News comes all the time, at intervals shorter than the quiet time.
  Gate told;
  host.OnCall([&](qela_locations*) { told.Pass(); });
  bool was = false;
  const ULONGLONG start = ::GetTickCount64();
  while (!was && ::GetTickCount64() - start < 10'000) {
    EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
    ::Sleep(10);
    was = host.Untaken() != 0;
  }
  EXPECT_TRUE(was);
  EXPECT_GE(::GetTickCount64() - start, 500u) << "the quiet time is not kept";
  told.Open();
}

}  // namespace
