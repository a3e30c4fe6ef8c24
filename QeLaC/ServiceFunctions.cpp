// The functions of a service.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "QeLaC/ServiceCalls.h"

namespace {

constexpr std::uint32_t kFlags = QELA_OPEN_AUTO_SAVE | QELA_OPEN_NO_RELOAD;

// From the start of an open on: a process has one service at a time.
std::atomic<bool> g_open = false;

// The library's lock, thread and instance reach into this DLL for as long as the process lives.
bool StayLoaded() noexcept {
  HMODULE module = nullptr;
  return ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                              reinterpret_cast<const wchar_t*>(&qela_open), &module) != FALSE;
}

qela_status Open(const qela_options& options, qela_service** handle) {
  if (!StayLoaded()) return QELA_STATUS_SYSTEM_ERROR;
  auto* const hostLock = static_cast<CRITICAL_SECTION*>(options.critical_section);
  StoredValue stored;
  Library* library = Library::Get();
  if (library == nullptr) {
    stored = ReadStoredValue();
    library = Library::Make(hostLock);
    if (library == nullptr) return QELA_STATUS_ALREADY_OPEN;
    *handle = AddHandle<qela_service>(std::make_shared<Service>(*library, options, std::move(stored)));
    return QELA_STATUS_OK;
  }
  if (!library->WasMadeWith(hostLock)) return QELA_STATUS_INVALID_ARGUMENT;
  const auto service = std::make_shared<Service>(*library, options, std::move(stored));
  const ServiceLockGuard lock(service->Lock(), service->Lock().Enter(service->CallTimeoutMs()));
  if (!lock.Entered()) return QELA_STATUS_BUSY;
  // The instance still has the set of the service before. What that did not save is lost.
  if (service->Load() == QELA_STATUS_NOT_FOUND) {
    service->Api().RemoveAllLocations();
    service->Api().Load();  // calculates
  }
  *handle = AddHandle<qela_service>(service);
  return QELA_STATUS_OK;
}

qela_status ResultOf(std::uint32_t storeResult) noexcept {
  switch (storeResult) {
    case LSR_OK:
      return QELA_STATUS_OK;
    case LSR_DUPLICATE_ID:
      return QELA_STATUS_DUPLICATE;
    case LSR_NOT_FOUND:
      return QELA_STATUS_NOT_FOUND;
    default:
      return QELA_STATUS_BAD_DATA;
  }
}

// An edit that takes a location.
template <typename Edit>
qela_status WithLocation(qela_service* handle, qela_location* locationHandle, Edit edit) noexcept {
  return WithLockedService(handle, [&](Service& service) {
    const std::shared_ptr<_IQeLocation> location = FindHandle(locationHandle);
    if (location == nullptr) return QELA_STATUS_INVALID_HANDLE;
    const qela_status status = edit(service.Api(), location);
    return status == QELA_STATUS_OK ? service.Edited() : status;
  });
}

}  // namespace

qela_status QELA_CALL qela_open(const qela_options* options, qela_service** service) {
  return Guarded([&] {
    if (service != nullptr) *service = nullptr;
    if (AnyNull(options, service)) return QELA_STATUS_INVALID_ARGUMENT;
    if (options->size != sizeof(qela_options)) return QELA_STATUS_INVALID_SIZE;
    if ((options->flags & ~kFlags) != 0) return QELA_STATUS_INVALID_ARGUMENT;
    if (g_open.exchange(true)) return QELA_STATUS_ALREADY_OPEN;
    qela_status status = QELA_STATUS_OUT_OF_MEMORY;
    try {
      status = Open(*options, service);
    } catch (const std::bad_alloc&) {
    }
    if (status != QELA_STATUS_OK) g_open = false;
    return status;
  });
}

