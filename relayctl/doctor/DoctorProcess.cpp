// SPDX-License-Identifier: MIT
#include "doctor/DoctorProcess.h"

#include <algorithm>

namespace {

constexpr const char* kHaveRead =
    "have it read, or give both streams a file, the journal or /dev/null";

bool IsStopped(const Process& process) { return process.state == 'T'; }

// Whether it is read the kernel shows to nobody who does not open it.
void ExamineStream(const StreamTarget& stream, Report& report) {
  const bool isTerminal =
      stream.where.starts_with("/dev/pts/") || stream.where.starts_with("/dev/tty");
  const std::vector<Process>& readers = stream.readers.found;
  if (std::any_of(readers.begin(), readers.end(), IsStopped)) {
    report.Warning(stream.name + " goes to a pipe of " + NamesOf(stream.readers) +
                       ", which is stopped: parts of what is written there are lost",
                   kHaveRead);
  } else if (stream.where == "a pipe" && readers.empty() && stream.readers.complete) {
    report.Warning(stream.name + " goes to a pipe that nobody has: all of it is lost", kHaveRead);
  } else if (stream.where == "a pipe" || isTerminal) {
    const std::string where = isTerminal ? stream.where : "a pipe of " + NamesOf(stream.readers);
    report.Note(stream.name + " goes to " + where +
                    ": parts of it are lost while nobody reads there for a second, and received "
                    "data wait for one who reads slowly",
                kHaveRead);
  }
}

}  // namespace

void ExamineProcess(const Machine& machine, Report& report) {
  if (machine.process.isProgramGone) {
    report.Warning(machine.process.program +
                       " was replaced or removed since the service was started: the old one runs",
                   "restart the service: systemctl restart serial-port-handler");
  }
  for (const StreamTarget& stream : machine.process.streams) {
    ExamineStream(stream, report);
  }
}
