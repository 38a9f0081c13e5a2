// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "simulation/Kernel.h"

namespace simulation {

// How the service ends, and how long that takes.
class StopModel {
 public:
  explicit StopModel(Kernel& threads) : kernel(threads) {}

  void Listens() { isListening = true; }
  void Accepts() {
    isListening = false;
    hasAccepted = true;
    right.clear();
  }
  // `isServing`: a link stands. `ports`: that are open.
  void Logs(const std::string& message, bool isServing, size_t ports);
  void Prints(const std::string& line) { hasSaidGoodbye = hasSaidGoodbye || line == "終了"; }
  bool HasSaidGoodbye() const { return hasSaidGoodbye; }
  void MayFail() { mayFail = true; }
  void MayAbort() { mayAbort = true; }

  // Empty, or what is wrong with it.
  std::string Judge(const std::string& ending) const;

 private:
  std::string JudgeTime() const;

  Kernel& kernel;
  bool isListening = false;
  bool hasAccepted = false;
  bool isStopped = false;  // told by the log
  bool isRefused = false;
  bool hasSaidGoodbye = false;
  bool mayFail = false;
  bool mayAbort = false;
  std::string right;  // ending; empty: none, or either
  Time asked = kForever;
  Time stalledBefore = 0;
  size_t openPorts = 0;
};

}  // namespace simulation
