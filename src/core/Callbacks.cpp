// SPDX-License-Identifier: MIT
#include "core/Callbacks.h"

#include "Linux/LockGuard.h"
#include "core/SerialPortHandler.h"

std::shared_ptr<CAbstractLock> relayCallbackLock;
std::shared_ptr<CAbstractLock> serialCallbackLock;

namespace {

SerialPortHandler& HandlerOf(void* context) { return *static_cast<SerialPortHandler*>(context); }

}  // namespace

int OnRelayPacket(const uint8_t* packet, uint32_t length, void* context) {
  const CLockGuard guard(*relayCallbackLock);
  HandlerOf(context).DispatchCommand(packet, length);
  return 0;
}

int OnRelayError(const std::string& text, int /*result*/, void* context) {
  const CLockGuard guard(*relayCallbackLock);
  if (text == "ConnectError") {
    HandlerOf(context).RequestReconnect();
  }
  return 0;
}

void OnSerialData(const std::string& portName, const uint8_t* data, int length, void* context) {
  const CLockGuard guard(*serialCallbackLock);
  HandlerOf(context).ForwardSerialData(portName, data, length);
}

void OnSerialEvent(void* /*context*/) { const CLockGuard guard(*serialCallbackLock); }