qela_status QELA_CALL qela_retain(qela_service* service) {
  return WithService(service, [](Service& self) {
    self.Retain();
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_close(qela_service* service) {
  return WithService(service, [&](Service& self) {
    bool last = false;
    const qela_status status = self.Close(last);
    if (!last) return status;
    // Of two threads that both close the last owner, one finds the handle gone.
    if (RemoveHandle(service) == nullptr) return QELA_STATUS_INVALID_HANDLE;
    g_open = false;
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_start(qela_service* service, qela_change_callback callback, void* context) {
  return WithService(service, [&](Service& self) {
    return callback == nullptr ? QELA_STATUS_INVALID_ARGUMENT : self.Start(callback, context);
  });
}

qela_status QELA_CALL qela_stop(qela_service* service) {
  return WithService(service, [](Service& self) { return self.Stop(); });
}

qela_status QELA_CALL qela_load(qela_service* service) {
  return WithLockedService(service, [](Service& self) { return self.Load(); });
}

qela_status QELA_CALL qela_save(qela_service* service) {
  return WithLockedService(service, [](Service& self) { return self.Save(); });
}

qela_status QELA_CALL qela_lock(qela_service* service) {
  return WithService(service, [](Service& self) {
    return self.Lock().EnterForHost(self.CallTimeoutMs()) ? QELA_STATUS_OK : QELA_STATUS_BUSY;
  });
}

qela_status QELA_CALL qela_unlock(qela_service* service) {
  return WithService(
      service, [](Service& self) { return self.Lock().LeaveForHost() ? QELA_STATUS_OK : QELA_STATUS_NOT_LOCKED; });
}

qela_status QELA_CALL qela_add_location(qela_service* service, qela_location* location) {
  return WithLocation(service, location, [](_IQeLaApiSmart& api, const std::shared_ptr<_IQeLocation>& one) {
    return ResultOf(api.AddLocation(one));
  });
}

qela_status QELA_CALL qela_update_location(qela_service* service, qela_location* location) {
  return WithLocation(service, location, [](_IQeLaApiSmart& api, const std::shared_ptr<_IQeLocation>& one) {
    // The library answers an unknown ID as it answers a location that cannot be copied.
    if (api.GetLocation(one->GetId()) == nullptr) return QELA_STATUS_NOT_FOUND;
    return ResultOf(api.UpdateLocation(one));
  });
}

qela_status QELA_CALL qela_remove_location(qela_service* service, const wchar_t* id) {
  return WithLockedService(service, [&](Service& self) {
    if (id == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    const qela_status status = ResultOf(self.Api().RemoveLocation(id));
    return status == QELA_STATUS_OK ? self.Edited() : status;
  });
}

qela_status QELA_CALL qela_remove_all_locations(qela_service* service) {
  return WithLockedService(service, [](Service& self) {
    self.Api().RemoveAllLocations();
    return self.Edited();
  });
}

qela_status QELA_CALL qela_get_location(qela_service* service, const wchar_t* id, qela_location** location) {
  if (location != nullptr) *location = nullptr;
  return WithLockedService(service, [&](Service& self) {
    if (AnyNull(id, location)) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.Api().GetLocation(id), location);
  });
}

qela_status QELA_CALL qela_get_locations(qela_service* service, qela_locations** locations) {
  if (locations != nullptr) *locations = nullptr;
  return WithLockedService(service, [&](Service& self) {
    if (locations == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.Api().GetLocations(), locations);
  });
}

qela_status QELA_CALL qela_get_current_locations(qela_service* service, qela_locations** locations) {
  if (locations != nullptr) *locations = nullptr;
  return WithLockedService(service, [&](Service& self) {
    if (locations == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.Api().GetCurrentLocations(), locations);
  });
}

qela_status QELA_CALL qela_create_location(qela_service* service, qela_location** location) {
  if (location != nullptr) *location = nullptr;
  return WithService(service, [&](Service& self) {
    if (location == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.Api().CreateLocation(), location);
  });
}

qela_status QELA_CALL qela_create_locations(qela_service* service, qela_locations** locations) {
  if (locations != nullptr) *locations = nullptr;
  return WithService(service, [&](Service& self) {
    if (locations == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.Api().CreateLocations(), locations);
  });
}
