// SPDX-License-Identifier: MIT
// The log file on its own, with times made up by the test and a `write` that can be disturbed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <string>

#include "libKXLogger/LogFile.h"
#include "platform-libs/ScratchFolder.h"

namespace {

// What the next calls of `write` do to a descriptor other than standard error: a positive number
// is how many bytes are taken, 0 takes none, a negative one is the errno. Then all is as ever.
std::deque<int> disturbances;
std::atomic<int> writes = 0;

}  // namespace

extern "C" ssize_t __real_write(int descriptor, const void* bytes, std::size_t count);

extern "C" ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t count);

extern "C" ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t count) {
  ++writes;
  if (descriptor == STDERR_FILENO || disturbances.empty()) {
    return __real_write(descriptor, bytes, count);
  }
  const int next = disturbances.front();
  disturbances.pop_front();
  if (next < 0) {
    errno = -next;
    return -1;
  }
  return next == 0
             ? 0
             : __real_write(descriptor, bytes, std::min(count, static_cast<std::size_t>(next)));
}

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

class LogFileTest : public testing::Test {
 protected:
  bool Append(std::string_view message, int second = 0, std::uint32_t microsecond = 0) {
    const kxlogger::LogTime time = {
        std::chrono::sys_seconds(std::chrono::seconds(1000000000 + second)), microsecond};
    return file.Append(path.c_str(), {time, 3, "M", "f.cpp", "1", "4", message});
  }

  std::vector<std::string> Lines() const { return LinesOf(path); }

  static std::string Line(const std::string& message, const std::string& clock = "01:46:40") {
    return "2001-09-09T" + clock + ".000000Z 3 M f.cpp:1 4 " + message;
  }

  ScratchFolder folder;
  std::string path = folder.Path("log");
  StandardErrorFile standardError{folder.Path("stderr")};
  kxlogger::LogFile file;
};

TEST_F(LogFileTest, EachLineIsOneWrite) {
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(Append("m"));
  }
  EXPECT_EQ(10, writes.load());
  EXPECT_EQ(10U, Lines().size());
}

TEST_F(LogFileTest, LinesAreAppendedToWhatIsThere) {
  WriteFile(path, "before\n");
  Append("m");
  EXPECT_THAT(Lines(), ElementsAre("before", Line("m")));
}

TEST_F(LogFileTest, NewFileIsReadableForAllAndWritableForItsOwner) {
  const mode_t mask = umask(0);
  Append("m");
  umask(mask);
  struct stat status = {};
  ASSERT_EQ(0, stat(path.c_str(), &status));
  EXPECT_EQ(0100644U, status.st_mode);
}

