// SPDX-License-Identifier: MIT
// What the end-to-end tests of relayctl have at hand: the real service, and the real program.
#pragma once

#include <memory>
#include <string>

#include "e2e/ServiceTest.h"
#include "relayctl/PtyProgram.h"
#include "relayctl/Shell.h"

constexpr const char* kRecording = "/tmp/e2e/recording";  // relayctl record's, or replay's

// A command line of the shell that runs beside the test.
class Background : public ChildProcess {
 public:
  explicit Background(const std::string& command);

  // What it has written to both streams.
  std::string Output() const { return workplace::ReadWhole(file); }
  bool Prints(const std::string& text) const;

  // The milliseconds of a processor that it has taken.
  uint64_t ProcessorTime() const;

  // How often it has waited.
  uint64_t Waits() const { return FromStatus("voluntary_ctxt_switches"); }

 private:
  Background(const std::string& command, const std::string& outputFile);

  std::string file;
};

// A failure shows all of `text`.
void ExpectHas(const std::string& text, const std::string& part);
void ExpectHasNot(const std::string& text, const std::string& part);

// The service's and relayctl's configuration is one, and `relayctl` is on PATH.
class RelayctlTest : public ServiceTest {
 protected:
  RelayctlTest();

  // Starts the service and waits until it listens for the `count`-th time in this test.
  void StartListening(size_t count = 1);

  // The same, with a device plugged in.
  void PlugAndStart();

  // The same, with a line between /dev/ttyS2 and kFar, which a program on the device's side opens.
  void StartLine();

  // Starts pty, which makes kLink the port.
  void StartPty();

  static constexpr const char* kPort = "'#PhysicalPort0'";  // for the shell
  static constexpr const char* kFar = "/tmp/e2e/far";

  std::unique_ptr<Background> socat;
  std::unique_ptr<Background> pty;
};
