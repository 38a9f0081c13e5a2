// SPDX-License-Identifier: MIT
// The command line. Only CommandLine.cpp knows the library that parses it, which takes long to
// compile.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CommonOptions.h"

// One command with its options and arguments. Targets must outlive CommandLine::Run; they keep
// their value when the option is not given, and help shows it.
class SubCommand {
 public:
  struct Parser;
  explicit SubCommand(std::unique_ptr<Parser> commandParser);
  ~SubCommand();
  SubCommand(const SubCommand&) = delete;
  SubCommand& operator=(const SubCommand&) = delete;

  // `names`: "-x,--hex".
  void Flag(const std::string& names, bool& target, const std::string& help);

  // `placeholder` stands for the value in help: "SECONDS".
  void Option(const std::string& names, std::string& target, const std::string& placeholder,
              const std::string& help);
  void Option(const std::string& names, double& target, const std::string& placeholder,
              const std::string& help);  // not negative; NaN: no default to show
  void Option(const std::string& names, unsigned& target, const std::string& placeholder,
              const std::string& help, unsigned least = 0, unsigned most = 0xFFFF);

  // One of `words`.
  void Choice(const std::string& names, std::string& target, const std::vector<std::string>& words,
              const std::string& help);

  // Without a name before it. `name` is what help calls it: "PORT".
  void Argument(const std::string& name, std::string& target, const std::string& help,
                bool isRequired = true);
  void Arguments(const std::string& name, std::vector<std::string>& target, const std::string& help,
                 bool isRequired = true);

  // Text below the options in help.
  void Footer(const std::string& text);

  // What the command does, called once everything is parsed. The result is the exit status;
  // relay::Error is printed as one line and becomes one.
  void Runs(std::function<int()> action);

 private:
  std::unique_ptr<Parser> parser;
};

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
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // Parses, runs the command, and gives the exit status.
  int Run(int argc, char** argv);

 private:
  struct Parser;

  void Add(const Registration& command);

  CommonOptions common;
  std::unique_ptr<Parser> parser;
  std::vector<std::unique_ptr<SubCommand>> commands;
};
