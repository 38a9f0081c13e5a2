// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <algorithm>
#include <map>
#include <string_view>

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

using Registrations = std::map<std::string_view, const Registration*>;

// Made by the first command, before main begins; in which order they come nobody knows.
Registrations& Registered() {
  static Registrations all;
  return all;
}

}  // namespace

Registration::Registration(const char* commandName, const char* commandHelp, Adder adder)
    : name(commandName), help(commandHelp), add(adder) {
  Registered()[name] = this;
}

CommandLine::CommandLine()
    : shared("", "Plays the relay service: opens SerialPortHandler's ports and talks to them.") {
  shared.Flag("-V,--version", isVersionWanted, "Print the version and leave");
  shared.Option("-p,--port", common.givenRelayPort, "N",
                "TCP port of the service on 127.0.0.1; by its configuration if not given", 1);
  shared.Flag("-j,--json", common.json, "Print one JSON object per line");
  shared.Option("--timeout", common.timeout, "SECONDS",
                "How long to wait for an answer; 0: for ever");
  shared.Option("--patience", common.patience, "SECONDS",
                "How long to try a service that does not listen yet");
  for (const auto& [name, registration] : Registered()) {
    commands.push_back(std::make_unique<SubCommand>(registration->name, registration->help));
    commands.back()->Footer(kExitTable);  // unless it has one of its own
    registration->add(*commands.back(), common);
  }
  std::string list = "Subcommands:\n";
  for (const auto& command : commands) {
    list += command->Line();
  }
  shared.Footer(list + "\n" + kExitTable);
}

std::string CommandLine::TextWantedOf(const SubCommand& command) const {
  return command.IsHelpWanted() ? command.Help()
         : isVersionWanted      ? "relayctl " RELAYCTL_VERSION
                                : "";
}

std::string CommandLine::Parse(int argc, char** argv) {
  const std::vector<std::string> words = shared.TakeOptions(argc, argv, nullptr);
  if (std::string text = TextWantedOf(shared); !text.empty()) {
    return text;
  }
  if (words.empty()) {
    throw relay::Error(relay::ErrorKind::kUsage, "a command is required");
  }
  const auto found = std::find_if(commands.begin(), commands.end(), [&](const auto& command) {
    return command->Name() == words.front();
  });
  if (found == commands.end()) {
    throw relay::Error(relay::ErrorKind::kUsage, "there is no command \"" + words.front() + "\"");
  }
  named = found->get();
  const int count = static_cast<int>(words.size());
  const std::vector<std::string> arguments =
      named->TakeOptions(count, argv + (argc - count), &shared);
  std::string text = TextWantedOf(*named);
  if (text.empty()) {
    named->TakeArguments(arguments);
  }
  return text;
}

int CommandLine::Run(int argc, char** argv) {
  std::string text;
  try {
    text = Parse(argc, argv);
  } catch (const relay::Error& error) {
    PrintError((named == &shared ? "" : named->Name() + ": ") + error.what() + " (" +
               named->FullName() + " --help tells more)");
    return kExitUsage;
  }
  try {
    if (!text.empty()) {
      PrintLine(text);
      return kExitDone;
    }
    return named->Run();
  } catch (const relay::Error& error) {
    PrintError(error.what() + Explanation(error, common));
    return ExitStatusOf(error);
  }
}
