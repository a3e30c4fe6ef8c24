// What the discovery thread learns of address changes: requests that pend, are completed or refused at every moment,
// and the address table that tells of what no request saw.
#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Tests/Contract/DiscoveryTest.h"

namespace {

using ::testing::ElementsAre;

using AddressChanges = DiscoveryTest;

TEST_F(AddressChanges, ThousandsOfSavesBetweenTwoChangesMakeOneRequest) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  for (int i = 0; i < 3000; ++i) {
    Save();
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_EQ(m_changes.Requests(), 1u);
  EXPECT_EQ(m_changes.Pending(), 1u);
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  for (int i = 0; i < 100; ++i) Save();
  EXPECT_EQ(m_changes.Requests(), 2u);
  Join({});
  FireAddressChange();
  ExpectCallbackWith({});
  EXPECT_EQ(m_changes.MostPending(), 1u);
}

// A system that marks nothing as pending is asked anew on every pass, as one that completes at once would need it.
TEST_F(AddressChanges, RequestThatDoesNotShowAsPendingIsMadeAnewOnEveryPass) {
  m_changes.LeaveUnmarked();
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  for (int i = 0; i < 5; ++i) Save();
  EXPECT_EQ(m_changes.Requests(), 6u);
  m_adapters.ClearCalls();
  Save();
  EXPECT_EQ(m_adapters.CallCount(), 1u) << "that of the save: a refresh alone does not calculate";
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
}

TEST_F(AddressChanges, ChangeBetweenTheLookAtTheRequestAndTheWaitIsSeenByTheWait) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Gate gate;
  m_waits.OnWait([&] { gate.Pass(); });
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(gate.WaitUntilReached());
  Join({kOffice});
  m_changes.Fire();
  m_waits.OnWait(nullptr);
  gate.Open();
  ExpectCallbackWith({L"A"});
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kSkipped, kChange, kRaising));
}

// The system writes the result before it signals the event: a request that is over is never armed over.
TEST_F(AddressChanges, RequestThatIsCompletedBeforeItsEventIsSignalledCountsAsAChange) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Service().Lock();
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_log.WaitFor(kRefresh));
  Join({kOffice});
  m_changes.CompleteWithoutSignal();
  Service().Unlock();
  ExpectCallbackWith({L"A"});
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kSkipped, kChange, kRaising));
}

TEST_F(AddressChanges, TableIsNotAskedForWhileARequestServesOn) {
  StartDiscovery();
  const DWORD thread = ::GetThreadId(m_threads.At(0).thread);
  std::atomic<int> asked = 0;
  m_table.OnCall([&] {
    if (::GetCurrentThreadId() == thread) ++asked;
  });
  Save();
  Save();
  EXPECT_EQ(asked, 0);
  m_table.OnCall(nullptr);
}

// Where nothing shows as pending, arming may take a change back; the address table still tells of it.
TEST_F(AddressChanges, ChangeBetweenTheLookAndTheArmingIsFoundInTheAddressTable) {
  m_changes.LeaveUnmarked();
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  m_changes.OnRequest([this] {
    m_changes.OnRequest(nullptr);
    Join({kOffice});
    m_table.Change();
    m_changes.Fire();
  });
  EXPECT_TRUE(Service().Save());
  ExpectCallbackWith({L"A"});
  EXPECT_TRUE(m_waits.WaitForCount(2));
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kSkipped, kChange, kRaising));
}

// Of an address that has come and gone the table does not tell: the event does, before arming takes it back.
TEST_F(AddressChanges, ChangeDuringARefreshIsNotLostWhereNothingShowsAsPending) {
  m_changes.LeaveUnmarked();
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Service().Lock();
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_log.WaitFor(kRefresh));
  Join({kOffice});
  m_changes.Fire();
  Service().Unlock();
  ExpectCallbackWith({L"A"});
}

TEST_F(AddressChanges, ChangeBetweenTheLoadAndTheFirstRequestIsReportedWithoutANotification) {
  Store(L"A", kOfficeGateway);
  EXPECT_TRUE(Service().Save());
  Join({kOffice});
  m_table.Change();
  StartDiscovery();
  ExpectCallbackWith({L"A"});
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kRaising));
  EXPECT_EQ(m_changes.Requests(), 1u) << "the request that is there serves on";
}

TEST_F(AddressChanges, ChangeDuringTheCalculationIsReportedWithoutAFurtherOne) {
  Store(L"A", kOfficeGateway);
  Store(L"B", L"192.168.1.1");
  StartDiscovery();
  Join({kOffice});
  // After the snapshot the machine moves on; no request pends that could tell.
  m_log.OnEvent([this](const LoggedEvent& event) {
    if (event.text != L"Adapters List :") return;
    m_log.OnEvent(nullptr);
    Join({"192.168.1.1"});
    m_table.Change();
  });
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  ExpectCallbackWith({L"B"});
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kRaising, kChange, kRaising));
}

