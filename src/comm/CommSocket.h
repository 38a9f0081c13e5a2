// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include "Linux/AbstractThread.h"
#include "Linux/LogSource.h"
#include "Linux/SignalMask.h"
#include "comm/CommReceiver.h"
#include "comm/CommSocketExport.h"

class CCommSocket final : public CCommSocketExport {
 public:
  CCommSocket(const std::string& moduleName, const std::string& logTag);
  CCommSocket(const std::string& moduleName, const std::string& logTag,
              std::shared_ptr<CAbstractSocket> closedSocket);
  ~CCommSocket() override;
  CCommSocket(const CCommSocket&) = delete;
  CCommSocket& operator=(const CCommSocket&) = delete;

  int Listen(uint32_t port, const CommCallbacks* callbacks) override;
  int Connect(uint32_t port, const CommCallbacks* callbacks) override;
  int Send(const uint8_t* data, int length) override;
  int Close() override;

 private:
  int Opened(int result, uint32_t port, const CommCallbacks* callbacks);
  void StartReceiving(const CStopSignalsHeld& held, const CommCallbacks& callbacks);

  CLogSource log;
  uint32_t port = 0;  // of the last successful open, for reference only
  std::shared_ptr<CAbstractSocket> socket;
  // The controlling thread changes these two with the stop signals held back.
  std::shared_ptr<CCommReceiver> receiver;
  std::shared_ptr<CAbstractThread> thread;
  // What Close has emptied `thread` into: a signal handler must not free memory.
  std::shared_ptr<CAbstractThread> endedThread;
  std::atomic<bool> closing{false};  // a Close is under way
};
