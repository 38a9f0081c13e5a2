// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "link/LinkNotices.h"
#include "pty/FileSender.h"
#include "pty/TerminalKeys.h"
#include "relay/Client.h"
#include "relay/Writer.h"
#include "show/HexView.h"

class Loop;
class RawTerminal;

struct TerminalOptions {
  char escapeKey = '\x1D';  // Ctrl-]
  LineEnding ending = LineEnding::kCr;
  bool hex = false;
  bool echo = false;
  bool colour = false;
};

// A person's conversation with a port: what is typed goes to the port, what the port receives is
// shown. Waits for the service when it is away, and opens the port again.
class TerminalSession {
 public:
  TerminalSession(const relay::ClientOptions& options, relay::Port port,
                  const TerminalOptions& terminalOptions);

  // Until the person leaves (0), or a signal asks for the end, which it gives. `raw` is the
  // terminal of standard input. `loop` serves nothing else.
  int Run(const RawTerminal& raw, Loop& loop);

 private:
  void TakeKeys();
  void Typed(std::string_view typed);
  void AnswerPrompt(std::string_view& typed);
  void Perform(const KeyPress& press);
  void SendTyped(const std::string& typed);
  void SendFile(const std::string& path);
  void ContinueFile();
  void Suspend() const;
  short WantedKeys() const;
  std::optional<relay::Clock::time_point> ProgressDue() const;
  void LinkEnded();

  void ShowReceived(std::string_view bytes);
  void ShowSent(const std::string& typed, std::string_view bytes);
  void Show(std::string_view text);
  void Say(const std::string& text);
  void EndLine();
  std::string OnOff(bool on) const { return on ? "on" : "off"; }

  const relay::Port port;
  TerminalOptions options;
  LinkNotices notices;
  relay::Client client;
  relay::Writer writer;
  TerminalKeys keys;
  HexView hexView;
  std::optional<LinePrompt> prompt;  // a file's path is being typed
  std::optional<FileSender> file;
  std::chrono::steady_clock::time_point progressShown{};
  const RawTerminal* terminal = nullptr;
  bool leaving = false;
  int quit = 0;  // the signal, when it was SIGQUIT
  bool atLineStart = true;
  uint64_t sent = 0;
  uint64_t received = 0;
};
