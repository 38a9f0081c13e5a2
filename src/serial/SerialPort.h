// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "Linux/AbstractThread.h"
#include "Linux/LogSource.h"
#include "serial/AbstractSerial.h"
#include "serial/SerialPortExport.h"

class CLine;

class CSerialPort final : public CSerialPortExport {
 public:
  // A new device for each open.
  using DeviceMaker = std::function<std::shared_ptr<CAbstractSerial>()>;

  CSerialPort(const std::string& moduleName, const std::string& logTag);
  CSerialPort(const std::string& moduleName, const std::string& logTag, DeviceMaker maker);
  ~CSerialPort() override;
  CSerialPort(const CSerialPort&) = delete;
  CSerialPort& operator=(const CSerialPort&) = delete;

  int OpenUsb(uint16_t vendorId, uint16_t productId, const ReceiveCallback& callback,
              const SerialSettings& settings) override;
  int Open(const std::string& portName, const ReceiveCallback& callback,
           const SerialSettings& settings) override;
  int Send(const uint8_t* data, int length) override;
  uint16_t GetVendorId() override { return vendorId; }
  uint16_t GetProductId() override { return productId; }
  std::string GetPortName() override { return portName; }
  uint32_t GetOpenKind() override { return openKind; }
  int Close() override;
  void DeferReceiving() override { receivingDeferred = true; }
  void BeginReceiving() override;

  // Puts the node of the first USB adapter with these ids into `path`, which is empty when its
  // record names none. Throws std::logic_error when no adapter has them.
  static void LookupUsbDevicePath(unsigned vendorId, unsigned productId, std::string& path);

 private:
  void ReplaceLine();
  int Start(const ReceiveCallback& callback, const SerialSettings& settings);

  CLogSource log;
  const DeviceMaker makeDevice;
  std::string portName;  // the name given to Open, or the device path of OpenUsb
  uint16_t vendorId = 0;
  uint16_t productId = 0;
  uint32_t openKind = kNeverOpened;
  std::shared_ptr<CLine> line;              // empty before the first open
  std::shared_ptr<CAbstractThread> thread;  // of the last open
  bool receivingDeferred = false;
  bool receivingBegun = false;  // since the last open
};