TEST_F(AddressChanges, ChangeDuringTheCallbackIsReportedWithoutAFurtherOne) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  HostCallback::OnCall([this] {
    HostCallback::OnCall(nullptr);
    Join({});
    m_table.Change();
  });
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  ExpectCallbackWith({});
}

// The save's snapshot is the last one, and it saw the addresses as they are.
TEST_F(AddressChanges, ChangeThatASaveHasSeenCostsNoCalculationMore) {
  StartDiscovery();
  m_table.Change();
  Save();
  m_adapters.ClearCalls();
  FireAddressChange();
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kSkipped, kChange, kSkipped));
}

TEST_F(AddressChanges, MachineWhoseTableDoesNotChangeIsServedCallForCallAsWithoutIt) {
  Store(L"A", kOfficeGateway);
  Service().Load();
  m_adapters.ClearCalls();
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  Save();
  FireAddressChange();
  EXPECT_EQ(m_adapters.CallCount(), 3u);
  EXPECT_EQ(m_changes.Requests(), 3u);
  EXPECT_EQ(m_waits.Count(), 4u);
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kRaising, kRefresh, kSkipped, kChange, kSkipped));
}

TEST_F(AddressChanges, TableThatCannotBeReadAtTheSnapshotCountsAsEqual) {
  m_table.Fail(ERROR_NOT_SUPPORTED);
  Service();
  m_table.Fail(NO_ERROR);
  m_table.Change();
  StartDiscovery();
  EXPECT_EQ(DiscoveryLines(), Lines{});
}

TEST_F(AddressChanges, TableThatCannotBeReadAfterTheRequestCountsAsEqual) {
  Service();
  m_table.Fail(ERROR_NOT_SUPPORTED);
  StartDiscovery();
  m_table.Fail(NO_ERROR);
  m_table.Change();
  Save();
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kSkipped)) << "the request has been pending since";
}

TEST_F(AddressChanges, TableIsReadBeforeTheAdaptersAndAfterTheRequest) {
  std::vector<std::string> calls;
  Service();
  m_table.OnCall([&] { calls.emplace_back("table"); });
  m_adapters.OnCall([&] { calls.emplace_back("adapters"); });
  m_changes.OnRequest([&] { calls.emplace_back("request"); });
  StartDiscovery();
  FireAddressChange();
  m_table.OnCall(nullptr);
  EXPECT_THAT(calls, ElementsAre("request", "table", "table", "adapters", "request", "table"));
}

// An address changes during every calculation, so that the thread never comes to wait.
TEST_F(AddressChanges, MachineWhoseAddressesNeverRestCanStillBeStopped) {
  StartDiscovery();
  const std::size_t waits = m_waits.Count();
  m_adapters.OnCall([this] {
    m_table.Change();
    m_changes.Fire();
  });
  m_changes.Fire();
  EXPECT_TRUE(m_log.WaitFor(kChange, 20));
  EXPECT_EQ(m_waits.Count(), waits);
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_TRUE(m_threads.WaitForEnd());
}

TEST_F(AddressChanges, TenThousandSavesAThousandChangesAndAThousandRestartsLeaveThreeHandlesARestart) {
  _IQeLaApi& service = *m_library.Api();
  service.AddLocation(NewLocation(service, L"A", kOfficeGateway));
  StartDiscovery(service);
  for (int i = 0; i < 10'000; ++i) {
    UntilTheThreadWaits([&] { EXPECT_TRUE(service.Save()); });
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_EQ(m_changes.Requests(), 1u);
  for (int i = 0; i < 1000; ++i) {
    if (i % 2 == 0)
      Join({kOffice});
    else
      Join({});
    FireAddressChange();
    ASSERT_TRUE(HostCallback::Take().has_value());
  }
  EXPECT_EQ(m_changes.Requests(), 1001u);
  constexpr std::size_t kRestarts = 1000;
  for (std::size_t i = 0; i < kRestarts; ++i) {
    ASSERT_TRUE(service.StopDiscovery());
    StartDiscovery(service);
  }
  EXPECT_EQ(m_changes.MostPending(), 1u);
  EXPECT_EQ(m_changes.Pending(), 1u);
  EXPECT_TRUE(service.StopDiscovery());
  EXPECT_EQ(m_ledger.Open("DuplicateHandle"), 0u) << "the thread's own are closed with it";
  EXPECT_EQ(service.Release(), 0u);
  EXPECT_EQ(m_ledger.Open("CreateEventW"), 2 * kRestarts);
  EXPECT_EQ(m_ledger.Open("CreateThread"), kRestarts);
  EXPECT_EQ(m_ledger.Leaks().size(), 2u);
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre());
}

}  // namespace
