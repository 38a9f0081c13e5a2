// SPDX-License-Identifier: MIT
// What a poll loop asks a Client, and the one of its own.
#include <poll.h>

#include <algorithm>
#include <climits>
#include <string>

#include "relay/Client.h"

namespace relay {

namespace {

// Longer than anybody waits, and far from what a clock can count.
constexpr Millis kForever = std::chrono::hours(24 * 365 * 100);

}  // namespace

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

// Until there is something to do, at most to the deadline. Interrupted: then there may be
// something.
void Client::Wait(Clock::time_point deadline) const {
  const auto now = Clock::now();
  const auto left = std::chrono::ceil<Millis>(std::max(deadline, now) - now);
  const Millis wait =
      std::clamp(std::min(left, TimeUntilDue().value_or(left)), Millis(0), Millis(INT_MAX));
  pollfd ready{Descriptor(), PollEvents(), 0};
  (void)poll(&ready, 1, static_cast<int>(wait.count()));
}

bool Client::RunTo(Clock::time_point deadline, const std::function<bool()>& done) {
  for (bool isTime = false; !done || !done();) {
    if (isTime) {
      return false;
    }
    if (IsOver()) {
      throw failure ? *failure : Error(ErrorKind::kLinkEnded, "the link is not started");
    }
    isTime = Clock::now() >= deadline;
    Wait(deadline);
    Process();
  }
  return true;
}

bool Client::RunFor(Millis time, const std::function<bool()>& done) {
  return RunTo(Clock::now() + std::clamp(time, Millis(0), kForever), done);
}

void Client::RunUntil(const std::function<bool()>& done, std::optional<Millis> limit) {
  if (!RunFor(limit.value_or(kForever), done)) {
    throw Error(ErrorKind::kNoAnswer, "no answer from " + Address() + " within " +
                                          std::to_string(limit.value_or(kForever).count()) + " ms");
  }
}

}  // namespace relay
