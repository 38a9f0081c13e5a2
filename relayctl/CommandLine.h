// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CommonOptions.h"
#include "SubCommand.h"

// One command, made in the command's own file, which nothing else knows. `add` gives it its options
// and what it does.
struct Registration {
  using Adder = void (*)(SubCommand& command, const CommonOptions& common);

  Registration(const char* commandName, const char* commandHelp, Adder adder);

  const char* const name;
  const char* const help;
  const Adder add;
};

// All commands that have registered themselves, by name.
class CommandLine {
 public:
  CommandLine();

  // Parses, runs the command, and gives the exit status.
  int Run(int argc, char** argv);

 private:
  // Gives help or the version where that was wanted; else nothing, and `named` is to be run.
  std::string Parse(int argc, char** argv);
  std::string TextWantedOf(const SubCommand& command) const;

  CommonOptions common;
  bool isVersionWanted = false;
  SubCommand shared;  // the options of all commands
  std::vector<std::unique_ptr<SubCommand>> commands;
  const SubCommand* named = &shared;  // the command, once it is known
};
