// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "relay/Client.h"

namespace relay {

// Writes to one port at the pace at which the service takes the bytes.
//
// A data command has no answer, and the buffers between take megabytes that a slow line needs
// minutes for. So the writer sends commands of at most kPiece bytes, each followed from time to
// time by an open of the same port: the port is open already, stays as it is, and the answer says
// that the service has taken all data before it. At most kWindow bytes are on their way.
//
// Taken is not delivered. The service has written them to the line, whose buffer may hold the last
// of them for a while and loses them at a close; or it has dropped them, as it does without a word
// while the device is unplugged. A close and an open of the port, both answered with 0, show that
// the device is there at the end; that it was there all the time nobody tells.
//
// Must not outlive its client. When the link ends, what was not confirmed may be taken or not:
// Clear forgets it.
class Writer {
 public:
  static constexpr size_t kPiece = 4096;
  static constexpr size_t kWindow = 32768;

  // `blockSize`: the most bytes of one block; 0: one block in each command.
  Writer(Client& linkClient, const Port& port, size_t blockSize = 0);

  // Takes the bytes, of any number, and sends what the window allows.
  void Write(std::string_view bytes);

  // Has the service confirm all that has been written so far, so that Pending becomes 0.
  void Confirm();

  // Bytes taken by Write that are not confirmed yet. Without Confirm the last ones never are.
  uint64_t Pending() const;

  // Bytes taken by Write, and others of the client, that are not sent yet: a caller that reads from
  // somewhere stops at some.
  uint64_t Unsent() const;

  // Bytes that the service has taken, as far as it is known.
  uint64_t Confirmed() const;

  // Drops what is not sent. Called when the link has ended.
  void Clear();

 private:
  struct State;
  static void Pump(const std::shared_ptr<State>& state);
  static bool HasRoom(const State& state);
  static void FenceIfDue(const std::shared_ptr<State>& state);
  static void SendFence(const std::shared_ptr<State>& state);

  std::shared_ptr<State> shared;  // with the answers to come
};

}  // namespace relay
