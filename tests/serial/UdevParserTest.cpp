// SPDX-License-Identifier: MIT
// How a dump is read line by line: records, their states, keys and values.
#include <gtest/gtest.h>

#include <cstring>

#include "serial/UdevScanner.h"
#include "support/UdevTool.h"

namespace {

// A path below the first connector.
constexpr const char* kPath = "P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1/4-1:1.0/tty/ttyUSB4\n";
constexpr const char* kIds = "E: ID_VENDOR_ID=0403\nE: ID_MODEL_ID=6001\nE: ID_BUS=usb\n";

class UdevParserTest : public testing::Test {
 protected:
  // The node that each search finds in a dump with this text; "-" for none.
  static std::string ByPlace(const std::string& dump) {
    WriteText(kDumpFile, dump);
    char node[kDevNameSize] = {};
    return FindDeviceByPortIndex(0, node) == kDeviceFound ? node : "-";
  }
  static std::string ByIds(const std::string& dump) {
    WriteText(kDumpFile, dump);
    UdevRecord record;
    return FindDeviceByIds(0x0403, 0x6001, &record) == kDeviceFound ? record.devName : "-";
  }
  static std::string Both(const std::string& dump) { return ByPlace(dump) + " " + ByIds(dump); }

  static UdevRecord Record(const std::string& properties) {
    WriteText(kDumpFile, std::string(kPath) + "N: ttyUSB4\n" + kIds + properties + "\n\n");
    UdevRecord record;
    EXPECT_EQ(kDeviceFound, FindDeviceByIds(0x0403, 0x6001, &record));
    return record;
  }

  static std::string Tty(const std::string& devName) {
    return std::string(kPath) + "N: tty\n" + kIds + "E: DEVNAME=" + devName + "\n\n";
  }

