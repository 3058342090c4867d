// SPDX-License-Identifier: Apache-2.0
// Also over Apple's own Core Foundation, whose preferences on Linux are none of a Mac's.
#include <CoreFoundation/CoreFoundation.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"

using namespace standin;

namespace {

std::string domain(CFStringRef application, CFStringRef user, CFStringRef host,
                   const char* function) {
  return described(application, function) + ", " + described(user, function) + ", " +
         described(host, function);
}

}  // namespace

extern "C" {

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                         CFStringRef host) {
  const Call call(__func__,
                  described(key, __func__) + ", " + domain(application, user, host, __func__));
  return call.result<CFPropertyListRef>([&]() -> CFPropertyListRef {
    const std::string name = described(application, __func__);
    const auto& pending = machine().pendingPreferences[name];
    if (const auto value = pending.find(textOf(key, __func__)); value != pending.end()) {
      return value->second ? create(*value->second) : nullptr;
    }
    const auto& stored = machine().preferences[name];
    const auto value = stored.find(textOf(key, __func__));
    return value != stored.end() ? create(value->second) : nullptr;
  });
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host) {
  const Call call(__func__, described(key, __func__) + ", " + described(value, __func__) + ", " +
                                domain(application, user, host, __func__));
  if (call.fails()) {
    return;
  }
  machine().pendingPreferences[described(application, __func__)][textOf(key, __func__)] =
      value == nullptr ? std::nullopt : std::optional(valueOf(value, __func__));
}

Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host) {
  const Call call(__func__, domain(application, user, host, __func__));
  if (call.fails()) {
    return false;
  }
  const std::string name = described(application, __func__);
  for (auto& [key, value] : machine().pendingPreferences[name]) {
    machine().preferences[name].erase(key);
    if (value) {
      machine().preferences[name].emplace(key, *std::move(value));
    }
  }
  machine().pendingPreferences.erase(name);
  writeMachineFile();
  return true;
}

Boolean CFPreferencesAppValueIsForced(CFStringRef key, CFStringRef application) {
  const Call call(__func__, described(key, __func__) + ", " + described(application, __func__));
  return machine().mandatoryPreferences[described(application, __func__)].contains(
      textOf(key, __func__));
}

/// Only of a forced value.
CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef application) {
  const Call call(__func__, described(key, __func__) + ", " + described(application, __func__));
  return call.result<CFPropertyListRef>([&] {
    return create(
        machine().mandatoryPreferences[described(application, __func__)].at(textOf(key, __func__)));
  });
}
}
