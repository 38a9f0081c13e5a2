// SPDX-License-Identifier: MIT
// What a row needs besides the calls themselves: the far side of a line, of a connection and of a
// stream, and a look at its own threads. Each of the two kernels brings its own.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace conformance {

// A serial line: the device's side.
class Device {
 public:
  Device() = default;
  virtual ~Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  virtual std::string Node() const = 0;
  virtual void Sends(std::string_view bytes) = 0;
  virtual std::string Takes() = 0;  // what has come so far
  virtual void IsUnplugged() = 0;
};

// A connection's far side.
class Peer {
 public:
  Peer() = default;
  virtual ~Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  virtual void Sends(std::string_view bytes) = 0;
  virtual std::string Takes() = 0;  // what has come so far
  virtual std::string Sees() = 0;   // "bytes", "nothing", "end" or "reset"
  virtual void Finishes() = 0;      // sends nothing more, and reads on
  virtual void Leaves() = 0;        // closes
  virtual void Resets() = 0;
};

// A row begins with one thread and three open numbers: 0 is /dev/null, 1 and 2 are pipes. SIGPIPE
// ends the process, as it does by default.
class Bench {
 public:
  Bench() = default;
  virtual ~Bench() = default;
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // What the row is for: one observation after the other.
  virtual void Saw(const std::string& text) = 0;
  // Several, made from left to right.
  void Saw(std::initializer_list<std::string> texts) {
    for (const std::string& text : texts) {
      Saw(text);
    }
  }

  virtual std::unique_ptr<Device> PlugsIn() = 0;
  // From 127.0.0.1, or another address; null when nobody listens there.
  virtual std::unique_ptr<Peer> Connects(uint16_t port, in_addr_t from = INADDR_LOOPBACK) = 0;
  // Whether who connects now is taken, or waits.
  virtual bool HasRoomFor(uint16_t port) = 0;

  // The reader of number 1.
  virtual std::string OutputTakes(size_t limit) = 0;
  virtual void OutputReaderLeaves() = 0;

  virtual void Puts(const std::string& path, const std::string& text) = 0;
  virtual void SetsVariable(const std::string& name, const std::string& value) = 0;
  virtual int OpenNumbers() = 0;
  // A dump of the device database does not end before it may.
  virtual void HoldsDumps() = 0;
  virtual void LetsDumpsEnd() = 0;

  virtual void Signals(int signal) = 0;  // to the process
  virtual void Pause() = 0;              // others go on

  virtual int OwnThread() = 0;
  virtual bool HasEnded(int thread) = 0;
  // Whether the thread is inside of this call and waits there.
  virtual bool WaitsIn(int thread, const char* call) = 0;
  // The calling thread's next such call does its work and is held before it returns.
  virtual void HoldsAfter(const char* call) = 0;
  virtual bool HasHeld() = 0;
  virtual void LetsGo() = 0;
};

}  // namespace conformance
