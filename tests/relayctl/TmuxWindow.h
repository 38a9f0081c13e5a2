// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// A terminal window of 80 x 24 in which a program runs as before a person: keys are typed, and the
// screen is read. There is a shell in it first.
class TmuxWindow {
 public:
  TmuxWindow();
  ~TmuxWindow();
  TmuxWindow(const TmuxWindow&) = delete;
  TmuxWindow& operator=(const TmuxWindow&) = delete;

  // Types `text` as it is; a name of a key as tmux knows it: "Enter", "C-]", "Escape".
  void Types(const std::string& text) const;
  void Presses(const std::string& key) const;

  // Types a command line for the shell, and Enter.
  void Runs(const std::string& command) const;

  // What is on the screen, without blanks at the ends of lines.
  std::string Screen() const;

  // Waits until the screen has `text`. False when the deadline passes.
  bool Shows(const std::string& text) const;

  // Has the shell clear the screen, and waits until nothing but its prompt is there: what is shown
  // from then on is new. False when the deadline passes.
  bool Clears() const;

  // Waits until the last line that is not empty begins with the shell's prompt and has nothing
  // behind it. False when the deadline passes.
  bool ShowsPrompt() const;

  // The window's terminal, and its settings as "stty -a" prints them.
  std::string Terminal() const;
  std::string Settings() const;
};
