// SPDX-License-Identifier: MIT
// The dump of the udev database and its removal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "serial/UdevScanner.h"
#include "support/Eventually.h"
#include "support/UdevTool.h"

namespace {

using testing::ElementsAre;

namespace fs = std::filesystem;

class UdevDumpTest : public testing::Test {
 protected:
  UdevTool udev;
};

TEST_F(UdevDumpTest, DumpsTheWholeDatabaseIntoTheFile) {
  const std::string database = RealDatabase("udev-db-six-adapters.txt");
  udev.Prints(database);
  EXPECT_EQ(0, DumpDeviceDatabase());
  EXPECT_EQ(database, ReadText(kDumpFile));
  EXPECT_THAT(udev.Runs(), ElementsAre("info --export-db"));
}

TEST_F(UdevDumpTest, AnOlderDumpIsReplaced) {
  WriteText(kDumpFile, std::string(5000, 'x'));
  udev.Prints(std::string(100, 'y'));
  EXPECT_EQ(0, DumpDeviceDatabase());
  EXPECT_EQ(std::string(100, 'y'), ReadText(kDumpFile));
}

TEST_F(UdevDumpTest, ADumpOfLessThan100BytesIsNone) {
  for (const size_t size : {0U, 99U, 100U}) {
    udev.Prints(std::string(size, 'x'));
    EXPECT_EQ(size < 100 ? -1 : 0, DumpDeviceDatabase()) << size;
  }
}

TEST_F(UdevDumpTest, AMissingUdevadmMakesNoDump) {
  udev.IsMissing();
  EXPECT_EQ(-1, DumpDeviceDatabase());
}

TEST_F(UdevDumpTest, TheExitStatusOfUdevadmDoesNotMatter) {
  udev.Runs("printf '%100s' x; exit 3");
  EXPECT_EQ(0, DumpDeviceDatabase());
}

TEST_F(UdevDumpTest, AFolderInTheFilesPlaceMakesNoDumpAndIsNotRemoved) {
  fs::create_directory(kDumpFile);
  udev.Prints(RealDatabase("udev-db-six-adapters.txt"));
  EXPECT_EQ(-1, DumpDeviceDatabase());
  EXPECT_EQ(-1, RemoveDeviceDatabase());
  EXPECT_TRUE(fs::is_directory(kDumpFile));
}

TEST_F(UdevDumpTest, RemovesTheFile) {
  WriteText(kDumpFile, "x");
  EXPECT_EQ(0, RemoveDeviceDatabase());
  EXPECT_FALSE(fs::exists(kDumpFile));
}

TEST_F(UdevDumpTest, AMissingFileIsNotRemoved) { EXPECT_EQ(-1, RemoveDeviceDatabase()); }

TEST_F(UdevDumpTest, RemovalReports0WhateverBecomesOfIt) {
  WriteText(kDumpFile, "x");
  udev.IsMissing();
  fs::remove(udev.Path("bin/rm"));
  EXPECT_EQ(0, RemoveDeviceDatabase());
  EXPECT_TRUE(fs::exists(kDumpFile));
}

TEST_F(UdevDumpTest, AScopeDumpsAndRemoves) {
  udev.Prints(std::string(100, 'x'));
  {
    const CDeviceDatabase database;
    EXPECT_TRUE(fs::exists(kDumpFile));
  }
  EXPECT_FALSE(fs::exists(kDumpFile));
}

// The way out of the process ends the command that runs, and that may be rm.
TEST_F(UdevDumpTest, AScopeRemovesTheFileAlsoWhenRmDoesNot) {
  udev.IsMissing();
  fs::remove(udev.Path("bin/rm"));
  { const CDeviceDatabase database; }
  EXPECT_FALSE(fs::exists(kDumpFile));
}

TEST_F(UdevDumpTest, AScopeThatIsCancelledRemovesTheFile) {
  udev.Prints(std::string(100, 'x'));
  pthread_t thread{};
  std::atomic<bool> dumped{false};
  const auto search = [](void* flag) -> void* {
    const CDeviceDatabase database;
    *static_cast<std::atomic<bool>*>(flag) = true;
    for (;;) {
      (void)pause();
    }
  };
  ASSERT_EQ(0, pthread_create(&thread, nullptr, search, &dumped));
  EXPECT_TRUE(Eventually([&] { return dumped.load(); }));
  EXPECT_EQ(0, pthread_cancel(thread));
  EXPECT_EQ(0, pthread_join(thread, nullptr));
  EXPECT_FALSE(fs::exists(kDumpFile));
}

}  // namespace
