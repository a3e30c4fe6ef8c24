// What a qela_service stands for: the library's instance with the host's options.
#pragma once

#include <qela.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "FwClient/Common/Utilities/HostCallback.h"
#include "QeLaC/Library.h"
#include "QeLaC/StoredValue.h"

class Service : public std::enable_shared_from_this<Service> {
 public:
  // The options are known to be good. `seen` is the stored value as it was before the set was read.
  Service(Library& library, const qela_options& options, StoredValue seen);

  _IQeLaApiSmart& Api() noexcept { return m_library.Api(); }
  ServiceLock& Lock() noexcept { return m_library.Lock(); }
  DWORD CallTimeoutMs() const noexcept { return m_callTimeoutMs; }

  void Retain() noexcept;
  // Ends the last owner's service; `last` tells that the handle goes.
  qela_status Close(bool& last);

  qela_status Start(qela_change_callback callback, void* context);
  qela_status Stop();

  // For these three the caller holds the lock.
  qela_status Load();
  qela_status Save();
  // After an edit: saves where the service does so by itself.
  qela_status Edited();

 private:
  struct Run;
  class Worker;

  qela_status StartRun();
  void EndRun(const std::shared_ptr<Run>& run);
  void TellWorker() noexcept;
  // The caller holds the lock. False when the stored value cannot be read now, so that it is to be looked at again.
  bool ReloadIfChangedByOthers();
  bool IsStored(const StoredValue& value);

  static void LocationsChanged(std::shared_ptr<_IEnumQeLocations> current);
  static DWORD WINAPI WorkerThread(void* argument);

  Library& m_library;
  const DWORD m_callTimeoutMs;
  const DWORD m_quietMs;
  const bool m_autoSave;
  const bool m_reload;

  // Inside the service's lock.
  StoredValue m_seen;  // that the set was last read from or written to; nothing where that is not known
  bool m_hasUnsavedEdits = false;

  HostCallback<qela_change_callback> m_change;

  CriticalSection m_control;  // for what follows; nobody waits for a callback or for m_lock inside it
  unsigned m_owners = 1;
  std::shared_ptr<Run> m_run;  // null when discovery is stopped
};
