// SPDX-License-Identifier: MIT
// The library as a program sees it. CTest runs each test in a process of its own: the library
// reads the environment at its first line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cerrno>
#include <csignal>
#include <map>
#include <thread>

#include "platform-libs/ScratchFolder.h"
#include "platform/KXLogger.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* kTime = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}[.][0-9]{6}Z";

std::string Form(const std::string& rest) { return kTime + (" " + rest); }

void Log(const std::string& message, int level = 3) {
  writelog("M", "f.cpp", "1", "4", message.c_str(), level);
}

class KXLoggerTest : public testing::Test {
 protected:
  KXLoggerTest() {
    unsetenv("KXLOGGER_FILE");
    unsetenv("JOURNAL_STREAM");
  }

  void LogTo(const std::string& file) {
    path = file;
    setenv("KXLOGGER_FILE", path.c_str(), 1);
  }

  std::vector<std::string> Lines() const { return LinesOf(path); }

  ScratchFolder folder;
  std::string path = folder.Path("log");
};

std::string Numbered(const std::string& writer, int number) {
  return writer + " " + std::to_string(number) + " " + std::string(200, 'x');
}

// How many of `lines` each writer wrote; each must be whole, and a writer's own in order. There are
// too many lines for regular expressions under a sanitizer.
std::map<std::string, int> CountPerWriter(const std::vector<std::string>& lines) {
  static const std::string kHead = " 3 M f.cpp:1 4 ";
  const std::size_t start = std::string("2026-11-20T20:30:01.123456Z").size();
  std::map<std::string, int> counts;
  for (const std::string& line : lines) {
    const std::string rest = line.substr(std::min(start, line.size()));
    const std::size_t name = std::min(kHead.size(), rest.size());
    const std::string writer = rest.substr(name, rest.find(' ', name) - name);
    EXPECT_EQ(kHead + Numbered(writer, counts[writer]++), rest) << line;
  }
  return counts;
}

void LogNumbered(const std::string& writer, int number) { Log(Numbered(writer, number)); }

TEST_F(KXLoggerTest, AppendsOneLinePerCallToTheFile) {
  LogTo(path);
  writelog("SerialPortHandler", "SerialPortHandler.cpp", "87", "4",
           "Serial Port Handler start running.\n", 3);
  writelog("LinuxThread", "Linux/LinuxThread.cpp", "12", "4", "error: thread can not join", 1);
  EXPECT_THAT(Lines(),
              ElementsAre(MatchesRegex(Form("3 SerialPortHandler SerialPortHandler.cpp:87 4 "
                                            "Serial Port Handler start running.")),
                          MatchesRegex(Form("1 LinuxThread Linux/LinuxThread.cpp:12 4 "
                                            "error: thread can not join"))));
}

TEST_F(KXLoggerTest, TimeIsNow) {
  LogTo(path);
  const std::time_t before = std::time(nullptr);
  Log("m");
  const std::time_t after = std::time(nullptr);
  std::tm fields = {};
  ASSERT_NE(nullptr, strptime(Lines().at(0).c_str(), "%Y-%m-%dT%H:%M:%S", &fields));
  EXPECT_LE(before, timegm(&fields) + 1);  // the coarse clock of time() may lag
  EXPECT_GE(after + 1, timegm(&fields));
}

TEST_F(KXLoggerTest, NullTextsAreEmpty) {
  LogTo(path);
  writelog(nullptr, nullptr, nullptr, nullptr, nullptr, 0);
  EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(Form("0  :  "))));
}

TEST_F(KXLoggerTest, LongMessageIsOneLineThatEndsVisibly) {
  LogTo(path);
  Log(std::string(70000, 'x'));
  ASSERT_EQ(1U, Lines().size());
  EXPECT_THAT(Lines().at(0), testing::EndsWith("xxx..."));
  EXPECT_EQ(4096U, ContentOf(path).size());
}

TEST_F(KXLoggerTest, EmptyFileNameCountsAsNone) {
  LogTo("");
  const StandardErrorFile standardError(folder.Path("stderr"));
  Log("m");
  EXPECT_THAT(standardError.Lines(), ElementsAre(MatchesRegex(Form("3 M f.cpp:1 4 m"))));
}

