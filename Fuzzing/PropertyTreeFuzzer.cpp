// SPDX-License-Identifier: Apache-2.0
// Fuzzes the parser of certificate values with a tree that is built from the input's bytes.

#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Fuzzing/Require.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

namespace {

using namespace lumaret;

/// Returns the input byte by byte, and zeros after its end.
class Source {
 public:
  Source(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

  std::uint8_t byte() { return next_ == end_ ? std::uint8_t{0} : *next_++; }

  std::string text() {
    constexpr const char* names[] = {"2.5.4.3", "2.5.4.7", "2.5.4.10", "2.5.4.11", "2.5.4.6", ""};
    const std::uint8_t kind = byte();
    if (kind % 8 < 6) {
      return names[kind % 8];
    }
    std::string text;
    for (std::uint8_t left = byte() % 16; left > 0; --left) {
      text += static_cast<char>(byte());
    }
    return text;
  }

  double number() {
    std::uint64_t bits = 0;
    for (int left = 8; left > 0; --left) {
      bits = bits << 8 | byte();
    }
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
  }

  OptionalCertificateProperty property(int depth) {
    const std::uint8_t kind = byte();
    return kind % 8 == 7 ? nullptr
                         : std::make_shared<const CertificateProperty>(value(kind, depth));
  }

 private:
  CertificateProperty value(std::uint8_t kind, int depth) {
    switch (depth > 40 ? kind % 4 : kind % 8) {
      case 1:
        return {text()};
      case 2:
        return {number()};
      case 3:
        return {Date(std::chrono::microseconds(static_cast<std::int64_t>(byte()) << 50))};
      case 4: {
        CertificatePropertyArray elements;
        for (std::uint8_t left = byte() % 6; left > 0; --left) {
          elements.push_back(value(byte(), depth + 1));
        }
        return {std::move(elements)};
      }
      case 5:
      case 6: {
        auto label = property(depth + 1);
        return {CertificatePropertyDictionary{std::move(label), property(depth + 1)}};
      }
      default:
        return {};
    }
  }

  const std::uint8_t* next_;
  const std::uint8_t* end_;
};

/// Whether some entry of the tree has this label and this text.
bool holds(const CertificateProperty& tree, const std::string& label, const std::string& text) {
  if (const auto* elements = std::get_if<CertificatePropertyArray>(&tree.value)) {
    for (const CertificateProperty& element : *elements) {
      if (holds(element, label, text)) {
        return true;
      }
    }
  } else if (const auto* entry = std::get_if<CertificatePropertyDictionary>(&tree.value)) {
    const auto is = [](const OptionalCertificateProperty& property, const std::string& wanted) {
      const auto* found = property ? std::get_if<std::string>(&property->value) : nullptr;
      return found != nullptr && *found == wanted;
    };
    return (is(entry->label, label) && is(entry->value, text)) ||
           (entry->value && holds(*entry->value, label, text));
  }
  return false;
}

void requireFrom(const OptionalCertificateProperty& tree, const CertificatePrincipal& principal) {
  const std::pair<const char*, std::optional<std::string>> fields[] = {
      {"2.5.4.3", principal.commonName},
      {"2.5.4.7", principal.locality},
      {"2.5.4.10", principal.organization},
      {"2.5.4.11", principal.organizationalUnit}};
  for (const auto& [label, text] : fields) {
    REQUIRE(!text || (!text->empty() && tree && holds(*tree, label, *text)));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Source source(data, size);
  CertificateValues values;
  values.validityNotAfter = source.property(0);
  values.subjectName = source.property(0);
  values.issuerName = source.property(0);

  const auto parsed = CertificateValueParser::parse({values, {}});
  const auto* expiry =
      values.validityNotAfter
          ? std::get_if<CertificatePropertyDictionary>(&values.validityNotAfter->value)
          : nullptr;
  const auto date = expiry != nullptr ? CertificateValueParser::date(expiry->value) : std::nullopt;
  REQUIRE(parsed.has_value() == date.has_value());
  if (date && std::holds_alternative<double>(expiry->value->value)) {
    using std::chrono::year;
    const double seconds = std::get<double>(expiry->value->value);
    REQUIRE(std::isfinite(seconds));
    const Date reference = std::chrono::sys_days(year(2001) / 1 / 1);
    const double back = static_cast<double>((*date - reference).count()) / 1e6;
    REQUIRE(std::abs(back - seconds) < 1e-3);
  }
  if (parsed) {
    REQUIRE(parsed->expiresAt == *date);
    requireFrom(values.subjectName, parsed->subject);
    requireFrom(values.issuerName, parsed->issuer);
  }

  // A field that is already in the map stays, whatever the tree contains.
  std::map<std::string, std::string> fields = {{"2.5.4.3", "first"}};
  CertificateValueParser::collectDistinguishedNameFields(values.subjectName.get(), fields);
  REQUIRE(fields.at("2.5.4.3") == "first");
  return 0;
}
