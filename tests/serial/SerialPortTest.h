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
#include "serial/Pauses.h"
#include "serial/SerialPort.h"
#include "support/CapturedLog.h"
#include "support/Eventually.h"
#include "support/StreamCapture.h"

// Receives what a port delivers.
class Receiver {
 public:
  struct Delivery {
    std::string portName;
    std::string bytes;
  };

  ReceiveCallback Callback() { return {OnData, OnEvent, this}; }

  std::vector<Delivery> Deliveries() const {
    const std::lock_guard guard(lock);
    return deliveries;
  }
  std::string Bytes() const {
    std::string bytes;
    for (const Delivery& delivery : Deliveries()) {
      bytes += delivery.bytes;
    }
    return bytes;
  }
  bool WaitFor(const std::string& expected) const {
    return Eventually([&] { return Bytes() == expected; });
  }

  // Runs on the receive thread at each delivery. Set before the port opens.
  std::function<void(const uint8_t* data, int length)> hook;

 private:
  static void OnData(const std::string& portName, const uint8_t* data, int length, void* context) {
    auto& self = *static_cast<Receiver*>(context);
    {
      const std::lock_guard guard(self.lock);
      self.deliveries.push_back({portName, std::string(data, data + length)});
    }
    if (self.hook) {
      self.hook(data, length);
    }
  }
  static void OnEvent(void* /*context*/) { ADD_FAILURE() << "a serial port has no events"; }

  mutable std::mutex lock;
  std::vector<Delivery> deliveries;
};

extern int threadsMade;  // so far, in the programs that replace pthread_create

// A port on a fake device.
class SerialPortTest : public testing::Test {
 protected:
  static constexpr const char* kName = "#PhysicalPort0";
  static constexpr SerialSettings kSettings = {115200, 8, kParityNone, kOneStopBit, kNoFlowControl};
  static constexpr const char* kCannotOpen = "Cannot open serial device. [Port /dev/ttyS2]";
  static constexpr const char* kClosed = "Close serial device. [Port /dev/ttyS2]";

  void TearDown() override {
    port.reset();
    EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
    onPause = nullptr;
  }

  int Open() { return port->Open(kName, receiver.Callback(), kSettings); }
  int Send(const std::string& bytes) {
    return port->Send(reinterpret_cast<const uint8_t*>(bytes.data()),
                      static_cast<int>(bytes.size()));
  }
  bool WaitForOpens(size_t count) const {
    return Eventually([&] { return device->Openings().size() >= count; });
  }
  bool WaitUntilDrained() const {
    return Eventually([&] { return device->isDrained.load(); });
  }

  Receiver receiver;
  std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
  std::shared_ptr<CSerialPortExport> port =
      std::make_shared<CSerialPort>("TheModule", "TheTag", [this] { return device; });
};
