// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>

#include "client/Measures.h"

namespace {

constexpr size_t kLargest = 4096;
constexpr int kWarmUp = 100;

using Message = std::vector<uint8_t>;

// Messages that differ from their neighbours.
Message MessageOf(size_t size, int number) {
  Message message(size);
  for (size_t i = 0; i < size; ++i) {
    message[i] = static_cast<uint8_t>(number + static_cast<int>(i) * 7);
  }
  return message;
}

using Sender = std::function<void(const Message&)>;
using Receiver = std::function<void(Message&)>;

// The times that messages of `size` take, and the bridge's processor time for one.
void PingPong(const std::string& name, size_t size, int rounds, const Bridge* bridge,
              const Sender& sender, const Receiver& receiver, Figures& figures) {
  std::vector<double> samples;
  Message received(size);
  double cpu = 0;
  for (int i = -kWarmUp; i < rounds; ++i) {
    if (i == 0 && bridge != nullptr) {
      cpu = bridge->CpuMicroseconds();
    }
    const Message sent = MessageOf(size, i);
    const Clock::time_point begin = Clock::now();
    sender(sent);
    receiver(received);
    const double took = MicrosecondsSince(begin);
    if (received != sent) {
      throw std::runtime_error(name + ": other bytes came than were sent");
    }
    if (i >= 0) {
      samples.push_back(took);
    }
  }
  if (bridge != nullptr) {
    figures[name + "_cpu_us"] = (bridge->CpuMicroseconds() - cpu) / rounds;
  }
  AddPercentiles(figures, name, samples);
}

// The device that sends back what it gets, for as long as it lives.
class EchoingDevice {
 public:
  explicit EchoingDevice(const Line& line) : thread([this, &line] { Echo(line); }) {}

  // `peer` sends one more byte, so that the thread looks.
  void StopWith(Peer& peer) {
    stopping = true;
    const uint8_t last = 0;
    uint8_t answer = 0;
    peer.Send(0, &last, 1);
    peer.ReceiveExactly(0, &answer, 1);
    thread.join();
  }

 private:
  void Echo(const Line& line) {
    uint8_t buffer[kLargest];
    bool ending = false;
    while (!ending) {
      const size_t count = line.ReadSome(buffer, sizeof buffer);
      ending = stopping;
      line.Write(buffer, count);
    }
  }

  std::atomic<bool> stopping{false};
  std::thread thread;
};

}  // namespace

void MeasureLatency(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                    Figures& figures) {
  const Sender toLine = [&](const Message& message) { line.Write(message.data(), message.size()); };
  const Sender toPeer = [&](const Message& message) {
    peer.Send(0, message.data(), message.size());
  };
  const Receiver fromLine = [&](Message& message) {
    line.ReadExactly(message.data(), message.size());
  };
  const Receiver fromPeer = [&](Message& message) {
    peer.ReceiveExactly(0, message.data(), message.size());
  };
  for (const size_t size : {1U, 16U, 256U, 1024U, 4096U}) {
    const std::string bytes = std::to_string(size);
    PingPong("in_" + bytes, size, plan.latencyRounds, &bridge, toLine, fromPeer, figures);
    PingPong("out_" + bytes, size, plan.latencyRounds, &bridge, toPeer, fromLine, figures);
    EchoingDevice device(line);
    PingPong("echo_" + bytes, size, plan.latencyRounds, &bridge, toPeer, fromPeer, figures);
    device.StopWith(peer);
  }
}

void MeasureDelayed(const Line& line, Peer& peer, const Plan& plan, Figures& figures) {
  peer.AcknowledgeAtOnce(false);
  PingPong(
      "in_16_delayed", 16, plan.delayedRounds, nullptr,
      [&](const Message& message) { line.Write(message.data(), message.size()); },
      [&](Message& message) { peer.ReceiveExactly(0, message.data(), message.size()); }, figures);
  peer.AcknowledgeAtOnce(true);
}
