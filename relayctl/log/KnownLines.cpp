// SPDX-License-Identifier: MIT
#include "log/KnownLines.h"

#include <array>

namespace {

constexpr LogSeverity kFatal = LogSeverity::kFatal;
constexpr LogSeverity kError = LogSeverity::kError;
constexpr LogSeverity kDebug = LogSeverity::kDebug;
constexpr LogSeverity kProgress = LogSeverity::kProgress;

constexpr std::string_view kService = "SerialPortHandler";
constexpr std::string_view kThread = "LinuxThread";
constexpr std::string_view kVost = "libvost";
constexpr std::string_view kLogger = "libKXLogger";

constexpr std::string_view kHandlerFile = "SerialPortHandler.cpp";
constexpr std::string_view kPortFile = "SerialPort.cpp";
constexpr std::string_view kSocketFile = "CommSocket.cpp";
constexpr std::string_view kThreadFile = "Linux/LinuxThread.cpp";
constexpr std::string_view kVostFile = "Libvost.cpp";
constexpr std::string_view kLoggerFile = "LogFile.cpp";

constexpr std::array kKnownLines = {
    KnownLine{"started", kProgress, kService, kHandlerFile, "Serial Port Handler start running.",
              "started", ""},
    KnownLine{"open-command", kProgress, kService, kHandlerFile, "open command proc.",
              "an open packet is handled", ""},
    KnownLine{"close-command", kProgress, kService, kHandlerFile, "close command proc.",
              "a close packet is handled", ""},
    KnownLine{"data-command", kProgress, kService, kHandlerFile, "data command proc.",
              "a data packet is handled; it says nothing of whether the port is open", ""},
    KnownLine{"stop-requested", kProgress, kService, kHandlerFile, "request stop.",
              "SIGINT, SIGHUP or SIGTERM has come; once for each", ""},
    KnownLine{"stopped", kProgress, kService, kHandlerFile, "Serial Port Handler stop.",
              "orderly end, status 0", ""},
    KnownLine{"malformed-packet", kError, kService, kHandlerFile, "Command parse failed.",
              "a malformed packet was dropped; the connection stays", "mend the relay service"},
    KnownLine{"illegal-command", kError, kService, kHandlerFile,
              "Illegal command was received from relay service.",
              "never written: such a packet is malformed already", ""},
    KnownLine{"data-dropped", kError, kService, kHandlerFile, "Serial Device Send Error.",
              "the blocks of a data packet from here on were dropped", "see the line before"},
    KnownLine{"not-opened", kError, kService, kPortFile, "Cannot open serial device. [Port {P}]",
              "an open was refused (status 4), or data came for a port whose device is away",
              "is the device there, a terminal, and open to the service's user?"},
    KnownLine{"no-device", kError, kService, kPortFile, "Cannot open serial device. [Port ]",
              "the name leads to no device (status 2)",
              "`udevadm info --export-db` must show an adapter at that place"},
    KnownLine{"device-lost", kError, kService, kPortFile, "Close serial device. [Port {P}]",
              "a read failed, as a rule by unplugging; the device is retried every 500 ms. That it "
              "is back shows on the console alone",
              "plug it in"},
    KnownLine{"not-listening", kFatal, kService, kSocketFile,
              "Failed to open the Socket connection for RelayService.",
              "the relay port cannot be listened on, a peer was refused, or a stop came meanwhile; "
              "the process ends with 255",
              "a stop before it: nothing. Else `ss -ltnp` shows who has the port"},
    KnownLine{"thread-not-joined", kError, kThread, kThreadFile, "error: thread can not join",
              "a thread did not end within two seconds and is cancelled",
              "at a stop, nothing; at a close, the relay service does not read"},
    KnownLine{"thread-not-cancelled", kError, kThread, kThreadFile, "error: thread can not cancel",
              "the thread has just ended by itself", ""},
    KnownLine{"thread-not-detached", kError, kThread, kThreadFile, "error: thread can not detach",
              "the thread has just ended by itself", ""},
    KnownLine{"bad-configuration", kError, kVost, kVostFile,
              "{FILE:LINE}: control byte in the line|{FILE:LINE}: section name without one ']' at "
              "the end of the line|{FILE:LINE}: section without a name|{FILE:LINE}: section given "
              "twice|{FILE:LINE}: neither comment, [section] nor key = value|{FILE:LINE}: key "
              "outside of a section|{FILE:LINE}: value without a key|{FILE:LINE}: quote not "
              "closed|{FILE:LINE}: quote inside of quotes|{FILE:LINE}: value too long|{FILE:LINE}: "
              "key given twice in its section",
              "the whole file counts as empty for this look-up: opens get status 2, the relay port "
              "is 60004",
              "mend that line; no restart is needed, but for the relay port, which counts from the "
              "next connection on"},
    KnownLine{"no-configuration", kError, kVost, kVostFile,
              "{FILE}: not a regular file|{FILE}: larger than 65536 bytes|{FILE}: {R}",
              "the whole file counts as empty for this look-up; one that is missing is no fault "
              "and gives "
              "no line",
              "mend the file or its rights"},
    KnownLine{"log-not-written", kError, kLogger, kLoggerFile,
              "{FILE}: cannot be written, lines go to standard error: {R}",
              "the log goes to standard error now; said there, once until the reason changes",
              "make room, or mend path and rights; lines go to the file again by themselves"},
    KnownLine{"listening", kProgress, "", kOutput, "[LISTEN]IP:127.0.0.1(PORT:{N})",
              "waits for the relay service; from the second one on, the earlier relay service has "
              "left and all ports are closed",
              ""},
    KnownLine{"connected", kProgress, "", kOutput, "[ACCEPT]IP:{A}",
              "somebody has connected; any other address than 127.0.0.1 ends the process", ""},
    KnownLine{"device-open", kProgress, "", kOutput, "OPEN[{P}]",
              "the device is open, for the first time or after it was away", ""},
    KnownLine{"device-closed", kError, "", kOutput, "({P})port close",
              "the device was let go after a failed read; not written at a close command", ""},
    KnownLine{"received", kDebug, "", kErrors, "Received({N}):{XX XX … }",
              "N bytes came from a device. Three characters for each byte: a line that is busy at "
              "115200 baud makes 3 GB a day",
              ""},
    KnownLine{"read-failed", kError, "", kErrors, "recv error:{R}",
              "a read failed: `Input/output error` is an unplugged adapter", ""},
    KnownLine{"exit-text", kProgress, "", kErrors, "終了", "orderly end, status 0", ""},
    KnownLine{"tool-failed", kError, "", kErrors, "sh: {R}|rm: {R}",
              "a complaint of a tool, as lines of `udevadm` are: that is not on the service's "
              "`PATH`, or `/tmp` cannot be written to",
              ""},
    KnownLine{"aborted", kFatal, "", kErrors, "terminate called {…}|  what():  {R}",
              "the process is ending by SIGABRT; the usual reason is `no USB serial adapter has "
              "the ids that were asked for`",
              ""},
};

// Where the variable at the front of `text` ends, before the rest of its form; npos: nowhere.
size_t EndOfVariable(std::string_view text, std::string_view rest) {
  const size_t next = rest.find('{');
  const std::string_view literal = rest.substr(0, next);
  if (next != std::string_view::npos) {
    return text.find(literal, 1);
  }
  return text.size() > literal.size() ? text.size() - literal.size() : std::string_view::npos;
}

std::optional<std::string_view> MatchForm(std::string_view form, std::string_view text) {
  std::string_view device;
  for (;;) {
    const size_t open = form.find('{');
    const std::string_view literal = form.substr(0, open);
    if (open == std::string_view::npos) {
      return text == literal ? std::optional(device) : std::nullopt;
    }
    if (!text.starts_with(literal)) {
      return std::nullopt;
    }
    text.remove_prefix(literal.size());
    const size_t close = form.find('}');
    const std::string_view name = form.substr(open + 1, close - open - 1);
    form.remove_prefix(close + 1);
    const size_t end = EndOfVariable(text, form);
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    device = name == "P" ? text.substr(0, end) : device;
    text.remove_prefix(end);
  }
}

}  // namespace

std::span<const KnownLine> KnownLines() { return kKnownLines; }

std::optional<std::string_view> Match(std::string_view forms, std::string_view text) {
  for (;;) {
    const size_t end = forms.find('|');
    if (const auto device = MatchForm(forms.substr(0, end), text)) {
      return device;
    }
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    forms.remove_prefix(end + 1);
  }
}
