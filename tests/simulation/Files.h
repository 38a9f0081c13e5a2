// SPDX-License-Identifier: MIT
// What the service's descriptors lead to.
#pragma once

#include <poll.h>
#include <sys/stat.h>
#include <termios.h>

#include <cerrno>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/Kernel.h"

namespace simulation {

// What a call comes to: a result of 0 or more, or minus an errno.
using Result = long;

inline struct stat StatusOf(mode_t mode) {
  struct stat status {};
  status.st_mode = mode;
  return status;
}

// An open file description. Destroyed when the last descriptor and the last call under way let go
// of it.
class File {
 public:
  File() = default;
  virtual ~File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  virtual Result Read(char* /*buffer*/, size_t /*capacity*/) { return -EINVAL; }
  virtual Result Write(std::string_view /*bytes*/) { return -EINVAL; }
  virtual short Ready() { return POLLIN | POLLOUT; }
  virtual Result Control(unsigned long /*request*/, void* /*argument*/) { return -ENOTTY; }
  virtual Result GetAttributes(termios& /*attributes*/) { return -ENOTTY; }
  virtual Result SetAttributes(const termios& /*attributes*/) { return -ENOTTY; }
  virtual Result Flush(int /*queue*/) { return -ENOTTY; }
  virtual struct stat Status() const { return StatusOf(S_IFCHR); }

  bool blocks = true;  // no O_NONBLOCK
  bool canRead = true;
  bool canWrite = true;
};

// The process's table. Numbers are given as a kernel gives them: the lowest that is free.
class Descriptors {
 public:
  Result Add(std::shared_ptr<File> file, int lowest = 0);
  // Takes the number's place, as dup3 does.
  Result Replace(int number, std::shared_ptr<File> file);
  // Null: there is no such one.
  std::shared_ptr<File> Find(int number) const;
  Result Close(int number);
  std::vector<int> Open() const;

  // Whether a call made with this number has not returned yet. The number must not get a new
  // meaning meanwhile.
  class Use {
   public:
    Use(Descriptors& table, int wanted);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

   private:
    Descriptors& descriptors;
    const int number;
  };

 private:
  std::vector<std::shared_ptr<File>> files;
  std::map<int, int> uses;
};

// Where something can be opened.
class Node {
 public:
  Node() = default;
  virtual ~Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  virtual Result Open(int flags, std::shared_ptr<File>& opened) = 0;
  virtual struct stat Status() const = 0;
};

// A file with text in it: the configuration, the device database, the log.
class TextNode : public Node, public std::enable_shared_from_this<TextNode> {
 public:
  explicit TextNode(std::string content = "") : text(std::move(content)), number(++made) {}
  Result Open(int flags, std::shared_ptr<File>& opened) override;
  struct stat Status() const override;

  std::string text;

 private:
  static inline ino_t made = 0;
  const ino_t number;
};

// A standard stream: a pipe whose reader takes what comes, or doesn't. It holds pages: a text that
// the last one has no room for begins another.
class Pipe {
 public:
  static constexpr size_t kPage = 4096;

  // The reader's side.
  std::string Take(size_t atMost);
  void Forget();  // what has been taken
  bool takesAll = true;
  bool hasReader = true;
  size_t limit = 16;  // pages

  // The writer's: how much goes in. Only the beginning of a text looks for room in the last page.
  size_t Put(std::string_view bytes, bool isBeginning);
  bool HasRoom() const { return pages.size() < limit; }
  size_t Waiting() const { return text.size() - taken; }

  std::string text;  // all that was written and is not forgotten

 private:
  struct Page {
    size_t begin = 0;
    size_t end = 0;
  };

  size_t taken = 0;  // of the text
  std::deque<Page> pages;
};

// Its end for writing; opened again by its path it is another one of the same pipe.
class PipeEnd : public File {
 public:
  explicit PipeEnd(std::shared_ptr<Pipe> wanted) : pipe(std::move(wanted)) { canRead = false; }
  Result Write(std::string_view bytes) override;
  short Ready() override;
  Result Control(unsigned long request, void* argument) override;
  struct stat Status() const override {
    return StatusOf(S_IFIFO);
  }

 private:
  const std::shared_ptr<Pipe> pipe;
};

class PipeNode : public Node {
 public:
  explicit PipeNode(std::shared_ptr<Pipe> wanted) : pipe(std::move(wanted)) {}
  Result Open(int /*flags*/, std::shared_ptr<File>& opened) override {
    opened = std::make_shared<PipeEnd>(pipe);
    return 0;
  }
  struct stat Status() const override {
    return StatusOf(S_IFIFO);
  }

 private:
  const std::shared_ptr<Pipe> pipe;
};

class Null : public File {
 public:
  Result Read(char* /*buffer*/, size_t /*capacity*/) override { return 0; }
  Result Write(std::string_view bytes) override { return static_cast<Result>(bytes.size()); }
};

}  // namespace simulation
