// SPDX-License-Identifier: Apache-2.0
// Also over Apple's own Core Foundation, whose preferences on Linux are none of a Mac's.
#include <CoreFoundation/CoreFoundation.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

using namespace standin;

namespace {

void requireCurrentUserOnAnyHost(CFStringRef user, CFStringRef host,
                                 const char* function = __builtin_FUNCTION()) {
  require(
      CFEqual(user, kCFPreferencesCurrentUser) != 0 && CFEqual(host, kCFPreferencesAnyHost) != 0,
      "the current user on any host", function);
}

}  // namespace

extern "C" {

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                         CFStringRef host) {
  requireCurrentUserOnAnyHost(user, host);
  const Call call(*textOf(key));
  return call.result<CFPropertyListRef>([&] {
    const json::json_pointer place("/" + *textOf(application) + "/" + *textOf(key));
    const json stored = machine()["preferences"].value(place, json());
    return create(machine()["unsynchronized"].value(place, stored));
  });
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host) {
  requireCurrentUserOnAnyHost(user, host);
  if (const Call call(*textOf(key)); !call.fails()) {
    machine()["unsynchronized"][*textOf(application)][*textOf(key)] =
        value == nullptr ? json() : valueOf(value);
  }
}

Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host) {
  requireCurrentUserOnAnyHost(user, host);
  const std::string name = *textOf(application);
  const Call call(name);
  if (!call.fails() && machine()["unsynchronized"].contains(name)) {
    machine()["preferences"][name].merge_patch(machine()["unsynchronized"][name]);
    machine()["unsynchronized"].erase(name);
    save();
  }
  return call.fails() ? 0 : 1;
}

Boolean CFPreferencesAppValueIsForced(CFStringRef key, CFStringRef application) {
  const Call call(*textOf(key));
  const json::json_pointer place("/forced/" + *textOf(application) + "/" + *textOf(key));
  return machine().contains(place) ? 1 : 0;
}

/// Only of a forced value.
CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef application) {
  const Call call(*textOf(key));
  return call.result<CFPropertyListRef>(
      [&] { return create(machine().at("forced").at(*textOf(application)).at(*textOf(key))); });
}
}
