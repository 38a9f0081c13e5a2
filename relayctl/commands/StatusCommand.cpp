// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <system_error>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "show/Output.h"
#include "status/StatusText.h"

namespace {

constexpr double kPause = 1;  // seconds between two looks, of which each takes one

struct Options {
  bool watch = false;
  std::optional<std::string> metricsFile;
};

void PrintText(std::string text) {
  text.pop_back();  // PrintLine ends it
  PrintLine(text);
}

// Whoever collects it never finds half a file.
void WriteWhole(const std::string& path, const std::string& text) {
  const std::string unfinished = path + "." + std::to_string(getpid());
  std::ofstream file(unfinished);
  std::error_code error;
  if (file << text << std::flush) {
    std::filesystem::rename(unfinished, path, error);
  } else {
    error = {errno, std::generic_category()};
  }
  if (error) {
    (void)std::remove(unfinished.c_str());
    throw relay::Error(relay::ErrorKind::kSystem, path + ": cannot be written: " + error.message());
  }
}

void Show(const SiteStatus& status, const CommonOptions& common, const Options& options) {
  const bool isTerminal = isatty(STDOUT_FILENO) == 1;
  if (options.metricsFile == "-") {
    PrintText(MetricsOf(status));
  } else if (options.metricsFile) {
    WriteWhole(*options.metricsFile, MetricsOf(status));
  } else if (common.json) {
    PrintLine(JsonOf(status));
  } else {
    const char* const fromTheTop = options.watch && isTerminal ? "\x1B[H\x1B[J" : "";
    PrintText(fromTheTop + TextOf(status, MayColor(STDOUT_FILENO)));
  }
}

int Watch(std::optional<uint16_t> port, const CommonOptions& common, const Options& options) {
  Loop loop;
  do {
    Show(LookAtSite(port), common, options);
  } while (loop.RunFor(kPause) == 0);
  return kExitDone;  // a signal is its usual end
}

int Status(const CommonOptions& common, const Options& options) {
  if (options.metricsFile == "") {
    throw relay::Error(relay::ErrorKind::kUsage, "status: --prometheus: is empty");
  }
  const std::optional<uint16_t> port =
      common.givenRelayPort != 0 ? std::optional(common.RelayPort()) : std::nullopt;
  if (options.watch) {
    return Watch(port, common, options);
  }
  const SiteStatus status = LookAtSite(port);
  Show(status, common, options);
  return static_cast<int>(status.health);
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Flag("--watch", options->watch, "Look again and again until Ctrl-C");
  command.Option("--prometheus", options->metricsFile, "FILE",
                 "Write metrics for node_exporter's textfile collector; -: to standard output");
  command.Footer(R"(Exit status:
  0 healthy    1 needs attention, or a file or the system
  2 down, or wrong use)");
  command.Runs([&common, options] { return Status(common, *options); });
}

const Registration kRegistration("status", "Tell how the site is, without touching it", Add);

}  // namespace
