// SPDX-License-Identifier: MIT
// The library as the service calls it, with real files and the real log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "libvost/ConfigFile.h"
#include "platform-libs/ScratchFolder.h"
#include "platform/Libvost.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* kPort =
    "[#PhysicalPort0]\nbaud = 9600\ndata = 8\nparity = none\nstop = 1\nflow = XOnXOff\n";

class LibvostTest : public testing::Test {
 protected:
  LibvostTest() {
    setenv("VOST_CONFIG", path.c_str(), 1);
    setenv("KXLOGGER_FILE", log.c_str(), 1);
  }

  int Connect() { return Libvost().getSystemConnectInfo(info); }

  // As the service does: from a buffer of its own.
  // cppcheck-suppress passedByValue
  int Serial(std::string name) { return Libvost().getSerialByPortID(serial, name.data()); }

  std::vector<std::string> Log() const { return LinesOf(log); }

  // One line in the log, from this library, that ends in `complaint`.
  void ExpectComplaint(const std::string& complaint) {
    ASSERT_EQ(1U, Log().size());
    EXPECT_THAT(Log().at(0), MatchesRegex("[^ ]+ 1 libvost Libvost.cpp:[1-9][0-9]* 4 .*"));
    EXPECT_THAT(Log().at(0), testing::EndsWith(" 4 " + complaint));
  }

  ScratchFolder folder;
  std::string path = folder.Path("vost.conf");
  std::string log = folder.Path("log");
  KX_CONNECT_INFO info{};
  KX_SERIAL serial{};
};

