// SPDX-License-Identifier: MIT
#include "relay/Client.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "relay/Socket.h"

namespace relay {

namespace {

constexpr size_t kReceiveSize = 65536;

// One Process call receives at most so many times, so that a flood leaves the caller time.
constexpr int kReceivesAtATime = 8;

template <typename Function, typename... Arguments>
void Tell(const Function& function, Arguments&&... arguments) {
  if (function) {
    // A copy: the function may replace itself, or stop the client.
    const Function copy = function;
    copy(std::forward<Arguments>(arguments)...);
  }
}

}  // namespace

Client::Client(ClientOptions clientOptions, Events clientEvents)
    : options(clientOptions), events(std::move(clientEvents)) {}

Client::~Client() { CloseSocket(); }

std::string Client::Address() const { return "127.0.0.1:" + std::to_string(options.port); }

void Client::Start() {
  failure.reset();
  triesInVain = 0;
  patienceEnd = Clock::now() + options.patience;
  state = State::kWaiting;
  retryAt = Clock::now();
  Connect();
}

void Client::Stop() {
  if (state == State::kConnected) {
    Flush();
  }
  CloseSocket();
  state = State::kOver;
  failure.reset();
}

void Client::CloseSocket() {
  if (socket != -1) {
    (void)close(std::exchange(socket, -1));
  }
  outgoing.Clear();
  cutter.Clear();
  isBehind = false;
  isBroken = false;
  heldFences.clear();
  questions.clear();
  for (auto& entry : kept) {
    entry.second = KeptPort{};
  }
}

void Client::Connect() {
  int error = 0;
  ++linkNumber;
  somethingCame = false;
  connectingSince = Clock::now();
  socket = link::Connect(options.port, error);
  if (socket == -1) {
    FailToConnect(error);
  } else if (error == 0) {
    BeConnected();
  } else {
    state = State::kConnecting;
  }
}

void Client::FinishConnecting() {
  if (const int error = link::ConnectResult(socket)) {
    FailToConnect(error);
  } else {
    BeConnected();
  }
}

void Client::FailToConnect(int error) {
  if (error == ECONNREFUSED || error == ECONNRESET) {
    Disconnect(Error(ErrorKind::kNotListening,
                     "nothing listens on " + Address() + ": is the service running?"),
               false);
  } else {
    Disconnect(
        Error(ErrorKind::kSystem,
              "cannot connect to " + Address() + ": " + std::generic_category().message(error),
              error),
        true);
  }
}

void Client::BeConnected() {
  state = State::kConnected;
  const uint64_t link = linkNumber;
  std::vector<Port> ports;  // a port that is added from within `connected` opens itself
  for (const auto& entry : kept) {
    ports.push_back(entry.first);
  }
  Tell(events.connected);
  for (const Port& port : ports) {
    if (state == State::kConnected && link == linkNumber) {
      OpenKept(port);
    }
  }
}

// Twice as long with each link in vain but the first: a service that listens anew is back soon.
Millis Client::NextPause() const {
  Millis pause = options.retryPause;
  for (unsigned i = 1; options.reconnect && i < triesInVain && pause < options.longestPause; ++i) {
    pause =
        pause > options.longestPause / 2 ? options.longestPause : std::max(2 * pause, Millis(1));
  }
  return pause;
}

// `isFirm`: a further try has no prospect while the caller does not ask for reconnecting.
void Client::Disconnect(const Error& reason, bool isFirm) {
  CloseSocket();
  const bool again = options.reconnect || (!isFirm && Clock::now() < patienceEnd);
  state = again ? State::kWaiting : State::kOver;
  triesInVain = somethingCame ? 0 : triesInVain + 1;
  const Retry retry = {reason, triesInVain, NextPause()};
  retryAt = Clock::now() + retry.pause;
  failure = reason;
  const uint64_t link = linkNumber;
  Tell(events.disconnected, reason);
  if (state == State::kWaiting && link == linkNumber) {
    Tell(events.retrying, retry);
  }
}

void Client::DoWhatIsDue() {
  const auto now = Clock::now();
  if (state == State::kWaiting && now >= retryAt) {
    Connect();
  }
  const bool isMute =
      options.replyTimeout.count() > 0 &&
      ((state == State::kConnecting && now >= connectingSince + options.replyTimeout) ||
       (!questions.empty() && now >= questions.front().since + options.replyTimeout));
  if (isMute) {
    Disconnect(
        Error(ErrorKind::kNoAnswer, "no answer from " + Address() + " within " +
                                        std::to_string(options.replyTimeout.count()) + " ms"),
        true);
    return;
  }
  std::vector<Port> ports;
  for (auto& entry : kept) {
    if (entry.second.retryAt && now >= *entry.second.retryAt) {
      entry.second.retryAt.reset();
      ports.push_back(entry.first);
    }
  }
  for (const Port& port : ports) {
    OpenKept(port);
  }
}

void Client::Process() {
  if (state == State::kConnecting) {
    pollfd ready{socket, POLLOUT, 0};
    if (poll(&ready, 1, 0) == 1) {
      FinishConnecting();
    }
  }
  if (state == State::kConnected) {
    Flush();
  }
  if (state == State::kConnected) {
    Receive();
  }
  DoWhatIsDue();
}

void Client::Send(std::string_view bytes) {
  if (state != State::kConnected) {
    return;
  }
  const bool isFirst = outgoing.IsEmpty();
  outgoing.Add(bytes);
  // What does not go out at once goes out from Process: errors are told there too, not from within
  // the caller's own call.
  if (isFirst) {
    const long sent = link::Send(socket, outgoing.View());
    outgoing.Take(sent > 0 ? static_cast<size_t>(sent) : 0);
  }
}

void Client::Flush() {
  while (!outgoing.IsEmpty()) {
    const long sent = link::Send(socket, outgoing.View());
    if (sent <= 0) {
      // Full, or broken: then the receiving side tells how.
      isBroken = errno != EAGAIN && errno != EINTR;
      return;
    }
    outgoing.Take(static_cast<size_t>(sent));
  }
}

void Client::Pause() {
  isPaused = true;
  isBehind = true;
}

bool Client::MayReceive() const { return !isPaused || !questions.empty() || isBroken; }

// Nothing is held up in the service any more, not even half a packet.
void Client::CatchUp() {
  isBehind = false;
  const std::vector<HeldFence> held = std::exchange(heldFences, {});
  for (const HeldFence& fence : held) {
    Fence(fence.port, fence.handler);
  }
}

void Client::Receive() {
  std::array<char, kReceiveSize> buffer;
  const uint64_t link = linkNumber;
  for (int i = 0;
       i < kReceivesAtATime && state == State::kConnected && link == linkNumber && MayReceive();
       ++i) {
    const long count = link::Receive(socket, buffer.data(), buffer.size());
    const int error = errno;
    if (count > 0) {
      somethingCame = true;
      cutter.Add(std::string_view(buffer.data(), static_cast<size_t>(count)));
      TakePackets();
    } else if (count < 0 && (error == EAGAIN || error == EINTR)) {
      if (!isPaused && cutter.Rest().empty()) {
        CatchUp();
      }
      return;
    } else if ((count < 0 || isBroken) && !somethingCame) {
      // The queue of a service that is about to listen anew, because its peer has just left.
      Disconnect(Error(ErrorKind::kNotListening, "the service at " + Address() +
                                                     " reset the link before it answered anything"),
                 false);
    } else {
      Disconnect(Error(ErrorKind::kLinkEnded, "the service at " + Address() + " ended the link"),
                 true);
    }
  }
}

}  // namespace relay
