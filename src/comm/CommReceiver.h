// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "Linux/AbstractSocket.h"
#include "Linux/LinuxLock.h"
#include "comm/CommSocketExport.h"

// What a connection shares with one receive thread. Both hold it: a thread that the bounded stop
// gave up on may outlive its connection.
class CCommReceiver {
 public:
  CCommReceiver(std::shared_ptr<CAbstractSocket> stream, const CommCallbacks& callbacks);

  // Reads packets until the stream ends or Stop is called. Runs on the receive thread.
  void Run();

  // The thread ends at its next look at the stream, without an error report. Any thread.
  void Stop() { stopFlag = true; }

  // Counts from the next packet or error on. Any thread.
  void SetCallbacks(const CommCallbacks& replacement);

 private:
  bool ReceivePart(uint32_t position, uint16_t count);
  void Deliver(uint32_t packetLength);
  void ReportBrokenStream(int result);
  CommCallbacks Callbacks();

  std::shared_ptr<CAbstractSocket> socket;
  std::atomic<bool> stopFlag{false};  // written by the owner and by the receive thread
  CLinuxLock callbacksLock;           // guards `callbacks`; never held during a callback
  CommCallbacks callbacks;
  std::vector<uint8_t> buffer;  // the receive thread's
};

// The routine of the receive thread. `receiver` is a std::shared_ptr<CCommReceiver> on the heap,
// which the routine takes over. Returns null.
void* CommReceiveThread(void* receiver);