TEST_F(KXLoggerTest, EnvironmentIsReadAtTheFirstLineOnly) {
  LogTo(path);
  Log("one");
  setenv("KXLOGGER_FILE", folder.Path("other").c_str(), 1);
  Log("two");
  EXPECT_EQ(2U, Lines().size());
  EXPECT_FALSE(std::filesystem::exists(folder.Path("other")));
}

std::string NameOf(int stream) {
  struct stat status = {};
  fstat(stream, &status);
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

std::string NameOfStandardError() { return NameOf(STDERR_FILENO); }

TEST_F(KXLoggerTest, JournalGetsItsPriorities) {
  const StandardErrorFile standardError(folder.Path("stderr"));
  setenv("JOURNAL_STREAM", NameOfStandardError().c_str(), 1);
  Log("fatal", 0);
  Log("error", 1);
  Log("progress", 3);
  EXPECT_THAT(standardError.Lines(),
              ElementsAre(MatchesRegex("<2>" + Form("0 M f.cpp:1 4 fatal")),
                          MatchesRegex("<3>" + Form("1 M f.cpp:1 4 error")),
                          MatchesRegex("<6>" + Form("3 M f.cpp:1 4 progress"))));
}

TEST_F(KXLoggerTest, OtherStreamThanTheJournalGetsNoPriority) {
  const int journal = open(folder.Path("journal").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  setenv("JOURNAL_STREAM", NameOf(journal).c_str(), 1);
  close(journal);
  const StandardErrorFile standardError(folder.Path("stderr"));
  Log("m");
  EXPECT_THAT(standardError.Lines(), ElementsAre(MatchesRegex(Form("3 M f.cpp:1 4 m"))));
}

// As under a supervisor that keeps standard error, with its hex dump, away from the journal.
TEST_F(KXLoggerTest, JournalOnStandardOutputAloneGetsTheLines) {
  const StandardErrorFile standardError(folder.Path("stderr"));
  const StreamFile standardOutput(STDOUT_FILENO, folder.Path("stdout"));
  setenv("JOURNAL_STREAM", NameOf(STDOUT_FILENO).c_str(), 1);
  Log("error", 1);
  Log("progress", 3);
  EXPECT_THAT(standardOutput.Lines(),
              ElementsAre(MatchesRegex("<3>" + Form("1 M f.cpp:1 4 error")),
                          MatchesRegex("<6>" + Form("3 M f.cpp:1 4 progress"))));
  EXPECT_THAT(standardError.Lines(), IsEmpty());
}

TEST_F(KXLoggerTest, FileGetsNoPriorityBesideAJournal) {
  setenv("JOURNAL_STREAM", NameOfStandardError().c_str(), 1);
  LogTo(path);
  Log("m");
  EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(Form("3 M f.cpp:1 4 m"))));
}

TEST_F(KXLoggerTest, FolderAsFileSendsLinesToTheJournalWithPriorities) {
  LogTo(folder.Path(""));
  const StandardErrorFile standardError(folder.Path("stderr"));
  setenv("JOURNAL_STREAM", NameOfStandardError().c_str(), 1);
  Log("m");
  EXPECT_THAT(standardError.Lines(),
              ElementsAre(MatchesRegex("<3>" + Form("1 libKXLogger LogFile.cpp:[0-9]+ 4 " + path +
                                                    ": cannot be written, lines go to standard "
                                                    "error: Is a directory")),
                          MatchesRegex("<6>" + Form("3 M f.cpp:1 4 m"))));
}

TEST_F(KXLoggerTest, KeepsErrno) {
  LogTo(folder.Path("missing/log"));
  const StandardErrorFile standardError(folder.Path("stderr"));
  errno = EXDEV;
  Log("m");
  EXPECT_EQ(EXDEV, errno);
  EXPECT_EQ(2U, standardError.Lines().size());
}

TEST_F(KXLoggerTest, NeverTakesTheNumberOfAClosedStandardStream) {
  LogTo(path);
  const int saved = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  Log("m");
  const bool free = fcntl(STDIN_FILENO, F_GETFD) == -1;
  dup2(saved, STDIN_FILENO);
  close(saved);
  EXPECT_TRUE(free);
  EXPECT_LT(STDERR_FILENO, DescriptorsOf(path).lowest);
  EXPECT_EQ(1, DescriptorsOf(path).count);
}

TEST_F(KXLoggerTest, ProgramsThatAreStartedDoNotInheritTheFile) {
  LogTo(path);
  Log("m");
  EXPECT_EQ(FD_CLOEXEC, fcntl(DescriptorsOf(path).lowest, F_GETFD));
}

