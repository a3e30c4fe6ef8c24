#include "Tests/WindowsTruth/LocalServer.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

sockaddr_in Loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  address.sin_port = ::htons(port);
  return address;
}

class Socket {
 public:
  explicit Socket(SOCKET socket) : m_socket(socket) {}
  ~Socket() { ::closesocket(m_socket); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  SOCKET Get() const { return m_socket; }

 private:
  SOCKET m_socket;
};

std::string Read(SOCKET connection) {
  const DWORD limitMs = 10'000;
  ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limitMs), sizeof limitMs);
  std::string request;
  char buffer[4096];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const int count = ::recv(connection, buffer, sizeof buffer, 0);
    if (count <= 0) break;
    request.append(buffer, static_cast<std::size_t>(count));
  }
  return request;
}

}  // namespace

LocalServer::LocalServer(Answer answer) : m_answer(std::move(answer)) {
  m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(0);
  int length = sizeof address;
  EXPECT_EQ(::bind(m_listener, reinterpret_cast<const sockaddr*>(&address), length), 0);
  EXPECT_EQ(::listen(m_listener, SOMAXCONN), 0);
  EXPECT_EQ(::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
  m_port = ::ntohs(address.sin_port);
  m_thread = std::thread([this] { Serve(); });
}

// A last connection wakes the thread.
LocalServer::~LocalServer() {
  {
    const std::lock_guard lock(m_mutex);
    m_ends = true;
  }
  {
    const Socket last(::socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in address = Loopback(m_port);
    EXPECT_EQ(::connect(last.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  m_thread.join();
  ::closesocket(m_listener);
}

std::vector<std::string> LocalServer::Requests() {
  const std::lock_guard lock(m_mutex);
  return m_requests;
}

void LocalServer::Serve() {
  for (;;) {
    const Socket connection(::accept(m_listener, nullptr, nullptr));
    if (connection.Get() == INVALID_SOCKET) return;
    const std::string request = Read(connection.Get());
    {
      const std::lock_guard lock(m_mutex);
      if (m_ends) return;
      m_requests.push_back(request);
    }
    const std::string answer = m_answer(request);
    ::send(connection.Get(), answer.data(), static_cast<int>(answer.size()), 0);
    ::shutdown(connection.Get(), SD_SEND);
    // Until the other side has closed, so that the answer is not lost with the connection.
    char rest[256];
    while (::recv(connection.Get(), rest, sizeof rest, 0) > 0) {
    }
  }
}
