// SPDX-License-Identifier: MIT
#include <algorithm>
#include <stdexcept>

#include "client/Measures.h"

namespace {

constexpr size_t kMessageBytes = 16;
constexpr size_t kWriteBytes = 4096;
constexpr size_t kMostKib = 16384;
constexpr int kPatience = 200;  // milliseconds without room: the bridge takes no more

// Writes until the device has offered so many bytes in all, or no more are taken; the new sum.
size_t OfferUpTo(const Line& line, size_t taken, size_t wanted) {
  const std::vector<uint8_t> bytes(kWriteBytes, 'U');
  while (taken < wanted) {
    const size_t count =
        line.TryWrite(bytes.data(), std::min(bytes.size(), wanted - taken), kPatience);
    if (count == 0) {
      break;
    }
    taken += count;
  }
  return taken;
}

}  // namespace

void MeasurePorts(const Bridge& bridge, const std::vector<std::unique_ptr<Line>>& lines, Peer& peer,
                  const Plan& plan, Figures& figures) {
  const double cpu = bridge.CpuMicroseconds();
  for (int round = 0; round < plan.portRounds; ++round) {
    for (size_t port = 0; port < lines.size(); ++port) {
      const std::vector<uint8_t> sent(kMessageBytes,
                                      static_cast<uint8_t>(round + 31 * static_cast<int>(port)));
      std::vector<uint8_t> inward(sent.size());
      std::vector<uint8_t> outward(sent.size());
      lines[port]->Write(sent.data(), sent.size());
      peer.ReceiveExactly(port, inward.data(), inward.size());
      peer.Send(port, sent.data(), sent.size());
      lines[port]->ReadExactly(outward.data(), outward.size());
      if (inward != sent || outward != sent) {
        throw std::runtime_error("ports: other bytes came than were sent");
      }
    }
  }
  const double messages = 2.0 * plan.portRounds * static_cast<double>(lines.size());
  figures["ports_cpu_us"] = (bridge.CpuMicroseconds() - cpu) / messages;
}

void MeasureUnread(const Bridge& bridge, const Line& line, Figures& figures) {
  size_t taken = 0;
  for (size_t kib = 64; kib <= kMostKib; kib *= 4) {
    taken = OfferUpTo(line, taken, kib * 1024);
    figures["unread_memory_kib_" + std::to_string(kib)] =
        static_cast<double>(bridge.Used().peakMemoryKib);
  }
  figures["unread_taken_kib"] = static_cast<double>(taken) / 1024;
}
