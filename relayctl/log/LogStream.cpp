// SPDX-License-Identifier: MIT
#include "log/LogStream.h"

#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

#include "Input.h"
#include "Tool.h"
#include "log/JournalEntry.h"

namespace {

// A line of the log has 4096 bytes at most, one of received bytes some thousand. What is longer is
// given in pieces.
constexpr size_t kLongestLine = 65536;

class Lines {
 public:
  void Add(std::string_view bytes, const LogStream::Taker& taker) {
    text += bytes;
    size_t begin = 0;
    for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
      taker(RecordOf(std::string_view(text).substr(begin, end - begin)));
    }
    text.erase(0, begin);
    if (text.size() > kLongestLine) {
      Finish(taker);
    }
  }

  // The last line, where its end is missing.
  void Finish(const LogStream::Taker& taker) {
    if (!text.empty()) {
      taker(RecordOf(std::exchange(text, {})));
    }
  }

 private:
  std::string text;
};

class Whole : public LogStream {
 public:
  explicit Whole(const std::string& path) : file(path) {}

  int Descriptor() const override { return file.Descriptor(); }

  bool Read(const Taker& taker) override {
    const std::string piece = file.Read();
    if (piece.empty()) {
      lines.Finish(taker);
      return false;
    }
    lines.Add(piece, taker);
    return true;
  }

 private:
  Input file;
  Lines lines;
};

// Looks at the file again and again: the kernel's notices tell nothing of what is written on
// another machine, or under which name it goes on.
class Followed : public LogStream {
 public:
  explicit Followed(std::string name)
      : path(std::move(name)),
        file(std::make_unique<Input>(path)),
        looks(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    constexpr itimerspec kOften = {{0, 250'000'000}, {0, 1}};
    (void)timerfd_settime(looks, 0, &kOften, nullptr);
  }
  ~Followed() override { (void)close(looks); }
  Followed(const Followed&) = delete;
  Followed& operator=(const Followed&) = delete;

  int Descriptor() const override { return looks; }

  // A piece at a time, until there is none: the look is over only then.
  bool Read(const Taker& taker) override {
    const std::string piece = file->Read();
    lines.Add(piece, taker);
    if (piece.empty()) {
      uint64_t missed;
      (void)!read(looks, &missed, sizeof missed);
      GoOn(taker);
    }
    return true;
  }

 private:
  // Where the file was emptied, or another one has its name, a line that is unfinished stays so.
  void GoOn(const Taker& taker) {
    struct stat ours {};
    struct stat named {};
    (void)fstat(file->Descriptor(), &ours);
    if (stat(path.c_str(), &named) == 0 && S_ISREG(named.st_mode) &&
        (named.st_ino != ours.st_ino || named.st_dev != ours.st_dev)) {
      for (std::string last; !(last = file->Read()).empty();) {
        lines.Add(last, taker);
      }
      lines.Finish(taker);
      file = std::make_unique<Input>(path);
    } else if (ours.st_size < lseek(file->Descriptor(), 0, SEEK_CUR)) {
      lines.Finish(taker);
      (void)lseek(file->Descriptor(), 0, SEEK_SET);
    }
  }

  const std::string path;
  std::unique_ptr<Input> file;
  int looks;
  Lines lines;
};

class Journal : public LogStream {
 public:
  explicit Journal(std::vector<std::string> command)
      : journalctl(std::move(command), Tool::Use::kRead) {}

  int Descriptor() const override { return journalctl.Descriptor(); }

  bool Read(const Taker& taker) override {
    const std::string piece = journalctl.Read();
    entries.Add(piece);
    while (const auto entry = entries.Next()) {
      taker(RecordOf(*entry));
    }
    return !piece.empty();
  }

 private:
  Tool journalctl;
  JournalExport entries;
};

}  // namespace

std::unique_ptr<LogStream> LogOfFile(const std::string& path, bool follow) {
  std::error_code error;
  if (follow && path != "-" && std::filesystem::is_regular_file(path, error)) {
    return std::make_unique<Followed>(path);
  }
  return std::make_unique<Whole>(path);
}

std::unique_ptr<LogStream> LogOfUnit(const std::string& unit, bool follow) {
  std::vector<std::string> command = {
      "journalctl", "--quiet", "--unit=" + unit, "--output=export",
      "--output-fields=MESSAGE,PRIORITY,SYSLOG_IDENTIFIER,_TRANSPORT"};
  if (follow) {
    command.insert(command.end(), {"--follow", "--lines=all"});
  }
  return std::make_unique<Journal>(std::move(command));
}