TEST_F(LibvostTest, RelayPortIsHandedOnVerbatim) {
  WriteFile(path, "[connect]\nport = 60005\n");
  EXPECT_NE(0, Connect());
  EXPECT_STREQ("60005", info.port);
  WriteFile(path, "[connect]\nport = \" no number \"\n");
  EXPECT_NE(0, Connect());
  EXPECT_STREQ(" no number ", info.port);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(LibvostTest, SettingWordsAreHandedOnVerbatim) {
  WriteFile(path, std::string(kPort) +
                      "[#USBSerialPort3]\nbaud=\"9600 \"\ndata=nine\nparity=\nstop=1.5\nflow=x\n");
  EXPECT_NE(0, Serial("#PhysicalPort0"));
  EXPECT_STREQ("9600", serial.baud);
  EXPECT_STREQ("8", serial.data);
  EXPECT_STREQ("none", serial.parity);
  EXPECT_STREQ("1", serial.stop);
  EXPECT_STREQ("XOnXOff", serial.flow);
  EXPECT_NE(0, Serial("#USBSerialPort3"));
  EXPECT_STREQ("9600 ", serial.baud);
  EXPECT_STREQ("nine", serial.data);
  EXPECT_STREQ("", serial.parity);
  EXPECT_STREQ("1.5", serial.stop);
  EXPECT_STREQ("x", serial.flow);
}

TEST_F(LibvostTest, RecordsHoldNothingElse) {
  WriteFile(path, std::string("[connect]\nport=1\n") + kPort);
  info = KX_CONNECT_INFO{"x", "x", "x", "x", "x"};
  ASSERT_NE(0, Connect());
  EXPECT_STREQ("", info.systemId);
  EXPECT_STREQ("", info.systemName);
  EXPECT_STREQ("", info.hostName);
  EXPECT_STREQ("", info.address);
  serial = KX_SERIAL{"x", "x", "x", "x", "x", "x", "x", "x", "x", "x", "x", "x", "x"};
  ASSERT_NE(0, Serial("#PhysicalPort0"));
  EXPECT_STREQ("#PhysicalPort0", serial.portId);
  EXPECT_STREQ("#PhysicalPort0", serial.portName);
  for (const char* field : {serial.kind, serial.location, serial.vendor, serial.product,
                            serial.description, serial.owner}) {
    EXPECT_STREQ("", field);
  }
}

TEST_F(LibvostTest, WordFieldsAreTheNinthToThirteenthOfTheRecord) {
  EXPECT_EQ(512U, offsetof(KX_SERIAL, baud));
  EXPECT_EQ(768U, offsetof(KX_SERIAL, flow));
  EXPECT_EQ(832U, sizeof(KX_SERIAL));
  EXPECT_EQ(256U, offsetof(KX_CONNECT_INFO, port));
  EXPECT_EQ(320U, sizeof(KX_CONNECT_INFO));
}

TEST_F(LibvostTest, MissingFileSectionOrKeyIsSilent) {
  EXPECT_EQ(0, Connect());
  EXPECT_EQ(0, Serial("#PhysicalPort0"));
  WriteFile(path, "[other]\nport=1\n[connect]\nPort=1\n");
  EXPECT_EQ(0, Connect());
  EXPECT_EQ(0, Serial("#PhysicalPort0"));
  EXPECT_EQ(0, Serial(""));
  setenv("VOST_CONFIG", (path + "/below").c_str(), 1);
  EXPECT_EQ(0, Connect());
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(LibvostTest, EachOfTheFiveKeysIsNeeded) {
  for (const std::string key : {"baud", "data", "parity", "stop", "flow"}) {
    std::string text = kPort;
    text.replace(text.find("\n" + key) + 1, key.size(), "other");
    WriteFile(path, text);
    EXPECT_EQ(0, Serial("#PhysicalPort0")) << key;
  }
  WriteFile(path, kPort);
  EXPECT_NE(0, Serial("#PhysicalPort0"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(LibvostTest, NoNameFindsNoPort) {
  WriteFile(path, kPort);
  EXPECT_EQ(0, Libvost().getSerialByPortID(serial, nullptr));
}

TEST_F(LibvostTest, FileIsReadAfreshAtEveryLookUp) {
  WriteFile(path, "[connect]\nport=1\n");
  ASSERT_NE(0, Connect());
  WriteFile(path, "[connect]\nport=2\n");
  ASSERT_NE(0, Connect());
  EXPECT_STREQ("2", info.port);
  std::filesystem::remove(path);
  EXPECT_EQ(0, Connect());
}

TEST_F(LibvostTest, PortNameLongerThanItsFieldsIsStillFound) {
  const std::string name(300, 'n');
  WriteFile(path, "[" + name + "]\nbaud=1\ndata=2\nparity=3\nstop=4\nflow=5\n");
  ASSERT_NE(0, Serial(name));
  EXPECT_STREQ("", serial.portId);
  EXPECT_STREQ("", serial.portName);
  EXPECT_STREQ("1", serial.baud);
  EXPECT_EQ(0, Serial(std::string(70000, 'n')));
}

TEST_F(LibvostTest, ValueThatFillsItsFieldIsWhole) {
  const std::string value(KX_TEXT_SIZE - 1, '9');
  WriteFile(path, "[connect]\nport=" + value + "\n");
  ASSERT_NE(0, Connect());
  EXPECT_EQ(value, info.port);
}

TEST_F(LibvostTest, MalformedLineIsOneLogLineAndNoAnswer) {
  WriteFile(path, std::string(kPort) + "what is this\n");
  EXPECT_EQ(0, Serial("#PhysicalPort0"));
  ExpectComplaint(path + ":7: neither comment, [section] nor key = value");
}

TEST_F(LibvostTest, EachLookUpComplains) {
  WriteFile(path, "oops\n");
  EXPECT_EQ(0, Connect());
  EXPECT_EQ(0, Serial("#PhysicalPort0"));
  EXPECT_EQ(2U, Log().size());
}

TEST_F(LibvostTest, FifoInPlaceOfTheFileIsRefusedWithoutWaiting) {
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  EXPECT_EQ(0, Connect());
  ExpectComplaint(path + ": not a regular file");
}

TEST_F(LibvostTest, LinkThatLeadsNowhereElseIsRefused) {
  std::filesystem::create_symlink(path, path);
  EXPECT_EQ(0, Connect());
  ExpectComplaint(path + ": Too many levels of symbolic links");
}

TEST_F(LibvostTest, FileOfTheLargestSizeIsReadAndALargerOneRefused) {
  std::string text = "[connect]\nport=1\n";
  text.resize(65536, '\n');
  WriteFile(path, text);
  EXPECT_NE(0, Connect());
  WriteFile(path, text + "\n");
  EXPECT_EQ(0, Connect());
  ExpectComplaint(path + ": larger than 65536 bytes");
}

TEST_F(LibvostTest, NoDescriptorStaysOpen) {
  WriteFile(path, kPort);
  for (int i = 0; i < 100; ++i) {
    EXPECT_NE(0, Serial("#PhysicalPort0"));
  }
  EXPECT_EQ(0, DescriptorsOf(path).count);
}

TEST_F(LibvostTest, ThreadsMayLookUpAtTheSameTime) {
  WriteFile(path, std::string("[connect]\nport=60005\n") + kPort);
  std::atomic<int> right = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&right] {
      for (int j = 0; j < 100; ++j) {
        KX_SERIAL record;
        std::string name = "#PhysicalPort0";
        if (Libvost().getSerialByPortID(record, name.data()) != 0 &&
            std::string_view(record.flow) == "XOnXOff") {
          ++right;
        }
      }
    });
  }
  threads.clear();
  EXPECT_EQ(400, right.load());
}

TEST_F(LibvostTest, DefaultPathCountsWhenTheEnvironmentNamesNone) {
  EXPECT_EQ(path, vost::ConfigPath());
  setenv("VOST_CONFIG", "", 1);
  EXPECT_STREQ("/etc/vost.conf", vost::ConfigPath());
  unsetenv("VOST_CONFIG");
  EXPECT_STREQ("/etc/vost.conf", vost::ConfigPath());
}

}  // namespace
