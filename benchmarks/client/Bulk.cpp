// SPDX-License-Identifier: MIT
#include <array>
#include <functional>
#include <stdexcept>
#include <thread>

#include "client/Measures.h"

namespace {

constexpr size_t kBlockBytes = 4096;
constexpr size_t kCommandBytes = 64;
constexpr int kBatch = 100'000;

// Bytes that anybody can make again, and a sum that sees order and value of each.
class Stream {
 public:
  void Fill(uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      state = state * 1664525 + 1013904223;
      data[i] = static_cast<uint8_t>(state >> 24);
    }
    Add(data, count);
  }

  void Add(const uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      sum = (sum ^ data[i]) * 1099511628211U;
    }
  }

  uint64_t Sum() const { return sum; }

 private:
  uint32_t state = 1;
  uint64_t sum = 14695981039346656037U;
};

using Sender = std::function<void(const uint8_t*, size_t)>;
using Receiver = std::function<size_t(uint8_t*, size_t)>;

struct Transfer {
  double microseconds;
  double cpuMicroseconds;
};

// Sends `count` blocks as fast as they are taken, while they are received.
Transfer Pump(const Bridge& bridge, int count, size_t blockBytes, const Sender& sender,
              const Receiver& receiver) {
  Stream sent;
  std::vector<uint8_t> all(static_cast<size_t>(count) * blockBytes);
  std::vector<uint8_t> came(all.size());
  sent.Fill(all.data(), all.size());
  const double cpu = bridge.CpuMicroseconds();
  const Clock::time_point begin = Clock::now();
  std::thread source([&] {
    for (size_t at = 0; at < all.size(); at += blockBytes) {
      sender(all.data() + at, blockBytes);
    }
  });
  for (size_t got = 0; got < came.size();) {
    got += receiver(came.data() + got, came.size() - got);
  }
  const double took = MicrosecondsSince(begin);
  source.join();
  const Transfer transfer = {took, bridge.CpuMicroseconds() - cpu};
  Stream received;
  received.Add(came.data(), came.size());
  if (received.Sum() != sent.Sum()) {
    throw std::runtime_error("bulk: the checksums differ");
  }
  return transfer;
}

Transfer PumpCommands(const Bridge& bridge, const Line& line, Peer& peer, int count) {
  return Pump(
      bridge, count, kCommandBytes,
      [&](const uint8_t* data, size_t size) { peer.Send(0, data, size); },
      [&](uint8_t* data, size_t room) { return line.ReadSome(data, room); });
}

void AddBulk(Figures& figures, const std::string& name, const Transfer& transfer, int blocks) {
  const double megabytes = blocks * static_cast<double>(kBlockBytes) / 1e6;
  figures[name + "_mb_per_s"] = megabytes / (transfer.microseconds / 1e6);
  figures[name + "_cpu_us_per_mb"] = transfer.cpuMicroseconds / megabytes;
}

}  // namespace

void MeasureBulk(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                 Figures& figures) {
  const Sender toLine = [&](const uint8_t* data, size_t count) { line.Write(data, count); };
  const Sender toPeer = [&](const uint8_t* data, size_t count) { peer.Send(0, data, count); };
  const Receiver fromLine = [&](uint8_t* data, size_t room) { return line.ReadSome(data, room); };
  const Receiver fromPeer = [&](uint8_t* data, size_t room) {
    return peer.ReceiveSome(0, data, room);
  };
  AddBulk(figures, "bulk_in", Pump(bridge, plan.bulkBlocks, kBlockBytes, toLine, fromPeer),
          plan.bulkBlocks);
  AddBulk(figures, "bulk_out", Pump(bridge, plan.bulkBlocks, kBlockBytes, toPeer, fromLine),
          plan.bulkBlocks);
}

void MeasureCommands(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                     Figures& figures) {
  const Transfer transfer = PumpCommands(bridge, line, peer, plan.commands);
  figures["commands_per_s"] = plan.commands / (transfer.microseconds / 1e6);
  figures["command_cpu_us"] = transfer.cpuMicroseconds / plan.commands;
}

void MeasureManyCommands(const Bridge& bridge, const Line& line, Peer& peer, const Plan& plan,
                         Figures& figures) {
  for (int batch = 1; batch <= plan.batches; ++batch) {
    const Transfer transfer = PumpCommands(bridge, line, peer, kBatch);
    const std::string behind = "_" + std::to_string(batch * kBatch);
    figures["commands_cpu_us" + behind] = transfer.cpuMicroseconds / kBatch;
    figures["commands_memory_kib" + behind] = static_cast<double>(bridge.Used().peakMemoryKib);
  }
}
