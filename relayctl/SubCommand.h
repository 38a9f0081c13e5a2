// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// One command with its options and arguments. Targets must outlive it; they keep their value when
// the option is not given, and help shows it.
class SubCommand {
 public:
  // `help`: one line. Each has the option --help.
  SubCommand(const std::string& commandName, const std::string& commandHelp);
  SubCommand(const SubCommand&) = delete;
  SubCommand& operator=(const SubCommand&) = delete;

  // `names`: "-x,--hex" or "--hex".
  void Flag(const std::string& names, bool& target, const std::string& help);

  // `placeholder` stands for the value in help: "SECONDS".
  void Option(const std::string& names, std::string& target, const std::string& placeholder,
              const std::string& help);
  void Option(const std::string& names, std::optional<std::string>& target,
              const std::string& placeholder, const std::string& help);
  void Option(const std::string& names, std::vector<std::string>& target,
              const std::string& placeholder, const std::string& help);  // may be given again
  void Option(const std::string& names, double& target, const std::string& placeholder,
              const std::string& help);  // 0 to a million; NaN: no default to show
  void Option(const std::string& names, unsigned& target, const std::string& placeholder,
              const std::string& help, unsigned least = 0, unsigned most = 0xFFFF);

  // One of `words`.
  void Choice(const std::string& names, std::string& target, const std::vector<std::string>& words,
              const std::string& help);

  // Without a name before it. `name` is what help calls it: "PORT".
  void Argument(const std::string& name, std::string& target, const std::string& help,
                bool isRequired = true);

  // The same, where an empty one is not the same as none.
  void Argument(const std::string& name, std::optional<std::string>& target,
                const std::string& help);

  // All words that are left.
  void Arguments(const std::string& name, std::vector<std::string>& target, const std::string& help,
                 bool isRequired = true);

  // Text below the options in help.
  void Footer(const std::string& text) { footer = text; }

  // What the command does, called once everything is parsed. The result is the exit status;
  // relay::Error is printed as one line and becomes one.
  void Runs(std::function<int()> commandAction) { action = std::move(commandAction); }
  int Run() const { return action(); }

  const std::string& Name() const { return name; }
  std::string FullName() const { return "relayctl" + (name.empty() ? "" : " " + name); }
  bool IsHelpWanted() const { return isHelpWanted; }
  std::string Help() const;

  // What stands for it in a list of all commands.
  std::string Line() const;

  // Takes the options among the words behind the first, those of `shared` too unless it has one of
  // that name itself, and gives the other words; without `shared`, only the options in front of
  // these. Throws kUsage, as the next one does.
  std::vector<std::string> TakeOptions(int argc, char** argv, const SubCommand* shared) const;
  void TakeArguments(std::vector<std::string> words) const;

 private:
  // Gives what is wrong with the value; empty: nothing.
  using Taker = std::function<std::string(const std::string& value)>;

  struct Named {
    char letter;  // '\0': none
    std::string name;
    std::string placeholder;  // empty: takes no value
    std::string preset;       // the value that help shows
    std::string help;
    Taker take;
  };
  struct Positional {
    std::string name;
    std::string help;
    bool isRequired;
    std::function<void(const std::string&)> one;  // takes it, or
    std::vector<std::string>* all;
  };

  bool Has(const std::string& option) const;
  static void Take(const std::vector<Named>& known, int code, const char* word);
  void Add(const std::string& names, const std::string& placeholder, const std::string& preset,
           const std::string& help, Taker take);

  const std::string name;
  const std::string help;
  std::string footer;
  std::vector<Named> options;
  std::vector<Positional> arguments;
  std::function<int()> action;
  bool isHelpWanted = false;
};
