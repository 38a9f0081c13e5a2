// SPDX-License-Identifier: MIT
// Situations in which status is asked.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <regex>
#include <string>

#include "relayctl/HangingServiceTest.h"
#include "relayctl/StatusTable.h"

class StatusSituation : public HangingServiceTest {
 protected:
  StatusSituation() { configuration.Port("#PhysicalPort0", "115200 8 none 1 none"); }

  // Its words; its status must be `status`. How long ago or how long depends on the machine: "N s".
  static std::string Status(int status, const std::string& prefix = "") {
    const Outcome outcome = RunShell(prefix + "relayctl status");
    EXPECT_EQ(status, outcome.status) << outcome.output;
    return std::regex_replace(outcome.output, std::regex("[0-9]+(\\.[0-9])? s\\b"), "N s");
  }

  // All of the words once these are among them, as what happens takes its time.
  static std::string StatusUntil(const std::string& words) {
    std::string said;
    EXPECT_TRUE(Eventually([&] {
      said = RunShell("relayctl status").output;
      return said.find(words) != std::string::npos;
    })) << words
        << " never came, but:\n"
        << said;
    return said;
  }

  // What docs/operations.md says of this row. It is the first thing that status names, unless it is
  // a note.
  static void BothSay(const std::string& name) {
    const StatusRow row = RowOf(name);
    ASSERT_NE("", row.words) << "docs/operations.md says nothing of: " << name;
    EXPECT_EQ(row.status,
              StatusOf("status", (row.status == 0 ? "note: " : "^needs attention: ") + row.words));
    EXPECT_EQ(row.grade == "fault" ? 7 : 0,
              StatusOf("doctor", "\n  " + row.grade + " +" + row.doctor));
  }

  // One of the system's, first on PATH.
  static void WriteTool(const std::string& name, const std::string& commands) {
    const std::string path = std::string(workplace::kPrograms) + "/" + name;
    workplace::WriteWhole(path, "#!/bin/sh\n" + commands + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  // dpkg knows `program` as the service's.
  static void InstallAsPackage(const std::string& version, const std::string& program) {
    WriteTool("dpkg-query", "case \"$1 $2\" in\n'--listfiles serial-port-handler') printf '/.\\n" +
                                program + "\\n' ;;\n--show*) printf " + version + " ;;\nesac");
  }
  static std::string Program() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "SerialPortHandler";
  }

  static std::string Own() { return "RelayctlDoctorT (process " + std::to_string(getpid()) + ")"; }

 private:
  // Its exit status once it says such words.
  static int StatusOf(const std::string& command, const std::string& pattern) {
    Outcome outcome;
    EXPECT_TRUE(Eventually([&] {
      outcome = RunShell("relayctl " + command);
      return std::regex_search(outcome.output, std::regex(pattern));
    })) << pattern
        << " never came, but:\n"
        << outcome.output;
    return outcome.status;
  }
};
