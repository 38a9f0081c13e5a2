// SPDX-License-Identifier: MIT
#include "simulation/Network.h"

#include <algorithm>
#include <utility>

#include "simulation/Machine.h"

namespace simulation {

// Null: nobody listens there, or there is no room in the queue.
std::shared_ptr<Listening> Network::Taker(uint16_t port) const {
  const auto found = listening.find(port);
  auto at = found == listening.end() ? nullptr : found->second.lock();
  return at != nullptr && at->waiting.size() <= at->backlog ? at : nullptr;
}

bool Network::IsListenedOn(uint16_t port) const {
  const auto found = listening.find(port);
  return found != listening.end() && !found->second.expired();
}

bool Network::IsConnected(uint16_t port) const {
  const auto found = connections.find(port);
  return found != connections.end() &&
         std::any_of(found->second.begin(), found->second.end(), [](const auto& weak) {
           const auto connection = weak.lock();
           return connection != nullptr && connection->service.isOpen;
         });
}

bool Network::Takes(uint16_t port) const { return Taker(port) != nullptr; }

std::shared_ptr<Connection> Network::Connect(uint16_t port, in_addr_t from) {
  const std::shared_ptr<Listening> at = Taker(port);
  if (at == nullptr) {
    return nullptr;
  }
  auto connection = std::make_shared<Connection>();
  connection->peerAddress = htonl(from);
  at->waiting.push_back(connection);
  auto& ofThisPort = connections[port];
  std::erase_if(ofThisPort, [](const auto& weak) { return weak.expired(); });
  ofThisPort.push_back(connection);
  return connection;
}

std::shared_ptr<Listening> Network::Listen(uint16_t port, size_t backlog) {
  if (IsListenedOn(port)) {
    return nullptr;
  }
  auto made = std::make_shared<Listening>();
  made->port = port;
  made->backlog = backlog;
  listening[port] = made;
  return made;
}

void Finish(Connection& connection) { connection.service.hasEnded = true; }

void Leave(Connection& connection) {
  connection.peer.isOpen = false;
  if (connection.peer.waiting.empty()) {
    Finish(connection);
  } else {
    Reset(connection);
  }
}

// What has come before can still be read.
void Reset(Connection& connection) {
  connection.service.isReset = true;
  connection.service.error = connection.service.hasEnded ? EPIPE : ECONNRESET;
  connection.peer.isOpen = false;
}

// What waits unread when an end goes is answered with a reset.
Socket::~Socket() {
  if (listening != nullptr) {
    for (const auto& waiting : listening->waiting) {
      waiting->peer.isReset = true;
    }
  }
  if (connection != nullptr) {
    connection->service.isOpen = false;
    connection->peer.hasEnded = true;
    connection->peer.isReset = connection->peer.isReset || !connection->service.waiting.empty();
  }
}

Result Socket::Bind(uint16_t wanted) {
  if (port != 0) {
    return -EINVAL;
  }
  if (network.IsListenedOn(wanted) || (!reuses && network.IsConnected(wanted))) {
    return -EADDRINUSE;
  }
  port = wanted;
  return 0;
}

Result Socket::StartListening(size_t backlog) {
  listening = network.Listen(port, backlog);
  return listening != nullptr ? 0 : -EADDRINUSE;
}

Result Socket::Accept(std::shared_ptr<File>& accepted, in_addr_t& from) {
  if (listening == nullptr) {
    return -EINVAL;
  }
  Witness& oracle = *Machine::Running()->oracle;
  oracle.Listens();
  const Woken woken =
      Kernel::Running()->WaitCancellably([this] { return !listening->waiting.empty(); }, kForever);
  if (woken == Woken::kSignal) {
    return -EINTR;
  }
  if (Machine::Running()->faults.Strike(Fault::kNoDescriptor)) {
    oracle.MayFail();
    return -ENFILE;
  }
  auto made = std::make_shared<Socket>(network);
  made->connection = listening->waiting.front();
  listening->waiting.pop_front();
  from = made->connection->peerAddress;
  oracle.Accepts(made->connection);
  accepted = std::move(made);
  return 0;
}

// TCP keeps the order and nothing else: what comes at once is any part of what waits.
Result Socket::Receive(char* buffer, size_t capacity, bool waits) {
  if (connection == nullptr) {
    return -ENOTCONN;
  }
  Kernel& kernel = *Kernel::Running();
  End& end = connection->service;
  const auto isOver = [&end] { return !end.waiting.empty() || end.hasEnded || end.isReset; };
  if (!waits && !isOver()) {
    return -EAGAIN;
  }
  Witness& oracle = *Machine::Running()->oracle;
  oracle.AsksForMore(*connection);
  if (kernel.WaitCancellably(isOver, kForever) == Woken::kSignal) {
    return -EINTR;
  }
  const bool timesOut = Machine::Running()->faults.Strike(Fault::kReceiveFails);
  if (end.waiting.empty() || timesOut) {
    oracle.SeesTheEnd(*connection);
    return timesOut ? -ETIMEDOUT : end.hasEnded ? 0 : -std::exchange(end.error, 0);
  }
  size_t count = std::min(capacity, end.waiting.size());
  if (count > 1 && kernel.Choice().OneIn(4)) {
    count = 1 + kernel.Choice().Draw(count);
  }
  std::copy_n(end.waiting.begin(), count, buffer);
  end.waiting.erase(0, count);
  oracle.Takes(*connection, {buffer, count});
  return static_cast<Result>(count);
}

bool Socket::HasRoom() const {
  const End& other = connection->peer;
  return !other.isOpen || other.waiting.size() < other.room;
}

// Who has left answers what comes with a reset.
size_t Socket::Put(std::string_view bytes) {
  End& other = connection->peer;
  if (!other.isOpen) {
    Reset(*connection);
    return bytes.size();
  }
  const size_t count = HasRoom() ? std::min(other.room - other.waiting.size(), bytes.size()) : 0;
  other.waiting += bytes.substr(0, count);
  return count;
}

Result Socket::Send(std::string_view bytes, bool waits) {
  if (connection == nullptr) {
    return -EPIPE;
  }
  End& end = connection->service;
  const auto canGoOn = [&] { return end.isReset || HasRoom(); };
  for (size_t done = 0;;) {
    if (end.isReset && done == 0) {
      const int error = std::exchange(end.error, 0);
      return error != 0 ? -error : -EPIPE;
    }
    if (end.isReset) {
      return static_cast<Result>(done);
    }
    const size_t count = Put(bytes.substr(done));
    done += count;
    Machine::Running()->oracle->Sends(*connection, bytes.substr(done - count, count),
                                      done == bytes.size());
    if (done == bytes.size()) {
      return static_cast<Result>(done);
    }
    if (!waits) {
      return done > 0 ? static_cast<Result>(done) : -EAGAIN;
    }
    if (Kernel::Running()->WaitCancellably(canGoOn, kForever) == Woken::kSignal) {
      return done > 0 ? static_cast<Result>(done) : -EINTR;
    }
  }
}

short Socket::Ready() {
  if (listening != nullptr) {
    return listening->waiting.empty() ? 0 : POLLIN;
  }
  if (connection == nullptr) {
    return POLLOUT | POLLHUP;
  }
  const End& end = connection->service;
  if (end.isReset) {
    return static_cast<short>(POLLIN | POLLOUT | POLLHUP | (end.error != 0 ? POLLERR : 0));
  }
  return static_cast<short>((end.waiting.empty() && !end.hasEnded ? 0 : POLLIN) |
                            (HasRoom() ? POLLOUT : 0));
}

}  // namespace simulation
