// SPDX-License-Identifier: MIT
#include "pty/TerminalSession.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "link/Loop.h"
#include "pty/RawTerminal.h"
#include "show/Output.h"
#include "show/Printable.h"

namespace {

constexpr std::chrono::milliseconds kProgressPause{100};

relay::ClientOptions Lasting(relay::ClientOptions options) {
  options.reconnect = true;
  return options;
}

// To the terminal as a whole; without one there is nobody to tell.
void WriteWhole(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
    if (count < 0 && errno != EINTR) {
      return;
    }
    text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  }
}

}  // namespace

TerminalSession::TerminalSession(const relay::ClientOptions& linkOptions, relay::Port portToOpen,
                                 const TerminalOptions& terminalOptions)
    : port(std::move(portToOpen)),
      options(terminalOptions),
      notices(linkOptions.port, [this](const LinkNotices::Notice& notice) { Say(notice.text); }),
      client(Lasting(linkOptions)),
      writer(client, port),
      keys(terminalOptions.escapeKey) {
  relay::Events events;
  events.disconnected = [this](const relay::Error&) { LinkEnded(); };
  events.received = [this](const relay::Port& from, std::string_view data) {
    if (from == port) {
      received += data.size();
      ShowReceived(data);
    }
  };
  notices.Attach(events);
  client.SetEvents(std::move(events));
}

int TerminalSession::Run(const RawTerminal& raw, Loop& loop) {
  terminal = &raw;
  Say(port.Text() + "; " + keys.EscapeName() + " h for help, " + keys.EscapeName() + " q to leave");
  loop.Serve(client);
  loop.When([this] { return notices.Due(); }, [this] { notices.Remind(); });
  loop.Watch(
      STDIN_FILENO, [this] { return WantedKeys(); }, [this](short) { TakeKeys(); });
  loop.When([this] { return ProgressDue(); }, [this] { ContinueFile(); });
  loop.OnSignal(SIGTSTP, [this] { Suspend(); });
  // The shell may have changed the settings meanwhile.
  loop.OnSignal(SIGCONT, [this] { terminal->SetRaw(); });
  loop.OnSignal(SIGQUIT, [this] { quit = SIGQUIT; });
  client.KeepOpen(port);
  client.Start();
  const int signal = loop.Run([this] { return leaving || quit != 0; });
  client.Stop();
  Say("left " + port.Text() + ": " + std::to_string(received) + " bytes received, " +
      std::to_string(sent) + " sent");
  return signal != 0 ? signal : quit;
}

// As Ctrl-Z does: the whole job, and not at all where no shell could continue it.
void TerminalSession::Suspend() const {
  sigset_t stop;
  (void)sigemptyset(&stop);
  (void)sigaddset(&stop, SIGTSTP);
  terminal->Restore();
  (void)sigprocmask(SIG_UNBLOCK, &stop, nullptr);
  (void)kill(0, SIGTSTP);
  (void)sigprocmask(SIG_BLOCK, &stop, nullptr);
  terminal->SetRaw();
}

// No keys while the line takes no bytes: they would have to be kept. But those that give a file up.
short TerminalSession::WantedKeys() const {
  return writer.Unsent() < relay::Writer::kPiece || file ? POLLIN : 0;
}

std::optional<relay::Clock::time_point> TerminalSession::ProgressDue() const {
  if (!file) {
    return std::nullopt;
  }
  // A file that can go on does at once.
  return file->IsDone() || file->MayContinue() ? relay::Clock::now()
                                               : progressShown + kProgressPause;
}

void TerminalSession::TakeKeys() {
  std::array<char, 4096> buffer;
  const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count > 0) {
    Typed(std::string_view(buffer.data(), static_cast<size_t>(count)));
  } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
    leaving = true;  // the terminal is gone
  }
}

// What was typed ahead of a prompt is the answer to it.
void TerminalSession::Typed(std::string_view typed) {
  while (!typed.empty()) {
    if (prompt) {
      AnswerPrompt(typed);
      continue;
    }
    for (const KeyPress& press : keys.Take(typed)) {
      if (press.action == TerminalAction::kSend) {
        SendTyped(press.bytes);
      } else {
        Perform(press);
      }
    }
  }
}

