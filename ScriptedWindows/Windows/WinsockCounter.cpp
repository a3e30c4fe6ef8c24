#include "ScriptedWindows/Windows/WinsockCounter.h"

WinsockCounter::WinsockCounter(HMODULE module)
    : m_startup(module, "WSAStartup", &Startup), m_cleanup(module, "WSACleanup", &Cleanup) {}

WinsockCounter::~WinsockCounter() {
  Require(m_startups == m_cleanups, "a start-up of Winsock was not followed by a clean-up");
}

void WinsockCounter::FailWith(int result, int lastError) {
  m_result = result;
  m_lastError = lastError;
}

int WSAAPI WinsockCounter::Startup(WORD version, WSADATA* data) {
  Require(version == 0x0202);
  if (Current().m_result != 0) {
    ::WSASetLastError(Current().m_lastError);
    return Current().m_result;
  }
  ++Current().m_startups;
  return Current().m_startup.Original<int WSAAPI(WORD, WSADATA*)>()(version, data);
}

int WSAAPI WinsockCounter::Cleanup() {
  ++Current().m_cleanups;
  return Current().m_cleanup.Original<int WSAAPI()>()();
}
