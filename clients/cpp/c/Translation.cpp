// SPDX-License-Identifier: MIT
#include "c/Translation.h"

#include <cerrno>

#include "protocol/WireFormat.h"

namespace relay {

int ErrnoOf(const Error& error) {
  switch (error.Kind()) {
    case ErrorKind::kUsage:
      return EINVAL;
    case ErrorKind::kNotListening:
      return ECONNREFUSED;
    case ErrorKind::kNoAnswer:
      return ETIMEDOUT;
    case ErrorKind::kLinkEnded:
      return ECONNRESET;
    case ErrorKind::kNonsense:
      return EPROTO;
    case ErrorKind::kRefused:
      return EIO;
    case ErrorKind::kSystem:
      break;
  }
  return error.Code() != 0 ? error.Code() : EIO;
}

int ErrnoOfOpen(uint16_t status) {
  switch (status) {
    case kStatusDone:
    case kStatusUnavailable:  // open already: by this very link, for it is the service's only peer
      return 0;
    case kStatusNoPort:
      return ENODEV;
    default:
      return EIO;
  }
}

ClientOptions OptionsOf(const relayclient_options& given) {
  ClientOptions options;
  const auto take = [](Millis& time, unsigned milliseconds) {
    time = milliseconds != 0 ? Millis(milliseconds) : time;
  };
  options.port = given.port != 0 ? given.port : options.port;
  options.reconnect = given.reconnect != 0;
  take(options.patience, given.patience_ms);
  take(options.retryPause, given.retry_pause_ms);
  take(options.longestPause, given.longest_pause_ms);
  take(options.reopenPause, given.reopen_pause_ms);
  take(options.replyTimeout, given.reply_timeout_ms);
  return options;
}

std::string NameOf(const Port& port) { return port.IsNumbered() ? port.Text() : port.name; }

}  // namespace relay
