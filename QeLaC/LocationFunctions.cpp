// The functions of a location.
#include <QeLaLocation.h>

#include "QeLaC/ServiceCalls.h"

namespace {

qela_status ResultOf(std::uint32_t criteriaResult) noexcept {
  switch (criteriaResult) {
    case LCR_OK:
      return QELA_STATUS_OK;
    case LCR_ALREADY_PRESENT:
      return QELA_STATUS_DUPLICATE;
    case LCR_NOT_FOUND:
      return QELA_STATUS_NOT_FOUND;
    default:
      return QELA_STATUS_INVALID_ARGUMENT;
  }
}

qela_status GetText(qela_location* handle, std::wstring (_IQeLocation::*get)() const, wchar_t* text,
                    std::uint32_t* length) noexcept {
  return WithObject(handle, [&](const _IQeLocation& location) { return CopyOut((location.*get)(), text, length); });
}

qela_status SetText(qela_location* handle, void (_IQeLocation::*set)(const std::wstring&),
                    const wchar_t* text) noexcept {
  return WithObject(handle, [&](_IQeLocation& location) {
    if (text == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    (location.*set)(text);
    return QELA_STATUS_OK;
  });
}

qela_status EditCriteria(qela_location* handle,
                         std::uint32_t (_IQeLocation::*edit)(const LOCATION_CRITERIA_TYPE*, const std::wstring&),
                         qela_criterion_kind kind, const wchar_t* text) noexcept {
  return WithObject(handle, [&](_IQeLocation& location) {
    if (text == nullptr && kind != QELA_CRITERION_ZELT_REACHABLE) return QELA_STATUS_INVALID_ARGUMENT;
    const auto type = static_cast<LOCATION_CRITERIA_TYPE>(kind);
    return ResultOf((location.*edit)(&type, text == nullptr ? L"" : text));
  });
}

}  // namespace

qela_status QELA_CALL qela_location_release(qela_location* location) { return Release(location); }

qela_status QELA_CALL qela_location_get_id(qela_location* location, wchar_t* text, uint32_t* length) {
  return GetText(location, &_IQeLocation::GetId, text, length);
}

qela_status QELA_CALL qela_location_set_id(qela_location* location, const wchar_t* id) {
  return SetText(location, &_IQeLocation::SetId, id);
}

qela_status QELA_CALL qela_location_get_name(qela_location* location, wchar_t* text, uint32_t* length) {
  return GetText(location, &_IQeLocation::GetName, text, length);
}

qela_status QELA_CALL qela_location_set_name(qela_location* location, const wchar_t* name) {
  return SetText(location, &_IQeLocation::SetName, name);
}

qela_status QELA_CALL qela_location_get_note(qela_location* location, wchar_t* text, uint32_t* length) {
  return GetText(location, &_IQeLocation::GetNote, text, length);
}

qela_status QELA_CALL qela_location_set_note(qela_location* location, const wchar_t* note) {
  return SetText(location, &_IQeLocation::SetNote, note);
}

qela_status QELA_CALL qela_location_is_enabled(qela_location* location, int32_t* enabled) {
  return WithObject(location, [&](const _IQeLocation& self) {
    if (enabled == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    *enabled = self.IsEnabled() ? 1 : 0;
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_location_set_enabled(qela_location* location, int32_t enabled) {
  return WithObject(location, [&](_IQeLocation& self) {
    const bool value = enabled != 0;
    self.SetEnabled(&value);
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_location_add_criterion(qela_location* location, qela_criterion_kind kind,
                                                  const wchar_t* text) {
  return EditCriteria(location, &_IQeLocation::AddCriteria, kind, text);
}

qela_status QELA_CALL qela_location_remove_criterion(qela_location* location, qela_criterion_kind kind,
                                                     const wchar_t* text) {
  return EditCriteria(location, &_IQeLocation::RemoveCriteria, kind, text);
}

qela_status QELA_CALL qela_location_clear_criteria(qela_location* location) {
  return WithObject(location, [](_IQeLocation& self) {
    self.ClearCriterias();
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_location_get_criteria(qela_location* location, qela_criteria** criteria) {
  if (criteria != nullptr) *criteria = nullptr;
  return WithObject(location, [&](const _IQeLocation& self) {
    if (criteria == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.GetCriterias(), criteria);
  });
}

qela_status QELA_CALL qela_location_get_adapters(qela_location* location, uint32_t* indexes, uint32_t* count) {
  return WithObject(location, [&](const _IQeLocation& self) {
    std::vector<std::uint32_t> list;
    self.GetAdapterIndexes(list);
    return CopyOut(list, indexes, count);
  });
}

qela_status QELA_CALL qela_location_set_adapters(qela_location* location, const uint32_t* indexes, uint32_t count) {
  return WithObject(location, [&](_IQeLocation& self) {
    if (indexes == nullptr && count != 0) return QELA_STATUS_INVALID_ARGUMENT;
    self.SetAdapterIndexes({indexes, indexes + count});
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_location_to_bytes(qela_location* location, void* bytes, uint32_t* length) {
  return WithObject(location, [&](const _IQeLocation& self) { return ToBytes(self, bytes, length); });
}

qela_status QELA_CALL qela_location_from_bytes(qela_location* location, const void* bytes, uint32_t length) {
  return WithObject(location, [&](_IQeLocation& self) { return FromBytes(self, bytes, length); });
}
