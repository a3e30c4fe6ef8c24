// A location of the host's own making: the library knows nothing of it but the interface.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaCriteria.h"
#include "FwClient/Service/QeLaLib/Include/QeLaLocation.h"

// It has no criteria set, and notes the order in which it is asked.
struct HostLocation final : _IQeLocation {
  bool SerializeToBytes(std::vector<std::uint8_t>&) const override { return false; }
  bool DeserializeFromBytes(const std::vector<std::uint8_t>&) override { return false; }
  std::shared_ptr<_IEnumQeLocationCriterias> GetCriterias() const override { return Noted('c', nullptr); }
  std::wstring GetId() const override { return Noted('i', onId ? onId() : L"host id"); }
  bool IsEnabled() const override { return Noted('e', false); }
  std::wstring GetName() const override { return Noted('n', L"host name"); }
  std::wstring GetNote() const override { return Noted('o', L"host note"); }
  std::uint32_t AddCriteria(const LOCATION_CRITERIA_TYPE*, const std::wstring&) override { return 1; }
  std::uint32_t RemoveCriteria(const LOCATION_CRITERIA_TYPE*, const std::wstring&) override { return 1; }
  bool ClearCriterias() override { return true; }
  void SetEnabled(const bool*) override {}
  void SetName(const std::wstring&) override {}
  void SetNote(const std::wstring&) override {}
  void SetId(const std::wstring&) override {}
  void GetAdapterIndexes(std::vector<std::uint32_t>& indexes) const override {
    indexes = Noted('a', std::vector<std::uint32_t>{1, 2});
  }
  void SetAdapterIndexes(const std::vector<std::uint32_t>&) override {}

  template <typename Value>
  Value Noted(char call, Value value) const {
    calls += call;
    return value;
  }

  std::function<std::wstring()> onId;  // gives another ID than the usual one
  mutable std::string calls;
};
