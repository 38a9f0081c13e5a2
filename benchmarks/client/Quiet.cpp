// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "client/Measures.h"

namespace {

void RunShell(const char* command) {
  if (std::system(command) != 0) {
    throw std::runtime_error(command);
  }
}

double Median(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  return samples[samples.size() / 2];
}

}  // namespace

void MeasureIdle(const Bridge& bridge, const Plan& plan, Figures& figures) {
  const Usage before = bridge.Used();
  const Clock::time_point begin = Clock::now();
  // What a bridge does all by itself meanwhile is what is measured.
  std::this_thread::sleep_for(std::chrono::milliseconds(plan.idleMilliseconds));
  const Usage after = bridge.Used();
  const double seconds = MicrosecondsSince(begin) / 1e6;
  figures["idle_wakeups_per_s"] =
      static_cast<double>(after.contextSwitches - before.contextSwitches) / seconds;
  figures["idle_cpu_us_per_s"] = (after.cpuMicroseconds - before.cpuMicroseconds) / seconds;
}

void MeasureOpen(size_t port, Peer& peer, const Plan& plan, Figures& figures) {
  std::vector<double> whole;
  std::vector<double> tools;
  for (int i = 0; i < plan.opens; ++i) {
    Clock::time_point begin = Clock::now();
    peer.Open(port);
    whole.push_back(MicrosecondsSince(begin) / 1e3);
    peer.Close(port);
    begin = Clock::now();
    RunShell("udevadm info --export-db > /tmp/bench-open");
    RunShell("rm /tmp/bench-open");
    tools.push_back(MicrosecondsSince(begin) / 1e3);
  }
  figures["open_ms"] = Median(whole);
  figures["open_tools_ms"] = Median(tools);
  figures["open_own_ms"] = figures["open_ms"] - figures["open_tools_ms"];
}
