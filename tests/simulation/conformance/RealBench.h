// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>

#include "simulation/conformance/Bench.h"
#include "simulation/conformance/Tracer.h"

namespace conformance {

// Pseudo-terminals, loopback and the threads of this process. Its own descriptors lie far above
// those of a row.
class RealBench : public Bench {
 public:
  static constexpr int kOwnNumbers = 200;
  static constexpr const char* kDumpGate = "/tmp/tools/gate";  // a pipe that holds udevadm up

  // The far ends of the numbers 1 and 2, which are pipes then, and where observations go.
  RealBench(int wantedReport, Hold& tracers);

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
  const int report;
  Hold& hold;
  int outputReader = -1;
  std::atomic<bool> isFirst = true;
};

// The ends for reading and for writing. Without one there is no table.
std::array<int, 2> NewPipe();

// `number` among the bench's own, or -1.
int MovedUp(int number);

}  // namespace conformance
