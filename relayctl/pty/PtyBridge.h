// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "link/LinkNotices.h"
#include "pty/Program.h"
#include "pty/PseudoTerminal.h"
#include "pty/TerminalPlace.h"
#include "relay/Client.h"
#include "relay/Writer.h"

class Loop;

// Joins a port of the service and a pseudo-terminal.
//
// A program that does not read holds up the link, so that nothing is lost; beside others, who would
// wait too, what it does not read is thrown away behind 256 KiB.
//
// The pseudo-terminal appears when the port is open for the first time, and stays. Without an open
// port, what programs write is thrown away, as on a line that is unplugged; without a program, what
// the port receives is. The service may leave and come back meanwhile.
//
// A command line of the shell can be run on it once it appears; {} stands for its path. Ctrl-C is
// then that program's. What ends this process is passed on to it, and the pseudo-terminal hangs up.
class PtyBridge {
 public:
  // `programCommand`: the command line; empty: the path is printed instead.
  PtyBridge(const relay::ClientOptions& options, relay::Port portToOpen,
            TerminalPlace terminalPlace, std::string programCommand);

  // Beside others in the caller's loop, who tells of the link. `loop` must outlive the object.
  void Begin(Loop& ownLoop);

  // Leaves the service, and tells what was lost.
  void End();

  // Until the program has ended and the service has taken what it wrote, or until a signal asks for
  // the end. Gives the exit status: the program's; without one 0, as a signal is the usual end
  // then. Throws what PseudoTerminal throws. `loop` must outlive the object, and serves nothing
  // else.
  int Run(Loop& loop);

 private:
  void Attach(Loop& ownLoop);
  void Tell(const std::string& text) const;
  void TellOf(const LinkNotices::Notice& notice) const;
  void LeaveToProgram(int signal);
  bool IsOver();
  int ExitStatus(int signal);
  void BeTold(const relay::Reply& reply);
  void TakeFromPort(std::string_view data);
  bool TakeFromProgram();
  void GiveToProgram();
  void ForgetProgram();
  void TellOfOverrun();
  void Regulate();
  short TerminalEvents() const;
  void Exchange(short events);
  void Offer();

  const relay::Port port;
  const TerminalPlace place;
  const std::string command;
  LinkNotices notices;
  relay::Client client;
  relay::Writer writer;
  Loop* loop = nullptr;
  std::unique_ptr<PseudoTerminal> terminal;  // once the port was open
  std::optional<Program> program;
  relay::ByteQueue toProgram;
  uint64_t overrun = 0;  // received bytes that there was no room for
  int quit = 0;          // the signal
  bool isConfirming = false;
  bool isBeside = false;
  bool isOverrun = false;  // and told
};
