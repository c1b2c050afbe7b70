#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <string>

#include "common/FileDescriptor.h"

/// Somebody who visits the monitor's page, at "http://127.0.0.1:PORT/", and not as a browser does.
namespace nimbo::test {

/// A connection, or one that is being made.
inline FileDescriptor Connected(const std::string& address) {
  constexpr std::size_t PortAt = 17;
  FileDescriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in server = {};
  server.sin_family = AF_INET;
  server.sin_port = htons(static_cast<unsigned short>(std::stoi(address.substr(PortAt))));
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  connect(connection.Get(), reinterpret_cast<sockaddr*>(&server), sizeof server);
  return connection;
}

/// All that is answered to `request`, until the server ends the connection.
inline std::string Exchange(const std::string& address, const std::string& request) {
  constexpr int Patience = 60000;  // ms
  const FileDescriptor connection = Connected(address);
  pollfd ready = {connection.Get(), POLLOUT, 0};
  std::string answer;
  if (poll(&ready, 1, Patience) <= 0) return answer;
  send(connection.Get(), request.data(), request.size(), MSG_NOSIGNAL);
  ready.events = POLLIN;
  std::array<char, 4096> part{};
  while (poll(&ready, 1, Patience) > 0) {
    const ssize_t size = recv(connection.Get(), part.data(), part.size(), 0);
    if (size <= 0) break;
    answer.append(part.data(), static_cast<std::size_t>(size));
  }
  return answer;
}

}  // namespace nimbo::test
