// The library's two exports and the service object that they hand out. A host in ten lines:
//
//   #include <QeLaApi.h>
//   #include <cstdio>
//
//   void Show(std::shared_ptr<_IEnumQeLocations> current) {
//     for (std::uint64_t i = 0; i < current->GetCount(); ++i)
//       std::printf("%ls\n", current->GetItem(i)->GetName().c_str());
//   }
//   int main() {
//     const std::shared_ptr<_IQeLaApiSmart> service = GetQeLaApiSmart(nullptr);  // reads the stored locations
//     Show(service->GetCurrentLocations());
//     if (!service->StartDiscovery(&Show)) return 1;  // from here on Show runs at every change, on a thread of its own
//     std::getchar();
//     return service->StopDiscovery() ? 0 : 1;
//   }
//
// Threads: every operation may be called from any thread. "Lock: yes" means that the operation holds the service's
// recursive lock while it runs; the others do not touch it. The lock is held through whole calculations, network
// probes included, so an operation that takes it can wait as long as all probes of a calculation take. For one HTTPS
// host and one adapter that is tens of seconds when the host is silent, and up to 433,090 seconds, with the system's
// own limits for proxy discovery on top, when host and proxy are made to be slow; for a management server it is a DNS
// query. Docs/timeouts.md tells where the seconds come from.
//
// The host's own code that the library calls inside an operation (its log sink, the function that hands out its COM
// record, a location that it implements itself) may call any operation too. What it edits during a calculation is kept,
// and counts from the next calculation on.
//
// Errors: failures are answered by the results below. The only exception that leaves the library is std::bad_alloc;
// locks and everything else are released on its way out.
#pragma once

#if !defined(__MINGW32__) || !defined(__x86_64__)
#error \
    "QeLaApi.h: standard C++ types cross the library's border, so its host needs its compiler, MinGW-w64 for x86-64. Other hosts include qela.h."
#endif

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "QeLaLocation.h"

#if !defined(_UCRT) || !defined(__GLIBCXX__) || !_GLIBCXX_USE_CXX11_ABI
#error \
    "QeLaApi.h: standard C++ types cross the library's border, so its host needs its run time: the UCRT and libstdc++ with its newer strings."
#endif
#ifdef _GLIBCXX_DEBUG
#error \
    "QeLaApi.h: standard C++ types cross the library's border, and those of the debug mode are others. Compile without _GLIBCXX_DEBUG."
#endif

// The host's lock type. The library uses its address as that of a Win32 CRITICAL_SECTION.
class CQeCriticalSection;

// Called on the discovery thread, outside the service lock, with private copies of the locations that are current
// now, in stored order. Any operation of the service may be called from inside it. An exception that leaves it ends
// there and costs that one pass: the host counts as told, and is called again at the next change of the list.
using QeLaLocationsChanged = void (*)(std::shared_ptr<_IEnumQeLocations> currentLocations);

// A printf-style function (narrow format and arguments) that is told of failures to write or read the byte form.
using QeLaErrorPrinter = void (*)(const char* format, ...);

// Results of the store operations. They are deliberately not uniform; each operation names its own.
enum LocationStoreResult : std::uint32_t {
  LSR_OK = 0,
  LSR_FAILED = 1,        // Add: no location given, or it could not be copied. Update: unknown ID, or not copied
  LSR_DUPLICATE_ID = 2,  // Add: a location with this ID is stored already
  LSR_NOT_FOUND = 3,     // Remove: no stored location has this ID
  LSR_NO_LOCATION = 4,   // Update: no location given
};

// Kinds of an address specification (MatchAddressSpecification). Other values match nothing.
enum FirewallAddressType : std::uint32_t {
  FIAT_SINGLE_IP = 0,  // text equality with the first text
  FIAT_SUBNET = 1,     // inside the subnet "address/prefix" of the first text
  FIAT_RANGE_IP = 3,   // from the first text (low) to the second (high), both included
  FIAT_ANY_IP_V4 = 7,  // as FIAT_RANGE_IP; the caller gives the whole family as low and high
  FIAT_ANY_IP_V6 = 8,
};

// Media types of adapters, bits of the mask of IsAdapterMediaType. Other agrees with each of the three.
enum AdapterMediaType : std::uint32_t {
  Wired = 1,     // Ethernet
  Wireless = 2,  // IEEE 802.11
  Virtual = 4,   // Ethernet whose description says "virtual", in any letter case
  Other = 7,     // anything else
};

// The service: the configured locations, the current ones, and the discovery of changes. Slots 0 to 19.
struct _IQeLaApiSmart {
  // A new, empty location with a fresh ID, not stored. Lock: no.
  virtual std::shared_ptr<_IQeLocation> CreateLocation() = 0;

  // A new, empty collection, not stored. Lock: no.
  virtual std::shared_ptr<_IEnumQeLocations> CreateLocations() = 0;

  // Stores a copy of `location` at the end of the set. Returns LSR_OK, LSR_FAILED or LSR_DUPLICATE_ID. Saves
  // afterwards, also after a failure, when the instance came from GetQeLaApi. Lock: yes.
  virtual std::uint32_t AddLocation(std::shared_ptr<_IQeLocation> location) = 0;

  // Removes the first location with this ID. Returns LSR_OK or LSR_NOT_FOUND. Saves as AddLocation does. Lock: yes.
  virtual std::uint32_t RemoveLocation(const std::wstring& id) = 0;

  // Empties the set. Always returns true. Saves as AddLocation does. Lock: yes.
  virtual bool RemoveAllLocations() = 0;

