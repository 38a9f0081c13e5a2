// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/Chooser.h"
#include "simulation/Machine.h"
#include "simulation/conformance/Bench.h"

namespace conformance {

// Any order, and one thread that is held at the end of its next call: its second point.
class Holding : public simulation::RandomWalk {
 public:
  explicit Holding(uint64_t seed) : RandomWalk(seed) {}
  int64_t Stall(const simulation::Thread& running) override;

  void Hold(int wanted) { thread = wanted; }
  bool HasHeld() const { return points >= kLast; }

 private:
  static constexpr int kLast = 2;

  int thread = 0;
  int points = 0;
};

class SimulatedBench : public Bench {
 public:
  SimulatedBench(simulation::Machine& ours, Holding& decisions, int wantedReport);

  using Bench::Saw;
  void Saw(const std::string& text) override;
  std::unique_ptr<Device> PlugsIn() override;
  std::unique_ptr<Peer> Connects(uint16_t port, in_addr_t from) override;
  bool HasRoomFor(uint16_t port) override;
  std::string OutputTakes(size_t limit) override;
  void OutputReaderLeaves() override;
  void Puts(const std::string& path, const std::string& text) override;
  void SetsVariable(const std::string& name, const std::string& value) override;
  int OpenNumbers() override;
  void HoldsDumps() override;
  void LetsDumpsEnd() override;
  void Signals(int signal) override;
  void Pause() override;
  int OwnThread() override;
  bool HasEnded(int thread) override;
  bool WaitsIn(int thread, const char* call) override;
  void HoldsAfter(const char* call) override;
  bool HasHeld() override;
  void LetsGo() override;

 private:
  simulation::Machine& machine;
  simulation::Kernel& kernel;
  Holding& chooser;
  const int report;
  int held = 0;
  bool isFirst = true;
};

}  // namespace conformance