TEST_F(KXLoggerTest, ThreadsThatStartTogetherShareOneDescriptor) {
  LogTo(path);
  constexpr int kThreads = 16;
  std::barrier start(kThreads);
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&start] {
      start.arrive_and_wait();
      Log("m");
    });
  }
  threads.clear();
  EXPECT_EQ(1, DescriptorsOf(path).count);
  EXPECT_EQ(16U, Lines().size());
}

TEST_F(KXLoggerTest, LinesOfManyThreadsNeverMix) {
  LogTo(path);
  constexpr int kLines = 1000;
  std::vector<std::jthread> threads;
  for (const char* writer : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
    threads.emplace_back([writer] {
      for (int i = 0; i < kLines; ++i) {
        LogNumbered(writer, i);
      }
    });
  }
  threads.clear();
  const auto counts = CountPerWriter(Lines());
  EXPECT_EQ(8U, counts.size());
  for (const auto& [writer, count] : counts) {
    EXPECT_EQ(kLines, count) << writer;
  }
}

TEST_F(KXLoggerTest, RotationUnderLoadLosesNoLine) {
  LogTo(path);
  const std::string old = folder.Path("log.1");
  Log("first");
  std::filesystem::rename(path, old);
  std::atomic<int> total = 1;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        Log("m");
        ++total;
        std::this_thread::yield();
      }
    });
  }
  const auto deadline = GenerousDeadline();
  while (Lines().size() < 20 && IsBefore(deadline)) {
    std::this_thread::yield();
  }
  threads.clear();
  EXPECT_LE(20U, Lines().size());
  EXPECT_EQ(static_cast<std::size_t>(total.load()), Lines().size() + LinesOf(old).size());
  EXPECT_EQ(1, DescriptorsOf(path).count + DescriptorsOf(old).count);
}

std::atomic<int> handled = 0;

void LogFromSignal(int) {
  writelog("S", "s.cpp", "2", "4", "handler", 1);
  handled.store(handled.load() + 1);
}

void HandleUserSignal() {
  struct sigaction action = {};
  action.sa_handler = LogFromSignal;
  action.sa_flags = SA_RESTART;
  ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
}

TEST_F(KXLoggerTest, FirstLineMayComeFromASignalHandler) {
  LogTo(path);
  HandleUserSignal();
  ASSERT_EQ(0, raise(SIGUSR1));
  EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(Form("1 S s.cpp:2 4 handler"))));
}

// A handler interrupts a thread that logs without a pause: most signals fall into `writelog`.
TEST_F(KXLoggerTest, SignalHandlerMayInterruptALineAndLogItself) {
  LogTo(path);
  HandleUserSignal();
  std::atomic<int> own = 0;
  std::jthread writer([&own](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      LogNumbered("writer", own++);
    }
  });
  constexpr int kSignals = 300;
  const auto deadline = GenerousDeadline();
  for (int i = 1; i <= kSignals && IsBefore(deadline); ++i) {
    ASSERT_EQ(0, pthread_kill(writer.native_handle(), SIGUSR1));
    while (handled.load() < i && IsBefore(deadline)) {
      std::this_thread::yield();
    }
  }
  writer.request_stop();
  writer.join();
  std::vector<std::string> lines = Lines();
  const auto handlers = std::erase_if(
      lines, [](const std::string& line) { return line.ends_with("Z 1 S s.cpp:2 4 handler"); });
  EXPECT_EQ(static_cast<std::size_t>(kSignals), handlers);
  EXPECT_EQ(own.load(), CountPerWriter(lines)["writer"]);
}

TEST_F(KXLoggerTest, CancelledThreadFinishesItsLine) {
  LogTo(path);
  pthread_t thread = {};
  const auto body = [](void*) -> void* {
    pthread_cancel(pthread_self());
    Log("whole");
    pthread_testcancel();
    Log("never");
    return nullptr;
  };
  ASSERT_EQ(0, pthread_create(&thread, nullptr, body, nullptr));
  void* result = nullptr;
  ASSERT_EQ(0, pthread_join(thread, &result));
  EXPECT_EQ(PTHREAD_CANCELED, result);
  EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(Form("3 M f.cpp:1 4 whole"))));
}

}  // namespace
