// SPDX-License-Identifier: MIT
// The service core's three neighbours, in the test's hands: the relay connection, the ports and the
// platform library.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "comm/CommSocketExport.h"
#include "serial/SerialPortExport.h"

// A serial port that does as it is told.
class FakePort final : public CSerialPortExport {
 public:
  ~FakePort() override {
    if (whenReleased) {
      whenReleased();
    }
  }
  int OpenUsb(uint16_t, uint16_t, const ReceiveCallback&, const SerialSettings&) override {
    return -1;
  }
  int Open(const std::string& name, const ReceiveCallback& given,
           const SerialSettings& settings) override;
  int Send(const uint8_t* data, int length) override;
  uint16_t GetVendorId() override { return vendorId; }
  uint16_t GetProductId() override { return productId; }
  std::string GetPortName() override { return portName; }
  uint32_t GetOpenKind() override { return openKind; }
  int Close() override;
  void DeferReceiving() override { receivingDeferred = true; }
  void BeginReceiving() override;

  int openResult = 0;
  std::string receivesAtOnce;  // waits in the device and comes as soon as the port receives
  std::function<void()> whenReleased;
  int closeResult = 0;
  int failingWrite = -1;  // index of the write that fails
  uint32_t openKind = kOpenedByName;
  uint16_t vendorId = 0;
  uint16_t productId = 0;

  std::string portName;
  ReceiveCallback callback;
  SerialSettings openedWith;
  std::vector<std::string> writes;  // hex
  int closes = 0;

 private:
  bool receivingDeferred = false;
};

// A relay connection whose peer the test plays.
class FakeRelay final : public CCommSocketExport {
 public:
  int Listen(uint32_t port, const CommCallbacks* given) override;
  int Connect(uint32_t, const CommCallbacks*) override { return -1; }
  int Send(const uint8_t* data, int length) override;
  int Close() override;

  void Sends(const std::string& hex);  // a packet from the peer

  CommCallbacks callbacks;
  uint32_t listenedOn = 0;
  std::vector<std::string> sent;        // hex, in order
  std::function<void()> whenListening;  // runs inside Listen
  std::function<void()> whenSending;    // runs inside Send, before the packet is out
  int listenResult = 0;
  std::atomic<int> closes = 0;
};

// What the handler under test makes.
std::shared_ptr<CCommSocketExport> MakeRelay(const std::string& moduleName,
                                             const std::string& logTag);
std::shared_ptr<CSerialPortExport> MakePort(const std::string& moduleName,
                                            const std::string& logTag);

// What they made and the platform library answers. The test's and the service's threads
// both come here.
class World {
 public:
  static World& Get();

  // Waits until `count` relay connections listened, or fails the test.
  std::shared_ptr<FakeRelay> RelayNumber(size_t count);
  void Listening(FakeRelay* relay);

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::shared_ptr<FakeRelay>> relays;  // in the order of their creation
  std::vector<FakeRelay*> listening;
  std::vector<std::weak_ptr<FakePort>> ports;
  std::function<void(FakePort&)> prepare = [](FakePort&) {};
  std::function<void(FakeRelay&)> prepareRelay = [](FakeRelay&) {};
  std::function<void()> whenPausing = [] {};  // runs before each pause of the service

  // The five setting words by port name, and the relay port's text; null: no record.
  std::map<std::string, std::vector<std::string>> configuration;
  std::unique_ptr<std::string> relayPort;
  ReceiveCallback receive;  // what the last open was given
  int cancelState = -1;     // of the thread that looked up a port, meanwhile

  std::vector<std::string> log;  // "LEVEL FILE MESSAGE"
  bool Logged(const std::string& line);
  int TimesLogged(const std::string& line);
};
