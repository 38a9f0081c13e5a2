// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Linux/LinuxLock.h"
#include "Linux/SignalMask.h"
#include "comm/CommSocketExport.h"
#include "core/MachineSettings.h"
#include "core/PortTable.h"
#include "protocol/CommandPacket.h"
#include "protocol/WireFormat.h"
#include "serial/SerialPortExport.h"

// Who makes what the handler works with: a new connection for each link, a new port for each open.
struct Makers {
  decltype(&CreateCommSocket) relay = CreateCommSocket;
  decltype(&CreateSerialPort) port = CreateSerialPort;
};

// The whole service: the relay link, the open ports, and what a command does to them.
class SerialPortHandler {
 public:
  // The handler of the process, made at the first call, destroyed when the process ends.
  static SerialPortHandler* GetInstance();

  explicit SerialPortHandler(const Makers& makers = {});
  ~SerialPortHandler();
  SerialPortHandler(const SerialPortHandler&) = delete;
  SerialPortHandler& operator=(const SerialPortHandler&) = delete;

  // Opens the relay link and keeps it until a stop is requested: true. False when the link cannot
  // be opened, the first time or again. For the main thread.
  bool Run();

  // Asks Run to end and closes the relay link, which takes up to two seconds. For signal handlers
  // on the main thread: it allocates and frees nothing and takes none of this program's locks.
  void RequestStop();

 private:
  // What the relay connection calls, and what the ports call, one at a time each. The two locks are
  // independent: a command and received data are handled at the same time.
  CLinuxLock relayCallbackLock;
  CLinuxLock serialCallbackLock;

  // Where the relay connection and the ports enter, on their receive threads. `context` is the
  // handler.
  static int OnRelayPacket(const uint8_t* packet, uint32_t length, void* context);
  static int OnRelayError(const std::string& text, int result, void* context);
  static void OnSerialData(const std::string& portName, const uint8_t* data, int length,
                           void* context);
  static void OnSerialEvent(void* context);  // only waits for its turn: a hook kept free

  bool OpenRelayConnection();
  bool ReopenRelayConnection();
  bool DropOnePort();
  void SetRelay(const CStopSignalsHeld& held, std::shared_ptr<CCommSocketExport> connection);
  // For the main thread and its signal handlers.
  CCommSocketExport* OwnRelay() NO_THREAD_SAFETY_ANALYSIS { return relay.get(); }
  void SendToRelay(const std::vector<uint8_t>& packet);

  // One packet from the relay service.
  void DispatchCommand(const uint8_t* bytes, uint32_t count) REQUIRES(relayCallbackLock);
  void HandleOpenCommand(const CommandPacket& command) REQUIRES(relayCallbackLock);
  void HandleCloseCommand(const CommandPacket& command) REQUIRES(relayCallbackLock);
  void HandleDataCommand(const CommandPacket& command) REQUIRES(relayCallbackLock);
  void Reply(const CommandPacket& command, uint16_t status) REQUIRES(relayCallbackLock);

  Status OpenPort(const std::string& name, const ReceiveCallback& callback)
      REQUIRES(relayCallbackLock);
  Status ClosePort(const std::string& name) REQUIRES(relayCallbackLock);
  Status ClosePortById(uint16_t portId1, uint16_t portId2) REQUIRES(relayCallbackLock);

  // Sends what a port has read to the relay service; drops it when no such port is open (any
  // more). Only the low 16 bits of `count` are used.
  void ForwardSerialData(const std::string& portName, const uint8_t* bytes, int count)
      REQUIRES(serialCallbackLock);

  const Makers make;

  bool stoppedOrderly = false;                 // what Run returned; main thread only
  std::atomic<bool> stopRequested{false};      // set by RequestStop, cleared and read by Run
  std::atomic<bool> reconnectRequested{true};  // set by OnRelayError, cleared and read by Run

  // Null between a drop and the next creation. Only the main thread changes it, under the lock and
  // with the stop signals held back: so its own signal handlers may read it without the lock, and
  // all other threads copy it under the lock.
  CLinuxLock relayLock;
  std::shared_ptr<CCommSocketExport> relay GUARDED_BY(relayLock);

  PortTable ports;

  MachineSettings machine GUARDED_BY(relayCallbackLock);
};
