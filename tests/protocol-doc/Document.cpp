// SPDX-License-Identifier: MIT
#include "protocol-doc/Document.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>

#include "support/Hex.h"

namespace {

constexpr const char* kKinds[] = {"packets", "refused", "conversation"};

class Reader {
 public:
  Document Read(std::istream& text) {
    for (std::string line; std::getline(text, line);) {
      ++lineNumber;
      if (std::regex_search(line, fence)) {
        BeginOrEnd(line);
      } else if (inFence && !isPlainText) {
        AddStep(line);
      } else if (std::regex_search(line, stray)) {
        Complain("outside of an example: " + line);
      }
    }
    if (inFence) {
      Complain("a block without an end");
    }
    return std::move(document);
  }

 private:
  void BeginOrEnd(const std::string& line) {
    std::smatch parts;
    if (inFence && line == "```") {
      End();
    } else if (!inFence && line == "```text") {
      isPlainText = inFence = true;
    } else if (!inFence && std::regex_match(line, parts, heading)) {
      Begin(parts[1], parts[2]);
    } else {
      Complain("not a block that can be executed: " + line);
    }
  }

  void Begin(const std::string& kind, const std::string& name) {
    inFence = true;
    if (std::find(std::begin(kKinds), std::end(kKinds), kind) == std::end(kKinds)) {
      Complain("unknown kind of example: " + kind);
    }
    const auto& known = document.examples;
    if (std::any_of(known.begin(), known.end(), [&](const auto& e) { return e.name == name; })) {
      Complain("two examples named " + name);
    }
    document.examples.push_back({kind, name, {}, lineNumber});
  }

  void End() {
    if (!isPlainText && document.examples.back().steps.empty()) {
      Complain("an example without a step");
    }
    isPlainText = inFence = false;
  }

  void AddStep(const std::string& line) {
    if (std::optional<Step> step = ToStep(line)) {
      document.examples.back().steps.push_back(*step);
    } else {
      Complain("not a step: " + line);
    }
  }

  std::optional<Step> ToStep(const std::string& line) const {
    std::smatch parts;
    if (std::regex_match(line, parts, packet)) {
      const Mark mark = parts[1] == ">" ? Mark::kToService : Mark::kFromService;
      return Step{mark, "", FromHex(parts[2]), parts[3], lineNumber};
    }
    if (std::regex_match(line, parts, onLine)) {
      const Mark mark = parts[2] == ">" ? Mark::kToLine : Mark::kFromLine;
      return Step{mark, parts[1], FromHex(parts[3]), parts[4], lineNumber};
    }
    if (std::regex_match(line, parts, statement)) {
      const Mark mark = parts[1] == "=" ? Mark::kSetUp : Mark::kEnd;
      return Step{mark, "", {}, parts[2], lineNumber};
    }
    return std::nullopt;
  }

  void Complain(const std::string& what) {
    document.problems.push_back("line " + std::to_string(lineNumber) + ": " + what);
  }

  const std::regex fence{R"(^\s*(```|~~~))"};
  const std::regex heading{R"(```(\w+) (\w+))"};
  const std::regex stray{R"(^\s*([<>]|/dev/\w+ [<>]) *[0-9A-Fa-f]{2})"};
  const std::regex packet{R"(([<>]) ((?:[0-9A-F]{2} *)+)# (\S.*))"};
  const std::regex onLine{R"((/dev/\w+) ([<>]) ((?:[0-9A-F]{2} *)+)# (\S.*))"};
  const std::regex statement{R"(([=!]) (\S.*))"};

  Document document;
  size_t lineNumber = 0;
  bool inFence = false;
  bool isPlainText = false;
};

}  // namespace

std::vector<Example> Document::OfKind(const std::string& kind) const {
  std::vector<Example> chosen;
  std::copy_if(examples.begin(), examples.end(), std::back_inserter(chosen),
               [&kind](const Example& example) { return example.kind == kind; });
  return chosen;
}

Document ReadDocument(std::istream& text) { return Reader().Read(text); }

Document ReadProtocolDocument() {
  std::ifstream file(SPH_PROTOCOL_DOCUMENT);
  if (!file) {
    return {{}, {"cannot read " SPH_PROTOCOL_DOCUMENT}};
  }
  return ReadDocument(file);
}
