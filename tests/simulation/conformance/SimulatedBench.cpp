// SPDX-License-Identifier: MIT
#include "simulation/conformance/SimulatedBench.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

namespace conformance {

using namespace simulation;

namespace {

constexpr const char* kNode = "/dev/ttyUSB0";

class SimulatedDevice : public Device {
 public:
  explicit SimulatedDevice(Machine& ours) : machine(ours), line(machine.Plug(kNode)) {}

  std::string Node() const override { return kNode; }
  void Sends(std::string_view bytes) override {
    line->DeviceSends(bytes);
    machine.kernel.Point();
  }
  std::string Takes() override {
    machine.kernel.Point();
    return line->DeviceTakes();
  }
  void IsUnplugged() override {
    machine.Unplug(kNode, *line);
    machine.kernel.Point();
  }

 private:
  Machine& machine;
  const std::shared_ptr<Line> line;
};

class SimulatedPeer : public Peer {
 public:
  SimulatedPeer(Kernel& ours, std::shared_ptr<Connection> made)
      : kernel(ours), connection(std::move(made)) {}

  void Sends(std::string_view bytes) override {
    connection->service.waiting += bytes;
    kernel.Point();
  }
  std::string Takes() override {
    kernel.Point();
    return std::exchange(connection->peer.waiting, {});
  }
  std::string Sees() override {
    const End& end = connection->peer;
    if (!end.waiting.empty()) {
      return "bytes";
    }
    if (end.isReset) {
      return "reset";
    }
    return end.hasEnded ? "end" : "nothing";
  }
  void Finishes() override {
    Finish(*connection);
    kernel.Point();
  }
  void Leaves() override {
    Leave(*connection);
    kernel.Point();
  }
  void Resets() override {
    Reset(*connection);
    kernel.Point();
  }

 private:
  Kernel& kernel;
  const std::shared_ptr<Connection> connection;
};

}  // namespace

int64_t Holding::Stall(const Thread& running) {
  constexpr int64_t kUntilLetGo = 100 * kSecond;
  return running.number == thread && ++points == kLast ? kUntilLetGo : 0;
}

SimulatedBench::SimulatedBench(Machine& ours, Holding& decisions, int wantedReport)
    : machine(ours), kernel(ours.kernel), chooser(decisions), report(wantedReport) {
  machine.output->takesAll = false;
  kernel.Sleep(kSecond);  // nobody is held before that
}

void SimulatedBench::Saw(const std::string& text) {
  const std::string whole = std::exchange(isFirst, false) ? text : "; " + text;
  (void)syscall(SYS_write, report, whole.data(), whole.size());
}

std::unique_ptr<Device> SimulatedBench::PlugsIn() {
  return std::make_unique<SimulatedDevice>(machine);
}

bool SimulatedBench::HasRoomFor(uint16_t port) { return machine.network.Takes(port); }

std::unique_ptr<Peer> SimulatedBench::Connects(uint16_t port, in_addr_t from) {
  auto connection = machine.network.Connect(port, from);
  kernel.Point();
  return connection == nullptr ? nullptr
                               : std::make_unique<SimulatedPeer>(kernel, std::move(connection));
}

std::string SimulatedBench::OutputTakes(size_t limit) {
  Pipe& pipe = *machine.output;
  (void)kernel.Wait([&pipe] { return pipe.Waiting() > 0; }, kForever, Waits::kThrough);
  return pipe.Take(limit);
}

void SimulatedBench::OutputReaderLeaves() {
  machine.output->hasReader = false;
  kernel.Point();
}

void SimulatedBench::Puts(const std::string& path, const std::string& text) {
  machine.nodes[path] = std::make_shared<TextNode>(text);
}

void SimulatedBench::SetsVariable(const std::string& name, const std::string& value) {
  machine.environment[name] = value;
}

int SimulatedBench::OpenNumbers() { return static_cast<int>(machine.descriptors.Open().size()); }

void SimulatedBench::HoldsDumps() { machine.dumpTakes = 10 * kSecond; }

void SimulatedBench::LetsDumpsEnd() {}

void SimulatedBench::Signals(int signal) {
  kernel.SendToProcess(signal);
  kernel.Point();
}

void SimulatedBench::Pause() { kernel.Sleep(kMillisecond); }

int SimulatedBench::OwnThread() { return kernel.Current().number; }

bool SimulatedBench::HasEnded(int thread) { return kernel.Find(thread)->isEnded; }

bool SimulatedBench::WaitsIn(int thread, const char* /*call*/) {
  return kernel.Find(thread)->awaited != nullptr;
}

void SimulatedBench::HoldsAfter(const char* /*call*/) {
  held = kernel.Current().number;
  chooser.Hold(held);
}

bool SimulatedBench::HasHeld() { return chooser.HasHeld(); }

void SimulatedBench::LetsGo() { kernel.Find(held)->stalledUntil = 0; }

}  // namespace conformance
