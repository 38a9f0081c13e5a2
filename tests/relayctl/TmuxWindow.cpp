// SPDX-License-Identifier: MIT
#include "relayctl/TmuxWindow.h"

#include "relayctl/Shell.h"
#include "support/Eventually.h"

namespace {

// A server of its own, which has read nobody's settings.
constexpr const char* kTmux = "tmux -L test -f /dev/null ";

constexpr const char* kPrompt = "ready>";

std::string Answer(const std::string& format) {
  return RunShell(std::string(kTmux) + "display-message -p '" + format + "'").output;
}

std::string Trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
    text.pop_back();
  }
  return text;
}

}  // namespace

// The shell is one that leaves the terminal's settings as a program meets them: it edits no lines.
TmuxWindow::TmuxWindow() {
  (void)RunShell(std::string("env LC_ALL=C.UTF-8 TERM=xterm ") + kTmux +
                 "-u new-session -d -x 80 -y 24 'exec dash -i'");
  Runs(std::string("PS1='") + kPrompt + " '");
  (void)Clears();
}

TmuxWindow::~TmuxWindow() { (void)RunShell(std::string(kTmux) + "kill-server"); }

void TmuxWindow::Types(const std::string& text) const {
  (void)RunShell(std::string(kTmux) + "send-keys -l -- " + Quoted(text));
}

void TmuxWindow::Presses(const std::string& key) const {
  (void)RunShell(std::string(kTmux) + "send-keys -- " + Quoted(key));
}

void TmuxWindow::Runs(const std::string& command) const {
  Types(command);
  Presses("Enter");
}

std::string TmuxWindow::Screen() const {
  return RunShell(std::string(kTmux) + "capture-pane -p").output;
}

bool TmuxWindow::Shows(const std::string& text) const {
  return Eventually([&] { return Screen().find(text) != std::string::npos; });
}

bool TmuxWindow::Clears() const {
  Runs("clear");
  return Eventually([this] { return Trimmed(Screen()) == kPrompt; });
}

bool TmuxWindow::ShowsPrompt() const {
  return Eventually([&] {
    const std::string screen = Trimmed(Screen());
    const size_t line = screen.rfind('\n');
    return screen.substr(line == std::string::npos ? 0 : line + 1) == kPrompt;
  });
}

std::string TmuxWindow::Terminal() const { return Trimmed(Answer("#{pane_tty}")); }

std::string TmuxWindow::Settings() const { return RunShell("stty -a -F " + Terminal()).output; }
