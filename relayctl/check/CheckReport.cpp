// SPDX-License-Identifier: MIT
#include "check/CheckReport.h"

#include <algorithm>

#include "show/Json.h"
#include "show/Output.h"

namespace {

struct VerdictWord {
  const char* word;   // for a program
  const char* label;  // for a person, all of one width
};

const VerdictWord& WordOf(Verdict verdict) {
  static constexpr VerdictWord words[] = {
      {"passed", "passed "}, {"failed", "FAILED "}, {"skipped", "skipped"}, {"remark", "remark "}};
  return words[static_cast<size_t>(verdict)];
}

size_t CountOf(const std::vector<CaseResult>& results, Verdict verdict) {
  return static_cast<size_t>(std::count_if(
      results.begin(), results.end(),
      [verdict](const CaseResult& result) { return result.judgement.verdict == verdict; }));
}

std::string Summary(const std::vector<CaseResult>& results) {
  std::string text = std::to_string(results.size()) + (results.size() == 1 ? " case" : " cases");
  const char* separator = ": ";
  for (const Verdict verdict :
       {Verdict::kPassed, Verdict::kFailed, Verdict::kSkipped, Verdict::kRemark}) {
    if (const size_t count = CountOf(results, verdict); count > 0) {
      text += separator + std::to_string(count) + " " + WordOf(verdict).word;
      separator = ", ";
    }
  }
  return text;
}

// What stands in XML's text and attributes.
std::string Xml(const std::string& text) {
  std::string escaped;
  for (const char character : Harmless(text)) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

// As YAML's single quotes want it.
std::string Yaml(const std::string& text) {
  std::string escaped;
  for (const char character : Harmless(text)) {
    escaped += character == '\'' ? "''" : std::string(1, character);
  }
  return "'" + escaped + "'";
}

// In TAP a # begins a directive.
std::string TapText(const std::string& text) {
  std::string escaped;
  for (const char character : Harmless(text)) {
    escaped += character == '#' ? "\\#" : std::string(1, character);
  }
  return escaped;
}

std::string JunitCase(const CaseResult& result) {
  const std::string text = Xml(result.judgement.text);
  const std::string about = Xml("docs/protocol.md: " + result.sentence);
  std::string body;
  if (result.judgement.verdict == Verdict::kFailed) {
    body = "<failure message=\"" + text + "\">" + about + "</failure>";
  } else if (result.judgement.verdict == Verdict::kSkipped) {
    body = "<skipped message=\"" + text + "\"/>";
  } else {
    body = "<system-out>" + text + "</system-out>";
  }
  return "    <testcase classname=\"" + Xml(result.group) + "\" name=\"" + Xml(result.name) +
         "\">" + body + "</testcase>\n";
}

}  // namespace

bool HasFailed(const std::vector<CaseResult>& results) {
  return CountOf(results, Verdict::kFailed) > 0;
}

std::vector<std::string> CheckLines(const std::vector<CaseResult>& results) {
  std::vector<std::string> lines;
  std::string group;
  for (const CaseResult& result : results) {
    if (result.group != group) {
      group = result.group;
      lines.push_back(Harmless(group) + ":");
    }
    lines.push_back(std::string("  ") + WordOf(result.judgement.verdict).label + "  " +
                    result.name + ": " + Harmless(result.judgement.text));
    if (result.judgement.verdict == Verdict::kFailed) {
      lines.push_back("           docs/protocol.md: \"" + result.sentence + "\"");
    }
  }
  lines.push_back(Summary(results));
  return lines;
}

std::vector<std::string> CheckTap(const std::vector<CaseResult>& results) {
  std::vector<std::string> lines = {"TAP version 13", "1.." + std::to_string(results.size())};
  size_t number = 0;
  for (const CaseResult& result : results) {
    const Verdict verdict = result.judgement.verdict;
    const std::string text = result.judgement.text;
    lines.push_back((verdict == Verdict::kFailed ? "not ok " : "ok ") + std::to_string(++number) +
                    " - " + TapText(result.group + ": " + result.name) +
                    (verdict == Verdict::kSkipped ? " # SKIP " + TapText(text) : ""));
    if (verdict == Verdict::kFailed) {
      lines.insert(lines.end(), {"  ---", "  message: " + Yaml(text),
                                 "  sentence: " + Yaml(result.sentence), "  ..."});
    } else if (verdict != Verdict::kSkipped) {
      lines.push_back("# " + Harmless(text));
    }
  }
  return lines;
}

std::string CheckJunit(const std::vector<CaseResult>& results) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
  for (auto from = results.begin(); from != results.end();) {
    const auto to = std::find_if(from, results.end(), [&from](const CaseResult& result) {
      return result.group != from->group;
    });
    const std::vector<CaseResult> suite(from, to);
    text += "  <testsuite name=\"" + Xml(from->group) + "\" tests=\"" +
            std::to_string(suite.size()) + "\" failures=\"" +
            std::to_string(CountOf(suite, Verdict::kFailed)) + "\" errors=\"0\" skipped=\"" +
            std::to_string(CountOf(suite, Verdict::kSkipped)) + "\">\n";
    for (const CaseResult& result : suite) {
      text += JunitCase(result);
    }
    text += "  </testsuite>\n";
    from = to;
  }
  return text + "</testsuites>\n";
}

std::vector<std::string> CheckJson(const std::vector<CaseResult>& results) {
  std::vector<std::string> lines;
  lines.reserve(results.size());
  for (const CaseResult& result : results) {
    lines.push_back(JsonLine()
                        .Add("event", "case")
                        .AddText("group", result.group)
                        .Add("name", result.name)
                        .Add("verdict", WordOf(result.judgement.verdict).word)
                        .AddText("text", result.judgement.text)
                        .AddText("sentence", result.sentence)
                        .Text());
  }
  return lines;
}
