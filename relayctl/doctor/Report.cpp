// SPDX-License-Identifier: MIT
#include "doctor/Report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "show/Printable.h"

namespace {

struct Look {
  const char* word;
  const char* colour;
};

constexpr Look LookOf(Severity severity) {
  switch (severity) {
    case Severity::kGood:
      return {"ok", "\033[32m"};
    case Severity::kNote:
      return {"note", "\033[36m"};
    case Severity::kWarning:
      return {"warning", "\033[33m"};
    case Severity::kFault:
      break;
  }
  return {"fault", "\033[31m"};
}

// Columns behind which facts and findings stand.
constexpr size_t kIndent = 17;

std::string Padded(const std::string& text, size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

nlohmann::ordered_json JsonOf(const FactValue& value) {
  if (const auto* const counts = std::get_if<FactCounts>(&value)) {
    nlohmann::ordered_json object;
    for (const auto& [name, count] : *counts) {
      object[name] = count;
    }
    return object;
  }
  return std::visit([](const auto& plain) { return nlohmann::ordered_json(plain); }, value);
}

std::string Plain(const nlohmann::ordered_json& value) {
  if (value.is_string()) {
    return value.get<std::string>();
  }
  if (value.is_boolean()) {
    return value.get<bool>() ? "yes" : "no";
  }
  if (!value.is_structured()) {
    return value.dump();
  }
  std::string list;
  for (const auto& [key, entry] : value.items()) {
    list += (list.empty() ? "" : ", ") + (value.is_object() ? key + " " : "") + Plain(entry);
  }
  return list;
}

// A fact as a script reads it: no key has a blank, as "held_by".
void AddFact(nlohmann::ordered_json& object, std::string key, const nlohmann::ordered_json& value) {
  std::replace(key.begin(), key.end(), ' ', '_');
  if (!value.is_object()) {
    object[key] = value;
    return;
  }
  for (const auto& [name, entry] : value.items()) {
    AddFact(object[key], name, entry);
  }
}

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
  std::string text = Printable(subject) + "\n";
  for (const auto& [key, value] : facts) {
    text += "  " + Padded(key, kIndent - 2) + Printable(Plain(JsonOf(value))) + "\n";
  }
  for (const Finding& finding : findings) {
    const Look look = LookOf(finding.severity);
    text += "  " + std::string(colour ? look.colour : "") + Padded(look.word, kIndent - 2) +
            (colour ? "\033[0m" : "") + Printable(finding.text) + "\n";
    if (!finding.mend.empty()) {
      text += std::string(kIndent, ' ') + "-> " + Printable(finding.mend) + "\n";
    }
  }
  return text;
}

std::string Report::Json() const {
  nlohmann::ordered_json object = {{"subject", subject}};
  for (const auto& [key, value] : facts) {
    AddFact(object, key, JsonOf(value));
  }
  object["findings"] = nlohmann::ordered_json::array();
  for (const Finding& finding : findings) {
    nlohmann::ordered_json entry = {{"severity", LookOf(finding.severity).word},
                                    {"text", finding.text}};
    if (!finding.mend.empty()) {
      entry["mend"] = finding.mend;
    }
    object["findings"].push_back(std::move(entry));
  }
  // Bytes that are no UTF-8 must not stop the report.
  return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}
