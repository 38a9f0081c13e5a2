// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "serial/SerialSettings.h"

// Who receives what a port reads.
struct ReceiveCallback {
  // Runs on the port's receive thread, which reads nothing meanwhile. The bytes are the port's own
  // and are overwritten when the call returns. Null: data are read and dropped.
  void (*onData)(const std::string& portName, const uint8_t* data, int length,
                 void* context) = nullptr;

  void (*onEvent)(void* context) = nullptr;  // kept by the port, never called

  void* context = nullptr;
};

// Results of the opens.
enum OpenResult : int {
  kOpened = 0,        // and receiving, or ready to, see DeferReceiving
  kNoDevice = -1,     // the name or the ids lead to no device node
  kOpenFailed = -2,   // the device could not be opened or configured
  kAlreadyOpen = -3,  // the device object was open already
};

// Result of a close that has left the port open.
constexpr int kCloseFailed = -1;

// How a port was opened.
enum OpenKind : uint32_t { kOpenedByIds = 0, kOpenedByName = 1, kNeverOpened = 2 };

// One serial port, from its open to its close. It delivers every chunk that it reads, on a receive
// thread of its own, and reopens its device when the device comes back after a failure.
//
// Threads: the operations belong to one controlling thread; the getters may be called by any
// thread once Open has returned. Destruction closes, and must not happen on the port's own
// receive thread.
class CSerialPortExport {
 public:
  virtual ~CSerialPortExport() = default;

  // By the ids of a USB adapter: an OpenResult. Throws std::logic_error when no adapter has them.
  virtual int OpenUsb(uint16_t vendorId, uint16_t productId, const ReceiveCallback& callback,
                      const SerialSettings& settings) = 0;

  // By symbolic name: an OpenResult.
  virtual int Open(const std::string& portName, const ReceiveCallback& callback,
                   const SerialSettings& settings) = 0;

  // Writes all of `data`: `length` (as it is when below 1), or -1 when the port has lost its
  // device and cannot reopen it, which is logged. Blocks, and offers the same bytes again without
  // a pause, until the device takes them.
  virtual int Send(const uint8_t* data, int length) = 0;

  virtual uint16_t GetVendorId() = 0;
  virtual uint16_t GetProductId() = 0;
  virtual std::string GetPortName() = 0;
  virtual uint32_t GetOpenKind() = 0;

  // Closes the device and stops the receive thread, within about two seconds. Always 0.
  virtual int Close() = 0;

  // For an owner that has something to say before the port's first bytes: called before an open, it
  // has the port receive nothing until BeginReceiving. What comes meanwhile waits in the terminal.
  virtual void DeferReceiving() = 0;

  // Does nothing for a port that receives already or is not open.
  virtual void BeginReceiving() = 0;
};

// A port that is not open yet. `moduleName` and `logTag` stand in each of its log lines.
std::shared_ptr<CSerialPortExport> CreateSerialPort(const std::string& moduleName,
                                                    const std::string& logTag);
