// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace relay {

enum class ErrorKind {
  kUsage,         // the caller's own mistake: a port name of no length, hex text that is none
  kNotListening,  // nobody listens on the port, or the link was reset before anything came
  kNoAnswer,      // a command was not answered in time
  kLinkEnded,     // the service left, or died
  kNonsense,      // what came is no packet of the service
  kRefused,       // the service answered an open or a close with a status other than 0
  kSystem,        // a system call failed; `Code()` is its errno
};

// What everything in this library throws. `what()` is one line for a person, without a full stop.
class Error : public std::runtime_error {
 public:
  Error(ErrorKind errorKind, const std::string& text, int errorCode = 0)
      : std::runtime_error(text), kind(errorKind), code(errorCode) {}

  ErrorKind Kind() const { return kind; }

  // The status for kRefused, errno for kSystem, else 0.
  int Code() const { return code; }

 private:
  ErrorKind kind;
  int code;
};

}  // namespace relay
