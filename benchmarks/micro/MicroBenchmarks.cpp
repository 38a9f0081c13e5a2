// SPDX-License-Identifier: MIT
// The parts of the service by themselves, without a system call on the way.
#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "comm/CommReceiver.h"
#include "libKXLogger/LogLine.h"
#include "micro/DatabaseInMemory.h"
#include "protocol/CommandPacket.h"
#include "protocol/PacketBuilder.h"
#include "protocol/WireFormat.h"
#include "serial/HexDump.h"
#include "serial/UdevScanner.h"

namespace {

constexpr const char* kPort = "#PhysicalPort0";

std::vector<uint8_t> BytesOf(int64_t count) {
  std::vector<uint8_t> bytes(static_cast<size_t>(count));
  std::iota(bytes.begin(), bytes.end(), uint8_t{0});
  return bytes;
}

// A data command for a named port.
std::vector<uint8_t> DataCommand(int64_t count) {
  const std::vector<uint8_t> data = BytesOf(count);
  CPacketBuilder command(kCommandData, kPort);
  (void)command.AddBlock(data.data(), 1, static_cast<uint16_t>(count));
  return command.Bytes();
}

void Parse(benchmark::State& state) {
  const std::vector<uint8_t> bytes = DataCommand(state.range(0));
  for ([[maybe_unused]] const auto step : state) {
    const CommandPacket packet(bytes.data(), static_cast<uint32_t>(bytes.size()));
    benchmark::DoNotOptimize(packet.parsedOk);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Parse)->Arg(1)->Arg(64)->Arg(4096)->Arg(65000);

void Build(benchmark::State& state) {
  const std::vector<uint8_t> data = BytesOf(state.range(0));
  for ([[maybe_unused]] const auto step : state) {
    CPacketBuilder notification(kCommandData, kPort);
    (void)notification.AddBlock(data.data(), kReceivedDataBlock,
                                static_cast<uint16_t>(data.size()));
    benchmark::DoNotOptimize(notification.Bytes().data());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Build)->Arg(1)->Arg(64)->Arg(4096);

void HexDump(benchmark::State& state) {
  const std::vector<uint8_t> data = BytesOf(state.range(0));
  std::string space;
  for ([[maybe_unused]] const auto step : state) {
    benchmark::DoNotOptimize(FormatHexDump(data.data(), data.size(), space));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(HexDump)->Arg(1)->Arg(64)->Arg(4096);

void LogLine(benchmark::State& state) {
  std::array<char, kxlogger::kLineSize> buffer;
  const kxlogger::LogRecord record = {
      {std::chrono::sys_seconds(std::chrono::seconds(1'700'000'000))},
      3,
      "SerialPortHandler",
      "SerialPortHandler.cpp",
      "242",
      "4",
      "data command proc."};
  for ([[maybe_unused]] const auto step : state) {
    benchmark::DoNotOptimize(kxlogger::ComposeLine(buffer, "", record));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(LogLine);

// A stream that gives the same packet so many times, and then ends.
class RepeatingStream : public CAbstractSocket {
 public:
  RepeatingStream(std::vector<uint8_t> repeated, int64_t times)
      : packet(std::move(repeated)), left(times) {}

  int Listen(uint32_t) override { return 0; }
  int Connect(uint32_t) override { return 0; }
  int Close() override { return 0; }
  int Send(const uint8_t*, int length) override { return length; }
  int Recv(uint8_t* buffer, int capacity) override {
    if (left == 0) {
      return -1;
    }
    std::memcpy(buffer, packet.data() + position, static_cast<size_t>(capacity));
    position += static_cast<size_t>(capacity);
    if (position == packet.size()) {
      position = 0;
      --left;
    }
    return capacity;
  }

 private:
  std::vector<uint8_t> packet;
  int64_t left;
  size_t position = 0;
};

int Swallow(const uint8_t* packet, uint32_t, void*) {
  benchmark::DoNotOptimize(packet);
  return 0;
}

void Framing(benchmark::State& state) {
  constexpr int64_t kPackets = 1000;
  const std::vector<uint8_t> packet = DataCommand(state.range(0));
  for ([[maybe_unused]] const auto step : state) {
    CCommReceiver receiver(std::make_shared<RepeatingStream>(packet, kPackets),
                           {Swallow, nullptr, nullptr});
    receiver.Run();
  }
  state.SetItemsProcessed(state.iterations() * kPackets);
  state.SetBytesProcessed(state.iterations() * kPackets * state.range(0));
}
BENCHMARK(Framing)->Arg(1)->Arg(64)->Arg(4096);

// A search that finds nothing, so it reads everything: by ids from the service's own file, by place
// from any.
void Scan(benchmark::State& state) {
  const std::string database = GeneratedDatabase(static_cast<int>(state.range(0)));
  DatabaseInMemory file(database);
  std::array<char, 512> devName{};
  for ([[maybe_unused]] const auto step : state) {
    benchmark::DoNotOptimize(FindDeviceByPortIndex(file.FromStart(), 0, devName.data()));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(database.size()));
}
BENCHMARK(Scan)->Arg(250)->Arg(5000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
