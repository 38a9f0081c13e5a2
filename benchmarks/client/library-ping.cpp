// SPDX-License-Identifier: MIT
// A byte to #PhysicalPort0 and back from its device, again and again, over the C++ client library.
// Prints the times as one JSON object.
// usage: library-ping COUNT
#include <unistd.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "client/Figures.h"
#include "relay/Client.h"

namespace {

constexpr int kWarmUp = 100;
constexpr unsigned kTimeLimitSeconds = 60;

double ProcessorMicroseconds() {
  timespec used{};
  (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

Figures Ping(int count) {
  const relay::Port port = relay::Port::FromText("#PhysicalPort0");
  size_t came = 0;
  relay::ClientOptions options;
  options.reconnect = true;  // the service may not listen yet
  relay::Client client(options);
  relay::Events events;
  events.received = [&](const relay::Port&, std::string_view data) { came += data.size(); };
  client.SetEvents(std::move(events));
  client.KeepOpen(port);
  client.Start();
  client.RunUntil([&] { return client.IsOpen(port); });
  std::vector<double> samples;
  double cpu = 0;
  for (int i = -kWarmUp; i < count; ++i) {
    if (i == 0) {
      cpu = ProcessorMicroseconds();
    }
    const size_t wanted = came + 1;
    const Clock::time_point begin = Clock::now();
    client.Data(port, "U");
    client.RunUntil([&] { return came == wanted; });
    if (i >= 0) {
      samples.push_back(MicrosecondsSince(begin));
    }
  }
  Figures figures;
  figures["cpu_us"] = (ProcessorMicroseconds() - cpu) / count;
  AddPercentiles(figures, "echo", samples);
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: library-ping COUNT\n";
    return 2;
  }
  alarm(kTimeLimitSeconds);
  try {
    std::cout << JsonOf(Ping(std::stoi(argv[1]))) << std::endl;
  } catch (const std::exception& error) {
    std::cerr << "library-ping: " << error.what() << '\n';
    return 1;
  }
}