void TerminalSession::AnswerPrompt(std::string_view& typed) {
  Show(prompt->Take(typed));
  if (prompt->Now() == LinePrompt::State::kTyping) {
    return;
  }
  const LinePrompt answered = *std::exchange(prompt, std::nullopt);
  atLineStart = true;
  if (answered.Now() == LinePrompt::State::kDone && !answered.Text().empty()) {
    SendFile(answered.Text());
  }
}

void TerminalSession::SendTyped(const std::string& typed) {
  constexpr char kInterrupt = 3;
  if (file) {
    if (typed.find(kInterrupt) != std::string::npos) {
      file.reset();
      writer.Clear();
      Show("\n");
      Say("given up; what is on its way is still sent");
    }
    return;
  }
  if (!client.IsOpen(port)) {
    Say("not sent: the port is not open");
    return;
  }
  std::string bytes;
  for (const char key : typed) {
    bytes += key == '\r' ? BytesOf(options.ending) : std::string(1, key);
  }
  sent += bytes.size();
  writer.Write(bytes);
  if (options.echo) {
    ShowSent(typed, bytes);
  }
}

void TerminalSession::Perform(const KeyPress& press) {
  switch (press.action) {
    case TerminalAction::kQuit:
      leaving = true;
      break;
    case TerminalAction::kSuspend:
      EndLine();
      Suspend();
      break;
    case TerminalAction::kHelp:
      EndLine();
      Show(keys.Help());
      break;
    case TerminalAction::kHex:
      EndLine();
      options.hex = !options.hex;
      Say("hex " + OnOff(options.hex));
      break;
    case TerminalAction::kEcho:
      options.echo = !options.echo;
      Say("local echo " + OnOff(options.echo));
      break;
    case TerminalAction::kEnding:
      options.ending = Next(options.ending);
      Say("Enter sends " + NameOf(options.ending));
      break;
    case TerminalAction::kFile:
      EndLine();
      Show("file to send: ");
      prompt.emplace();
      break;
    case TerminalAction::kStatistics:
      Say(std::to_string(received) + " bytes received, " + std::to_string(sent) + " sent");
      break;
    case TerminalAction::kSend:
    case TerminalAction::kUnknown:
      Say("no such key; " + keys.EscapeName() + " h for help");
      break;
  }
}

void TerminalSession::SendFile(const std::string& path) {
  if (!client.IsOpen(port)) {
    Say("not sent: the port is not open");
    return;
  }
  try {
    file.emplace(path, writer);
  } catch (const relay::Error& error) {
    Say(error.what());
  }
}

void TerminalSession::ContinueFile() {
  file->Continue();
  const auto now = std::chrono::steady_clock::now();
  const bool done = file->IsDone();
  if (done || now - progressShown >= kProgressPause) {
    progressShown = now;
    // The rest of the line is cleared: the text may have become shorter.
    Show("\r" + Printable(file->Progress(ColumnsOf(STDOUT_FILENO) - 1)) + "\033[K");
  }
  if (done) {
    sent += file->Size();
    file.reset();
    Show("\n");
    Say("sent");
  }
}

void TerminalSession::LinkEnded() {
  writer.Clear();
  if (file) {
    file.reset();
    Show("\n");
    Say("the file is not sent to its end");
  }
}

void TerminalSession::ShowReceived(std::string_view bytes) {
  if (options.hex) {
    Show(hexView.Show('<', bytes));
  } else {
    Show(bytes);
    // What the device has shown decides where the cursor is; only the simple case is followed.
    atLineStart = bytes.ends_with('\n');
  }
}

// `typed`: before Enter was translated to the `bytes` that are sent.
void TerminalSession::ShowSent(const std::string& typed, std::string_view bytes) {
  std::string text = options.hex ? hexView.Show('>', bytes) : "";
  if (!options.hex) {
    for (const char key : typed) {
      text += key == '\r' ? "\n" : Printable(std::string(1, key));
    }
    atLineStart = typed.ends_with('\r');
  }
  Show(options.colour ? "\033[36m" + text + "\033[0m" : text);
}

void TerminalSession::Show(std::string_view text) { WriteWhole(text); }

void TerminalSession::EndLine() {
  Show(hexView.EndRow());
  if (!std::exchange(atLineStart, true) && !options.hex) {
    Show("\n");
  }
}

void TerminalSession::Say(const std::string& text) {
  EndLine();
  const std::string line = "[" + Printable(text) + "]";
  Show(options.colour ? "\033[2m" + line + "\033[0m\n" : line + "\n");
}
