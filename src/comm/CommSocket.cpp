// SPDX-License-Identifier: MIT
#include "comm/CommSocket.h"

#include <utility>

#include "Linux/CancellationShield.h"
#include "Linux/LinuxSocket.h"
#include "Linux/LinuxThread.h"

std::shared_ptr<CCommSocketExport> CreateCommSocket(const std::string& moduleName,
                                                    const std::string& logTag) {
  return std::make_shared<CCommSocket>(moduleName, logTag);
}

CCommSocket::CCommSocket(const std::string& moduleName, const std::string& logTag)
    : CCommSocket(moduleName, logTag, std::make_shared<CLinuxSocket>()) {}

CCommSocket::CCommSocket(const std::string& moduleName, const std::string& logTag,
                         std::shared_ptr<CAbstractSocket> closedSocket)
    : log(moduleName, "CommSocket.cpp", logTag), socket(std::move(closedSocket)) {}

CCommSocket::~CCommSocket() {
  const CCancellationShield shield;
  (void)CCommSocket::Close();
}

int CCommSocket::Listen(uint32_t wantedPort, const CommCallbacks* callbacks) {
  return Opened(socket->Listen(wantedPort), wantedPort, callbacks);
}

int CCommSocket::Connect(uint32_t wantedPort, const CommCallbacks* callbacks) {
  return Opened(socket->Connect(wantedPort), wantedPort, callbacks);
}

int CCommSocket::Opened(int result, uint32_t openedPort, const CommCallbacks* callbacks) {
  if (result != 0) {
    log.Log(LogLevel::kFatal, "Failed to open the Socket connection for RelayService.");
    return result;
  }
  const CStopSignalsHeld held;  // their handler closes, see SignalMask.h
  port = openedPort;
  const CommCallbacks wanted = callbacks != nullptr ? *callbacks : CommCallbacks{};
  if (thread != nullptr) {
    receiver->SetCallbacks(wanted);
  } else {
    StartReceiving(held, wanted);
  }
  return 0;
}

void CCommSocket::StartReceiving(const CStopSignalsHeld& /*held*/, const CommCallbacks& callbacks) {
  // Each thread has a receiver and so a stop flag of its own: a thread that an earlier Close gave
  // up on stays told to stop.
  receiver = std::make_shared<CCommReceiver>(socket, callbacks);
  endedThread.reset();
  thread = std::make_shared<CLinuxThread>();
  auto argument = std::make_unique<std::shared_ptr<CCommReceiver>>(receiver);
  if (thread->Start(CommReceiveThread, argument.get()) == 0) {
    (void)argument.release();  // the routine's now
  }
  // Deliberate: without a thread the link stands and receives nothing.
  // Pinned by CommSocketTest.ListenReturns0WhenNoThreadCanBeMade.
}

int CCommSocket::Send(const uint8_t* data, int length) {
  if (length < 1) {
    return length;
  }
  for (int sent = 0; sent < length;) {
    const int result = socket->Send(data + sent, length - sent);
    if (result <= 0) {
      return -1;  // 0 would be offered for ever
    }
    sent += result;
  }
  return length;
}

int CCommSocket::Close() {
  if (closing.exchange(true)) {
    return 0;  // a second stop signal inside the first one's Close
  }
  if (receiver != nullptr) {
    receiver->Stop();
  }
  (void)socket->Close();
  if (thread != nullptr) {
    (void)thread->Stop();
    endedThread.swap(thread);  // empty before: StartReceiving sees to it
  }
  closing = false;
  return 0;
}
