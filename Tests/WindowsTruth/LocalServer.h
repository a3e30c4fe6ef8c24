// A server of HTTP on this machine, for tests that must not leave it.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FwClient/Common/Utilities/ScopeGuards.h"

// Listens at a port of its own of 127.0.0.1 while it lives. Takes one connection after the other: reads a request up to
// its empty line, answers and closes.
class LocalServer {
 public:
  using Answer = std::function<std::string(const std::string& request)>;

  explicit LocalServer(Answer answer);
  ~LocalServer();
  LocalServer(const LocalServer&) = delete;
  LocalServer& operator=(const LocalServer&) = delete;

  unsigned short Port() const { return m_port; }
  // "127.0.0.1:<port>"
  std::wstring Authority() const { return L"127.0.0.1:" + std::to_wstring(m_port); }
  // So far.
  std::vector<std::string> Requests();

 private:
  void Serve();

  WinsockGuard m_winsock;
  Answer m_answer;
  SOCKET m_listener = INVALID_SOCKET;
  unsigned short m_port = 0;
  std::mutex m_mutex;
  std::vector<std::string> m_requests;
  bool m_ends = false;
  std::thread m_thread;
};
