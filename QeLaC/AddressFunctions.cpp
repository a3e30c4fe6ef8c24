// The questions about addresses and adapters.
#include <algorithm>
#include <limits>

#include "QeLaC/ServiceCalls.h"

qela_status QELA_CALL qela_match_addresses(qela_service* service, const wchar_t* const* addresses, uint32_t count,
                                           qela_address_kind kind, const wchar_t* first, const wchar_t* second,
                                           int32_t* matches) {
  return WithService(service, [&](Service& self) {
    if (AnyNull(first, second, matches) || (addresses == nullptr && count != 0)) return QELA_STATUS_INVALID_ARGUMENT;
    const wchar_t* const* const end = addresses + count;
    if (std::find(addresses, end, nullptr) != end) return QELA_STATUS_INVALID_ARGUMENT;
    const std::uint32_t number = kind;
    *matches = self.Api().MatchAddressSpecification({addresses, end}, &number, first, second) ? 1 : 0;
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_match_adapter_addresses(qela_service* service, qela_address_kind kind, const wchar_t* first,
                                                   const wchar_t* second, int32_t* matches) {
  return WithLockedService(service, [&](Service& self) {
    if (AnyNull(first, second, matches)) return QELA_STATUS_INVALID_ARGUMENT;
    const std::uint32_t number = kind;
    *matches = self.Api().MatchAdapterAddresses(&number, first, second) ? 1 : 0;
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_is_adapter_media_type(qela_service* service, uint32_t mask, const uint32_t* if_indexes,
                                                 uint32_t count, int32_t* matches) {
  return WithLockedService(service, [&](Service& self) {
    if (matches == nullptr || (if_indexes == nullptr && count != 0)) return QELA_STATUS_INVALID_ARGUMENT;
    if (mask > std::numeric_limits<std::uint8_t>::max()) return QELA_STATUS_INVALID_ARGUMENT;
    const std::vector<std::uint32_t> indexes(if_indexes, if_indexes + count);
    *matches = self.Api().IsAdapterMediaType(static_cast<std::uint8_t>(mask), indexes) ? 1 : 0;
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_get_mac_address(qela_service* service, uint32_t index, wchar_t* text, uint32_t* length) {
  return WithLockedService(service, [&](Service& self) {
    const std::vector<std::wstring> addresses = self.Api().GetMacAddresses();
    return index < addresses.size() ? CopyOut(addresses[index], text, length) : QELA_STATUS_NOT_FOUND;
  });
}
