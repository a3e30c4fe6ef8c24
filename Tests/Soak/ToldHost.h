// A host that is told of the network where the machine is, and knows where it was.
#pragma once

#include <windows.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"
#include "ScriptedWindows/ImportTable/PlainLock.h"
#include "Tests/Soak/SoakRun.h"

// The service has one location for each network. What the host is told must be the networks where the machine was, in
// order: some may be left out where it moved on at once, but never the last.
class ToldHost : public OnlyOne<ToldHost> {
 public:
  ToldHost(SoakRun& run, _IQeLaApiSmart& service);
  ~ToldHost() { ::CloseHandle(m_isTold); }

  static void Told(std::shared_ptr<_IEnumQeLocations> current);

  // The machine is about to move to the network that is the answer: one where it was not in the 20 moves before, so
  // that whatever the host is told has one meaning.
  unsigned MovesOn(unsigned random);
  // It is there already, and the host was not told.
  void IsAt(unsigned network);
  // Waits until the host was told of the network where the machine now is, and sees that it is the current one.
  void ExpectTold();

  // Called inside the next callback, once.
  void OnTold(std::function<void()> act);

 private:
  SoakRun& m_run;
  _IQeLaApiSmart& m_service;
  PlainLock m_lock;
  std::vector<unsigned> m_path;  // the networks since the host was last seen to be right
  std::ptrdiff_t m_toldOf = 0;   // the place in it of the one that it was last told of
  std::function<void()> m_onTold;
  HANDLE m_isTold = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
};
