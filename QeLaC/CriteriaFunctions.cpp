// The functions of a criteria set.
#include <QeLaCriteria.h>

#include "QeLaC/ServiceCalls.h"

qela_status QELA_CALL qela_criteria_release(qela_criteria* criteria) { return Release(criteria); }

qela_status QELA_CALL qela_criteria_count(qela_criteria* criteria, uint32_t* count) {
  return WithObject(criteria, [&](const _IEnumQeLocationCriterias& self) {
    if (count == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    *count = static_cast<std::uint32_t>(self.GetCount());
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_criteria_at(qela_criteria* criteria, uint32_t index, qela_criterion_kind* kind,
                                       wchar_t* text, uint32_t* length) {
  return WithObject(criteria, [&](const _IEnumQeLocationCriterias& self) {
    if (AnyNull(kind, length)) return QELA_STATUS_INVALID_ARGUMENT;
    LOCATION_CRITERIA_TYPE type{};
    std::wstring value;
    if (!self.GetAt(index, type, value)) return QELA_STATUS_NOT_FOUND;
    *kind = static_cast<qela_criterion_kind>(type);
    return CopyOut(value, text, length);
  });
}

qela_status QELA_CALL qela_criteria_text(qela_criteria* criteria, qela_criterion_kind kind, uint32_t index,
                                         wchar_t* text, uint32_t* length) {
  return WithObject(criteria, [&](const _IEnumQeLocationCriterias& self) {
    std::vector<std::wstring> values;
    if (!self.GetStringCriteria(static_cast<LOCATION_CRITERIA_TYPE>(kind), values)) return QELA_STATUS_INVALID_ARGUMENT;
    return index < values.size() ? CopyOut(values[index], text, length) : QELA_STATUS_NOT_FOUND;
  });
}

qela_status QELA_CALL qela_criteria_flag(qela_criteria* criteria, qela_criterion_kind kind, int32_t* set) {
  return WithObject(criteria, [&](const _IEnumQeLocationCriterias& self) {
    bool value = false;
    if (set == nullptr || !self.GetBoolCriteria(static_cast<LOCATION_CRITERIA_TYPE>(kind), value))
      return QELA_STATUS_INVALID_ARGUMENT;
    *set = value ? 1 : 0;
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_criteria_to_bytes(qela_criteria* criteria, void* bytes, uint32_t* length) {
  return WithObject(criteria, [&](const _IEnumQeLocationCriterias& self) { return ToBytes(self, bytes, length); });
}

qela_status QELA_CALL qela_criteria_from_bytes(qela_criteria* criteria, const void* bytes, uint32_t length) {
  return WithObject(criteria, [&](_IEnumQeLocationCriterias& self) { return FromBytes(self, bytes, length); });
}
