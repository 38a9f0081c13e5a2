// SPDX-License-Identifier: MIT
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <optional>

#include "CommandLine.h"
#include "Duration.h"
#include "ExitStatus.h"
#include "Input.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "relay/Text.h"
#include "relay/Writer.h"
#include "show/Output.h"

namespace {

using relay::Clock;

// Input that waits for the line while more is read.
constexpr uint64_t kMostWaiting = 2 * relay::Writer::kWindow;

// Output that waits for its reader while more is taken from the link.
constexpr size_t kMostOutput = size_t{1} << 18;

// While an answer is under way the link has to be read, and a line that takes nothing delays it.
constexpr size_t kMostAtAll = size_t{1} << 24;

struct Options {
  std::string port;
  double exitAfter = 1;
  double idle = 0;
  std::string until;
};

class Pipe {
 public:
  Pipe(const CommonOptions& commonOptions, const Options& commandOptions)
      : common(commonOptions),
        options(commandOptions),
        port(PortToOpen(options.port)),
        until(relay::Unescape(options.until)),
        client(common.ForPatientClient()),
        writer(client, port) {}

  int Run() {
    if (write(STDOUT_FILENO, "", 0) < 0) {
      FailToPrint();  // before anything goes to the device
    }
    relay::Events events;
    events.connected = [this] {
      client.Open(port, [this](const relay::Reply& reply) {
        CheckReply(reply);
        isOpen = true;
        Touch();
      });
    };
    events.received = [this](const relay::Port& from, std::string_view data) {
      if (from == port) {
        Take(data);
      }
    };
    client.SetEvents(events);
    client.Start();
    loop.Serve(client);
    loop.Watch(
        input.Descriptor(), [this]() -> short { return MayRead() ? POLLIN : 0; },
        [this](short) { ReadInput(); });
    loop.Watch(
        STDOUT_FILENO, [this]() -> short { return output.IsEmpty() ? 0 : POLLOUT; },
        [this](short) { WriteOutput(); });
    loop.When([this] { return End(); }, [] {});
    const auto answerBy = Clock::now() + AnswerTime();
    loop.When([this, answerBy] { return OpenBy(answerBy); }, [this] { FailToOpen(); });
    const int signal = loop.Run([this] { return IsOver(); });
    return signal == 0 ? kExitDone : kExitSignal + signal;
  }

 private:
  // A line that takes nothing because of its flow control holds up the answers behind its data, and
  // that may last: only the open has a limit.
  Clock::duration AnswerTime() const {
    return FromSeconds(common.timeout > 0 ? common.timeout + common.patience : 1e6);
  }

  std::optional<Clock::time_point> OpenBy(Clock::time_point limit) const {
    return isOpen ? std::nullopt : std::optional(limit);
  }

  [[noreturn]] void FailToOpen() const {
    throw relay::Error(relay::ErrorKind::kNoAnswer,
                       "no answer from 127.0.0.1:" + std::to_string(common.RelayPort()));
  }

  bool MayRead() const { return isOpen && !inputEnded && writer.Unsent() < kMostWaiting; }

  void ReadInput() {
    const std::string piece = input.Read();
    inputEnded = piece.empty();
    writer.Write(piece);
    if (inputEnded) {
      writer.Confirm();
    }
    Touch();
  }

  void Take(std::string_view data) {
    output.Add(data);
    Touch();
    if (output.Size() >= kMostAtAll) {
      throw relay::Error(relay::ErrorKind::kSystem,
                         port.Text() +
                             ": neither the line nor standard output takes anything, and " +
                             std::to_string(kMostAtAll) + " received bytes wait");
    }
    if (output.Size() >= kMostOutput) {
      client.Pause();
    }
    if (!until.empty()) {
      seen += data;
      untilSeen = untilSeen || seen.find(until) != std::string::npos;
      seen.erase(0, seen.size() - std::min(seen.size(), until.size()));
    }
  }

  void WriteOutput() {
    // So much a pipe takes at once when poll says that it takes anything.
    const std::string_view piece = output.View().substr(0, PIPE_BUF);
    const ssize_t count = write(STDOUT_FILENO, piece.data(), piece.size());
    if (count < 0 && errno != EAGAIN && errno != EINTR) {
      FailToPrint();
    }
    output.Take(count > 0 ? static_cast<size_t>(count) : 0);
    if (client.IsPaused() && output.Size() < kMostOutput / 2) {
      client.Resume();
      Touch();  // nothing came because nothing was taken
    }
  }

  void Touch() { lastTraffic = Clock::now(); }

  // When silence will have lasted long enough.
  std::optional<Clock::time_point> End() const {
    if (!isOpen) {
      return std::nullopt;
    }
    std::optional<Clock::time_point> end;
    if (inputEnded && writer.Pending() == 0) {
      end = lastTraffic + FromSeconds(options.exitAfter);
    }
    if (options.idle > 0) {
      const auto idleEnd = lastTraffic + FromSeconds(options.idle);
      end = end ? std::min(*end, idleEnd) : idleEnd;
    }
    return end;
  }

  bool IsOver() {
    if (inputEnded && !isConfirmed && writer.Pending() == 0) {
      isConfirmed = true;  // only now the device can answer to the last byte
      Touch();
    }
    const auto end = End();
    return output.IsEmpty() && (untilSeen || (end && Clock::now() >= *end));
  }

  const CommonOptions& common;
  const Options& options;
  const relay::Port port;
  const std::string until;
  relay::Client client;
  relay::Writer writer;
  Loop loop;
  Input input{"-"};
  relay::ByteQueue output;
  std::string seen;  // the last bytes, as many as `until` has
  bool isOpen = false;
  bool inputEnded = false;
  bool isConfirmed = false;
  bool untilSeen = false;
  Clock::time_point lastTraffic = Clock::now();
};

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("PORT", options->port, "A name");
  command.Option("--exit-after", options->exitAfter, "SECONDS",
                 "Behind the end of the input: leave when nothing has come for so long");
  command.Option("--idle", options->idle, "SECONDS",
                 "Leave when nothing has gone or come for so long, whatever the input; 0: never");
  command.Option("--until", options->until, "TEXT",
                 "Leave once this has come; escapes as in write");
  command.Runs([&common, options] {
    common.RefuseJson("pipe");
    return Pipe(common, *options).Run();
  });
}

const Registration kRegistration("pipe", "Join standard input and output to a port", Add);

}  // namespace
