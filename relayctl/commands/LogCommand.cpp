// SPDX-License-Identifier: MIT
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "log/LogStream.h"
#include "log/LogView.h"
#include "machine/RunningService.h"
#include "show/Output.h"

namespace {

struct Options {
  std::optional<std::string> file;
  std::optional<std::string> unit;
  std::string level;
  std::string device;
  bool follow = false;
  bool brief = false;
};

[[noreturn]] void Refuse(const std::string& what) {
  throw relay::Error(relay::ErrorKind::kUsage, "log: " + what);
}

// Of the service that runs; nothing: none is known, as where it writes to the journal.
std::optional<std::string> FileOfService() {
  const RunningService service = FindService(ProcessTable(), std::nullopt);
  const auto found = service.environment.find("KXLOGGER_FILE");
  return found != service.environment.end() && !found->second.empty()
             ? std::optional(service.PathOf(found->second))
             : std::nullopt;
}

// Where the log is, of which a person may have told nothing.
std::unique_ptr<LogStream> Open(Options& options) {
  if (!options.file && !options.unit) {
    options.file = FileOfService();
    if (options.file) {
      PrintNotice("the service's log file: " + Harmless(*options.file));
    } else {
      options.unit = kServiceUnit;
    }
  }
  return options.file ? LogOfFile(*options.file, options.follow)
                      : LogOfUnit(*options.unit, options.follow);
}

class Filter {
 public:
  explicit Filter(const Options& options) : device(options.device) {
    for (const LogSeverity one : kSeverities) {
      if (options.level == WordOf(one)) {
        least = one;
      }
    }
  }

  // A line without a level is of none.
  bool Passes(const LogRecord& record) const {
    return (!least || (record.severity && *record.severity <= *least)) &&
           (device.empty() || record.device == device);
  }

 private:
  static constexpr LogSeverity kSeverities[] = {LogSeverity::kFatal, LogSeverity::kError,
                                                LogSeverity::kWarning, LogSeverity::kProgress,
                                                LogSeverity::kDebug};

  const std::string& device;
  std::optional<LogSeverity> least;
};

void Check(const Options& options) {
  if (options.file && options.unit) {
    Refuse("give FILE or --unit, not both");
  }
  // What a script's variable has that was never set is not what the person meant.
  if (options.file == "" || options.unit == "") {
    Refuse(std::string(options.file ? "FILE" : "--unit") + ": is empty");
  }
  if (options.device.starts_with('#')) {
    Refuse("--device: the log has devices, as /dev/ttyUSB0; relayctl doctor tells a port's");
  }
}

// Whoever reads what is printed may leave while nothing is: without this the next line would find
// out, which can be days later.
void EndWithReader(Loop& loop) {
  loop.Watch(
      STDOUT_FILENO, [] { return static_cast<short>(POLLERR); },
      [](short events) {
        errno = EBADF;
        if ((events & POLLNVAL) == 0) {
          (void)raise(SIGPIPE);
          errno = EPIPE;
        }
        FailToPrint();
      });
}

int Show(const CommonOptions& common, Options options) {
  Check(options);
  const Filter filter(options);
  const bool isColored = MayColor(STDOUT_FILENO);
  bool isEmpty = true;
  const auto show = [&](const LogRecord& record) {
    isEmpty = false;
    if (filter.Passes(record)) {
      PrintLine(common.json ? ShowRecordAsJson(record)
                            : ShowRecord(record, !options.brief, isColored));
    }
  };
  // Before the loop blocks the signals: a pipe that nobody writes to takes for ever to open.
  const std::unique_ptr<LogStream> stream = Open(options);
  Loop loop;
  EndWithReader(loop);
  bool ended = false;
  loop.Watch(
      stream->Descriptor(), [] { return static_cast<short>(POLLIN); },
      [&](short) { ended = !stream->Read(show); });
  const int signal = loop.Run([&] { return ended; });
  if (isEmpty && ended && options.unit) {
    PrintNotice("the journal has nothing of " + Harmless(*options.unit) +
                " that this user may read");
  }
  return signal == 0 || options.follow ? kExitDone : kExitSignal + signal;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("FILE", options->file, "The log; - is standard input");
  command.Option("--unit", options->unit, "NAME", "Read what the journal has of this unit");
  command.Flag("--follow", options->follow, "Go on with what comes, until Ctrl-C");
  command.Choice("--level", options->level, {"fatal", "error", "warning", "progress", "debug"},
                 "Only lines of this level and worse");
  command.Option("--device", options->device, "PATH", "Only lines about this device");
  command.Flag("--brief", options->brief, "One line for each, without what explains it");
  command.Footer(
      "Without FILE and --unit: the file of the service that runs, where it has one,\n"
      "else what the journal has of serial-port-handler.");
  command.Runs([&common, options] { return Show(common, *options); });
}

const Registration kRegistration("log", "Tell what the lines of the service's log mean", Add);

}  // namespace