  // Replaces the set with the stored one and calculates the current locations. The set is stored in the binary value
  // "la" of HKEY_LOCAL_MACHINE\SOFTWARE\Corvane\Tessel\Firewall\LA, in the registry view of the process
  // (Docs/stored-form.md). Returns false, with the set unchanged, when none is stored or memory runs out; false also
  // when the stored bytes are bad (LaSerializer.h tells what then stays). Calls nobody back: a change shows at the
  // discovery thread's next wake-up. Lock: yes.
  virtual bool Load() = 0;

  // Calculates the current locations, wakes the discovery thread if it runs, and writes the set where Load reads it,
  // making the key if need be. Returns true when it was written and flushed to disk. A calling thread that a probe left
  // with the interactive user's identity writes nothing; each call tries to end that first. Lock: yes.
  virtual bool Save() = 0;

  // A copy of the first stored location with this ID, or an empty pointer. Lock: yes.
  virtual std::shared_ptr<_IQeLocation> GetLocation(const std::wstring& id) = 0;

  // Replaces the first stored location that has the same ID, at its place. Returns LSR_OK, LSR_FAILED or
  // LSR_NO_LOCATION. Saves as AddLocation does. Lock: yes.
  virtual std::uint32_t UpdateLocation(std::shared_ptr<_IQeLocation> location) = 0;

  // Copies of the locations that the last calculation found current, in stored order. Lock: yes, while collecting.
  virtual std::shared_ptr<_IEnumQeLocations> GetCurrentLocations() = 0;

  // A copy of the whole stored set. Lock: no; a host that edits from several threads holds Lock() around the call.
  virtual std::shared_ptr<_IEnumQeLocations> GetLocations() = 0;

  // Whether any of the numeric address texts satisfies an address specification: a FirewallAddressType and one or two
  // texts. A null kind matches nothing. Lock: no.
  virtual bool MatchAddressSpecification(const std::vector<std::wstring>& addresses, const std::uint32_t* kind,
                                         const std::wstring& first, const std::wstring& second) = 0;

  // MatchAddressSpecification for the addresses of each adapter of the last calculation, until one satisfies it.
  // Lock: no; hold Lock() around the call while discovery runs. The same goes for the next two.
  virtual bool MatchAdapterAddresses(const std::uint32_t* kind, const std::wstring& first,
                                     const std::wstring& second) = 0;

  // Whether an adapter of the last calculation whose interface index is listed has a media type that shares a bit
  // with `mask`, which is made of AdapterMediaType values. Lock: no.
  virtual bool IsAdapterMediaType(std::uint8_t mask, const std::vector<std::uint32_t>& ifIndexes) = 0;

  // The physical addresses of the adapters of the last calculation, such as "00-1A-2B-3C-4D-5E". Lock: no.
  virtual std::vector<std::wstring> GetMacAddresses() = 0;

  // Stores the callback and starts the discovery thread unless it runs. A running thread keeps running with the new
  // callback. Returns false when the thread could not be started; the callback stays stored. The process-wide list
  // of what was last reported decides whether a change is news, so a new callback hears nothing until the next
  // change. Until something is reported that list is empty: a process that starts inside a location and leaves it
  // for none is not called, and has to ask GetCurrentLocations. A change of addresses since the last calculation counts
  // as one, so none is missed between Load and the start. What the thread has no memory for it tries again every 500
  // ms. It keeps the library loaded until it ends. Lock: no.
  virtual bool StartDiscovery(QeLaLocationsChanged callback) = 0;

  // Tells the thread to end, waits for it at most 1000 ms (the full time when called from inside the callback, or
  // while the thread waits for a lock that the caller holds), and forgets the callback. Returns false, and does
  // nothing, when no callback is stored. Lock: no.
  virtual bool StopDiscovery() = 0;

  // Sets the process-wide error printer of all instances; null for none. Not synchronised: set it before use.
  virtual void SetErrorPrinter(QeLaErrorPrinter printer) = 0;

  // Enters and leaves the service's lock, so that several calls see one state. The lock is recursive.
  virtual void Lock() = 0;
  virtual void Unlock() = 0;

 protected:
  ~_IQeLaApiSmart() = default;
};

// The service with a reference count. Slots 20 and 21.
struct _IQeLaApi : _IQeLaApiSmart {
  // Adds a reference and returns the new count.
  virtual std::uint32_t AddRef() = 0;

  // Drops a reference and returns the new count. At 0 the service is destroyed: discovery is stopped as by
  // StopDiscovery, and destruction goes on after at most 1000 ms whether or not the thread has ended.
  virtual std::uint32_t Release() = 0;

 protected:
  ~_IQeLaApi() = default;
};

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"  // both sides are C++; the plain name is what counts
#endif
extern "C" {

// The process's auto-saving instance: every edit is calculated, reported and written to the registry at once. The
// first call makes it, loads it and calculates. Every call returns the same pointer and adds no reference: the one
// reference that it was made with belongs to the library, which never drops it. A host that unloads the library
// calls Release once, then must not call this again. Throws std::bad_alloc; a later call tries again.
_IQeLaApi* GetQeLaApi();

// The process's other instance, which saves only when Save is called. The first call makes it with `hostLock` as
// its lock (the host keeps the lock alive as long as the instance, and until a discovery thread that outlived it has
// ended), or with a lock of its own when `hostLock` is null. Later calls ignore the argument and return a further
// reference to the same instance. The library holds one reference itself until the process exits or the library is
// unloaded. Throws std::bad_alloc; a later call tries again.
std::shared_ptr<_IQeLaApiSmart> GetQeLaApiSmart(CQeCriticalSection* hostLock);
}
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
