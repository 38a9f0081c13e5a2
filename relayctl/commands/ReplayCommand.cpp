// SPDX-License-Identifier: MIT
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "CommandLine.h"
#include "Duration.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "relay/Recording.h"
#include "relay/Text.h"
#include "show/Json.h"
#include "show/Output.h"

namespace {

using relay::Clock;
using relay::Direction;
using relay::RecordedEvent;

struct Options {
  std::string file;
  double speed = 1;
  double wait = 0.3;
  bool fast = false;
};

// Plays the relay service of a recording. A packet to the service goes out once everything that
// came before it in the recording has come again and the recorded time since the event before has
// passed. Of what comes, the bytes of each port must be the recorded ones, however they are cut,
// and the replies the recorded ones in their order; between ports and replies there is no order.
class Replay {
 public:
  Replay(const CommonOptions& commonOptions, const Options& commandOptions)
      : common(commonOptions),
        options(commandOptions),
        events(relay::ReadRecordingFile(options.file)),
        client(common.ForClient()) {}

  int Run() {
    relay::Events told;
    told.packet = [this](Direction direction, std::string_view bytes) {
      if (direction == Direction::kFromService) {
        Take(bytes);
      }
    };
    client.SetEvents(told);
    if (events.empty() || events[0].kind != RecordedEvent::Kind::kLinkUp) {
      client.Start();
      ServeClient();
    }
    loop.When([this] { return Due(); }, [] {});
    const int signal = loop.Run([this] { return IsOver(); });
    Report();
    return signal != 0 ? kExitSignal + signal : differences == 0 ? kExitDone : kExitDifferent;
  }

 private:
  void Take(std::string_view bytes) {
    const RecordedEvent event =
        relay::RecordPacket(std::chrono::microseconds(0), Direction::kFromService, bytes);
    if (event.kind == RecordedEvent::Kind::kData) {
      received[event.port] += event.bytes;
    } else {
      others.push_back(event);
    }
    lastProgress = Clock::now();
  }

  // Does as many steps as can be done. True at the end.
  bool IsOver() {
    while (next < events.size()) {
      const RecordedEvent& event = events[next];
      if (!event.IsPacket()) {
        ChangeLink(event.kind == RecordedEvent::Kind::kLinkUp);
      } else if (event.direction == Direction::kToService) {
        if (!client.IsConnected() || Clock::now() < SendTime()) {
          return false;
        }
        client.Send(event.ToPacket());
        ++sent;
      } else if (!Expect(event)) {
        return differences > 0;
      }
      Step();
    }
    return Clock::now() >= lastProgress + FromSeconds(options.wait) && CheckRest();
  }

  void Step() {
    lastTime = events[next].time;
    lastProgress = Clock::now();
    ++next;
    ServeClient();
  }

  void ServeClient() {
    if (client.IsOver()) {
      loop.ServeNoClient();
    } else {
      loop.Serve(client);
    }
  }

  void ChangeLink(bool isUp) {
    if (!isUp) {
      client.Stop();
    } else if (client.IsOver()) {
      client.Start();
    }
  }

  Clock::time_point SendTime() const {
    const double pause = ToSeconds(events[next].time - lastTime);
    return lastProgress + (options.fast ? Clock::duration(0) : FromSeconds(pause / options.speed));
  }

  // Whether the recorded event has come. Counts a difference when something else has, or when it
  // is too late.
  bool Expect(const RecordedEvent& event) {
    if (event.kind == RecordedEvent::Kind::kData) {
      std::string& bytes = received[event.port];
      const std::string_view wanted = event.bytes;
      const size_t shared = std::min(bytes.size(), wanted.size());
      if (std::string_view(bytes).substr(0, shared) != wanted.substr(0, shared)) {
        Differ(event, event.port.Text() + " sent " + relay::Quote(bytes.substr(0, wanted.size())));
        return false;
      }
      if (shared == wanted.size()) {
        bytes.erase(0, shared);
        ++came;
        return true;
      }
    } else if (!others.empty()) {
      if (others.front().ToPacket() != event.ToPacket()) {
        Differ(event, "came " + Shown(others.front()));
        return false;
      }
      others.pop_front();
      ++came;
      return true;
    }
    if (client.IsConnected() && Clock::now() >= AnswerTime()) {
      Differ(event, "nothing more came");
    }
    return false;
  }

  // As a line of the recording, without the time.
  static std::string Shown(const RecordedEvent& event) {
    const std::string line = relay::ToLine(event);
    return line.substr(line.find(' ') + 1);
  }

  Clock::time_point AnswerTime() const { return lastProgress + FromSeconds(common.timeout); }

  bool CheckRest() {
    for (const auto& [port, bytes] : received) {
      if (!bytes.empty()) {
        Tell(port.Text() + " sent more than recorded: " + relay::Quote(bytes.substr(0, 64)));
      }
    }
    for (const RecordedEvent& event : others) {
      Tell("came more than recorded: " + Shown(event));
    }
    return true;
  }

  void Differ(const RecordedEvent& wanted, const std::string& instead) {
    Tell("recorded was " + Shown(wanted) + "; " + instead);
  }

  void Tell(const std::string& difference) {
    ++differences;
    if (common.json) {
      PrintLine(JsonLine().Add("event", "difference").Add("text", difference).Text());
    } else {
      PrintLine("different: " + difference);
    }
  }

  std::optional<Clock::time_point> Due() const {
    if (next == events.size()) {
      return lastProgress + FromSeconds(options.wait);
    }
    const RecordedEvent& event = events[next];
    if (!client.IsConnected()) {
      return std::nullopt;
    }
    return event.IsPacket() && event.direction == Direction::kToService ? SendTime() : AnswerTime();
  }

  void Report() const {
    if (common.json) {
      PrintLine(JsonLine()
                    .Add("event", "replayed")
                    .Add("sent", sent)
                    .Add("came", came)
                    .Add("differences", differences)
                    .Text());
    } else {
      PrintLine(std::to_string(sent) + " packets sent, " + std::to_string(came) +
                " came as recorded, " + (differences == 0 ? "no" : std::to_string(differences)) +
                " difference" + (differences > 1 ? "s" : ""));
    }
  }

  const CommonOptions& common;
  const Options& options;
  const std::vector<RecordedEvent> events;
  relay::Client client;
  Loop loop;
  size_t next = 0;
  std::chrono::microseconds lastTime{0};
  Clock::time_point lastProgress = Clock::now();
  std::map<relay::Port, std::string> received;  // not compared yet
  std::deque<RecordedEvent> others;             // replies, and packets of no known form
  uint64_t sent = 0;
  uint64_t came = 0;
  uint64_t differences = 0;
};

int RunReplay(const CommonOptions& common, const Options& options) {
  if (options.speed <= 0) {
    throw relay::Error(relay::ErrorKind::kUsage, "replay: --speed is more than 0");
  }
  return Replay(common, options).Run();
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("FILE", options->file, "The recording");
  command.Option("--speed", options->speed, "FACTOR", "So many times as fast as recorded");
  command.Flag("--fast", options->fast, "Without the recorded pauses");
  command.Option("--wait", options->wait, "SECONDS",
                 "At the end, look so long for bytes that were not recorded");
  command.Runs([&common, options] { return RunReplay(common, *options); });
}

const Registration kRegistration("replay", "Play a recording, and compare what comes", Add);

}  // namespace
