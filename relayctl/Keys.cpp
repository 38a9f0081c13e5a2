// SPDX-License-Identifier: MIT
#include "Keys.h"

#include <unistd.h>

Keys::Keys() {
  // In the background changing the terminal would stop the program.
  if (isatty(STDIN_FILENO) != 1 || tcgetpgrp(STDIN_FILENO) != getpgrp() ||
      tcgetattr(STDIN_FILENO, &before) != 0) {
    return;
  }
  termios keys = before;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys.c_cc[VMIN] = 0;
  keys.c_cc[VTIME] = 0;
  isTerminal = tcsetattr(STDIN_FILENO, TCSANOW, &keys) == 0;
}

Keys::~Keys() {
  if (isTerminal) {
    (void)tcsetattr(STDIN_FILENO, TCSANOW, &before);
  }
}

char Keys::Next() {
  char key = 0;
  if (isTerminal && read(STDIN_FILENO, &key, 1) != 1) {
    isTerminal = false;  // hung up; no more is asked for
  }
  return isTerminal ? key : '\0';
}
