// SPDX-License-Identifier: MIT
#pragma once

#include <netinet/in.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulation/Files.h"

namespace simulation {

// One end of a connection: what came for it and was not read yet.
struct End {
  std::string waiting;
  size_t room = 65536;
  bool hasEnded = false;  // the other end sends nothing more
  bool isReset = false;
  int error = 0;       // of a reset, told to the next call alone
  bool isOpen = true;  // somebody holds this end
};

struct Connection {
  End service;
  End peer;
  in_addr_t peerAddress = 0;
};

// Where a connect arrives. Held by the service's listening socket.
struct Listening {
  uint16_t port = 0;
  size_t backlog = 1;
  std::deque<std::shared_ptr<Connection>> waiting;
};

// The loopback network: the one service and its peers.
class Network {
 public:
  // The peer's side: whether somebody listens there and has room, and a connection, or null.
  bool Takes(uint16_t port) const;
  std::shared_ptr<Connection> Connect(uint16_t port, in_addr_t from = INADDR_LOOPBACK);

  bool IsListenedOn(uint16_t port) const;
  // Whether a connection that came to this port is left.
  bool IsConnected(uint16_t port) const;
  // Null when somebody listens there already.
  std::shared_ptr<Listening> Listen(uint16_t port, size_t backlog);

 private:
  std::shared_ptr<Listening> Taker(uint16_t port) const;

  std::map<uint16_t, std::weak_ptr<Listening>> listening;
  std::map<uint16_t, std::vector<std::weak_ptr<Connection>>> connections;
};

// The peer's ways to end a connection.
void Finish(Connection& connection);
void Leave(Connection& connection);
void Reset(Connection& connection);

// The service's socket: fresh, listening or connected.
class Socket : public File {
 public:
  explicit Socket(Network& machine) : network(machine) {}
  ~Socket() override;

  void AllowReuse() { reuses = true; }
  Result Bind(uint16_t wanted);
  Result StartListening(size_t backlog);
  Result Accept(std::shared_ptr<File>& accepted, in_addr_t& from);
  Result Read(char* buffer, size_t capacity) override { return Receive(buffer, capacity, blocks); }
  Result Receive(char* buffer, size_t capacity, bool waits);
  Result Write(std::string_view bytes) override { return Send(bytes, blocks); }
  Result Send(std::string_view bytes, bool waits);
  short Ready() override;
  struct stat Status() const override {
    return StatusOf(S_IFSOCK);
  }

 private:
  bool HasRoom() const;
  size_t Put(std::string_view bytes);

  Network& network;
  bool reuses = false;
  uint16_t port = 0;  // 0: not bound
  std::shared_ptr<Listening> listening;
  std::shared_ptr<Connection> connection;
};

}  // namespace simulation
