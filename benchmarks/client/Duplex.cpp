// SPDX-License-Identifier: MIT
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "client/Measures.h"

namespace {

constexpr size_t kMessageBytes = 64;
constexpr auto kPace = std::chrono::milliseconds(1);

// A message that carries its number and the time it was sent.
struct Stamped {
  int64_t number;
  Clock::time_point sent;
  uint8_t rest[kMessageBytes - sizeof(int64_t) - sizeof(Clock::time_point)];
};
static_assert(sizeof(Stamped) == kMessageBytes);
static_assert(std::is_trivially_copyable_v<Stamped>);

using Bytes = uint8_t[kMessageBytes];

void SendPaced(int count, const std::function<void(const Bytes&)>& sender) {
  Clock::time_point due = Clock::now();
  for (int i = 0; i < count; ++i) {
    std::this_thread::sleep_until(due += kPace);
    const Stamped message = {i, Clock::now(), {}};
    Bytes bytes;
    std::memcpy(bytes, &message, sizeof bytes);
    sender(bytes);
  }
}

void ReceiveStamped(int count, const std::function<void(Bytes&)>& receiver,
                    std::vector<double>& delays) {
  for (int i = 0; i < count; ++i) {
    Bytes bytes;
    receiver(bytes);
    Stamped message;
    // cppcheck-suppress memsetClass ; a time_point is a number, and trivially copyable
    std::memcpy(&message, bytes, sizeof message);
    delays.push_back(MicrosecondsSince(message.sent));
    if (message.number != i) {
      throw std::runtime_error("both ways: another message came than was sent");
    }
  }
}

void BothWays(const Line& line, Peer& peer, int count, const std::string& suffix,
              Figures& figures) {
  std::vector<double> inward;
  std::vector<double> outward;
  std::thread device(
      [&] { SendPaced(count, [&](const Bytes& bytes) { line.Write(bytes, sizeof bytes); }); });
  std::thread deviceReader([&] {
    ReceiveStamped(
        count, [&](Bytes& bytes) { line.ReadExactly(bytes, sizeof bytes); }, outward);
  });
  std::thread relay(
      [&] { SendPaced(count, [&](const Bytes& bytes) { peer.Send(0, bytes, sizeof bytes); }); });
  ReceiveStamped(
      count, [&](Bytes& bytes) { peer.ReceiveExactly(0, bytes, sizeof bytes); }, inward);
  relay.join();
  deviceReader.join();
  device.join();
  AddPercentiles(figures, "both_in" + suffix, inward);
  AddPercentiles(figures, "both_out" + suffix, outward);
}

}  // namespace

void MeasureDuplex(const Line& line, Peer& peer, const Plan& plan, Figures& figures) {
  BothWays(line, peer, plan.duplexMessages, "", figures);
  peer.AcknowledgeAtOnce(false);
  BothWays(line, peer, plan.duplexMessages, "_delayed", figures);
  peer.AcknowledgeAtOnce(true);
}
