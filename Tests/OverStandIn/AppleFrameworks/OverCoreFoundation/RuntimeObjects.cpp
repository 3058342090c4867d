// SPDX-License-Identifier: Apache-2.0
// Objects of the Security framework for Apple's own Core Foundation.
#include <CoreFoundation/CFRuntime.h>

#include <algorithm>
#include <array>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

namespace standin {
namespace {

/// An instance of one of the classes that stand for those of the Security framework.
struct Instance {
  CFRuntimeBase base;
  Object* object;
};

CFRuntimeClass securityClass() {
  CFRuntimeClass described{};
  described.className = "Sec";
  described.finalize = [](CFTypeRef instance) {
    delete static_cast<const Instance*>(instance)->object;
  };
  return described;
}

}  // namespace

CFTypeID typeIdentifier(Object::Type type) {
  static const CFRuntimeClass described = securityClass();
  static const auto identifiers = [] {
    std::array<CFTypeID, Object::typeCount> registered{};
    std::ranges::generate(registered, [] { return _CFRuntimeRegisterClass(&described); });
    return registered;
  }();
  return identifiers.at(static_cast<std::size_t>(type));
}

CFTypeRef create(Object object) {
  auto* const instance = as<Instance*>(_CFRuntimeCreateInstance(
      nullptr, typeIdentifier(object.type), sizeof(Instance) - sizeof(CFRuntimeBase), nullptr));
  instance->object = new Object(std::move(object));
  return instance;
}

Object& content(CFTypeRef object, Object::Type type, const char* function) {
  require(object != nullptr && CFGetTypeID(object) == typeIdentifier(type),
          "an object of the right type", function);
  return *static_cast<const Instance*>(object)->object;
}

CFStringRef constantText(const char* name) {
  return CFStringCreateWithCString(nullptr, name, kCFStringEncodingUTF8);
}

std::size_t liveObjects() { return 0; }

}  // namespace standin

// The linker replaces calls of CFLocaleCopyCurrent with the second of these. The first is the
// library's own.
extern "C" {

CFLocaleRef __real_CFLocaleCopyCurrent();
CFLocaleRef __wrap_CFLocaleCopyCurrent() {
  const standin::Call call("", "CFLocaleCopyCurrent");
  return call.result<CFLocaleRef>([] {
    const auto& locale = standin::machine()["locale"];
    if (locale == "") {
      return __real_CFLocaleCopyCurrent();
    }
    const CFTypeRef identifier = standin::create(locale);
    const CFLocaleRef named = CFLocaleCreate(nullptr, standin::as<CFStringRef>(identifier));
    CFRelease(identifier);
    return named;
  });
}
}
