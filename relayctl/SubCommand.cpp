// SPDX-License-Identifier: MIT
#include "SubCommand.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <utility>

#include "relay/Error.h"

namespace {

constexpr unsigned kMostSeconds = 1000000;

// What getopt gives for the first option by its long name, behind all letters.
constexpr int kFirstLongOption = 256;

// What getopt gives for a word that is no option.
constexpr int kWord = 1;

[[noreturn]] void Refuse(const std::string& what) {
  throw relay::Error(relay::ErrorKind::kUsage, what);
}

// Gives what is wrong with the text.
template <typename Number>
std::string TakeNumber(const std::string& text, unsigned least, unsigned most, Number& target) {
  Number number{};
  const char* const end = text.data() + text.size();
  const std::from_chars_result parsed = std::from_chars(text.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end || !(number >= least && number <= most)) {
    return "\"" + text + "\" is no number from " + std::to_string(least) + " to " +
           std::to_string(most);
  }
  target = number;
  return "";
}

// One line of help, or several, for a terminal of 80 columns: a name, and behind column 30 a text.
std::string Entry(const std::string& name, const std::string& text) {
  constexpr size_t kIndent = 30;
  constexpr size_t kWidth = 80;
  std::string lines;
  std::string line = "  " + name;
  if (line.size() >= kIndent) {
    lines = line + "\n";
    line.clear();
  }
  line.resize(kIndent, ' ');
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (line.size() + 1 + word.size() > kWidth) {
      lines += line + "\n";
      line.assign(kIndent, ' ');
    }
    line += (line.size() > kIndent ? " " : "") + word;
  }
  return lines + line + "\n";
}

}  // namespace

SubCommand::SubCommand(const std::string& commandName, const std::string& commandHelp)
    : name(commandName), help(commandHelp) {
  Flag("-h,--help", isHelpWanted, "Print this help and leave");
}

void SubCommand::Add(const std::string& names, const std::string& placeholder,
                     const std::string& preset, const std::string& optionHelp, Taker take) {
  const bool hasLetter = names[1] != '-';
  options.push_back({hasLetter ? names[1] : '\0', names.substr(hasLetter ? 5 : 2), placeholder,
                     preset, optionHelp, std::move(take)});
}

void SubCommand::Flag(const std::string& names, bool& target, const std::string& optionHelp) {
  Add(names, "", "", optionHelp, [&target](const std::string&) {
    target = true;
    return "";
  });
}

void SubCommand::Option(const std::string& names, std::string& target,
                        const std::string& placeholder, const std::string& optionHelp) {
  Add(names, placeholder, target, optionHelp, [&target](const std::string& value) {
    target = value;
    return "";
  });
}

void SubCommand::Option(const std::string& names, std::optional<std::string>& target,
                        const std::string& placeholder, const std::string& optionHelp) {
  Add(names, placeholder, "", optionHelp, [&target](const std::string& value) {
    target = value;
    return "";
  });
}

void SubCommand::Option(const std::string& names, std::vector<std::string>& target,
                        const std::string& placeholder, const std::string& optionHelp) {
  Add(names, placeholder, "", optionHelp, [&target](const std::string& value) {
    target.push_back(value);
    return "";
  });
}

void SubCommand::Option(const std::string& names, double& target, const std::string& placeholder,
                        const std::string& optionHelp) {
  char preset[32] = "";
  if (!std::isnan(target)) {  // else the command finds one by itself
    (void)std::snprintf(preset, sizeof preset, "%g", target);
  }
  Add(names, placeholder, preset, optionHelp,
      [&target](const std::string& value) { return TakeNumber(value, 0, kMostSeconds, target); });
}

void SubCommand::Option(const std::string& names, unsigned& target, const std::string& placeholder,
                        const std::string& optionHelp, unsigned least, unsigned most) {
  const std::string preset = target >= least ? std::to_string(target) : "";
  Add(names, placeholder, preset, optionHelp, [&target, least, most](const std::string& value) {
    return TakeNumber(value, least, most, target);
  });
}

void SubCommand::Choice(const std::string& names, std::string& target,
                        const std::vector<std::string>& words, const std::string& optionHelp) {
  std::string all;
  for (const std::string& word : words) {
    all += (all.empty() ? "" : "|") + word;
  }
  Add(names, all, target, optionHelp, [&target, words, all](const std::string& value) {
    if (std::find(words.begin(), words.end(), value) == words.end()) {
      return "\"" + value + "\" is none of " + all;
    }
    target = value;
    return std::string();
  });
}

