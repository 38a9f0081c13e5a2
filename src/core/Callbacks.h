// SPDX-License-Identifier: MIT
// Where the relay connection and the serial ports enter the service core. `context` is the
// SerialPortHandler.
//
// The two callbacks of the relay connection exclude each other under relayCallbackLock, those of
// the serial ports under serialCallbackLock. The two locks are independent: a command and received
// data are handled at the same time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Linux/AbstractLock.h"

// Made by the SerialPortHandler's constructor, released when the process ends.
extern std::shared_ptr<CAbstractLock> relayCallbackLock;
extern std::shared_ptr<CAbstractLock> serialCallbackLock;

// One packet from the relay service, on the relay connection's receive thread.
int OnRelayPacket(const uint8_t* packet, uint32_t length, void* context);

// "ConnectError" has the relay link rebuilt; any other text is ignored. Same thread.
int OnRelayError(const std::string& text, int result, void* context);

// Bytes that a port has read, on that port's receive thread.
void OnSerialData(const std::string& portName, const uint8_t* data, int length, void* context);

// Does nothing but wait for its turn: a hook kept free.
void OnSerialEvent(void* context);
