// SPDX-License-Identifier: MIT
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "CommandLine.h"
#include "Duration.h"
#include "ExitStatus.h"
#include "Input.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "machine/PortDevice.h"
#include "relay/Text.h"
#include "relay/Writer.h"
#include "show/Json.h"
#include "show/Output.h"
#include "show/Progress.h"

namespace {

using relay::Clock;
using relay::Millis;

// Data that wait for the link while more is read.
constexpr uint64_t kMostWaiting = 4 * relay::Writer::kWindow;

constexpr Millis kProgressPause{200};

struct Options {
  std::string port;
  std::vector<std::string> texts;
  std::string hex;
  std::string file;
  unsigned blocks = 0;
  double linger = std::numeric_limits<double>::quiet_NaN();
};

// A close throws away what the line has not sent yet, and nobody tells how much that is: at most
// what the kernel holds for a line, at the pace of 9600 baud.
Millis LingerFor(uint64_t written) {
  constexpr uint64_t kKernelBuffer = 4096;
  constexpr uint64_t kBytesPerSecond = 960;
  return Millis(100 + std::min(written, kKernelBuffer) * 1000 / kBytesPerSecond);
}

class Write {
 public:
  Write(const CommonOptions& commonOptions, const Options& commandOptions)
      : common(commonOptions),
        options(commandOptions),
        port(PortToOpen(options.port)),
        client(common.ForClient()),
        writer(client, port, options.blocks) {}

  int Run() {
    ReadArguments();
    relay::Events events;
    events.connected = [this] { OnConnected(); };
    client.SetEvents(events);
    client.Start();
    loop.Serve(client);
    WatchInput();
    int signal = 0;
    try {
      signal = RunToTheEnd();
    } catch (const relay::Error& error) {
      HideProgress();
      throw isOpen ? WithProgress(error) : error;
    }
    Report();
    return signal == 0 ? kExitDone : kExitSignal + signal;
  }

 private:
  // Gives the signal that ended it, or 0.
  int RunToTheEnd() {
    int signal = loop.Run([this] { return IsWritten(); });
    HideProgress();
    if (signal == 0) {
      const auto end = Clock::now() + Linger();
      loop.When([end] { return end; }, [] {});
      signal = loop.Run([end] { return Clock::now() >= end; });
    }
    return signal == 0 ? CheckDevice() : signal;
  }

  // Behind the pause, as the service's close throws away what the line has not sent.
  int CheckDevice() {
    switch (lineDevice->Now()) {
      case PortDevice::State::kSame:
        return 0;
      case PortDevice::State::kGone:
        throw relay::Error(relay::ErrorKind::kRefused, port.Text() + ": the device is gone",
                           kStatusOpenFailed);
      case PortDevice::State::kOther:
        throw relay::Error(relay::ErrorKind::kRefused,
                           port.Text() + ": the device was away meanwhile", kStatusOpenFailed);
      case PortDevice::State::kUnknown:
        break;
    }
    return OpenAgain();
  }

  // Only where the device cannot be seen from here, as this moves its modem lines.
  int OpenAgain() {
    bool isAnswered = false;
    client.Close(port, CheckReply);
    client.Open(port, [&isAnswered](const relay::Reply& reply) {
      CheckReply(reply);
      isAnswered = true;
    });
    return loop.Run([&isAnswered] { return isAnswered; });
  }

  // "4096 of 10000 bytes"
  std::string Taken() const {
    return std::to_string(writer.Confirmed()) +
           (total > 0 ? " of " + std::to_string(total) : std::string()) + " bytes";
  }

  relay::Error WithProgress(const relay::Error& error) const {
    const std::string reason = error.Kind() == relay::ErrorKind::kNoAnswer
                                   ? port.Text() + ": no progress within " +
                                         std::to_string(common.ForClient().replyTimeout.count()) +
                                         " ms"
                                   : error.what();
    return {error.Kind(), reason + "; the service had taken " + Taken(), error.Code()};
  }

