// SPDX-License-Identifier: MIT
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

#include "CommandLine.h"
#include "Duration.h"
#include "ExitStatus.h"
#include "Keys.h"
#include "link/LinkNotices.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "relay/Text.h"
#include "show/Json.h"
#include "show/MessageView.h"
#include "show/Output.h"

namespace {

using relay::Clock;
using relay::Millis;

struct Options {
  std::vector<std::string> ports;
  std::string time = "start";
  std::string show = "both";
  unsigned split = 50;
  double duration = 0;
  std::string log;
};

TimeForm TimeFormOf(const std::string& word) {
  return word == "clock"   ? TimeForm::kAbsolute
         : word == "start" ? TimeForm::kSinceStart
         : word == "delta" ? TimeForm::kDelta
                           : TimeForm::kNone;
}

ByteForm ByteFormOf(const std::string& word) {
  return word == "both" ? ByteForm::kBoth : word == "hex" ? ByteForm::kHex : ByteForm::kText;
}

struct Statistics {
  uint64_t bytes = 0;
  uint64_t messages = 0;
  uint64_t opens = 0;
  std::optional<Clock::time_point> last;
  Clock::duration longestSilence{};
};

class Watch {
 public:
  Watch(const CommonOptions& commonOptions, const Options& commandOptions)
      : common(commonOptions),
        options(commandOptions),
        isColored(MayColor(STDOUT_FILENO)),
        times(TimeFormOf(options.time)),
        form(ByteFormOf(options.show)),
        gatherer(Millis(options.split), [this](const Message& message) { Show(message); }),
        notices(common.RelayPort(), [this](const LinkNotices::Notice& notice) { Tell(notice); }),
        client(WatchOptions(common)) {}

  int Run() {
    for (const relay::Port& port : PortsToOpen(options.ports)) {
      nameWidth = std::max(nameWidth, port.Text().size());
      statistics[port];
      client.KeepOpen(port);
    }
    OpenLog();
    relay::Events events;
    events.received = [this](const relay::Port& port, std::string_view data) {
      Count(port, data);
      gatherer.Add(port, data);
    };
    events.reply = [this](const relay::Reply& reply) {
      if (reply.command == kCommandOpen && reply.status == kStatusDone) {
        ++statistics[reply.port].opens;
      }
    };
    notices.Attach(events);
    client.SetEvents(events);
    client.Start();
    loop.Serve(client);
    loop.When([this] { return gatherer.Due(); }, [this] { gatherer.Flush(); });
    loop.When([this] { return notices.Due(); }, [this] { notices.Remind(); });
    Keys keys;
    loop.Watch(
        STDIN_FILENO, [&keys]() -> short { return keys.AreThere() ? POLLIN : 0; },
        [this, &keys](short) { OnKey(keys.Next()); });
    const int signal = loop.RunFor(options.duration, [this] { return mayEnd; });
    gatherer.Flush(true);
    ShowStatistics();
    if (signal == 0 && !mayEnd) {
      notices.MustHaveLinked();
    }
    return kExitDone;
  }

 private:
  static relay::ClientOptions WatchOptions(const CommonOptions& common) {
    relay::ClientOptions result = common.ForClient(true);
    result.reopenPause = Millis(1000);  // each try may search all devices of the machine
    return result;
  }

  void OpenLog() {
    if (options.log.empty()) {
      return;
    }
    log.open(options.log, std::ios::app);
    if (!log) {
      FailToLog();
    }
  }

  [[noreturn]] void FailToLog() const {
    throw relay::Error(relay::ErrorKind::kSystem,
                       "cannot write " + relay::Escape(options.log) + ": " +
                           std::generic_category().message(errno),
                       errno);
  }

  void OnKey(char key) {
    if (key == 's') {
      ShowStatistics();
    } else if (key == 'q') {
      mayEnd = true;
    } else if (key == 'h' || key == '?') {
      PrintNotice("s statistics, q quit, h this help");
    }
  }

  void Count(const relay::Port& port, std::string_view data) {
    Statistics& count = statistics[port];
    const auto now = Clock::now();
    if (count.last) {
      count.longestSilence = std::max(count.longestSilence, now - *count.last);
    }
    count.last = now;
    count.bytes += data.size();
  }

  void PutRow(const std::string& time, const std::string& name, const std::string& row) {
    Put(time + "< " + name + "  " + row, Paint(time, Color::kDim, true) +
                                             Paint("< " + name, Color::kFromService, true) + "  " +
                                             row);
  }

