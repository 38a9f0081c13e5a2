// SPDX-License-Identifier: MIT
#include "comm/CommReceiver.h"

#include <algorithm>
#include <utility>

#include "Linux/LockGuard.h"

namespace {

constexpr uint16_t kLengthBytes = 2;

// A length field of 0 or 1 wraps round to 65534 or 65535 bytes behind the two of the length, so
// that is how many the buffer must hold.
constexpr size_t kBufferBytes = kLengthBytes + 0xFFFF;

}  // namespace

CCommReceiver::CCommReceiver(std::shared_ptr<CAbstractSocket> stream,
                             const CommCallbacks& initialCallbacks)
    : socket(std::move(stream)), callbacks(initialCallbacks) {}

void CCommReceiver::SetCallbacks(const CommCallbacks& replacement) {
  const CLockGuard guard(callbacksLock);
  callbacks = replacement;
}

CommCallbacks CCommReceiver::Callbacks() {
  const CLockGuard guard(callbacksLock);
  return callbacks;
}

void CCommReceiver::Run() {
  buffer.assign(kBufferBytes, 0);
  while (!stopFlag) {
    if (!ReceivePart(0, kLengthBytes)) {
      return;
    }
    const auto packetLength = static_cast<uint16_t>(buffer[0] << 8 | buffer[1]);
    const auto rest = static_cast<uint16_t>(packetLength - kLengthBytes);
    // Deliberate: the length is not checked. A packet of its length field alone asks for 0 more
    // bytes, which the socket reports as a broken stream.
    // Pinned by CommSocketTest.APacketWithLengthField2EndsTheConnectionWithConnectError.
    if (!ReceivePart(kLengthBytes, rest)) {
      return;
    }
    Deliver(packetLength);
    std::fill_n(buffer.begin(), kLengthBytes + rest, uint8_t{0});  // the others are still 0
  }
}

// Reads `count` bytes to `position`, and never a byte of the next packet. False: the thread ends.
bool CCommReceiver::ReceivePart(uint32_t position, uint16_t count) {
  uint16_t wanted = count;
  do {
    const int result = socket->Recv(buffer.data() + position, wanted);
    if (stopFlag) {
      return false;  // the owner has closed: not an error, whatever came
    }
    if (result < 0) {
      ReportBrokenStream(result);
      stopFlag = true;
      return false;
    }
    wanted = static_cast<uint16_t>(wanted - result);
    position += static_cast<uint32_t>(result);
  } while (wanted != 0);
  return true;
}

void CCommReceiver::Deliver(uint32_t packetLength) {
  const CommCallbacks current = Callbacks();
  if (current.onReceive != nullptr) {
    (void)current.onReceive(buffer.data(), packetLength, current.context);
  }
}

void CCommReceiver::ReportBrokenStream(int result) {
  const CommCallbacks current = Callbacks();
  if (current.onError != nullptr) {
    (void)current.onError(kConnectError, result, current.context);
  }
}

void* CommReceiveThread(void* receiver) {
  const std::unique_ptr<std::shared_ptr<CCommReceiver>> owned(
      static_cast<std::shared_ptr<CCommReceiver>*>(receiver));
  (*owned)->Run();
  return nullptr;
}
