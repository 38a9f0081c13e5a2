// SPDX-License-Identifier: MIT
#include "comm/CommReceiver.h"

#include <utility>

#include "Linux/LockGuard.h"

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
  PacketFramer framer;
  while (!stopFlag) {
    const int result = socket->Recv(framer.Space(), framer.Wanted());
    if (stopFlag) {
      return;  // the owner has closed: not an error, whatever came
    }
    if (result < 0) {
      return ReportBrokenStream(result);
    }
    if (framer.Take(static_cast<uint16_t>(result))) {
      Deliver(framer);
      framer.Drop();
    }
  }
}

void CCommReceiver::Deliver(const PacketFramer& framer) {
  const CommCallbacks current = Callbacks();
  if (current.onReceive != nullptr) {
    (void)current.onReceive(framer.Packet(), framer.Length(), current.context);
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
