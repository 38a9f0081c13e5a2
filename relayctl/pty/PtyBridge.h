// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "link/LinkNotices.h"
#include "pty/PseudoTerminal.h"
#include "relay/Client.h"
#include "relay/Writer.h"

class Loop;

// Joins a port of the service and a pseudo-terminal.
//
// The pseudo-terminal appears when the port is open for the first time, and stays. Without an open
// port, what programs write is thrown away, as on a line that is unplugged; without a program, what
// the port receives is. The service may leave and come back meanwhile.
class PtyBridge {
 public:
  // `path`: PseudoTerminal's link.
  PtyBridge(const relay::ClientOptions& options, relay::Port portToOpen, std::string path);

  // Until a signal asks for the end, which it gives. Throws what PseudoTerminal throws. `loop` must
  // outlive the object, and serves nothing else.
  int Run(Loop& loop);

  uint64_t Sent() const { return sent; }          // bytes from programs to the port
  uint64_t Received() const { return received; }  // bytes from the port
  uint64_t Overrun() const { return overrun; }    // of these, those there was no room for

 private:
  void BeTold(const relay::Reply& reply);
  void TakeFromPort(std::string_view data);
  void TakeFromProgram();
  void GiveToProgram();
  void ForgetProgram();
  void Regulate();
  short TerminalEvents() const;
  void Exchange(short events);
  void Offer();

  const relay::Port port;
  const std::string link;
  LinkNotices notices;
  relay::Client client;
  relay::Writer writer;
  Loop* loop = nullptr;
  std::unique_ptr<PseudoTerminal> terminal;  // once the port was open
  relay::ByteQueue toProgram;
  uint64_t sent = 0;
  uint64_t received = 0;
  uint64_t overrun = 0;
};
