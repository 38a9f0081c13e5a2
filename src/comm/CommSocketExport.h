// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

// The text of an error that ends the stream; there is no other one.
constexpr const char* kConnectError = "ConnectError";

// What a relay connection tells its owner. Both functions run on the connection's receive thread,
// either may be null, their results are ignored, and neither may Close its own connection.
struct CommCallbacks {
  // One complete packet, its two length bytes included. The bytes are the connection's own and
  // are overwritten when the call returns; `length` is what the packet's length field says.
  int (*onReceive)(const uint8_t* packet, uint32_t length, void* context) = nullptr;

  // The stream has ended: `text` is kConnectError, `result` is -1. Once per stream at most; never
  // after Close.
  int (*onError)(const std::string& text, int result, void* context) = nullptr;

  void* context = nullptr;
};

// The link to the relay service: cuts the incoming stream into packets, sends whole packets.
//
// Threads: Listen, Connect, Close and destruction belong to one controlling thread (its signal
// handlers may Close as well). Any thread may Send at any time, but concurrent Sends are not
// kept apart here.
class CCommSocketExport {
 public:
  virtual ~CCommSocketExport() = default;  // closes

  // Waits, without limit, for the peer on 127.0.0.1:`port` and starts to receive. 0, or the errno
  // value of the failure, which has then been logged. While the receive thread of an earlier open
  // has not been Closed: the callbacks and the port are replaced, and nothing else.
  virtual int Listen(uint32_t port, const CommCallbacks* callbacks) = 0;

  // The same, as the side that connects.
  virtual int Connect(uint32_t port, const CommCallbacks* callbacks) = 0;

  // Writes all of `data`: `length`, or -1 when the stream did not take it all. A length below 1 is
  // returned as it is. Blocks while the peer does not read.
  virtual int Send(const uint8_t* data, int length) = 0;

  // Ends the stream and its receive thread, within about two seconds; always 0. A Close that
  // interrupts another one on the same thread returns at once and leaves the work to it.
  virtual int Close() = 0;
};

// `moduleName` and `logTag` stand in each log line of the connection.
std::shared_ptr<CCommSocketExport> CreateCommSocket(const std::string& moduleName,
                                                    const std::string& logTag);
