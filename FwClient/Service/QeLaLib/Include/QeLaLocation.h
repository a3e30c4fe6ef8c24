// A location and a collection of locations, as the host sees them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "LaSerializer.h"
#include "QeLaCriteria.h"

// One configured network place: identity, texts, an enabled flag, a criteria set, and the adapters that matched.
// Every location that the library hands out is a private copy: changes reach the stored set only through
// _IQeLaApiSmart::UpdateLocation. No operation takes a lock. A null pointer changes nothing: as a kind it is answered
// with LCR_INVALID_KIND, as an enabled flag it is ignored.
struct _IQeLocation : ILaSerializer {
  // A copy of the criteria set, owned by the caller; later changes to the location do not show in it.
  virtual std::shared_ptr<_IEnumQeLocationCriterias> GetCriterias() const = 0;

  // The location ID: a UUID in text form (36 characters, lower case, hyphenated, no braces) made when the location
  // was created, or what SetId put there. Empty when the system could not make a UUID.
  virtual std::wstring GetId() const = 0;

  // Whether the location takes part in the calculation; a disabled location is never current. True when new.
  virtual bool IsEnabled() const = 0;

  // The display name; "<ID> Location" when new.
  virtual std::wstring GetName() const = 0;

  // Free text of the host's, kept and stored but not read by the library. Empty when new.
  virtual std::wstring GetNote() const = 0;

  // Adds one criterion. LCT_ZELT_REACHABLE ignores `value`. A text is normalised first: an IPv4-mapped IPv6 address
  // in full form (eight groups of four digits) becomes the dotted IPv4 address; all other text stays as given.
  // Returns LCR_OK, LCR_INVALID_KIND, or LCR_ALREADY_PRESENT (texts are compared exactly, after normalising).
  virtual std::uint32_t AddCriteria(const LOCATION_CRITERIA_TYPE* kind, const std::wstring& value) = 0;

  // Removes one criterion, normalised as in AddCriteria. Returns LCR_OK, LCR_INVALID_KIND or LCR_NOT_FOUND.
  virtual std::uint32_t RemoveCriteria(const LOCATION_CRITERIA_TYPE* kind, const std::wstring& value) = 0;

  // Removes every criterion. Always returns true.
  virtual bool ClearCriterias() = 0;

  virtual void SetEnabled(const bool* enabled) = 0;
  virtual void SetName(const std::wstring& name) = 0;
  virtual void SetNote(const std::wstring& note) = 0;

  // Sets the ID without any check of its form. IDs are compared exactly, letter case included.
  virtual void SetId(const std::wstring& id) = 0;

  // Replaces `indexes` with the interface indexes of the adapters that matched when the location was last found
  // current. They stay after the location has ceased to be current.
  virtual void GetAdapterIndexes(std::vector<std::uint32_t>& indexes) const = 0;

  // Replaces the matched interface indexes; the next calculation that finds the location current writes its own.
  virtual void SetAdapterIndexes(const std::vector<std::uint32_t>& indexes) = 0;

 protected:
  ~_IQeLocation() = default;
};

// An ordered collection of locations, a private copy of the host's.
struct _IEnumQeLocations : ILaSerializer {
  virtual std::uint64_t GetCount() const = 0;

  // A new copy of the location at `index`, or an empty pointer when `index` is not below GetCount().
  virtual std::shared_ptr<_IQeLocation> GetItem(std::uint64_t index) const = 0;

  // A new copy of the first location with this ID (compared exactly), or an empty pointer.
  virtual std::shared_ptr<_IQeLocation> FindLocation(const std::wstring& id) const = 0;

 protected:
  ~_IEnumQeLocations() = default;
};