  void ReadArguments() {
    const int sources = (options.texts.empty() ? 0 : 1) + (options.hex.empty() ? 0 : 1) +
                        (options.file.empty() ? 0 : 1);
    if (sources > 1) {
      throw relay::Error(relay::ErrorKind::kUsage,
                         "write: give text, --hex or --file, not several of them");
    }
    for (const std::string& text : options.texts) {
      given += relay::Unescape(text);
    }
    given += relay::FromHex(options.hex);
    if (sources == 0 || !options.file.empty()) {
      input.emplace(options.file.empty() ? "-" : options.file);
      total = input->Size();
    } else {
      total = given.size();
    }
  }

  void OnConnected() {
    client.Open(port, [this](const relay::Reply& reply) {
      CheckReply(reply);
      BeginWriting();
    });
  }

  void BeginWriting() {
    isOpen = true;
    lineDevice.emplace(options.port);
    began = Clock::now();
    writer.Write(given);
  }

  void WatchInput() {
    if (input) {
      loop.Watch(
          input->Descriptor(), [this]() -> short { return MayRead() ? POLLIN : 0; },
          [this](short) { ReadInput(); });
    }
    if (isatty(STDERR_FILENO) == 1) {
      loop.When([this] { return nextProgress; }, [this] { ShowProgress(); });
      nextProgress = Clock::now() + kProgressPause;
    }
  }

  bool MayRead() const { return isOpen && !inputEnded && writer.Unsent() < kMostWaiting; }

  void ReadInput() {
    const std::string piece = input->Read();
    inputEnded = piece.empty();
    writer.Write(piece);
  }

  bool IsWritten() {
    if (!isOpen || (input && !inputEnded)) {
      return false;
    }
    if (!confirming) {
      confirming = true;
      writer.Confirm();
    }
    return writer.Pending() == 0;
  }

  void ShowProgress() {
    nextProgress = Clock::now() + kProgressPause;
    if (isOpen) {
      const auto elapsed = std::chrono::duration_cast<Millis>(Clock::now() - began);
      (void)std::fprintf(
          stderr, "\r%s\x1B[K",
          ProgressText(writer.Confirmed(), total, elapsed, ColumnsOf(STDERR_FILENO) - 1).c_str());
      progressShown = true;
    }
  }

  void HideProgress() {
    if (progressShown) {
      (void)std::fputs("\r\x1B[K", stderr);
    }
    nextProgress.reset();
  }

  Millis Linger() const {
    return std::isnan(options.linger)
               ? LingerFor(writer.Confirmed())
               : std::chrono::duration_cast<Millis>(FromSeconds(options.linger));
  }

  void Report() const {
    const uint64_t bytes = writer.Confirmed();
    PrintLine(
        common.json
            ? JsonLine().Add("event", "taken").Add("port", port.Text()).Add("bytes", bytes).Text()
            : port.Text() + ": " + std::to_string(bytes) + " bytes taken by the service");
  }

  const CommonOptions& common;
  const Options& options;
  const relay::Port port;
  relay::Client client;
  relay::Writer writer;
  Loop loop;
  std::string given;
  std::optional<Input> input;
  uint64_t total = 0;
  bool isOpen = false;
  bool inputEnded = false;
  bool confirming = false;
  bool progressShown = false;
  std::optional<PortDevice> lineDevice;  // as it was when the port was open
  Clock::time_point began{};
  std::optional<Clock::time_point> nextProgress;
};

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("PORT", options->port, "A name, as '#PhysicalPort0'");
  command.Arguments("TEXT", options->texts,
                    "What to write, with \\n \\r \\t \\e \\0 \\\\ \\xHH; else standard input",
                    false);
  command.Option("--hex", options->hex, "HEX", "Write these bytes: \"02 41 03\"");
  command.Option("-f,--file", options->file, "FILE", "Write this file; - is standard input");
  command.Option("--blocks", options->blocks, "SIZE",
                 "Send blocks of at most so many bytes, as many in a command as fit");
  command.Option("--linger", options->linger, "SECONDS",
                 "Stay so long after the last byte, as leaving closes the port and drops what the "
                 "line has not sent yet; else what the line needs at 9600 baud");
  command.Runs([&common, options] { return Write(common, *options).Run(); });
}

const Registration kRegistration("write", "Open a port, write to it, and leave", Add);

}  // namespace
