// One configured location.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaLocation.h"
#include "FwClient/Service/QeLaLib/QeLocationCriterias.h"

// A value type.
class CQeLocation final : public _IQeLocation {
 public:
  static constexpr char kClassName[] = "class CQeLocation";

  // A fresh ID and the name "<ID> Location". When the system makes no UUID, a merely machine-local one included, the
  // ID stays empty and the name is " Location".
  CQeLocation();

  // One without ID and name, so that none is made for what is overwritten.
  static CQeLocation ToBeRead() noexcept { return CQeLocation(std::wstring(), std::wstring()); }

  bool SerializeToBytes(std::vector<std::uint8_t>& bytes) const override;
  bool DeserializeFromBytes(const std::vector<std::uint8_t>& bytes) override;
  std::shared_ptr<_IEnumQeLocationCriterias> GetCriterias() const override;
  std::wstring GetId() const override;
  bool IsEnabled() const override { return enabled; }
  std::wstring GetName() const override;
  std::wstring GetNote() const override;
  std::uint32_t AddCriteria(const LOCATION_CRITERIA_TYPE* kind, const std::wstring& value) override;
  std::uint32_t RemoveCriteria(const LOCATION_CRITERIA_TYPE* kind, const std::wstring& value) override;
  bool ClearCriterias() override;
  void SetEnabled(const bool* value) override;
  void SetName(const std::wstring& value) override;
  void SetNote(const std::wstring& value) override;
  void SetId(const std::wstring& value) override;
  void GetAdapterIndexes(std::vector<std::uint32_t>& indexes) const override;
  void SetAdapterIndexes(const std::vector<std::uint32_t>& indexes) override { adapterIndexes = indexes; }

  // Takes over everything of `source`, through its interface; its criteria are merged into the ones held here, which
  // are not cleared first. Returns whether every criterion could be added; false still leaves all the others.
  bool AssignFrom(const _IQeLocation& source);

  // The fields without a copy.
  const std::wstring& Id() const noexcept { return id; }
  const std::wstring& Name() const noexcept { return name; }
  const std::wstring& Note() const noexcept { return note; }
  const CQeLocationCriterias& Criterias() const noexcept { return criterias; }
  const std::vector<std::uint32_t>& AdapterIndexes() const noexcept { return adapterIndexes; }

  // Puts all criteria in place as they are.
  void SetCriterias(CQeLocationCriterias value) noexcept { criterias = std::move(value); }

  void Pack(LaPacker& packer) const;
  void Unpack(LaReader& reader);

 private:
  CQeLocation(std::wstring itsId, std::wstring itsName) noexcept : id(std::move(itsId)), name(std::move(itsName)) {}

  CQeLocationCriterias criterias;
  std::wstring id;
  std::wstring name;
  std::wstring note;
  bool enabled = true;
  std::vector<std::uint32_t> adapterIndexes;
};
