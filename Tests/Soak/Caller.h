// A host that calls any of the library's operations, in any order, and judges every answer.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "Tests/Soak/SoakRun.h"

// One thread's calls of one instance. The locations that any of them stores tell by themselves whether they are whole:
// their texts follow from their IDs.
//
// Others call at the same time, so that most answers are one of several. Between Lock and Unlock nobody does, and a
// sequence of calls has one answer, unless the host itself is called inside them and calls back.
class Caller {
 public:
  enum class Among { kOthersOnly, kOneselfToo };

  // `counted` is the same instance where it counts references, or null.
  Caller(SoakRun& run, _IQeLaApiSmart& service, _IQeLaApi* counted, Among among, unsigned seed);

  // One of the 22 operations, or two that belong together, under its name.
  enum class Needs {
    kNothing,
    kCount,         // an instance that counts references
    kNobodyInside,  // a caller that is not inside another call: there it waits a second
  };
  struct Operation {
    const char* name;
    void (Caller::*call)();
    unsigned weight;  // how often it is chosen
    Needs needs = Needs::kNothing;
  };
  const Operation& Choose();
  void Call(const Operation& operation);

  // For hosts that are told: the collection holds whole locations, and of one network.
  static void ExpectWhole(SoakRun& run, const _IEnumQeLocations& locations);
  static void ExpectOneNetwork(SoakRun& run, const _IEnumQeLocations& locations);

  static const std::vector<Operation>& Operations();
  // What the host is called by: when locations change, and after its printer was told something.
  static void SetCallbacks(QeLaLocationsChanged callback, void (*onPrint)() = nullptr) {
    s_callback = callback;
    s_onPrint = onPrint;
  }

 private:
  // The lock of the service, held.
  class Held;

  unsigned Below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(m_random); }
  std::shared_ptr<_IQeLocation> NewLocation();
  // Of those that are stored now; an ID that nobody has where none is.
  std::wstring AnyId();
  bool Can(const Operation& operation) const;
  bool IsAlone() const { return m_among == Among::kOthersOnly; }

  void CreateLocation();
  void CreateLocations();
  void AddLocation();
  void RemoveLocation();
  void RemoveAllLocations();
  void Load();
  void Save();
  void GetLocation();
  void UpdateLocation();
  void GetCurrentLocations();
  void GetLocations();
  void MatchAddressSpecification();
  void MatchAdapterAddresses();
  void IsAdapterMediaType();
  void GetMacAddresses();
  void StartDiscovery();
  void StopDiscovery();
  void SetErrorPrinter();
  void LockAndUnlock();
  void AddRefAndRelease();

  static void Print(const char* format, ...);

  static inline QeLaLocationsChanged s_callback = nullptr;
  static inline void (*s_onPrint)() = nullptr;
  SoakRun& m_run;
  _IQeLaApiSmart& m_service;
  _IQeLaApi* const m_counted;
  const Among m_among;
  std::minstd_rand m_random;  // small: a caller may live for one call
};
