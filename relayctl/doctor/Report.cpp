// SPDX-License-Identifier: MIT
#include "doctor/Report.h"

#include <algorithm>

#include "show/Json.h"
#include "show/Output.h"

namespace {

struct Look {
  const char* word;
  Color color;
};

constexpr Look LookOf(Severity severity) {
  switch (severity) {
    case Severity::kGood:
      return {"ok", Color::kGood};
    case Severity::kNote:
      return {"note", Color::kNote};
    case Severity::kWarning:
      return {"warning", Color::kWarning};
    case Severity::kFault:
      break;
  }
  return {"fault", Color::kBad};
}

// Columns behind which facts and findings stand.
constexpr size_t kIndent = 17;

std::string Padded(const std::string& text, size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

// Each for a person, and for a script.
struct AsText {
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(bool value) const { return value ? "yes" : "no"; }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(const FactList& texts) const {
    std::string list;
    for (const std::string& text : texts) {
      list += (list.empty() ? "" : ", ") + text;
    }
    return list;
  }
  std::string operator()(const FactCounts& counts) const {
    FactList texts;
    for (const auto& [name, count] : counts) {
      texts.push_back(name + " " + std::to_string(count));
    }
    return (*this)(texts);
  }
};

// No key has a blank: "held_by".
std::string KeyOf(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

struct AsJson {
  JsonLine& object;
  const std::string& key;

  void operator()(const std::string& text) const { object.AddText(key, text); }
  void operator()(bool value) const { object.Add(key, value); }
  void operator()(std::int64_t number) const { object.Add(key, number); }
  void operator()(const FactList& texts) const { object.AddTexts(key, texts); }
  void operator()(const FactCounts& counts) const {
    JsonLine all;
    for (const auto& [name, count] : counts) {
      all.Add(KeyOf(name), count);
    }
    object.Add(key, all);
  }
};

}  // namespace

void Report::Fact(const std::string& key, FactValue value) {
  const auto* const text = std::get_if<std::string>(&value);
  if (text == nullptr || !text->empty()) {
    facts.emplace_back(key, std::move(value));
  }
}

bool Report::HasFault() const {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) { return finding.severity == Severity::kFault; });
}

std::string Report::Text(bool colour) const {
  std::string text = Harmless(subject) + "\n";
  for (const auto& [key, value] : facts) {
    text += "  " + Padded(key, kIndent - 2) + Harmless(std::visit(AsText{}, value)) + "\n";
  }
  for (const Finding& finding : findings) {
    const Look look = LookOf(finding.severity);
    text += "  " + Paint(Padded(look.word, kIndent - 2), look.color, colour) +
            Harmless(finding.text) + "\n";
    if (!finding.mend.empty()) {
      text.append(kIndent, ' ');
      text += "-> " + Harmless(finding.mend) + "\n";
    }
  }
  return text;
}

std::string Report::Json() const {
  JsonLine object;
  object.AddText("subject", subject);
  for (const auto& [key, value] : facts) {
    const std::string name = KeyOf(key);
    std::visit(AsJson{object, name}, value);
  }
  std::vector<JsonLine> entries;
  for (const Finding& finding : findings) {
    JsonLine entry;
    entry.Add("severity", LookOf(finding.severity).word).AddText("text", finding.text);
    if (!finding.mend.empty()) {
      entry.AddText("mend", finding.mend);
    }
    entries.push_back(entry);
  }
  return object.Add("findings", entries).Text();
}
