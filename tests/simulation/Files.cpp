// SPDX-License-Identifier: MIT
#include "simulation/Files.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <utility>

#include "simulation/Machine.h"

namespace simulation {
namespace {

class TextFile : public File {
 public:
  TextFile(std::shared_ptr<TextNode> wanted, bool isAppending)
      : node(std::move(wanted)), appends(isAppending) {}

  Result Read(char* buffer, size_t capacity) override {
    const std::string_view rest =
        std::string_view(node->text).substr(std::min(at, node->text.size()));
    const size_t count = std::min(capacity, rest.size());
    std::copy_n(rest.begin(), count, buffer);
    at += count;
    return static_cast<Result>(count);
  }

  Result Write(std::string_view bytes) override {
    if (!appends) {
      return -EBADF;
    }
    node->text += bytes;
    at = node->text.size();
    Machine::Running()->oracle->Logs(bytes);
    return static_cast<Result>(bytes.size());
  }

  struct stat Status() const override {
    return node->Status();
  }

 private:
  const std::shared_ptr<TextNode> node;
  const bool appends;
  size_t at = 0;
};

}  // namespace

Result Descriptors::Add(std::shared_ptr<File> file, int lowest) {
  size_t number = static_cast<size_t>(lowest);
  while (number < files.size() && files[number] != nullptr) {
    ++number;
  }
  return Replace(static_cast<int>(number), std::move(file));
}

Result Descriptors::Replace(int number, std::shared_ptr<File> file) {
  const auto index = static_cast<size_t>(number);
  if (files.size() <= index) {
    files.resize(index + 1);
  }
  const bool isFresh = files[index] == nullptr;
  if (isFresh && uses.contains(number)) {
    Kernel::Running()->Misuse("number " + std::to_string(number) +
                              " is given anew while a call on it is under way");
  }
  files[index] = std::move(file);
  return number;
}

std::shared_ptr<File> Descriptors::Find(int number) const {
  const auto index = static_cast<size_t>(number);
  return index < files.size() ? files[index] : nullptr;
}

Result Descriptors::Close(int number) {
  if (Find(number) == nullptr) {
    return -EBADF;
  }
  files[static_cast<size_t>(number)].reset();
  return 0;
}

std::vector<int> Descriptors::Open() const {
  std::vector<int> open;
  for (size_t number = 0; number < files.size(); ++number) {
    if (files[number] != nullptr) {
      open.push_back(static_cast<int>(number));
    }
  }
  return open;
}

Descriptors::Use::Use(Descriptors& table, int wanted) : descriptors(table), number(wanted) {
  ++descriptors.uses[number];
}

Descriptors::Use::~Use() {
  if (--descriptors.uses[number] == 0) {
    descriptors.uses.erase(number);
  }
}

Result TextNode::Open(int flags, std::shared_ptr<File>& opened) {
  opened = std::make_shared<TextFile>(shared_from_this(), (flags & O_ACCMODE) != O_RDONLY);
  return 0;
}

struct stat TextNode::Status() const {
  struct stat status = StatusOf(S_IFREG | 0644);
  status.st_size = static_cast<off_t>(text.size());
  status.st_ino = number;
  return status;
}

std::string Pipe::Take(size_t atMost) {
  std::string bytes = text.substr(taken, atMost);
  taken += bytes.size();
  for (size_t left = bytes.size(); left > 0;) {
    Page& page = pages.front();
    const size_t count = std::min(left, page.end - page.begin);
    page.begin += count;
    left -= count;
    if (page.begin == page.end) {
      pages.pop_front();
    }
  }
  return bytes;
}

void Pipe::Forget() {
  text.erase(0, std::exchange(taken, 0));
  text.shrink_to_fit();
}

size_t Pipe::Put(std::string_view bytes, bool isBeginning) {
  size_t done = 0;
  const size_t odd = bytes.size() % kPage;
  if (isBeginning && !pages.empty() && pages.back().end + odd <= kPage) {
    pages.back().end += odd;
    done = odd;
  }
  while (done < bytes.size() && HasRoom()) {
    pages.push_back({0, std::min(kPage, bytes.size() - done)});
    done += pages.back().end;
  }
  text += bytes.substr(0, done);
  if (takesAll) {
    (void)Take(Waiting());
  }
  return done;
}

// All of it, unless a signal comes or the reader goes.
Result PipeEnd::Write(std::string_view bytes) {
  Machine& machine = *Machine::Running();
  for (size_t done = 0;;) {
    if (!pipe->hasReader) {
      Kernel::Running()->SendToThread(Kernel::Running()->Current(), SIGPIPE);
      return done > 0 ? static_cast<Result>(done) : -EPIPE;
    }
    const size_t count = pipe->Put(bytes.substr(done), done == 0);
    machine.oracle->Prints(pipe == machine.errors, bytes.substr(done, count));
    done += count;
    if (done == bytes.size()) {
      return static_cast<Result>(done);
    }
    if (!blocks) {
      return done > 0 ? static_cast<Result>(done) : -EAGAIN;
    }
    const Woken woken = Kernel::Running()->WaitCancellably(
        [this] { return pipe->HasRoom() || !pipe->hasReader; }, kForever);
    if (woken == Woken::kSignal) {
      return done > 0 ? static_cast<Result>(done) : -EINTR;
    }
  }
}

short PipeEnd::Ready() {
  return static_cast<short>((pipe->HasRoom() ? POLLOUT : 0) | (pipe->hasReader ? 0 : POLLERR));
}

Result PipeEnd::Control(unsigned long request, void* argument) {
  if (request != FIONREAD) {
    return -ENOTTY;
  }
  *static_cast<int*>(argument) = static_cast<int>(pipe->Waiting());
  return 0;
}

}  // namespace simulation
