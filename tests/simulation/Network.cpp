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

bool Network::Takes(uint16_t port) const { return Taker(port) != nullptr; }

std::shared_ptr<Connection> Network::Connect(uint16_t port, in_addr_t from) {
  const std::shared_ptr<Listening> at = Taker(port);
  if (at == nullptr) {
    return nullptr;
  }
  auto connection = std::make_shared<Connection>();
  connection->peerAddress = htonl(from);
  at->waiting.push_back(connection);
  return connection;
}

std::shared_ptr<Listening> Network::Listen(uint16_t port, size_t backlog) {
  std::weak_ptr<Listening>& place = listening[port];
  if (!place.expired()) {
    return nullptr;
  }
  auto made = std::make_shared<Listening>();
  made->port = port;
  made->backlog = backlog;
  place = made;
  return made;
}

void Finish(Connection& connection) { connection.service.hasEnded = true; }

void Reset(Connection& connection) {
  connection.service.isReset = true;
  connection.service.waiting.clear();
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
  Oracle& oracle = Machine::Running()->oracle;
  oracle.Listens();
  const Woken woken =
      Kernel::Running()->WaitCancellably([this] { return !listening->waiting.empty(); }, kForever);
  if (woken == Woken::kSignal) {
    return -EINTR;
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
Result Socket::Read(char* buffer, size_t capacity) {
  if (connection == nullptr) {
    return -ENOTCONN;
  }
  Kernel& kernel = *Kernel::Running();
  End& end = connection->service;
  Oracle& oracle = Machine::Running()->oracle;
  oracle.AsksForMore(*connection);
  const Woken woken = kernel.WaitCancellably(
      [&end] { return !end.waiting.empty() || end.hasEnded || end.isReset; }, kForever);
  if (woken == Woken::kSignal) {
    return -EINTR;
  }
  if (end.isReset || end.waiting.empty()) {
    oracle.SeesTheEnd(*connection);
    return end.isReset ? -ECONNRESET : 0;
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

Result Socket::Write(std::string_view bytes) {
  if (connection == nullptr) {
    return -EPIPE;
  }
  Kernel& kernel = *Kernel::Running();
  End& other = connection->peer;
  const auto isGone = [this, &other] { return connection->service.isReset || !other.isOpen; };
  size_t done = 0;
  while (done < bytes.size()) {
    const Woken woken = kernel.WaitCancellably(
        [&] { return isGone() || other.waiting.size() < other.room; }, kForever);
    if (isGone()) {
      return done > 0 ? static_cast<Result>(done) : -EPIPE;
    }
    if (woken == Woken::kSignal) {
      return done > 0 ? static_cast<Result>(done) : -EINTR;
    }
    const size_t count = std::min(other.room - other.waiting.size(), bytes.size() - done);
    other.waiting += bytes.substr(done, count);
    done += count;
    Machine::Running()->oracle.Sends(*connection, bytes.substr(done - count, count),
                                     done == bytes.size());
  }
  return static_cast<Result>(done);
}

}  // namespace simulation