TEST_F(LogFileTest, PathIsLookedAtOnceASecondAtMost) {
  const std::string old = folder.Path("log.1");
  Append("one", 0);
  Append("two", 0);
  std::filesystem::rename(path, old);
  Append("three", 0, 999'999);
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(3U, LinesOf(old).size());
  Append("four", 1);
  EXPECT_THAT(Lines(), ElementsAre(Line("four", "01:46:41")));
}

TEST_F(LogFileTest, ClockThatIsSetBackDoesNotStopTheLooks) {
  Append("one", 100);
  Append("two", 100);
  std::filesystem::remove(path);
  Append("three", 0);
  EXPECT_THAT(Lines(), ElementsAre(Line("three")));
}

TEST_F(LogFileTest, RotationKeepsTheDescriptorsNumberAndClosesTheRest) {
  Append("one", 0);
  const OpenDescriptors before = DescriptorsOf(path);
  for (int second = 1; second <= 50; ++second) {
    std::filesystem::rename(path, folder.Path("log.1"));
    Append("m", second);
  }
  const OpenDescriptors after = DescriptorsOf(path);
  EXPECT_EQ(1, after.count);
  EXPECT_EQ(before.lowest, after.lowest);
  EXPECT_EQ(0, DescriptorsOf(folder.Path("log.1")).count);
  EXPECT_EQ(FD_CLOEXEC, fcntl(after.lowest, F_GETFD));
}

TEST_F(LogFileTest, FileThatCannotBeOpenedIsReportedOnceAndRecovers) {
  path = folder.Path("missing/log");
  EXPECT_FALSE(Append("one"));
  EXPECT_FALSE(Append("two"));
  EXPECT_THAT(standardError.Lines(),
              ElementsAre(EndsWith(path + ": cannot be written, lines go to standard error: "
                                          "No such file or directory")));
  std::filesystem::create_directory(folder.Path("missing"));
  EXPECT_TRUE(Append("three"));
  EXPECT_THAT(Lines(), ElementsAre(Line("three")));
}

TEST_F(LogFileTest, FileThatBecomesUnreachableIsReportedOnceAndRecovers) {
  const std::string name = folder.Path("dir");
  std::filesystem::create_directory(name);
  path = name + "/log";
  EXPECT_TRUE(Append("one", 0));
  std::filesystem::remove_all(name);
  EXPECT_FALSE(Append("two", 1));
  EXPECT_FALSE(Append("three", 1)) << "the second is no excuse to write to a file that is gone";
  EXPECT_EQ(1U, standardError.Lines().size());
  std::filesystem::create_directory(name);
  EXPECT_TRUE(Append("four", 1));
  EXPECT_THAT(Lines(), ElementsAre(Line("four", "01:46:41")));
}

TEST_F(LogFileTest, SecondTroubleAfterARecoveryIsReportedAgain) {
  disturbances = {-ENOSPC, 1000, -ENOSPC};
  EXPECT_FALSE(Append("one"));
  EXPECT_TRUE(Append("two"));
  EXPECT_FALSE(Append("three"));
  EXPECT_THAT(standardError.Lines(), ElementsAre(EndsWith("No space left on device"),
                                                 EndsWith("No space left on device")));
}

TEST_F(LogFileTest, OtherReasonIsReportedToo) {
  disturbances = {-ENOSPC, -ENOSPC, -EIO};
  Append("one");
  Append("two");
  Append("three");
  EXPECT_THAT(standardError.Lines(),
              ElementsAre(EndsWith("No space left on device"), EndsWith("Input/output error")));
}

TEST_F(LogFileTest, FifoThatNobodyReadsIsReportedAndDoesNotBlock) {
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  EXPECT_FALSE(Append("one"));
  EXPECT_EQ(1U, standardError.Lines().size());
}

TEST_F(LogFileTest, InterruptedWriteIsRepeated) {
  disturbances = {-EINTR, -EINTR};
  EXPECT_TRUE(Append("m"));
  EXPECT_THAT(Lines(), ElementsAre(Line("m")));
  EXPECT_THAT(standardError.Lines(), IsEmpty());
}

TEST_F(LogFileTest, ShortWriteIsContinued) {
  disturbances = {1, 5, -EINTR, 7};
  EXPECT_TRUE(Append("m"));
  EXPECT_THAT(Lines(), ElementsAre(Line("m")));
}

TEST_F(LogFileTest, WriteThatTakesNothingEndsAsAnError) {
  disturbances = {0};
  EXPECT_FALSE(Append("m"));
  EXPECT_THAT(standardError.Lines(), ElementsAre(EndsWith("Input/output error")));
}

TEST_F(LogFileTest, LineAfterATornOneStartsOnALineOfItsOwn) {
  disturbances = {10, -ENOSPC, -ENOSPC};
  EXPECT_FALSE(Append("one"));
  EXPECT_FALSE(Append("two"));
  EXPECT_TRUE(Append("three"));
  EXPECT_TRUE(Append("four"));
  EXPECT_THAT(Lines(), ElementsAre("2001-09-09", Line("three"), Line("four")));
}

TEST_F(LogFileTest, TornLineInARotatedFileLeavesTheNewOneAlone) {
  disturbances = {10, -ENOSPC};
  EXPECT_FALSE(Append("one", 0));
  std::filesystem::remove(path);
  EXPECT_TRUE(Append("two", 1));
  EXPECT_THAT(Lines(), ElementsAre(Line("two", "01:46:41")));
}

}  // namespace
