// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Linux/LinuxThread.h"
#include "serial/FakeDevice.h"
#include "serial/SerialPort.h"
#include "support/CapturedLog.h"
#include "support/Eventually.h"
#include "support/PtyLine.h"
#include "support/SerialCalls.h"
#include "support/StreamCapture.h"

// Receives what a port delivers.
class Receiver {
 public:
  ReceiveCallback Callback() { return {OnData, OnEvent, this}; }

  std::string Bytes() const;
  std::vector<std::string> Names() const;  // the port name of each call
  int Events() const;
  bool WaitFor(const std::string& expected) const;

  // Runs on the receive thread at each delivery. Set before the port opens.
  std::function<void(const uint8_t* data, int length)> hook;

 private:
  static void OnData(const std::string& portName, const uint8_t* data, int length, void* context);
  static void OnEvent(void* context);

  mutable std::mutex lock;
  std::string bytes;
  std::vector<std::string> names;
  int events = 0;
};

// A port whose device is a pseudo-terminal in the place of the first physical port's node.
class SerialPortTest : public testing::Test {
 protected:
  static constexpr const char* kName = "#PhysicalPort0";
  static constexpr const char* kNode = "/dev/ttyS2";
  static constexpr SerialSettings kSettings = {115200, 8, kParityNone, kOneStopBit, kNoFlowControl};
  static constexpr const char* kCannotOpen = "Cannot open serial device. [Port /dev/ttyS2]";
  static constexpr const char* kClosed = "Close serial device. [Port /dev/ttyS2]";

  SerialPortTest() { Plug(); }
  void TearDown() override;

  int Open() { return port->Open(kName, receiver.Callback(), kSettings); }
  int Send(const std::string& bytes) {
    return port->Send(reinterpret_cast<const uint8_t*>(bytes.data()),
                      static_cast<int>(bytes.size()));
  }

  void Plug();
  void Unplug();  // the node is gone and the open device hung up
  bool WaitForOpens(int count);

  // A port on the fake device instead of the line, and the answers of its reads, in this order.
  void UseFakeDevice();
  void ScriptReads(std::vector<std::string> chunks);
  bool WaitForScriptEnd() const;  // a read behind the last chunk has begun

  SerialCalls calls;
  std::unique_ptr<PtyLine> line;
  Receiver receiver;
  std::atomic<bool> scriptEnded{false};
  std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
  std::shared_ptr<CSerialPortExport> port = CreateSerialPort("TheModule", "TheTag");
};
