// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>
#include <sstream>
#include <utility>

#include "ExitStatus.h"
#include "link/Silence.h"
#include "show/Output.h"

namespace {

constexpr const char* kExitTable = R"(Exit status:
  0 done                     5 the service ended the link
  1 a file or the system     6 not a packet of the protocol
  2 wrong use                7 not as recorded; doctor: a fault
  3 nothing listens          10 + the service's status, when it
  4 no answer in time             refused: 12, 13, 14, 15
"relayctl COMMAND --help" tells a command's options; relayctl(1) has examples.)";

constexpr double kMostSeconds = 1e6;

// CLI11's own check of a range lets "nan" pass.
std::string CheckNumber(const std::string& text) {
  double number = 0;
  const bool isGood =
      CLI::detail::lexical_cast(text, number) && number >= 0 && number <= kMostSeconds;
  return isGood ? "" : "\"" + text + "\" is no number from 0 to 1000000";
}

// What a person typed comes back on a terminal: no control bytes, one line.
void PrintError(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  PrintNotice(Harmless(text));
}

// What the machine tells beyond the library's text.
std::string Explanation(const relay::Error& error, const CommonOptions& common) {
  return error.Kind() == relay::ErrorKind::kNoAnswer
             ? ": " + WhyNoAnswer(ProcessTable(), common.RelayPort())
             : "";
}

// What the shell may have made of the line.
std::string Hint(const CLI::ParseError& error) {
  return std::string_view(error.what()) == "PORT is required"
             ? "; in a shell, a name that begins with # stands in quotes"
             : "";
}

// The word that stands where a command should, if there is one.
std::string MisspelledCommand(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    if (word == "-p" || word == "--port" || word == "--timeout" || word == "--patience") {
      ++i;
    } else if (!word.starts_with("-")) {
      return word;
    }
  }
  return "";
}

// Behind the 30 columns that options take, on a terminal of 80: the parsing library breaks no line.
std::string Wrapped(const std::string& help) {
  constexpr size_t kWidth = 50;
  std::string text;
  size_t column = 0;
  std::istringstream words(help);
  for (std::string word; words >> word;) {
    const bool fits = column + 1 + word.size() <= kWidth;
    text += column == 0 ? "" : fits ? " " : "\n";
    column = (column == 0 || !fits ? 0 : column + 1) + word.size();
    text += word;
  }
  return text;
}

}  // namespace

struct SubCommand::Parser {
  CLI::App* app;
};

SubCommand::SubCommand(std::unique_ptr<Parser> commandParser) : parser(std::move(commandParser)) {}
SubCommand::~SubCommand() = default;

void SubCommand::Flag(const std::string& names, bool& target, const std::string& help) {
  parser->app->add_flag(names, target, Wrapped(help));
}

void SubCommand::Option(const std::string& names, std::string& target,
                        const std::string& placeholder, const std::string& help) {
  parser->app->add_option(names, target, Wrapped(help))->type_name(placeholder);
}

void SubCommand::Option(const std::string& names, double& target, const std::string& placeholder,
                        const std::string& help) {
  CLI::Option* const option = parser->app->add_option(names, target, Wrapped(help));
  if (std::isnan(target)) {
    option->default_str("");  // the command finds one by itself
  }
  option->check(CheckNumber)->type_name(placeholder);
}

void SubCommand::Option(const std::string& names, unsigned& target, const std::string& placeholder,
                        const std::string& help, unsigned least, unsigned most) {
  parser->app->add_option(names, target, Wrapped(help))
      ->check(CLI::Range(least, most).description(""))
      ->type_name(placeholder);
}

void SubCommand::Choice(const std::string& names, std::string& target,
                        const std::vector<std::string>& words, const std::string& help) {
  std::string all;
  for (const std::string& word : words) {
    all += (all.empty() ? "" : "|") + word;
  }
  parser->app->add_option(names, target, Wrapped(help))
      ->check(CLI::IsMember(words).description(""))
      ->type_name(all);
}

