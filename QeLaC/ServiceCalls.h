// How the functions of a service reach it.
#pragma once

#include "QeLaC/Call.h"
#include "QeLaC/Handles.h"
#include "QeLaC/Service.h"

template <typename Body>
qela_status WithService(qela_service* handle, Body body) noexcept {
  return Guarded([&] {
    const std::shared_ptr<Service> service = FindHandle(handle);
    return service == nullptr ? QELA_STATUS_INVALID_HANDLE : body(*service);
  });
}

// The body runs with the service's lock held.
template <typename Body>
qela_status WithLockedService(qela_service* handle, Body body) noexcept {
  return WithService(handle, [&](Service& service) {
    const ServiceLockGuard lock(service.Lock(), service.Lock().Enter(service.CallTimeoutMs()));
    return lock.Entered() ? body(service) : QELA_STATUS_BUSY;
  });
}

// For locations, criteria sets and collections.
template <typename Handle, typename Body>
qela_status WithObject(Handle* handle, Body body) noexcept {
  return Guarded([&] {
    const auto object = FindHandle(handle);
    return object == nullptr ? QELA_STATUS_INVALID_HANDLE : body(*object);
  });
}

// Gives the object to the host.
template <typename Handle, typename Object>
qela_status HandOut(std::shared_ptr<Object> object, Handle** handle) {
  if (object == nullptr) return QELA_STATUS_NOT_FOUND;
  *handle = AddHandle<Handle>(std::move(object));
  return QELA_STATUS_OK;
}

template <typename Handle>
qela_status Release(Handle* handle) noexcept {
  return Guarded([&] { return RemoveHandle(handle) == nullptr ? QELA_STATUS_INVALID_HANDLE : QELA_STATUS_OK; });
}
