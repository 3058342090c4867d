// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/PolicyText.hpp"

#include <cstddef>
#include <exception>
#include <nlohmann/json.hpp>
#include <string_view>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"

namespace lumaret {
namespace {

using nlohmann::json;

constexpr const char* policyName = "AutoSelectCertificateForUrls";
constexpr std::size_t maximumDepth = 199;

std::string lineBreak(std::size_t depth) { return "\n" + std::string(2 * depth, ' '); }

}  // namespace

/// Receives the parser's events. Everything except the rules is written out as it arrives. A tree
/// that kept the order of the keys would search all of them for each one.
class PolicyText::Reader {
 public:
  explicit Reader(PolicyText& policies) : policies_(policies) {}

  // The names and parameters are those of nlohmann's json_sax. Returning false stops the parser.
  bool null() { return scalar("null"); }
  bool boolean(bool value) { return scalar(value ? "true" : "false"); }
  bool number_integer(json::number_integer_t value) { return scalar(std::to_string(value)); }
  bool number_unsigned(json::number_unsigned_t value) { return scalar(std::to_string(value)); }
  bool number_float(json::number_float_t /*value*/, const std::string& text) {
    return scalar(text);
  }
  bool string(std::string& value) {
    if (isInRules_) {
      policies_.rules_.push_back(std::move(value));
      return true;
    }
    return scalar(json(value).dump());
  }
  static bool binary(json::binary_t& /*value*/) { return false; }  // JSON has none.
  bool start_object(std::size_t /*size*/) { return start('{'); }
  bool key(std::string& name) {
    if (hasMembers_.size() == 1) {
      isInRules_ = name == policyName;
      if (isInRules_) {
        policies_.hasRules_ = true;
        policies_.isListOfTexts_ = false;
        policies_.rules_.clear();
      }
    }
    if (!isInRules_) {
      separate();
      output() += json(name).dump() + ": ";
      isAfterKey_ = true;
    }
    return true;
  }
  bool end_object() { return end('}'); }
  bool start_array(std::size_t /*size*/) { return start('['); }
  bool end_array() { return end(']'); }
  static bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                          const json::exception& /*error*/) {
    return false;
  }

 private:
  std::string& output() { return policies_.hasRules_ ? policies_.after_ : policies_.before_; }

  /// Begins the line of the next member.
  void separate() {
    const bool isFirst = hasMembers_.size() == 1 ? output().empty() : !hasMembers_.back();
    output() += (isFirst ? "" : ",") + lineBreak(hasMembers_.size());
    hasMembers_.back() = true;
  }

  void beginValue() {
    if (!isAfterKey_) {
      separate();
    }
    isAfterKey_ = false;
  }

  bool scalar(std::string_view text) {
    if (hasMembers_.empty()) {
      return false;  // The text is not an object.
    }
    if (isInRules_) {
      policies_.isListOfTexts_ = false;
    } else {
      beginValue();
      output() += text;
    }
    return true;
  }

  bool start(char bracket) {
    if (hasMembers_.size() >= maximumDepth || (hasMembers_.empty() && bracket != '{')) {
      return false;
    }
    if (isInRules_) {
      policies_.isListOfTexts_ = hasMembers_.size() == 1 && bracket == '[';
    } else if (!hasMembers_.empty()) {
      beginValue();
      output() += bracket;
    }
    hasMembers_.push_back(false);
    return true;
  }

  bool end(char bracket) {
    const bool isEmpty = !hasMembers_.back();
    hasMembers_.pop_back();
    if (!isInRules_ && !hasMembers_.empty()) {
      output() += (isEmpty ? "" : lineBreak(hasMembers_.size())) + bracket;
    }
    return true;
  }

  PolicyText& policies_;
  /// For each open array and object, the outermost first: whether a member was written.
  std::vector<bool> hasMembers_;
  bool isInRules_ = false;
  bool isAfterKey_ = false;
};

bool PolicyText::maySpeakOfRules(const std::string& text) {
  return text.find(policyName) != std::string::npos || text.find("\\u") != std::string::npos ||
         text.find("\\x") != std::string::npos;
}

std::optional<PolicyText> PolicyText::parse(const std::string& text) {
  PolicyText policies;
  Reader reader(policies);
  // The parser would take a zero byte for the end of the text.
  if (text.find('\0') != std::string::npos ||
      !json::sax_parse(text, &reader, json::input_format_t::json, /*strict=*/true,
                       /*ignore_comments=*/true)) {
    return std::nullopt;
  }
  return policies;
}

const std::vector<std::string>& PolicyText::rules() const {
  if (!isListOfTexts_) {
    throw ChromePreferencesError();
  }
  return rules_;
}

std::string PolicyText::withRules(const std::vector<std::string>& rules) const {
  std::string text =
      "{" + before_ + (before_.empty() ? "" : ",") + lineBreak(1) + json(policyName).dump() + ": [";
  try {
    for (const std::string& rule : rules) {
      text += (&rule == &rules.front() ? "" : ",") + lineBreak(2) + json(rule).dump();
    }
  } catch (const json::exception&) {
    throw ChromePreferencesError();
  }
  text += (rules.empty() ? "" : lineBreak(1)) + "]";
  return text + (after_.empty() ? "" : ",") + after_ + "\n}\n";
}

std::optional<std::string> PolicyText::withoutRules() const {
  if (before_.empty() && after_.empty()) {
    return std::nullopt;
  }
  return "{" + before_ + (before_.empty() || after_.empty() ? "" : ",") + after_ + "\n}\n";
}

}  // namespace lumaret
