// SPDX-License-Identifier: MIT
#include "soak/Report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr size_t kShownDetails = 20;

double Seconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

void ShowWay(const std::vector<std::unique_ptr<SoakPort>>& ports, const char* way,
             const CheckedStream& (SoakPort::*stream)() const, double seconds) {
  CheckedStream::Totals sum;
  size_t defects = 0;
  for (const auto& port : ports) {
    const CheckedStream::Totals& one = (port.get()->*stream)().Result();
    sum.sentBytes += one.sentBytes;
    sum.arrivedBytes += one.arrivedBytes;
    sum.borderLostFrames += one.borderLostFrames;
    sum.borderCutBytes += one.borderCutBytes;
    sum.borderRepeatedFrames += one.borderRepeatedFrames;
    sum.longestGap = std::max(sum.longestGap, one.longestGap);
    defects += (port.get()->*stream)().Defects().size();
  }
  (void)std::printf(
      "%s: %llu bytes sent, %llu arrived (%.1f kB/s per port)\n", way,
      static_cast<unsigned long long>(sum.sentBytes),
      static_cast<unsigned long long>(sum.arrivedBytes),
      static_cast<double>(sum.arrivedBytes) / 1000.0 / seconds / static_cast<double>(ports.size()));
  (void)std::printf(
      "  losses, doublings, disorder while up: %zu; longest gap while up: %.2f s\n"
      "  at borders: %llu bytes lost, %llu bytes of cut frames, %llu bytes repeated\n",
      defects, Seconds(sum.longestGap),
      static_cast<unsigned long long>(sum.borderLostFrames * kFrameBytes),
      static_cast<unsigned long long>(sum.borderCutBytes),
      static_cast<unsigned long long>(sum.borderRepeatedFrames * kFrameBytes));
}

void ShowHoldings(const char* when, const Holdings& held) {
  (void)std::printf("%s: %zu descriptors, %zu threads, %zu kB resident\n", when, held.descriptors,
                    held.threads, held.kilobytes);
}

}  // namespace

void Report::Check(const std::string& what, bool holds, const std::vector<std::string>& details) {
  ++(holds ? passed : failed);
  (void)std::printf("%s: %s\n", holds ? "passed" : "FAILED", what.c_str());
  for (size_t i = 0; !holds && i < std::min(details.size(), kShownDetails); ++i) {
    (void)std::printf("    %s\n", details[i].c_str());
  }
}

void Report::ShowFigures(const std::vector<std::unique_ptr<SoakPort>>& ports,
                         double seconds) const {
  (void)std::printf("%zu ports, %.0f s\n", ports.size(), seconds);
  ShowWay(ports, "device to relay", &SoakPort::FromDevice, seconds);
  ShowWay(ports, "relay to device", &SoakPort::ToDevice, seconds);
  uint64_t waits = 0;
  for (const auto& port : ports) {
    waits += port->Waits();
  }
  (void)std::printf("devices waited %llu times, the relay %llu times\nfaults:",
                    static_cast<unsigned long long>(waits),
                    static_cast<unsigned long long>(relayWaits));
  for (size_t kind = 0; kind < kFaultKinds.size(); ++kind) {
    (void)std::printf("%s %llu %s", kind == 0 ? "" : ",",
                      static_cast<unsigned long long>(faults[kind]), kFaultKinds[kind].name);
  }
  (void)std::printf("\n");
  ShowHoldings("start", atStart);
  ShowHoldings("end", atEnd);
}

int Report::Conclude() const {
  (void)std::printf("%u passed, %u failed\n", passed, failed);
  return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
