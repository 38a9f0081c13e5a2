// SPDX-License-Identifier: MIT
#include "check/AckMeter.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>

namespace {

constexpr relay::Millis kBetweenLooks{1};

// One that is acknowledged so soon has not waited for a delayed acknowledgement, which takes 40 ms.
constexpr relay::Millis kAtOnce{10};

// A peer that acknowledges nothing is no measure.
constexpr relay::Millis kLongestRound{1000};

void SetNagle(int socket, bool isOn) {
  const int atOnce = isOn ? 0 : 1;
  (void)setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
}

}  // namespace

void AckMeter::Start(int connection, const std::string& packet) {
  socket = connection;
  bytes = packet;
  round = 1;
  SetNagle(socket, true);
  BeginRound();
}

void AckMeter::BeginRound() {
  isSecondOut = false;
  began = relay::Clock::now();
  (void)send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  (void)send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::optional<relay::Clock::time_point> AckMeter::Due() const {
  return IsBusy() ? std::optional(nextLook) : std::nullopt;
}

int AckMeter::Waiting(unsigned long request) const {
  int count = 0;
  return ioctl(socket, request, &count) == 0 ? count : -1;
}

// The next round begins when all of this one has been acknowledged.
void AckMeter::Work() {
  if (!IsBusy()) {
    return;
  }
  nextLook = relay::Clock::now() + kBetweenLooks;
  const relay::Clock::duration passed = relay::Clock::now() - began;
  if (!isSecondOut && Waiting(SIOCOUTQNSD) == 0) {
    isSecondOut = true;
    waits.push_back(passed);
  }
  if (passed > kLongestRound || Waiting(SIOCOUTQ) < 0) {
    waits.clear();
    round = kRounds + 1;
  } else if (isSecondOut && Waiting(SIOCOUTQ) == 0) {
    const bool isKnown = waits.size() > kNotCounted && waits.back() < kAtOnce;
    round = isKnown ? kRounds + 1 : round + 1;
    if (IsBusy()) {
      BeginRound();
    } else {
      SetNagle(socket, false);
    }
  }
}

std::optional<relay::Clock::duration> AckMeter::Wait() const {
  if (round <= kRounds || waits.size() <= kNotCounted) {
    return std::nullopt;
  }
  return *std::min_element(waits.begin() + std::ptrdiff_t{kNotCounted}, waits.end());
}
