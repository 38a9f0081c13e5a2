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
    Machine::Running()->oracle.Logs(bytes);
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
    Kernel::Running()->Defect("number " + std::to_string(number) +
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

Result PipeEnd::Write(std::string_view bytes) {
  while (pipe->Room() == 0) {
    if (!blocks) {
      return -EAGAIN;
    }
    const Woken woken =
        Kernel::Running()->WaitCancellably([this] { return pipe->Room() > 0; }, kForever);
    if (woken == Woken::kSignal) {
      return -EINTR;
    }
  }
  const size_t count = std::min(bytes.size(), pipe->Room());
  pipe->text += bytes.substr(0, count);
  Machine& machine = *Machine::Running();
  machine.oracle.Prints(pipe == machine.errors, bytes.substr(0, count));
  return static_cast<Result>(count);
}

// There is room when a whole page is free.
short PipeEnd::Ready() { return pipe->Room() >= 4096 ? POLLOUT : 0; }

Result PipeEnd::Control(unsigned long request, void* argument) {
  if (request != FIONREAD) {
    return -ENOTTY;
  }
  *static_cast<int*>(argument) = static_cast<int>(pipe->Waiting());
  return 0;
}

}  // namespace simulation
