// SPDX-License-Identifier: MIT
#include "machine/ServiceProcess.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "Tool.h"
#include "machine/Files.h"
#include "machine/ProcessStat.h"

namespace {

constexpr std::string_view kGone = " (deleted)";  // the kernel's

constexpr const char* kPackage = "serial-port-handler";

// Empty where the program is not the package's. To ask which package a file is of would have dpkg
// read every package's list of files, which takes seconds on a small board.
std::string VersionOf(const std::string& program) {
  const std::string files = RunTool({"dpkg-query", "--listfiles", kPackage}).text;
  return files.find("\n" + program + "\n") == std::string::npos
             ? ""
             : RunTool({"dpkg-query", "--show", "--showformat=${Version}", kPackage}).text;
}

std::optional<uint64_t> DescriptorLimitOf(const std::string& folder) {
  constexpr std::string_view kKey = "\nMax open files";
  const std::string limits = TextOf(folder + "/limits");
  const size_t found = limits.find(kKey);
  return found == std::string::npos
             ? std::nullopt
             : std::optional(strtoull(limits.c_str() + found + kKey.size(), nullptr, 10));
}

uint64_t ResidentBytesOf(const std::string& folder) {
  std::istringstream pages(TextOf(folder + "/statm"));
  uint64_t size = 0;
  uint64_t resident = 0;
  pages >> size >> resident;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

StreamTarget TargetOf(const ProcessTable& processes, const std::string& folder, int stream,
                      pid_t service) {
  StreamTarget target;
  target.name = stream == STDOUT_FILENO ? "standard output" : "standard error";
  const std::string link = LinkOf(folder + "/fd/" + std::to_string(stream));
  const bool isPipe = link.starts_with("pipe:");
  target.where = isPipe ? "a pipe" : link.starts_with("socket:") ? "a socket" : link;
  if (isPipe) {
    target.readers = processes.HoldersOf(link);
    std::erase_if(target.readers.found,
                  [service](const Process& holder) { return holder.pid == service; });
  }
  return target;
}

}  // namespace

ServiceProcess LookAtProcess(const ProcessTable& processes, const RunningService& service) {
  ServiceProcess result;
  const ProcessStat stat(service.folder);
  result.startedAt = stat.StartedAt();
  result.processorMillis = stat.ProcessorMillis();
  result.residentBytes = ResidentBytesOf(service.folder);
  result.threads = PathsIn(service.folder + "/task").size();
  result.descriptorLimit = DescriptorLimitOf(service.folder);
  std::error_code hidden;
  const size_t descriptors = PathsIn(service.folder + "/fd", hidden).size();
  if (!hidden) {
    result.descriptors = descriptors;
  }
  result.program = LinkOf(service.folder + "/exe");
  if (result.program.ends_with(kGone)) {
    result.isProgramGone = true;
    result.program.resize(result.program.size() - kGone.size());
  } else if (!result.program.empty()) {
    result.version = VersionOf(result.program);
  }
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    result.streams.push_back(TargetOf(processes, service.folder, stream, service.process->pid));
  }
  return result;
}
