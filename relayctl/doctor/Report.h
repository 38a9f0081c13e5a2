// SPDX-License-Identifier: MIT
// What a look at one thing has shown: facts, and findings with their remedy.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

enum class Severity {
  kGood,     // as it should be
  kNote,     // worth knowing
  kWarning,  // works, but not as well as it could
  kFault,    // does not work
};

struct Finding {
  Severity severity = Severity::kGood;
  std::string text;
  std::string mend;  // what to do about it; may be empty
};

using FactList = std::vector<std::string>;
using FactCounts = std::vector<std::pair<std::string, std::int64_t>>;
using FactValue = std::variant<std::string, bool, std::int64_t, FactList, FactCounts>;

struct Report {
  std::string subject;                                        // "service", "#USBSerialPort0"
  std::vector<std::pair<std::string, FactValue>> facts = {};  // in the order to show them
  std::vector<Finding> findings = {};

  // An empty text is no fact.
  void Fact(const std::string& key, FactValue value);

  void Good(const std::string& text) { findings.push_back({Severity::kGood, text, ""}); }
  void Note(const std::string& text, const std::string& mend = "") {
    findings.push_back({Severity::kNote, text, mend});
  }
  void Warning(const std::string& text, const std::string& mend) {
    findings.push_back({Severity::kWarning, text, mend});
  }
  void Fault(const std::string& text, const std::string& mend) {
    findings.push_back({Severity::kFault, text, mend});
  }

  bool HasFault() const;

  // Several lines, each with its end. `colour`: findings in colours.
  std::string Text(bool colour) const;

  // One line without its end.
  std::string Json() const;
};
