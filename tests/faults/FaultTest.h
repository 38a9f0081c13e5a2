// SPDX-License-Identifier: MIT
// The table of faults: what happens to the service in which state, and what the relay, the device,
// the log and the process must show. The rows stand in one file for each source of faults; this
// drives them all.
//
// What other tests show already has no row here: peers that leave, a second peer, a peer from
// 127.0.0.2 and an occupied port (RelinkTest), a replug at the same path (recordings/unplug), each
// signal in each state (StopTest), malformed packets (recordings/malformed), sends that are short
// or fail (CommSocketSendTest), calls of a line that fail (LinuxSerialCallsTest, SerialPortTest,
// SerialPortReopenTest), and threads that cannot be made (CommSocketTest, SerialPortFailureTest).
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "e2e/ServiceTest.h"

// What the service is doing when the fault comes. Each state includes the ones before it.
enum class State {
  kAbsent,    // not started: the fault is in how it starts
  kStarting,  // started, and not looked at: it may have ended already
  kListening,
  kLinked,    // with an adapter at the place of #USBSerialPort0, which is not open
  kPortOpen,  // with #PhysicalPort0 open
};

// How the process must be after the fault.
enum class Outcome {
  kGoesOn,        // the same relay is answered, and a SIGTERM ends it with status 0
  kListensAgain,  // the next relay is answered, and a SIGTERM ends it with status 0
  kStops,         // a SIGTERM ends it with status 0; nothing else is promised
  kEndsWith0,     // the fault included a stop
  kEndsWith255,   // the link could not be opened (again)
  kShown,         // what happens shows it all
};

class FaultTest;

struct FaultRow {
  const char* name;
  State state;
  const char* start;            // shell text that starts the service, which is "$@"; nullptr: as is
  void (*happens)(FaultTest&);  // the fault, and what it must show beyond the rest; may be nullptr
  std::vector<const char*> log;  // lines that must be in the log
  Outcome outcome;
};

void PrintTo(const FaultRow& row, std::ostream* out);

// The service in a state, with an adapter at hand.
class FaultTest : public ServiceTest {
 public:
  FaultTest();

  using ServiceTest::Clog;
  using ServiceTest::Link;
  using ServiceTest::Settle;
  using ServiceTest::StartService;

  using ServiceTest::configuration;
  using ServiceTest::device;
  using ServiceTest::relay;
  using ServiceTest::service;
  using ServiceTest::udev;

  std::unique_ptr<Device> adapter;  // at /dev/ttyUSB0
  const char* start = nullptr;      // the shell text that starts the service
  pid_t inner = 0;                  // the service, where it is not the process that was started

  // Starts the service as `start` says.
  void StartAs();
  void Bring(State state);
  void Expect(Outcome outcome);

  // A stop, however busy the service is, with a limit that leaves time for the rest of the test.
  std::string StopAtOnce(int signal) const;

  // Bytes both ways through #PhysicalPort0.
  void ExpectDataBothWays() const;
};

class FaultTable : public FaultTest, public testing::WithParamInterface<FaultRow> {
 protected:
  // What a test of the table is: the state, the fault, and what must show.
  void PlayRow();
};

// Commands and replies for #USBSerialPort0.
constexpr const char* kOpenAdapter = "0015 01 02 000F '#USBSerialPort0'";
constexpr const char* kAdapterOpened = "0017 01 02 000F '#USBSerialPort0' 0000";
constexpr const char* kAdapterNotFound = "0017 01 02 000F '#USBSerialPort0' 0002";

// Data of one byte for and from #PhysicalPort0.
constexpr const char* kWriteB = "0019 04 02 000E '#PhysicalPort0' 01 01 0001 'B'";
constexpr const char* kReceivedA = "0019 04 02 000E '#PhysicalPort0' 01 02 0001 'A'";

constexpr const char* kPort0Failed = "0016 01 02 000E '#PhysicalPort0' 0004";

constexpr const char* kNoDeviceFound =
    "1 SerialPortHandler SerialPort.cpp 4 Cannot open serial device. [Port ]";
constexpr const char* kCannotOpenDevice =
    "1 SerialPortHandler SerialPort.cpp 4 Cannot open serial device. [Port /dev/ttyS2]";
constexpr const char* kDeviceClosed =
    "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyS2]";
constexpr const char* kSendFailed =
    "1 SerialPortHandler SerialPortHandler.cpp 4 Serial Device Send Error.";

// Runs shell text; a failure is a failure of the test.
void Shell(const std::string& text);
