// SPDX-License-Identifier: MIT
// What every end-to-end test has at hand.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "e2e/support/Configuration.h"
#include "e2e/support/Device.h"
#include "e2e/support/LogFile.h"
#include "e2e/support/Relay.h"
#include "e2e/support/Service.h"
#include "e2e/support/UdevDatabase.h"
#include "e2e/support/Wire.h"
#include "e2e/support/Workplace.h"
#include "support/Eventually.h"

// A row of a table of cases, as test programs name it.
template <typename Case>
std::string NameOf(const testing::TestParamInfo<Case>& row) {
  return row.param.name;
}

// Commands for and replies about the port #PhysicalPort0.
constexpr const char* kOpenPort0 = "0014 01 02 000E '#PhysicalPort0'";
constexpr const char* kClosePort0 = "0014 02 02 000E '#PhysicalPort0'";
constexpr const char* kPort0Opened = "0016 01 02 000E '#PhysicalPort0' 0000";
constexpr const char* kPort0Closed = "0016 02 02 000E '#PhysicalPort0' 0000";

// An answered command that changes nothing, as the port "X" is never open: a fence behind commands
// that are not answered.
constexpr const char* kFence = "0007 02 02 0001 'X'";
constexpr const char* kFenceReply = "0009 02 02 0001 'X' 0002";

// Log lines.
constexpr const char* kStarted =
    "3 SerialPortHandler SerialPortHandler.cpp 4 Serial Port Handler start running.";
constexpr const char* kStopRequested = "3 SerialPortHandler SerialPortHandler.cpp 4 request stop.";
constexpr const char* kStopped =
    "3 SerialPortHandler SerialPortHandler.cpp 4 Serial Port Handler stop.";
constexpr const char* kLinkFailed =
    "0 SerialPortHandler CommSocket.cpp 4 Failed to open the Socket connection for RelayService.";
constexpr const char* kRefused =
    "1 SerialPortHandler SerialPortHandler.cpp 4 Command parse failed.";

class ServiceTest : public testing::Test {
 protected:
  ServiceTest() { configuration.Port("#PhysicalPort0", "9600 8 none 1 none"); }
  ~ServiceTest() override;  // shows log and streams of a test that failed

  void StartService(Service::Session session = Service::Session::kInherited) {
    service = std::make_unique<Service>(session);
  }

  // Waits until the service listens for the next relay, and connects.
  void Link(uint16_t port = Relay::kDefaultPort);

  // Starts the service and connects.
  void StartLinked(Service::Session session = Service::Session::kInherited) {
    StartService(session);
    Link();
  }

  // The same, with #PhysicalPort0 plugged in and open.
  void StartWithOpenPort(Service::Session session = Service::Session::kInherited);

  // Waits until the service has finished what it was about to do: its main thread supervises and
  // its receive threads wait for input.
  void Settle();

  // Sends so much from the device to a relay that reads nothing, that the port's receive thread
  // comes to a halt in the middle of a send. Gives how many bytes.
  size_t Clog();

  // Stops the linked service, once it is settled, and gives its end as Service::WaitForExit does.
  std::string Stop(int signal);

  const workplace::Folders folders;
  Configuration configuration;
  UdevDatabase udev;
  std::unique_ptr<Device> device;
  std::unique_ptr<Service> service;
  std::unique_ptr<Relay> relay;

 private:
  size_t links = 0;
};
