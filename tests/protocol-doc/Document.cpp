// SPDX-License-Identifier: MIT
#include "protocol-doc/Document.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include "support/Hex.h"

namespace {

constexpr const char* kKinds[] = {"packets", "refused", "conversation"};

constexpr std::string_view kFence = "```";
constexpr std::string_view kTextFence = "```text";
constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::string_view kHexDigitsOfAnyCase = "0123456789ABCDEFabcdef";
constexpr std::string_view kNothing;

std::string_view WithoutIndent(std::string_view line) {
  const size_t begin = line.find_first_not_of(" \t");
  return begin == std::string_view::npos ? kNothing : line.substr(begin);
}

// Takes the text up to the next blank off the front of `rest`, and the blank.
std::string_view TakeWord(std::string_view& rest) {
  const std::string_view word = rest.substr(0, rest.find(' '));
  rest.remove_prefix(std::min(rest.size(), word.size() + 1));
  return word;
}

// Whole bytes in upper case, with blanks only between them.
bool IsHex(std::string_view text) {
  bool hasDigits = false;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view word = TakeWord(rest);
    if (word.size() % 2 != 0 || word.find_first_not_of(kHexDigits) != std::string_view::npos) {
      return false;
    }
    hasDigits = hasDigits || !word.empty();
  }
  return hasDigits;
}

bool IsFence(std::string_view line) {
  const std::string_view text = WithoutIndent(line);
  return text.starts_with("```") || text.starts_with("~~~");
}

bool LooksLikeAStep(std::string_view line) {
  std::string_view text = WithoutIndent(line);
  if (text.starts_with("/dev/")) {
    (void)TakeWord(text);
  }
  if (!text.starts_with('<') && !text.starts_with('>')) {
    return false;
  }
  const std::string_view begin = WithoutIndent(text.substr(1)).substr(0, 2);
  return begin.size() == 2 &&
         begin.find_first_not_of(kHexDigitsOfAnyCase) == std::string_view::npos;
}

class Reader {
 public:
  Document Read(std::istream& text) {
    for (std::string line; std::getline(text, line);) {
      ++lineNumber;
      if (IsFence(line)) {
        BeginOrEnd(line);
      } else if (inFence && !isPlainText) {
        AddStep(line);
      } else if (LooksLikeAStep(line)) {
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
    std::string_view rest = line;
    const std::string kind(TakeWord(rest));
    if (inFence && line == kFence) {
      End();
    } else if (!inFence && line == kTextFence) {
      isPlainText = inFence = true;
    } else if (!inFence && kind.starts_with(kFence) && !rest.empty()) {
      Begin(kind.substr(kFence.size()), std::string(rest));
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

  std::optional<Step> ToStep(std::string_view line) const {
    std::string_view rest = line;
    std::string_view first = TakeWord(rest);
    if ((first == "=" || first == "!") && !rest.empty()) {
      const Mark mark = first == "=" ? Mark::kSetUp : Mark::kEnd;
      return Step{mark, "", {}, std::string(rest), lineNumber};
    }
    const bool isOnLine = first.starts_with("/dev/");
    const std::string device(isOnLine ? first : kNothing);
    if (isOnLine) {
      first = TakeWord(rest);
    }
    const std::string_view hex = rest.substr(0, rest.find('#'));
    rest.remove_prefix(hex.size());
    if ((first != ">" && first != "<") || !IsHex(hex) || TakeWord(rest) != "#" || rest.empty()) {
      return std::nullopt;
    }
    const bool fromRelay = first == ">";
    const Mark onLine = fromRelay ? Mark::kToLine : Mark::kFromLine;
    const Mark packet = fromRelay ? Mark::kToService : Mark::kFromService;
    return Step{isOnLine ? onLine : packet, device, FromHex(std::string(hex)), std::string(rest),
                lineNumber};
  }

  void Complain(const std::string& what) {
    document.problems.push_back("line " + std::to_string(lineNumber) + ": " + what);
  }

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
