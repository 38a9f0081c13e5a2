// SPDX-License-Identifier: MIT
// relayctl serve in the service's place: each port is a pseudo-terminal, whose near end is the
// device. It has no configuration, no log and no console, and what it tells of itself is no part of
// a conversation.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "e2e/support/ChildProcess.h"
#include "e2e/support/Workplace.h"
#include "recordings/PlayedMachine.h"

class ServedMachine : public PlayedMachine {
 public:
  ServedMachine();
  ~ServedMachine() override;
  ServedMachine(const ServedMachine&) = delete;
  ServedMachine& operator=(const ServedMachine&) = delete;

  // A name that is configured and leads nowhere is answered like one that is not configured.
  void Configure(const std::string& /*port*/, const std::string& /*words*/) override {}
  void Plug(const std::string& port, const std::string& ids) override;
  void PlugWithoutNode(const std::string& port) override;
  bool Unplug(const std::string& port, bool isOpen) override;
  std::vector<std::string> Plugged() const override;
  bool HasDevice(const std::string& port) const override { return nearEnds.contains(port); }
  bool Sends(const std::string& port, const std::string& bytes) override;
  std::string Reads(const std::string& port, size_t count) override;
  std::string ReadsWaiting(const std::string& port) override;
  size_t OpensOf(const std::string& port) const override { return Told(port + ": plugged in"); }
  void Start() override { isAsked = true; }  // it runs from the beginning
  bool HasStarted() const override { return isAsked; }
  bool Listens(size_t times) const override;
  bool Accepts(size_t times) const override;
  ChildProcess& Program() override { return *program; }
  bool IsIdle() const override;
  std::string WaitForEnd() override;
  bool HasConsole() const override { return false; }

 private:
  static size_t Told(const std::string& text);
  static bool Tells(const std::string& text, size_t times);
  void Order(const std::string& order, const std::string& told);

  const workplace::Folders folders;
  int orders = -1;
  std::map<std::string, int> nearEnds;
  std::unique_ptr<ChildProcess> program;
  bool isAsked = false;
};
