// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>

#include "Linux/AbstractSocket.h"
#include "Linux/LinuxLock.h"
#include "comm/CommSocketExport.h"
#include "protocol/PacketFramer.h"

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
  void Deliver(const PacketFramer& framer);
  void ReportBrokenStream(int result);
  CommCallbacks Callbacks();

  std::shared_ptr<CAbstractSocket> socket;
  std::atomic<bool> stopFlag{false};  // written by the owner, read by the receive thread
  CLinuxLock callbacksLock;           // never held during a callback
  CommCallbacks callbacks GUARDED_BY(callbacksLock);
};

// The routine of the receive thread. `receiver` is a std::shared_ptr<CCommReceiver> on the heap,
// which the routine takes over. Returns null.
void* CommReceiveThread(void* receiver);
