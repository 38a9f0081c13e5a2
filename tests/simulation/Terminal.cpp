// SPDX-License-Identifier: MIT
#include "simulation/Terminal.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <utility>

#include "simulation/Machine.h"

namespace simulation {
namespace {

class Terminal : public File {
 public:
  explicit Terminal(std::shared_ptr<Line> wanted) : line(std::move(wanted)) {
    ++line->opens;
    line->dtr = true;
    TheOracle().Opens(this, line);
  }

  // Closing a line that is still there drops what it holds.
  ~Terminal() override {
    TheOracle().Closes(this);
    if (--line->opens == 0) {
      line->input.clear();
      line->dtr = false;
    }
  }

  Result Read(char* buffer, size_t capacity) override {
    const auto isOver = [this] { return line->isGone || !line->input.empty(); };
    if (!blocks && !isOver()) {
      return -EAGAIN;
    }
    TheOracle().AsksToRead(this);
    const Woken woken = Kernel::Running()->WaitCancellably(isOver, ReadDeadline());
    if (woken == Woken::kSignal) {
      return -EINTR;
    }
    if (line->isGone) {
      return 0;
    }
    if (TheFaults().Strike(Fault::kReadFails)) {
      TheOracle().FailsToRead(this);
      return -TheFaults().Errno();
    }
    const size_t count = std::min(capacity, line->input.size());
    std::copy_n(line->input.begin(), count, buffer);
    line->input.erase(0, count);
    TheOracle().Reads(this, {buffer, count});
    return static_cast<Result>(count);
  }

  // All of it, unless a signal comes or the line goes.
  Result Write(std::string_view bytes) override {
    Kernel& kernel = *Kernel::Running();
    size_t done = 0;
    while (done < bytes.size()) {
      if (!blocks && !line->isGone && Room() == 0) {
        return done > 0 ? static_cast<Result>(done) : -EAGAIN;
      }
      const Woken woken =
          kernel.WaitCancellably([this] { return line->isGone || Room() > 0; }, kForever);
      if (line->isGone) {
        TheOracle().FailsToWrite();
        return done > 0 ? static_cast<Result>(done) : -EIO;
      }
      if (woken == Woken::kSignal) {
        return done > 0 ? static_cast<Result>(done) : -EINTR;
      }
      if (done == 0 && TheFaults().Strike(Fault::kWriteFails)) {
        TheOracle().FailsToWrite();
        return -TheFaults().Errno();
      }
      const bool takesOne = done == 0 && TheFaults().Strike(Fault::kWriteTakesOne);
      const size_t count = takesOne ? 1 : std::min(Room(), bytes.size() - done);
      line->output += bytes.substr(done, count);
      TheOracle().Writes(this, bytes.substr(done, count));
      done += count;
      if (takesOne) {
        break;
      }
    }
    return static_cast<Result>(done);
  }

  short Ready() override {
    if (line->isGone) {
      return POLLIN | POLLOUT | POLLHUP | POLLERR;
    }
    return static_cast<short>((line->input.empty() ? 0 : POLLIN) | (Room() > 0 ? POLLOUT : 0));
  }

  Result Control(unsigned long request, void* argument) override {
    if (line->isGone) {
      return -EIO;
    }
    if (request == TIOCMBIC) {
      line->dtr = line->dtr && (*static_cast<const int*>(argument) & TIOCM_DTR) == 0;
      return 0;
    }
    return -EINVAL;
  }

  Result GetAttributes(termios& attributes) override {
    attributes = line->attributes;
    return Told();
  }

  Result SetAttributes(const termios& attributes) override {
    line->attributes = attributes;
    return Told();
  }

  Result Flush(int queue) override {
    if (line->isGone) {
      return Told();
    }
    if (queue != TCOFLUSH) {
      TheOracle().Flushes(this);
      line->input.clear();
      ++line->flushes;
    }
    if (queue != TCIFLUSH) {
      line->output.clear();
    }
    return Told();
  }

 private:
  static Witness& TheOracle() { return *Machine::Running()->oracle; }
  static Faults& TheFaults() { return Machine::Running()->faults; }

  // What a call that sets up comes to.
  Result Told() {
    const bool fails = line->isGone || TheFaults().Strike(Fault::kSetUpFails);
    if (fails) {
      TheOracle().FailsToSetUp(this);
    }
    return fails ? -EIO : 0;
  }

  // VMIN bytes are waited for until they come, which the first one stands for; else VTIME tenths of
  // a second.
  Time ReadDeadline() const {
    const termios& mode = line->attributes;
    return mode.c_cc[VMIN] > 0 ? kForever
                               : Kernel::Running()->Now() + mode.c_cc[VTIME] * (100 * kMillisecond);
  }

  size_t Room() const { return line->room - std::min(line->room, line->output.size()); }

  const std::shared_ptr<Line> line;
};

}  // namespace

std::string Line::DeviceTakes() { return std::exchange(output, {}); }

Result LineNode::Open(int /*flags*/, std::shared_ptr<File>& opened) {
  Kernel& kernel = *Kernel::Running();
  Machine& machine = *Machine::Running();
  if (line->openTakes > 0) {
    kernel.Sleep(line->openTakes);
  }
  if (machine.faults.Strike(Fault::kOpenIsSlow)) {
    kernel.Sleep(static_cast<Time>(kernel.Choice().Draw(8000)) * kMillisecond);
  }
  const bool fails = machine.faults.Strike(Fault::kOpenFails);
  if (line->isGone || line->failsToOpen != 0 || fails) {
    machine.oracle->FailsToOpen();
    return fails ? -machine.faults.Errno() : line->isGone ? -EIO : -line->failsToOpen;
  }
  opened = std::make_shared<Terminal>(line);
  return 0;
}

struct stat LineNode::Status() const {
  return StatusOf(S_IFCHR | 0660);
}

}  // namespace simulation