void SubCommand::Argument(const std::string& name, std::string& target, const std::string& help,
                          bool isRequired) {
  parser->app->add_option(name, target, Wrapped(help))->type_name("")->required(isRequired);
}

void SubCommand::Arguments(const std::string& name, std::vector<std::string>& target,
                           const std::string& help, bool isRequired) {
  parser->app->add_option(name, target, Wrapped(help))
      ->type_name("")
      ->default_str("")
      ->required(isRequired);
}

void SubCommand::Footer(const std::string& text) { parser->app->footer(text); }

struct CommandLine::Parser {
  CLI::App app{"Plays the relay service: opens SerialPortHandler's ports and talks to them."};
};

namespace {

using Registrations = std::map<std::string_view, const Registration*>;

// Made by the first command, before main begins; in which order they come nobody knows.
Registrations& Registered() {
  static Registrations all;
  return all;
}

// Set while CommandLine::Run parses: the action of the command that was named.
std::function<int()> chosenAction;

}  // namespace

void SubCommand::Runs(std::function<int()> action) {
  parser->app->callback([action = std::move(action)] { chosenAction = action; });
}

Registration::Registration(const char* commandName, const char* commandHelp, Adder adder)
    : name(commandName), help(commandHelp), add(adder) {
  Registered()[name] = this;
}

CommandLine::CommandLine() : parser(std::make_unique<Parser>()) {
  CLI::App& app = parser->app;
  app.name("relayctl");
  app.option_defaults()->always_capture_default();
  app.set_version_flag("-V,--version", std::string("relayctl ") + RELAYCTL_VERSION);
  app.add_option("-p,--port", common.givenRelayPort,
                 Wrapped("TCP port of the service on 127.0.0.1; by its configuration if not given"))
      ->default_str("")
      ->check(CLI::Range(1U, 0xFFFFU).description(""))
      ->type_name("N");
  app.add_flag("-j,--json", common.json, "Print one JSON object per line");
  app.add_option("--timeout", common.timeout, "How long to wait for an answer; 0: for ever")
      ->check(CheckNumber)
      ->type_name("SECONDS");
  app.add_option("--patience", common.patience,
                 "How long to try a service that does not listen yet")
      ->check(CheckNumber)
      ->type_name("SECONDS");
  app.require_subcommand(1);
  app.footer(kExitTable);
  for (const auto& entry : Registered()) {
    Add(*entry.second);
  }
}

CommandLine::~CommandLine() = default;

void CommandLine::Add(const Registration& command) {
  CLI::App* const app = parser->app.add_subcommand(command.name, command.help);
  app->fallthrough();  // the common options may stand behind the command too
  app->option_defaults()->always_capture_default();
  commands.push_back(
      std::make_unique<SubCommand>(std::make_unique<SubCommand::Parser>(SubCommand::Parser{app})));
  command.add(*commands.back(), common);
}

int CommandLine::Run(int argc, char** argv) {
  CLI::App& app = parser->app;
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& wanted) {  // help or version
    return app.exit(wanted);
  } catch (const CLI::ParseError& error) {
    const auto named = app.get_subcommands();
    const std::string command = named.empty() ? "" : named[0]->get_name() + " ";
    const std::string wrong = named.empty() ? MisspelledCommand(argc, argv) : "";
    if (!wrong.empty() && error.get_name() == "RequiredError") {
      PrintError("there is no command \"" + wrong + "\" (relayctl --help tells more)");
      return kExitUsage;
    }
    PrintError((command.empty() ? "" : command.substr(0, command.size() - 1) + ": ") +
               error.what() + Hint(error) + " (relayctl " + command + "--help tells more)");
    return kExitUsage;
  }
  try {
    return std::exchange(chosenAction, nullptr)();
  } catch (const relay::Error& error) {
    PrintError(error.what() + Explanation(error, common));
    return ExitStatusOf(error);
  }
}
