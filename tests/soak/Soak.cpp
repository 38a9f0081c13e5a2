// SPDX-License-Identifier: MIT
// Soak MINUTES [SEED]
//
// Runs the real service for so long, under load and under faults, and checks every byte. Runs in
// the sandbox: see the script `run`.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>

#include "e2e/support/LogFile.h"
#include "soak/Conductor.h"

namespace {

using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr seconds kCalm{2};  // traffic without faults, before and after
constexpr seconds kGlance{60};
constexpr seconds kMaxWait{60};  // for the ports to be up, the lines to be drained, the end
constexpr const char* kRefused =
    "1 SerialPortHandler SerialPortHandler.cpp 4 Command parse failed.";

// How much resident memory, in kB, may be added while the soak runs. The allocator gives new
// threads pools of their own, up to eight for each processor, and keeps some 200 kB in each; after
// that it levels off. AddressSanitizer keeps freed memory on purpose. One lost buffer for each of
// the hundreds of packets a second would be far more after a minute.
size_t MemoryTolerance() {
  const char* const text = std::getenv("SOAK_TOLERANCE_KB");
  return text != nullptr ? std::strtoul(text, nullptr, 10) : 4096;
}

class Soak {
 public:
  explicit Soak(uint32_t seed) : plan(seed), world(plan), conductor(world, plan, report) {}

  int Run(Clock::duration time) {
    const Clock::time_point begin = Clock::now();
    Begin();
    MakeFaults(time);
    CalmDown();
    const double lasted = std::chrono::duration<double>(Clock::now() - begin).count();
    StopService();
    report.ShowFigures(world.Ports(), lasted);
    CheckStreams();
    CheckHoldings();
    return report.Conclude();
  }

 private:
  // Warm: each port has been open and has carried data both ways.
  void Begin() {
    report.Check("all ports come up",
                 conductor.RunUntil([this] { return conductor.AllUp(); }, kMaxWait));
    conductor.RunFor(kCalm);
    report.atStart = world.Held();
  }

  // Growth that goes on shows in the course of the memory sooner than in its bound.
  void MakeFaults(Clock::duration time) {
    conductor.makesFaults = true;
    for (const Clock::time_point end = Clock::now() + time; Clock::now() < end && IsRunning();) {
      conductor.RunFor(std::min<Clock::duration>(kGlance, end - Clock::now()));
      (void)std::printf("%zu kB resident\n", world.Held().kilobytes);
    }
    conductor.makesFaults = false;
  }

  void CalmDown() {
    report.Check("all ports are up after the faults",
                 conductor.RunUntil([this] { return conductor.AllUp(); }, kMaxWait));
    conductor.RunFor(kCalm);
    conductor.sendsData = false;
    report.Check("all that was sent has arrived in the end",
                 conductor.RunUntil([this] { return conductor.AllDrained(); }, kMaxWait));
    (void)conductor.RunUntil([this] { return IsAsAtStart(world.Held()); }, kMaxWait);
    report.atEnd = world.Held();
  }

  bool IsAsAtStart(const Holdings& held) const {
    return held.descriptors == report.atStart.descriptors && held.threads == report.atStart.threads;
  }

  bool IsRunning() { return world.Process().State() == "still running"; }

  void StopService() {
    report.Check("the service runs to the end", IsRunning());
    conductor.stops = true;
    world.Process().Signal(SIGTERM);
    (void)conductor.RunUntil([this] { return !IsRunning(); }, kMaxWait);
    report.Check("the service stops as told, by: " + world.Process().State(),
                 world.Process().State() == "exit 0");
    conductor.RunFor(seconds(0));
    world.ReadErrors();
  }

  void CheckStreams() {
    bool isEachUsed = true;
    std::vector<std::string> toRelay;
    std::vector<std::string> toDevice;
    for (const auto& port : world.Ports()) {
      const auto& up = port->FromDevice();
      const auto& down = port->ToDevice();
      toRelay.insert(toRelay.end(), up.Defects().begin(), up.Defects().end());
      toDevice.insert(toDevice.end(), down.Defects().begin(), down.Defects().end());
      isEachUsed = isEachUsed && up.Result().arrivedBytes > 0 && down.Result().arrivedBytes > 0;
    }
    report.Check("each port carried data both ways", isEachUsed);
    report.Check("each kind of fault was made",
                 std::count(report.faults.begin(), report.faults.end(), 0U) == 0);
    report.Check("nothing lost, doubled or out of order from device to relay", toRelay.empty(),
                 toRelay);
    report.Check("nothing lost, doubled or out of order from relay to device", toDevice.empty(),
                 toDevice);
    report.Check("answers, link and ports behaved", conductor.Defects().empty(),
                 conductor.Defects());
    const uint64_t refused = LogFile::Count(kRefused);
    report.Check("each garbage packet is refused, with one log line",
                 refused >= conductor.GarbageFenced() && refused <= report.Faults(Fault::kGarbage));
    report.Check("nothing unexpected on standard error", world.Unexpected().empty(),
                 world.Unexpected());
  }

  void CheckHoldings() {
    report.Check("as many descriptors as at the start",
                 report.atEnd.descriptors == report.atStart.descriptors);
    report.Check("as many threads as at the start", report.atEnd.threads == report.atStart.threads);
    report.Check("at most " + std::to_string(MemoryTolerance()) + " kB more resident memory",
                 report.atEnd.kilobytes <= report.atStart.kilobytes + MemoryTolerance());
  }

  Plan plan;
  Report report;
  World world;
  Conductor conductor;
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 2 || count > 3) {
    (void)std::fputs("usage: Soak MINUTES [SEED]\n", stderr);
    return 2;
  }
  (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  const double minutes = std::strtod(arguments[1], nullptr);
  const auto seed = count == 3 ? static_cast<uint32_t>(std::strtoul(arguments[2], nullptr, 10))
                               : std::random_device()();
  (void)std::printf("soak of %.1f minutes, seed %u\n", minutes, seed);
  try {
    return Soak(seed).Run(std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double, std::ratio<60>>(minutes)));
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "soak: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
