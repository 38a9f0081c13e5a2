// SPDX-License-Identifier: MIT
#include "show/Output.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "relay/Text.h"
#include "show/Json.h"
#include "show/Utf8.h"

namespace {

const char* Sequence(Color color) {
  switch (color) {
    case Color::kToService:
    case Color::kNote:
      return "\x1B[36m";
    case Color::kFromService:
    case Color::kWarning:
      return "\x1B[33m";
    case Color::kGood:
      return "\x1B[32m";
    case Color::kBad:
      return "\x1B[31m";
    case Color::kDim:
      return "\x1B[2m";
    case Color::kNone:
      break;
  }
  return "";
}

bool IsSet(const char* variable) {
  const char* const value = getenv(variable);
  return value != nullptr && *value != '\0';
}

// Of a character in UTF-8. U+0080 to U+009F steer terminals as the bytes below 0x20 do.
bool IsControl(std::string_view character) {
  const auto last = static_cast<unsigned char>(character.back());
  return character.size() == 1 ? last < 0x20 || last == 0x7F
                               : character.front() == '\xC2' && last < 0xA0;
}

}  // namespace

bool MayColor(int descriptor) {
  const char* const terminal = getenv("TERM");
  return isatty(descriptor) == 1 && !IsSet("NO_COLOR") && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

size_t ColumnsOf(int descriptor) {
  winsize size{};
  return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string Paint(std::string_view text, Color color, bool isColored) {
  if (!isColored || color == Color::kNone) {
    return std::string(text);
  }
  return Sequence(color) + std::string(text) + "\x1B[0m";
}

std::string Harmless(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const size_t size = static_cast<unsigned char>(text[0]) < 0x80 ? 1 : Utf8Size(text);
    const std::string_view character = text.substr(0, size > 0 ? size : 1);
    const bool isShown = size > 0 && !IsControl(character);
    shown += isShown ? std::string(character) : relay::Escape(character);
    text.remove_prefix(character.size());
  }
  return shown;
}

void OccupyClosedStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) == -1) {
      (void)open("/", O_PATH);  // the lowest free number: this one; it takes and gives no bytes
    }
  }
}

void FailToPrint() {
  const int reason = errno;
  throw relay::Error(relay::ErrorKind::kSystem,
                     "cannot write to standard output: " + std::generic_category().message(reason),
                     reason);
}

void FlushOutput() {
  if (std::fflush(stdout) != 0) {
    FailToPrint();
  }
}

void PrintLine(std::string_view text) {
  std::string line(text);
  line += '\n';
  if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size()) {
    FailToPrint();
  }
  FlushOutput();
}

void PrintNotice(std::string_view text) {
  (void)std::fprintf(stderr, "relayctl: %.*s\n", static_cast<int>(text.size()), text.data());
}

void PrintReply(const relay::Reply& reply, bool asJson) {
  const char* const command = reply.command == kCommandOpen ? "open" : "close";
  const std::string meaning = relay::StatusText(reply.command, reply.status);
  if (asJson) {
    PrintLine(JsonLine()
                  .Add("event", command)
                  .Add("port", reply.port.Text())
                  .Add("status", reply.status)
                  .Add("meaning", meaning)
                  .Text());
    return;
  }
  if (reply.status == kStatusDone) {
    PrintLine(reply.port.Text() + ": " + meaning);
  }
}

std::string RefusalText(const relay::Reply& reply) {
  const std::string port = reply.port.Text();
  const bool lacksHash = reply.command == kCommandOpen && reply.status == kStatusNoPort &&
                         !reply.port.IsNumbered() && !reply.port.name.starts_with('#');
  return port + ": status " + std::to_string(reply.status) + ": " +
         relay::StatusText(reply.command, reply.status) +
         (lacksHash ? "; names begin with #: '#" + port + "'" : "");
}

void CheckReply(const relay::Reply& reply) {
  if (reply.status != kStatusDone) {
    throw relay::Error(relay::ErrorKind::kRefused, RefusalText(reply), reply.status);
  }
}
