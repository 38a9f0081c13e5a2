// SPDX-License-Identifier: MIT
// What a recording is played on: a service, and a device for each port that has one.
#pragma once

#include <string>
#include <vector>

#include "e2e/support/ChildProcess.h"

class PlayedMachine {
 public:
  virtual ~PlayedMachine() = default;

  virtual void Configure(const std::string& port, const std::string& words) = 0;

  // A new device at the port.
  virtual void Plug(const std::string& port, const std::string& ids) = 0;

  // An adapter that is there, and whose node is missing.
  virtual void PlugWithoutNode(const std::string& port) = 0;

  // False: a port that is open does not notice.
  virtual bool Unplug(const std::string& port, bool isOpen) = 0;

  // The ports that have a device, and what the device does.
  virtual std::vector<std::string> Plugged() const = 0;
  virtual bool HasDevice(const std::string& port) const = 0;
  virtual bool Sends(const std::string& port, const std::string& bytes) = 0;
  virtual std::string Reads(const std::string& port, size_t count) = 0;
  virtual std::string ReadsWaiting(const std::string& port) = 0;

  // How often the port has opened a device.
  virtual size_t OpensOf(const std::string& port) const = 0;

  virtual void Start() = 0;
  virtual bool HasStarted() const = 0;

  // Wait for the so manieth time.
  virtual bool Listens(size_t times) const = 0;
  virtual bool Accepts(size_t times) const = 0;

  virtual ChildProcess& Program() = 0;
  virtual bool IsIdle() const = 0;

  // "exit 0", "signal 6".
  virtual std::string WaitForEnd() = 0;

  // Whether it has a log and a console to compare.
  virtual bool HasConsole() const = 0;
};
