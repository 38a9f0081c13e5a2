// SPDX-License-Identifier: MIT
#include "pty/PtyBridge.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <utility>

#include "ExitStatus.h"
#include "link/Loop.h"
#include "show/Output.h"

namespace {

// What waits for a program while more is taken from the link.
constexpr size_t kMostWaiting = size_t{1} << 18;

// While an answer is under way the link has to be read, and a line that takes nothing delays it:
// behind so much, bytes are lost.
constexpr size_t kMostAtAll = size_t{1} << 24;

}  // namespace

PtyBridge::PtyBridge(const relay::ClientOptions& options, relay::Port portToOpen,
                     TerminalPlace terminalPlace, std::string programCommand)
    : port(std::move(portToOpen)),
      place(std::move(terminalPlace)),
      command(std::move(programCommand)),
      notices(options.port, [this](const LinkNotices::Notice& notice) { TellOf(notice); }),
      client([&] {
        relay::ClientOptions lasting = options;
        lasting.reconnect = true;
        return lasting;
      }()),
      writer(client, port) {
  relay::Events events;
  events.reply = [this](const relay::Reply& reply) { BeTold(reply); };
  events.disconnected = [this](const relay::Error&) { writer.Clear(); };
  events.received = [this](const relay::Port& from, std::string_view data) {
    if (from == port) {
      TakeFromPort(data);
    }
  };
  notices.Attach(events);
  client.SetEvents(std::move(events));
}

// Standard output has the pseudo-terminal's path alone, or is the program's. A program may have the
// terminal in raw mode, in which a new line does not begin at the left.
void PtyBridge::Tell(const std::string& text) const {
  PrintNotice(text + (program && isatty(STDERR_FILENO) == 1 ? "\r" : ""));
}

void PtyBridge::TellOf(const LinkNotices::Notice& notice) const {
  if (!isBeside || !notice.port.empty()) {
    Tell(notice.text);
  }
}

void PtyBridge::BeTold(const relay::Reply& reply) {
  const bool isOpen = reply.status == kStatusDone || reply.status == kStatusUnavailable;
  if (isOpen && terminal == nullptr) {
    Offer();
  }
}

// A program may have come meanwhile, and what it is the first to wait for with it.
void PtyBridge::TakeFromPort(std::string_view data) {
  if (terminal != nullptr && !terminal->InUse()) {
    (void)terminal->Look();
  }
  if (terminal == nullptr || !terminal->InUse()) {
    return;
  }
  const size_t room = (isBeside ? kMostWaiting : kMostAtAll) - toProgram.Size();
  if (data.size() > room) {
    overrun += data.size() - room;
    TellOfOverrun();
  }
  toProgram.Add(data.substr(0, room));
  GiveToProgram();
}

// Once for each program, as it goes on for as long as that one does not read.
void PtyBridge::TellOfOverrun() {
  if (isBeside && !std::exchange(isOverrun, true)) {
    Tell(port.Text() + ": the program at " + terminal->Node() +
         " does not read; what comes is thrown away");
  }
}

// Beside others, nobody waits for a program.
void PtyBridge::Regulate() {
  if (isBeside) {
    return;
  }
  if (toProgram.Size() >= kMostWaiting) {
    client.Pause();
  } else if (toProgram.Size() < kMostWaiting / 2) {
    client.Resume();
  }
}

void PtyBridge::ForgetProgram() {
  toProgram.Clear();
  isOverrun = false;
  Regulate();
}

void PtyBridge::GiveToProgram() {
  size_t count = 1;
  while (!toProgram.IsEmpty() && count > 0) {
    const std::string_view bytes = toProgram.View();
    count = terminal->Write(bytes.data(), bytes.size());
    toProgram.Take(count);
  }
  Regulate();
}

// Whether there is no more at the moment.
bool PtyBridge::TakeFromProgram() {
  std::array<char, 4096> buffer;
  while (writer.Unsent() == 0) {
    const size_t count = terminal->Read(buffer.data(), buffer.size());
    if (count == 0) {
      return true;
    }
    if (client.IsOpen(port)) {
      writer.Write(std::string_view(buffer.data(), count));
    }
  }
  return false;
}

// 0: nothing to wait for there. A pseudo-terminal without a program is always ready to say so, thus
// it is not asked while nothing is read anyway.
short PtyBridge::TerminalEvents() const {
  if (terminal == nullptr || !terminal->InUse()) {
    return 0;
  }
  return static_cast<short>((writer.Unsent() == 0 ? POLLIN : 0) |
                            (toProgram.IsEmpty() ? 0 : POLLOUT));
}

void PtyBridge::Exchange(short events) {
  if ((events & POLLHUP) != 0) {
    ForgetProgram();  // it has left; what it has written is still to be taken
  }
  if (terminal->InUse()) {
    GiveToProgram();
    (void)TakeFromProgram();
  }
  if (!terminal->InUse()) {
    ForgetProgram();
  }
}

void PtyBridge::Offer() {
  terminal = std::make_unique<PseudoTerminal>(place);
  loop->Watch(
      terminal->Openings(), [] { return short{POLLIN}; },
      [this](short) {
        (void)terminal->Look();
        Exchange(0);
      });
  loop->Watch(
      terminal->Bytes(), [this] { return TerminalEvents(); },
      [this](short events) { Exchange(events); });
  if (command.empty()) {
    PrintLine((place.link.empty() ? "" : place.link + " -> ") + terminal->Node());
  } else {
    program.emplace(command, terminal->Node());
  }
}

// The keyboard's signals go to the program as well, which may take them for something else.
void PtyBridge::LeaveToProgram(int signal) {
  loop->OnSignal(signal, [this, signal] { quit = program ? quit : signal; });
}

bool PtyBridge::IsOver() {
  if (quit != 0) {
    return true;
  }
  if (!program || !program->Status() || !TakeFromProgram()) {
    return false;
  }
  if (!std::exchange(isConfirming, true)) {
    writer.Confirm();
  }
  return writer.Pending() == 0;
}

int PtyBridge::ExitStatus(int signal) {
  if (program && signal == 0) {
    return program->WaitForStatus();
  }
  if (program) {
    program->Signal(signal);
    terminal.reset();
    (void)program->WaitForStatus();
  }
  return command.empty() ? kExitDone : kExitSignal + signal;
}

void PtyBridge::Attach(Loop& ownLoop) {
  loop = &ownLoop;
  loop->Serve(client);
  loop->When([this] { return notices.Due(); }, [this] { notices.Remind(); });
  client.KeepOpen(port);
  client.Start();
}

void PtyBridge::Begin(Loop& ownLoop) {
  isBeside = true;
  Attach(ownLoop);
}

void PtyBridge::End() {
  client.Stop();
  if (overrun > 0) {
    Tell(std::to_string(overrun) +
         " received bytes were thrown away: the program did not read them");
  }
}

int PtyBridge::Run(Loop& ownLoop) {
  Attach(ownLoop);
  LeaveToProgram(SIGINT);
  LeaveToProgram(SIGQUIT);
  loop->OnSignal(SIGCHLD, [] {});  // only to be woken
  const int signal = loop->Run([this] { return IsOver(); });
  End();
  return ExitStatus(signal != 0 ? signal : quit);
}
