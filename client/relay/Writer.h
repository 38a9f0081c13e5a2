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
// that all data before it have been handed to the line. At most kWindow bytes are on their way.
//
// Must not outlive its client. When the link ends, what was not confirmed is lost: Clear drops it.
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

  // Bytes that the service has handed to the line, as far as it is known.
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