  void Put(const std::string& plain, const std::string& colored) {
    PrintLine(isColored ? colored : plain);
    if (log.is_open() && !(log << plain << std::endl)) {
      FailToLog();
    }
  }

  void Show(const Message& message) {
    ++statistics[message.port].messages;
    if (common.json) {
      const std::string line = JsonLine()
                                   .Add("event", "data")
                                   .Add("time", times.UnixTime(message.began))
                                   .Add("port", message.port.Text())
                                   .Add("direction", "from")
                                   .Add("hex", relay::ToHex(message.bytes))
                                   .Add("text", message.bytes)
                                   .Text();
      Put(line, line);
      return;
    }
    std::string time = times.Text(message.began);
    std::string name = message.port.Text();
    name.resize(nameWidth, ' ');
    for (const std::string& row : Rows(message.bytes, form)) {
      PutRow(time, name, row);
      time.assign(time.size(), ' ');
    }
  }

  void Tell(const LinkNotices::Notice& notice) {
    gatherer.Flush(true);  // what came before stands before
    if (common.json) {
      JsonLine line;
      line.Add("event", notice.event).Add("time", times.UnixTime(Clock::now()));
      if (!notice.port.empty()) {
        line.Add("port", notice.port);
      }
      const std::string text = line.Add("text", notice.text).Text();
      Put(text, text);
      return;
    }
    const std::string time = times.Text(Clock::now());
    const bool isBad =
        notice.event != std::string_view("opened") && notice.event != std::string_view("linked");
    Put(time + "! " + notice.text,
        Paint(time, Color::kDim, true) +
            Paint("! " + notice.text, isBad ? Color::kBad : Color::kGood, true));
  }

  void ShowStatistics() {
    const double seconds = ToSeconds(Clock::now() - began);
    for (const auto& [port, count] : statistics) {
      const double silence = ToSeconds(count.longestSilence);
      if (common.json) {
        const std::string line = JsonLine()
                                     .Add("event", "statistics")
                                     .Add("port", port.Text())
                                     .Add("seconds", seconds)
                                     .Add("bytes", count.bytes)
                                     .Add("messages", count.messages)
                                     .Add("opens", count.opens)
                                     .Add("longest_silence", silence)
                                     .Text();
        Put(line, line);
        continue;
      }
      char text[160];
      (void)std::snprintf(text, sizeof text,
                          ": %llu bytes in %llu messages, %.1f bytes/s in %.1f s, opened %llu "
                          "times, longest silence %.3f s",
                          static_cast<unsigned long long>(count.bytes),
                          static_cast<unsigned long long>(count.messages),
                          static_cast<double>(count.bytes) / std::max(seconds, 1e-6), seconds,
                          static_cast<unsigned long long>(count.opens), silence);
      const std::string line = "= " + port.Text() + text;
      Put(line, Paint(line, Color::kDim, true));
    }
  }

  const CommonOptions& common;
  const Options& options;
  const bool isColored;
  TimeView times;
  const ByteForm form;
  const Clock::time_point began = Clock::now();
  MessageGatherer gatherer;
  LinkNotices notices;
  std::map<relay::Port, Statistics> statistics;
  size_t nameWidth = 0;
  std::ofstream log;
  bool mayEnd = false;
  relay::Client client;
  Loop loop;
};

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Arguments("PORT", options->ports, "Names, as '#PhysicalPort0'");
  command.Choice("--time", options->time, {"clock", "start", "delta", "none"},
                 "Times: of the day, since the start, since the line before, or none");
  command.Choice("--show", options->show, {"both", "hex", "text"},
                 "Bytes as hex with text beside it, as hex alone, or as text with escapes");
  command.Option("--split", options->split, "MS",
                 "A silence of so many milliseconds ends a message; 0: each notification is one");
  command.Option("--log", options->log, "FILE", "Append what is shown to this file too");
  command.Option("--for", options->duration, "SECONDS", "End after so long; 0: never");
  command.Footer(
      "Waits for the service, links again when it has left, and opens the ports again.\n"
      "Keys: s statistics, q quit, h help.");
  command.Runs([&common, options] { return Watch(common, *options).Run(); });
}

const Registration kRegistration("watch", "Open ports and show what comes, until Ctrl-C", Add);

}  // namespace