void SubCommand::Argument(const std::string& argumentName, std::string& target,
                          const std::string& argumentHelp, bool isRequired) {
  arguments.push_back({argumentName, argumentHelp, isRequired,
                       [&target](const std::string& word) { target = word; }, nullptr});
}

void SubCommand::Argument(const std::string& argumentName, std::optional<std::string>& target,
                          const std::string& argumentHelp) {
  arguments.push_back({argumentName, argumentHelp, false,
                       [&target](const std::string& word) { target = word; }, nullptr});
}

void SubCommand::Arguments(const std::string& argumentName, std::vector<std::string>& target,
                           const std::string& argumentHelp, bool isRequired) {
  arguments.push_back({argumentName, argumentHelp, isRequired, nullptr, &target});
}

std::string SubCommand::Line() const { return Entry(name, help); }

std::string SubCommand::Help() const {
  std::string usage = FullName() + " [OPTIONS]" + (name.empty() ? " SUBCOMMAND" : "");
  std::string list = arguments.empty() ? "" : "\nPositionals:\n";
  for (const Positional& argument : arguments) {
    const std::string word = argument.name + (argument.all != nullptr ? "..." : "");
    usage += argument.isRequired ? " " + word : " [" + word + "]";
    list += Entry(word, argument.help);
  }
  list += "\nOptions:\n";
  for (const Named& option : options) {
    std::string left = option.letter != '\0' ? std::string{'-', option.letter, ','} : "";
    left += "--" + option.name;
    left += (option.placeholder.empty() ? "" : " ") + option.placeholder;
    left += (option.preset.empty() ? "" : "=") + option.preset;
    list += Entry(left, option.help);
  }
  return help + "\nUsage: " + usage + "\n" + list + "\n" + footer;
}

void SubCommand::Take(const std::vector<Named>& known, int code, const char* word) {
  if (code == '?' || code == ':') {
    const bool isLetter = optopt > 0 && optopt < kFirstLongOption;
    Refuse((isLetter ? std::string{'-', static_cast<char>(optopt)} : word) +
           (code == '?' ? ": no such option" : ": its value is missing"));
  }
  const auto option = std::find_if(known.begin(), known.end(), [&](const Named& one) {
    return code == one.letter || code - kFirstLongOption == &one - known.data();
  });
  const std::string problem = option->take(optarg != nullptr ? optarg : "");
  if (!problem.empty()) {
    Refuse("--" + option->name + ": " + problem);
  }
}

bool SubCommand::Has(const std::string& option) const {
  return std::any_of(options.begin(), options.end(),
                     [&](const Named& one) { return one.name == option; });
}

std::vector<std::string> SubCommand::TakeOptions(int argc, char** argv,
                                                 const SubCommand* shared) const {
  std::vector<Named> known = options;
  if (shared != nullptr) {
    std::copy_if(shared->options.begin(), shared->options.end(), std::back_inserter(known),
                 [this](const Named& one) { return !Has(one.name); });
  }
  std::string letters = shared != nullptr ? "-:" : "+:";
  std::vector<option> names;
  for (const Named& one : known) {
    const bool takesValue = !one.placeholder.empty();
    letters += one.letter == '\0' ? "" : one.letter + std::string(takesValue ? ":" : "");
    names.push_back({one.name.c_str(), takesValue ? required_argument : no_argument, nullptr,
                     kFirstLongOption + static_cast<int>(names.size())});
  }
  names.push_back({nullptr, 0, nullptr, 0});
  std::vector<std::string> words;
  optind = 0;  // getopt begins anew
  for (int code; (code = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1;) {
    if (code == kWord) {
      words.emplace_back(optarg);
    } else {
      Take(known, code, argv[optind - 1]);
    }
  }
  words.insert(words.end(), argv + optind, argv + argc);
  return words;
}

void SubCommand::TakeArguments(std::vector<std::string> words) const {
  for (const Positional& argument : arguments) {
    if (words.empty() && argument.isRequired) {
      Refuse(argument.name + " is required" +
             (argument.name == "PORT" ? "; in a shell, a name that begins with # stands in quotes"
                                      : ""));
    }
    if (argument.all != nullptr) {
      *argument.all = std::exchange(words, {});
    } else if (!words.empty()) {
      argument.one(words.front());
      words.erase(words.begin());
    }
  }
  if (!words.empty()) {
    Refuse("\"" + words.front() + "\" is one argument too many");
  }
}
