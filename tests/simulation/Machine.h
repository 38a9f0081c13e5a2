// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulation/Faults.h"
#include "simulation/Files.h"
#include "simulation/Network.h"
#include "simulation/Terminal.h"
#include "simulation/Witness.h"

namespace simulation {

// What the service runs on: files, lines, network, standard streams, and the tools that it calls.
class Machine {
 public:
  // `watched` makes who is told of what passes.
  using Watched = std::function<std::unique_ptr<Witness>(const Machine&)>;
  Machine(Kernel& threads, const Watched& watched);
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // The run's own, or null outside of one.
  static Machine* Running();

  Kernel& kernel;
  const std::unique_ptr<Witness> oracle;
  Descriptors descriptors;
  Network network;
  Faults faults;
  std::map<std::string, std::shared_ptr<Node>> nodes;  // by path
  std::map<std::string, std::string> environment;
  std::shared_ptr<Pipe> output = std::make_shared<Pipe>();
  std::shared_ptr<Pipe> errors = std::make_shared<Pipe>();
  bool losesErrors = false;  // whoever reads them does not keep up: nothing need arrive whole

  // A line at a node, in the place of whatever is there.
  std::shared_ptr<Line> Plug(const std::string& node);
  void Unplug(const std::string& node, Line& line);

  // An adapter in USB port `index` is at `node`.
  void Place(int index, const std::string& node);
  void Displace(int index) { placed.erase(index); }

  // A configuration of these ports, in the place of the one before.
  void Configure(const std::vector<std::string>& ports);

  std::string Log() const;
  void ForgetLog();
  int RunShell(const std::string& command);

  Time dumpTakes = 30 * kMillisecond;

 private:
  std::string Database() const;
  std::map<int, std::string> PlacesIn(const std::string& database) const;

  std::map<int, std::string> placed;
};

}  // namespace simulation
