// What most tests of the shipped library start from: the library loaded, an empty registry, one adapter, and the log
// recorded. Nothing has been called yet, so that a test can change the world before the first call.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/OtherThread.h"
#include "Tests/Support/ServiceLibrary.h"
#include "Tests/Support/StoredSet.h"

class ServiceTest : public ::testing::Test {
 protected:
  static constexpr std::uint32_t kOfficeIndex = 5;

  // One adapter, "Office", with the gateway 10.0.0.1 and the suffix corp.example.
  static AdapterList OfficeNetwork() {
    AdapterList list;
    list.Add(L"Office").Index(kOfficeIndex).Gateway("10.0.0.1").DnsSuffix(L"corp.example").Ip("10.0.0.7");
    return list;
  }

  // A location of the test's, not stored. An empty gateway sets no criterion, so that every adapter matches.
  static std::shared_ptr<_IQeLocation> NewLocation(_IQeLaApiSmart& service, const std::wstring& id,
                                                   const std::wstring& gateway = L"") {
    const std::shared_ptr<_IQeLocation> location = service.CreateLocation();
    location->SetId(id);
    const LOCATION_CRITERIA_TYPE kind = LCT_DEFAULT_GATEWAY;
    if (!gateway.empty()) {
      EXPECT_EQ(location->AddCriteria(&kind, gateway), LCR_OK);
    }
    return location;
  }

  static std::vector<std::wstring> IdsOf(const _IEnumQeLocations& locations) {
    std::vector<std::wstring> ids;
    for (std::uint64_t i = 0; i < locations.GetCount(); ++i) ids.push_back(locations.GetItem(i)->GetId());
    return ids;
  }
  static std::vector<std::wstring> StoredIds(_IQeLaApiSmart& service) { return IdsOf(*service.GetLocations()); }
  static std::vector<std::wstring> CurrentIds(_IQeLaApiSmart& service) { return IdsOf(*service.GetCurrentLocations()); }

  static std::vector<std::uint32_t> MatchedAdapters(_IQeLaApiSmart& service, const std::wstring& id) {
    std::vector<std::uint32_t> indexes;
    const std::shared_ptr<_IQeLocation> location = service.GetLocation(id);
    EXPECT_NE(location, nullptr);
    if (location != nullptr) location->GetAdapterIndexes(indexes);
    return indexes;
  }

  // A location whose criteria cannot be copied: its stored form holds one gateway twice.
  static std::shared_ptr<_IQeLocation> UncopyableLocation(_IQeLaApiSmart& service, const std::string& id) {
    LocationBlob blob{.id = id};
    blob.texts[LCT_DEFAULT_GATEWAY] = {"10.0.0.1", "10.0.0.1"};
    const std::shared_ptr<_IQeLocation> location = service.CreateLocation();
    EXPECT_TRUE(location->DeserializeFromBytes(blob.Pack()));
    return location;
  }

  // Whether the lock is free, asked by a thread that does not hold it.
  static bool OtherThreadCanEnter(CRITICAL_SECTION& section) {
    bool entered = false;
    OtherThread([&] {
      entered = ::TryEnterCriticalSection(&section) != FALSE;
      if (entered) ::LeaveCriticalSection(&section);
    }).Join();
    return entered;
  }

  // In place of CreateThread: discovery cannot start, so that only the test's own threads use the service.
  static HANDLE WINAPI NoThread(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*) {
    return nullptr;
  }

  HMODULE Module() const { return m_library.Module(); }

  ServiceLibrary m_library;
  StoredRegistry m_registry{m_library.Module()};
  FakeAdapters m_adapters{m_library.Module(), OfficeNetwork()};
  LogRecorder m_log;
};

using Ids = std::vector<std::wstring>;
