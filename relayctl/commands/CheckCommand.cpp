// SPDX-License-Identifier: MIT
#include <cerrno>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "check/CheckReport.h"
#include "check/Checker.h"
#include "link/Loop.h"
#include "relay/Text.h"
#include "show/Output.h"

namespace {

struct Options {
  CheckOptions check;
  std::string junit;
  bool isTap = false;
  bool isList = false;
};

int ListCases() {
  for (const auto* const cases : {&GenericCases(), &RecordingCases()}) {
    for (const CheckCase& one : *cases) {
      PrintLine(std::string(one.name) + "\t" + one.sentence);
    }
  }
  return kExitDone;
}

// The file of --junit. Emptied at the beginning: a mistake in its path shows before all is tried,
// and of a check that is broken off no older report is left to be believed.
class JunitFile {
 public:
  explicit JunitFile(const std::string& filePath) : path(filePath) {
    if (!path.empty()) {
      file.open(path, std::ios::binary);
      MustBeGood();
    }
  }

  void Write(const std::vector<CaseResult>& results) {
    if (!path.empty()) {
      file << CheckJunit(results) << std::flush;
      MustBeGood();
    }
  }

 private:
  void MustBeGood() const {
    if (!file) {
      const int reason = errno;
      throw relay::Error(
          relay::ErrorKind::kSystem,
          "cannot write " + relay::Escape(path) + ": " + std::generic_category().message(reason),
          reason);
    }
  }

  const std::string path;
  std::ofstream file;
};

void Print(const std::vector<CaseResult>& results, bool isJson, bool isTap) {
  const auto lines = isJson ? CheckJson(results) : isTap ? CheckTap(results) : CheckLines(results);
  for (const std::string& line : lines) {
    PrintLine(line);
  }
}

int Check(const CommonOptions& common, const Options& options) {
  if (options.isList) {
    return ListCases();
  }
  if (options.check.command.empty()) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       "COMMAND is required; its own options stand behind --");
  }
  if (options.check.limit <= options.check.quiet || options.check.quiet <= 0) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       "--quiet is more than 0, and --limit more than that");
  }
  Loop loop;
  Checker checker(loop, options.check);
  JunitFile junit(options.junit);
  const std::vector<CaseResult> results = checker.Run();
  if (checker.Ended() != 0) {
    return kExitSignal + checker.Ended();
  }
  try {
    Print(results, common.json, options.isTap);
  } catch (const relay::Error&) {
    junit.Write(results);  // which gets them all the same
    throw;
  }
  junit.Write(results);
  return HasFailed(results) ? kExitFailed : kExitDone;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  CheckOptions& check = options->check;
  command.Arguments("COMMAND", check.command,
                    "The program, behind --; {port} in its arguments, and SERIAL_RELAY_PORT in its "
                    "environment, are the TCP port",
                    false);
  command.Option(
      "--recording", check.recordings, "FILE",
      "Have it talk with this recording's device, and try that conversation in all ways; "
      "may be given again");
  command.Option("--junit", options->junit, "FILE",
                 "Write what was found to this file too, for CI");
  command.Flag("--tap", options->isTap, "Print it in the Test Anything Protocol");
  command.Flag("--list", options->isList, "List the cases with their sentences, and leave");
  command.Option("--only", check.only, "NAME", "Only this case; may be given again");
  command.Option("--variants", check.variants, "N", "At most so many variants of a case", 1);
  command.Option("--listen", check.listen, "N",
                 "Always listen on this TCP port, for a program whose port is fixed; then there is "
                 "one trial at a time",
                 1);
  command.Option("--jobs", check.jobs, "N", "So many trials at a time", 1, 64);
  command.Option("--quiet", check.quiet, "SECONDS",
                 "When the program has done nothing for so long, it has come to its end");
  command.Option("--limit", check.limit, "SECONDS", "So long a trial goes on without any progress");
  command.Footer("Exit status: 0 no case failed; 1 one did, or the system did; 2 wrong use.");
  command.Runs([&common, options] { return Check(common, *options); });
}

const Registration kRegistration("check", "Try a relay service: what does it do wrong?", Add);

}  // namespace
