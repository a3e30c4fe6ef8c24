// The service object behind both exports.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterSnapshot.h"
#include "FwClient/Service/QeLaLib/AddressTable.h"
#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "FwClient/Service/QeLaLib/LaMsgPack.h"
#include "FwClient/Service/QeLaLib/LocationMatcher.h"
#include "FwClient/Service/QeLaLib/QeLocations.h"

// Whether a host name of the management agent's server list is known to DNS. Runs on the caller's thread, without a
// time limit of its own.
bool CheckZeltReachability();

// Whether the host answers over HTTPS: directly, through proxy auto-discovery, or through the interactive user's proxy.
bool IsDomainReachable(const std::wstring& host);

// One file a concern: QeLaLib.cpp (life, exports, store operations, adapter queries), QeLaLibStorage.cpp (Load and
// Save), QeLaLibCalculation.cpp (snapshot, matching, which locations are current), QeLaLibDiscovery.cpp. What decides
// stands below it and knows nothing of it: AdapterSnapshot, LocationMatcher and what they use. What each operation
// does, and which take the lock, stands in Include/QeLaApi.h.
//
// Not final: operations that call others through the interface honour an override.
class CQeLaLib : public _IQeLaApi {
 public:
  static constexpr char kClassName[] = "class CQeLaLib";

  // Loads the stored set. None, or a bad one, leaves a working object, empty or with what could be read. Want of memory
  // leaves as std::bad_alloc: an object without the set that is stored would store its own in its place. A null
  // `hostLock` makes the object use a lock of its own. Objects live on the heap and end through Release or Destroy.
  CQeLaLib(CQeCriticalSection* hostLock, bool autoSave);
  CQeLaLib(const CQeLaLib&) = delete;
  CQeLaLib& operator=(const CQeLaLib&) = delete;

  // Stops discovery, waiting for its thread at most 1000 ms, and frees the object. A thread that has not ended by then
  // inherits the object and frees it when it ends.
  static void Destroy(CQeLaLib* service) noexcept;

  std::shared_ptr<_IQeLocation> CreateLocation() override;
  std::shared_ptr<_IEnumQeLocations> CreateLocations() override;
  std::uint32_t AddLocation(std::shared_ptr<_IQeLocation> location) override;
  std::uint32_t RemoveLocation(const std::wstring& id) override;
  bool RemoveAllLocations() override;
  bool Load() override;
  bool Save() override;
  std::shared_ptr<_IQeLocation> GetLocation(const std::wstring& id) override;
  std::uint32_t UpdateLocation(std::shared_ptr<_IQeLocation> location) override;
  std::shared_ptr<_IEnumQeLocations> GetCurrentLocations() override;
  std::shared_ptr<_IEnumQeLocations> GetLocations() override;
  bool MatchAddressSpecification(const std::vector<std::wstring>& addresses, const std::uint32_t* kind,
                                 const std::wstring& first, const std::wstring& second) override;
  bool MatchAdapterAddresses(const std::uint32_t* kind, const std::wstring& first, const std::wstring& second) override;
  bool IsAdapterMediaType(std::uint8_t mask, const std::vector<std::uint32_t>& ifIndexes) override;
  std::vector<std::wstring> GetMacAddresses() override;
  bool StartDiscovery(QeLaLocationsChanged callback) override;
  bool StopDiscovery() override;
  void SetErrorPrinter(QeLaErrorPrinter printer) override;
  void Lock() override;
  void Unlock() override;
  std::uint32_t AddRef() override;
  std::uint32_t Release() override;

  // The stored form of the service's state, for SerializeObject.
  void Pack(LaPacker& packer) const;

 protected:
  struct NotLoaded {};
  CQeLaLib(CQeCriticalSection* hostLock, bool autoSave, NotLoaded);
  ~CQeLaLib();

  // Rebuilds m_adapters and m_currentLocationIds, and the matched adapters of each current location. Takes the lock for
  // its whole length. Edits that the host makes meanwhile, on this thread, are kept and count from the next calculation
  // on. False when the snapshot failed for want of memory, so that another try may find more.
  bool CalculateCurrentLocations();

  // Takes a new snapshot of the adapters and writes it to the log. False when there is none, or no adapter. The caller
  // holds the lock, here and for the next three.
  bool CalculateCurrentAdapterProps();
  bool BuildAdapterSnapshot();

  // Returns 1 when the location is current. The interface indexes of the adapters that match are appended.
  std::uint32_t IsCurrentLocation(const _IQeLocation& location, std::vector<std::uint32_t>& matchedAdapters);

  // Whether the adapter satisfies the kind for at least one of the values; false for no values.
  bool MatchAdapterCriteria(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                            const std::vector<std::wstring>& values);

  // Calls the host when the current locations differ from those last raised in the process. Takes the lock to decide;
  // the call is made outside it. Discovery thread only.
  void RaiseLocationChanged();

  std::atomic<std::uint32_t> m_refCount{1};
  std::shared_ptr<CQeLocations> m_locations = std::make_shared<CQeLocations>();  // see LocationsToEdit; never null
  std::vector<std::wstring> m_currentLocationIds;                                // in stored order
  CRITICAL_SECTION* m_lock;
  bool m_externalLock;  // m_lock is the host's
  // Raw handles: a restart of discovery overwrites them without closing, which is kept on purpose and guarded by
  // Discovery.EveryRestartLeavesTwoEventsAndTheThreadHandle; the destructor closes those that are stored then.
  HANDLE m_discoveryThread = nullptr;
  HANDLE m_stopEvent = nullptr;
  HANDLE m_refreshEvent = nullptr;
  std::atomic<bool> m_discoveryRunning{false};
  bool m_autoSave;
  SharedAdapters m_adapters = NoAdapters();  // of the last calculation; never null
  std::atomic<QeLaLocationsChanged> m_locationChangedCallback{nullptr};

 private:
  struct DiscoveryRun;

  // An edit of the stored set: the lock, the change, and a save where the instance saves by itself, which it does also
  // after an edit that failed. Returns the edit's own result.
  template <typename Change>
  auto Edit(Change change);

  // The stored set, for a change: a set of its own for as long as a calculation works on the one that is stored. So a
  // calculation costs no copy, and whoever holds the set knows by the pointer whether it was edited. The caller holds
  // the lock.
  CQeLocations& LocationsToEdit();

  // Reads the set of the registry. Returns whether it was read whole; throws std::bad_alloc, with the stored set as it
  // was. Failures are told to the error printer. The caller holds the lock.
  bool ReadStoredSet();
  void LoadWhileConstructing();

  void WriteBackMatchedAdapters(const CQeLocation& location, bool isEdited,
                                const std::vector<std::uint32_t>& matchedAdapters);

  // What a pass of the discovery thread does, the lesser first.
  enum class Task { kNone, kRaise, kCalculateAndRaise };

  void RunDiscovery(const DiscoveryRun& run) noexcept;
  // False when memory did not suffice, so that it must be tried again.
  bool Perform(Task task) noexcept;
  static DWORD WINAPI DiscoveryThread(void* argument);
  static void Delete(CQeLaLib* service) noexcept;

  std::shared_ptr<DiscoveryRun> m_run;    // of the newest discovery thread
  RememberedAddressTable m_addressTable;  // as it was just before the last snapshot
  bool m_snapshotLacksMemory = false;     // why the last snapshot failed
};