  UdevTool udev;
};

// A whole record whose path line is `path`, with other lines before the node's or not.
std::string Under(const std::string& path) {
  return path + "N: x\n" + kIds + "E: DEVNAME=/dev/x\n\n";
}

struct ParserCase {
  const char* name;
  std::string dump;
  const char* found;  // by place and by ids
};

void PrintTo(const ParserCase& row, std::ostream* stream) { *stream << row.dump; }

class UdevParserTable : public UdevParserTest, public testing::WithParamInterface<ParserCase> {};

TEST_P(UdevParserTable, Finds) { EXPECT_EQ(GetParam().found, Both(GetParam().dump)); }

const std::string kPathLine = kPath;
const std::string kWhole = Under(kPathLine);
const std::string kNoNode = kPathLine + kIds + "E: DEVNAME=/dev/y\n\n";
constexpr const char* kBoth = "/dev/x /dev/x";

const ParserCase kParserCases[] = {
    {"APathBelowThePrefix", kWhole, kBoth},
    {"APathThatIsThePrefix", Under("P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1\n"), kBoth},
    {"APathElsewhere", Under("P: /devices/platform/usb1/1-1\n"), "- /dev/x"},
    {"APathWithThePrefixFurtherInside", Under("P: /x/devices/pci0000:00/0000:00:1d.2/usb4/4-1\n"),
     "- /dev/x"},
    // The third character is not looked at, as it always was.
    {"APathFromTheFourthCharacterOn", Under("P:_/devices/pci0000:00/0000:00:1d.2/usb4/4-1\n"),
     kBoth},
    {"NoPath", Under("P:\n"), "- /dev/x"},
    {"OtherLinesBeforeThePath", "\n\nN: y\nE: DEVNAME=/dev/y\nsome text\n p: x\n\r\n" + kWhole,
     kBoth},
    {"NoNode", kNoNode, "- -"},
    {"ARecordBehindOneWithoutANode", kNoNode + kWhole, kBoth},
    {"PropertiesBeforeTheNode", kPathLine + kIds + "E: DEVNAME=/dev/y\nN: y\n\n", "- -"},
    {"OtherLinesBeforeTheNode", Under(kPathLine + "M: ttyUSB4\nP: /another\nnoise\n"), kBoth},
    {"PathAndNodeBehindTheNode", Under(kPathLine + "N: a\nP: /elsewhere\n"), kBoth},
    {"PropertiesBehindTheEmptyLine", kWhole + "E: DEVNAME=/dev/late\n\n", kBoth},
    {"CrLf",
     "P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1\r\nN: x\r\nE: ID_BUS=usb\r\n"
     "E: ID_VENDOR_ID=0403\r\nE: ID_MODEL_ID=6001\r\nE: DEVNAME=/dev/x\r\n\r\n",
     kBoth},
    {"ALineThatBeginsWithNul", kWhole.substr(0, kWhole.size() - 1) + std::string("\0 more\n", 7),
     kBoth},
    {"NoEmptyLineAtTheEnd", kWhole.substr(0, kWhole.size() - 1), "- -"},
};

INSTANTIATE_TEST_SUITE_P(Dumps, UdevParserTable, testing::ValuesIn(kParserCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(UdevParserTest, State2_LinesThatAreNoKeyAreSkipped) {
  const UdevRecord record = Record("E: ID_VENDOR\nE:ID_VENDOR=a\n E: ID_VENDOR=b\nid_vendor=c");
  EXPECT_STREQ("", record.vendor);
}

TEST_F(UdevParserTest, ARecordOfTheNextDeviceStartsEmpty) {
  const std::string first = std::string(kPath) + "N: a\nE: ID_BUS=usb\nE: ID_VENDOR_ID=0403\n\n";
  const std::string second =
      std::string(kPath) + "N: b\nE: DEVNAME=/dev/b\nE: ID_MODEL_ID=6001\n\n";
  EXPECT_EQ(" -", Both(first + second)) << "the first has a bus but no name";
  EXPECT_EQ("- -", Both(second));
}

// The end of a line and of the file.

TEST_F(UdevParserTest, AValueEndsAtNul) {
  const UdevRecord record = Record(std::string("E: ID_MODEL=ab\0cd", 17));
  EXPECT_STREQ("ab", record.model);
}

TEST_F(UdevParserTest, ADumpCutAnywhereInItsOnlyRecordFindsNothing) {
  const std::string record = Tty("/dev/x");
  for (size_t length = 0; length < record.size(); ++length) {
    EXPECT_EQ("- -", Both(record.substr(0, length))) << length;
  }
}

TEST_F(UdevParserTest, AnEmptyDumpFindsNothing) { EXPECT_EQ("- -", Both("")); }

// Keys.

TEST_F(UdevParserTest, AValueMayHoldBlanks) {
  EXPECT_STREQ("a b", Record("E: ID_MODEL=a b").model);
}

TEST_F(UdevParserTest, AKeyThatOnlyBeginsLikeAnotherIsNotThatKey) {
  const UdevRecord record = Record("E: ID_VENDOR_ENC=a\nE: ID_MODEL_ENC=b\nE: ID_USB_MODEL_ID=c");
  EXPECT_STREQ("", record.vendor);
  EXPECT_STREQ("", record.model);
  EXPECT_STREQ("6001", record.modelId);
}

TEST_F(UdevParserTest, TheLastOfTwoValuesCounts) {
  EXPECT_STREQ("2", Record("E: ID_MODEL=1\nE: ID_MODEL=2").model);
}

TEST_F(UdevParserTest, AnEmptyValueReplacesAnEarlierOne) {
  EXPECT_STREQ("", Record("E: ID_MODEL=1\nE: ID_MODEL=").model);
}

// Long ones.

TEST_F(UdevParserTest, AValueIsCutTo512CharactersWithoutItsKeysLength) {
  const std::string longText(600, 'v');
  // The keys have 13, 12 and 11 characters.
  EXPECT_EQ(499U, std::strlen(Record("E: ID_VENDOR=" + longText).vendor));
  EXPECT_EQ(500U, std::strlen(Record("E: ID_MODEL=" + longText).model));
  EXPECT_EQ(501U, std::strlen(Record("E: DEVNAME=" + longText).devName));
}

TEST_F(UdevParserTest, AValueThatJustFitsIsWhole) {
  const std::string fitting(499, 'v');
  EXPECT_EQ(fitting, Record("E: ID_VENDOR=" + fitting).vendor);
}

TEST_F(UdevParserTest, ALineOfMoreThan1021CharactersIsReadInPieces) {
  // Its second piece is "E: ID_MODEL=second".
  const std::string longLine = "E: X=" + std::string(1016, 'x') + "E: ID_MODEL=second";
  EXPECT_STREQ("second", Record(longLine).model);
}

TEST_F(UdevParserTest, ALineOf1021CharactersLeavesItsNewlineAsAnEmptyLine) {
  const std::string line = "E: X=" + std::string(1016, 'x') + "\nE: ID_MODEL=second";
  EXPECT_STREQ("", Record(line).model) << "the record ended before it";
}

TEST_F(UdevParserTest, ALineOf1020CharactersIsOneLine) {
  const std::string line = "E: X=" + std::string(1015, 'x') + "\nE: ID_MODEL=second";
  EXPECT_STREQ("second", Record(line).model);
}

}  // namespace
