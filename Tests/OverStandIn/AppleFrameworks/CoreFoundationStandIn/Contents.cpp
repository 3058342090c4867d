// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/CoreFoundationStandIn/Contents.hpp"

#include <map>
#include <unordered_map>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

namespace standin {
namespace {

struct Object {
  Content content;
  std::size_t references = 1;
  bool isConstant = false;
};

/// Released objects stay here without references. No other object gets their addresses, so that a
/// use after release is recognized.
std::unordered_map<CFTypeRef, std::unique_ptr<Object>>& objects() {
  static auto& all = *new std::unordered_map<CFTypeRef, std::unique_ptr<Object>>();
  return all;
}

CFTypeRef add(Content content, bool isConstant) {
  auto object = std::make_unique<Object>(Object{std::move(content), 1, isConstant});
  const CFTypeRef reference = object.get();
  objects().emplace(reference, std::move(object));
  return reference;
}

Object& live(CFTypeRef reference, const char* function) {
  if (reference == nullptr) {
    refuse(function, "null in the place of an object");
  }
  const auto found = objects().find(reference);
  if (found == objects().end()) {
    refuse(function, "not an object");
  }
  if (found->second->references == 0) {
    refuse(function, "an object that was released");
  }
  return *found->second;
}

struct Creator {
  CFTypeRef operator()(const Text& text) const { return createContent(TextObject{text}); }
  CFTypeRef operator()(double number) const { return createContent(NumberObject{number}); }
  CFTypeRef operator()(bool value) const { return createContent(BooleanObject{value}); }
  CFTypeRef operator()(Date date) const { return createContent(DateObject{date.seconds}); }
  CFTypeRef operator()(const Bytes& bytes) const { return createContent(DataObject{bytes}); }
  CFTypeRef operator()(const List& list) const {
    ArrayObject array;
    for (const Value& element : list) {
      array.elements.push_back(create(element));
    }
    return createContent(std::move(array));
  }
  CFTypeRef operator()(const Dictionary& dictionary) const {
    DictionaryObject object;
    for (const auto& [key, value] : dictionary) {
      object.entries.emplace_back(createContent(TextObject{key}), create(value));
    }
    return createContent(std::move(object));
  }
};

struct Describer {
  const char* function;

  std::string operator()(const TextObject& text) const { return toUTF8(text.text).text; }
  std::string operator()(const BooleanObject& boolean) const {
    return boolean.value ? "true" : "false";
  }
  std::string operator()(const ArrayObject& array) const {
    std::string list;
    for (const CFTypeRef element : array.elements) {
      list += (list.empty() ? "" : ", ") + described(element, function);
    }
    return "[" + list + "]";
  }
  // Sorted, because a dictionary has no order.
  std::string operator()(const DictionaryObject& dictionary) const {
    std::map<std::string, std::string> entries;
    for (const auto& [key, value] : dictionary.entries) {
      entries.emplace(described(key, function), described(value, function));
    }
    std::string list;
    for (const auto& [key, value] : entries) {
      list += (list.empty() ? "" : ", ") + key + ": " + value;
    }
    return "{" + list + "}";
  }
  std::string operator()(const LocaleObject&) const { return "locale"; }
  std::string operator()(const SecurityObject& object) const { return standin::described(object); }
  template <typename Other>
  std::string operator()(const Other&) const {
    return "value";
  }
};

}  // namespace

CFTypeRef createContent(Content content) { return add(std::move(content), /*isConstant=*/false); }

CFTypeRef create(SecurityObject object) { return createContent(std::move(object)); }

CFTypeRef createArray(const std::vector<CFTypeRef>& elements) {
  return createContent(ArrayObject{elements});
}

CFTypeRef create(const Value& value) { return std::visit(Creator(), value.content); }

CFStringRef constantText(const char* name) {
  return static_cast<CFStringRef>(add(TextObject{*fromUTF8(name)}, /*isConstant=*/true));
}

CFBooleanRef constantTrue() {
  return static_cast<CFBooleanRef>(add(BooleanObject{true}, /*isConstant=*/true));
}

void retain(CFTypeRef reference, const char* function) {
  Object& object = live(reference, function);
  object.references += object.isConstant ? 0 : 1;
}

void release(CFTypeRef reference, const char* function) {
  Object& object = live(reference, function);
  if (object.isConstant || --object.references > 0) {
    return;
  }
  if (const auto* array = std::get_if<ArrayObject>(&object.content)) {
    for (const CFTypeRef element : array->elements) {
      release(element, function);
    }
  } else if (const auto* dictionary = std::get_if<DictionaryObject>(&object.content)) {
    for (const auto& [key, value] : dictionary->entries) {
      release(key, function);
      release(value, function);
    }
  }
  object.content = LocaleObject();
}

Content& content(CFTypeRef reference, const char* function) {
  return live(reference, function).content;
}

SecurityObject& securityObject(CFTypeRef object, const char* function) {
  return contentAs<SecurityObject>(object, function);
}

CFTypeID typeIdentifierOf(const Content& content) {
  const auto* const security = std::get_if<SecurityObject>(&content);
  return security != nullptr ? securityTypeIdentifier(security->index()) : content.index();
}

CFTypeID securityTypeIdentifier(std::size_t index) { return std::variant_size_v<Content> + index; }

Text textOf(CFTypeRef text, const char* function) {
  return contentAs<TextObject>(text, function).text;
}

std::vector<CFTypeRef> elementsOf(CFTypeRef array, const char* function) {
  return contentAs<ArrayObject>(array, function).elements;
}

Value valueOf(CFTypeRef reference, const char* function) {
  const Content& object = content(reference, function);
  if (const auto* text = std::get_if<TextObject>(&object)) {
    return {text->text};
  }
  if (const auto* array = std::get_if<ArrayObject>(&object)) {
    List list;
    for (const CFTypeRef element : array->elements) {
      list.push_back(valueOf(element, function));
    }
    return {std::move(list)};
  }
  refuse(function, "an object that is no text and no list of texts");
}

std::string described(CFTypeRef object, const char* function) {
  return object == nullptr ? "null" : std::visit(Describer{function}, content(object, function));
}

std::size_t liveObjects() {
  std::size_t count = 0;
  for (const auto& [reference, object] : objects()) {
    count += !object->isConstant && object->references > 0 ? 1 : 0;
  }
  return count;
}

void forgetEveryObject() {
  std::erase_if(objects(), [](const auto& entry) { return !entry.second->isConstant; });
}

}  // namespace standin
