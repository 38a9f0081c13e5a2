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

std::string Address(uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

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

void Client::Start() {
  failure.reset();
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
    const bool refused = error == ECONNREFUSED;
    Disconnect(refused
                   ? Error(ErrorKind::kNotListening, "nothing listens on " + Address(options.port) +
                                                         ": is the service running?")
                   : Error(ErrorKind::kSystem,
                           "cannot connect to " + Address(options.port) + ": " +
                               std::generic_category().message(error),
                           error),
               !refused);
  } else if (error == 0) {
    BeConnected();
  } else {
    state = State::kConnecting;
  }
}

void Client::FinishConnecting() {
  const int error = link::ConnectResult(socket);
  if (error == 0) {
    BeConnected();
    return;
  }
  const bool refused = error == ECONNREFUSED || error == ECONNRESET;
  Disconnect(
      Error(refused ? ErrorKind::kNotListening : ErrorKind::kSystem,
            refused ? "nothing listens on " + Address(options.port) + ": is the service running?"
                    : "cannot connect to " + Address(options.port) + ": " +
                          std::generic_category().message(error),
            error),
      !refused);
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

// `isFirm`: a further try has no prospect while the caller does not ask for reconnecting.
void Client::Disconnect(const Error& reason, bool isFirm) {
  CloseSocket();
  const bool again = options.reconnect || (!isFirm && Clock::now() < patienceEnd);
  state = again ? State::kWaiting : State::kOver;
  retryAt = Clock::now() + options.retryPause;
  failure = reason;
  Tell(events.disconnected, reason);
}

short Client::PollEvents() const {
  if (state == State::kConnecting) {
    return POLLOUT;
  }
  return static_cast<short>((MayReceive() ? POLLIN : 0) | (outgoing.IsEmpty() ? 0 : POLLOUT));
}

std::optional<Clock::time_point> Client::NextDue() const {
  std::optional<Clock::time_point> due;
  const auto add = [&due](Clock::time_point when) { due = due ? std::min(*due, when) : when; };
  if (state == State::kWaiting) {
    add(retryAt);
  }
  if (options.replyTimeout.count() > 0) {
    if (state == State::kConnecting) {
      add(connectingSince + options.replyTimeout);
    }
    if (!questions.empty()) {
      add(questions.front().since + options.replyTimeout);
    }
  }
  for (const auto& entry : kept) {
    if (entry.second.retryAt) {
      add(*entry.second.retryAt);
    }
  }
  return due;
}

std::optional<Millis> Client::TimeUntilDue() const {
  const auto due = NextDue();
  if (!due) {
    return std::nullopt;
  }
  const auto left = std::chrono::ceil<Millis>(*due - Clock::now());
  return std::max(left, Millis(0));
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
        Error(ErrorKind::kNoAnswer, "no answer from " + Address(options.port) + " within " +
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

void Client::RunUntil(const std::function<bool()>& done, std::optional<Millis> limit) {
  const auto begin = Clock::now();
  while (!done()) {
    if (IsOver()) {
      throw failure ? *failure : Error(ErrorKind::kLinkEnded, "the link is not started");
    }
    std::optional<Millis> wait = TimeUntilDue();
    if (limit) {
      const auto left = std::chrono::ceil<Millis>(begin + *limit - Clock::now());
      if (left.count() <= 0) {
        throw Error(ErrorKind::kNoAnswer, "no answer from " + Address(options.port) + " within " +
                                              std::to_string(limit->count()) + " ms");
      }
      wait = wait ? std::min(*wait, left) : left;
    }
    pollfd ready{Descriptor(), PollEvents(), 0};
    (void)poll(&ready, 1, wait ? static_cast<int>(wait->count()) : -1);
    Process();
  }
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
      Disconnect(Error(ErrorKind::kNotListening, "the service at " + Address(options.port) +
                                                     " reset the link before it answered anything"),
                 false);
    } else {
      Disconnect(Error(ErrorKind::kLinkEnded,
                       "the service at " + Address(options.port) + " ended the link"),
                 true);
    }
  }
}

}  // namespace relay
