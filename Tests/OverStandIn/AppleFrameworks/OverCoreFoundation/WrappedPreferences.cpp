// SPDX-License-Identifier: Apache-2.0
// Preferences in Apple's own Core Foundation, in a private folder of this process. Those of the
// machine are copied there before each call, and back afterwards.

#include <CoreFoundation/CoreFoundation.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/AppleFrameworks/OverCoreFoundation/References.hpp"

extern "C" {
CFPropertyListRef __real_CFPreferencesCopyValue(CFStringRef key, CFStringRef application,
                                                CFStringRef user, CFStringRef host);
void __real_CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                                  CFStringRef user, CFStringRef host);
Boolean __real_CFPreferencesSynchronize(CFStringRef application, CFStringRef user,
                                        CFStringRef host);
}

namespace standin {
namespace {

/// The folder in which Core Foundation writes preferences on Linux. It is new, and removed with
/// this process. The library reads the variable that names it as soon as it is loaded. So the
/// process starts itself again with that variable.
class PreferencesFolder {
 public:
  PreferencesFolder() {
    constexpr const char* own = "LUMARET_PREFERENCES_FOLDER";
    if (const char* const folder = std::getenv(own); folder != nullptr) {
      path_ = folder;
      return;
    }
    std::string folder = (std::filesystem::temp_directory_path() / "lumaret.XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
      refuse("mkdtemp", "no folder for preferences");
    }
    ::setenv(own, folder.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    std::ifstream commandLine("/proc/self/cmdline");
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(commandLine, argument, '\0');) {
      arguments.push_back(argument);
    }
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    ::execv("/proc/self/exe", argv.data());
    refuse("execv", "this process to start again");
  }
  PreferencesFolder(const PreferencesFolder&) = delete;
  PreferencesFolder& operator=(const PreferencesFolder&) = delete;
  ~PreferencesFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

 private:
  std::filesystem::path path_;
};

const PreferencesFolder folder;

std::string domain(CFStringRef application, CFStringRef user, CFStringRef host,
                   const char* function) {
  return described(application, function) + ", " + described(user, function) + ", " +
         described(host, function);
}

void set(const std::string& application, const Text& key, const Value* value) {
  const auto name =
      static_cast<CFStringRef>(create(Value{Text(application.begin(), application.end())}));
  const auto keyText = static_cast<CFStringRef>(create(Value{key}));
  const CFTypeRef object = value != nullptr ? create(*value) : nullptr;
  __real_CFPreferencesSetValue(keyText, object, name, kCFPreferencesCurrentUser,
                               kCFPreferencesAnyHost);
  if (object != nullptr) {
    release(object, __func__);
  }
  release(keyText, __func__);
  release(name, __func__);
}

/// Replaces Core Foundation's preferences with those of the machine, without those that are not
/// synchronized.
void update() {
  static std::set<std::pair<std::string, Text>> earlier;
  std::set<std::pair<std::string, Text>> now;
  for (const auto& [application, values] : machine().preferences) {
    for (const auto& [key, value] : values) {
      now.emplace(application, key);
    }
  }
  for (const auto& [application, values] : machine().pendingPreferences) {
    for (const auto& [key, value] : values) {
      now.emplace(application, key);
    }
  }
  for (const auto& [application, key] : earlier) {
    if (!now.contains({application, key})) {
      set(application, key, nullptr);
    }
  }
  for (const auto& [application, values] : machine().preferences) {
    const auto pending = machine().pendingPreferences.find(application);
    for (const auto& [key, value] : values) {
      if (pending == machine().pendingPreferences.end() || !pending->second.contains(key)) {
        set(application, key, &value);
      }
    }
  }
  earlier = std::move(now);
}

}  // namespace
}  // namespace standin

using namespace standin;

extern "C" {

CFPropertyListRef __wrap_CFPreferencesCopyValue(CFStringRef key, CFStringRef application,
                                                CFStringRef user, CFStringRef host) {
  constexpr const char* function = "CFPreferencesCopyValue";
  const Call call(function,
                  described(key, function) + ", " + domain(application, user, host, function));
  return call.result<CFPropertyListRef>([&] {
    update();
    return obtained(__real_CFPreferencesCopyValue(key, application, user, host));
  });
}

void __wrap_CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                                  CFStringRef user, CFStringRef host) {
  constexpr const char* function = "CFPreferencesSetValue";
  const Call call(function, described(key, function) + ", " + described(value, function) + ", " +
                                domain(application, user, host, function));
  if (call.fails()) {
    return;
  }
  machine().pendingPreferences[described(application, function)][textOf(key, function)] =
      valueOf(value, function);
  update();
  __real_CFPreferencesSetValue(key, value, application, user, host);
}

Boolean __wrap_CFPreferencesSynchronize(CFStringRef application, CFStringRef user,
                                        CFStringRef host) {
  constexpr const char* function = "CFPreferencesSynchronize";
  const Call call(function, domain(application, user, host, function));
  if (call.fails() || __real_CFPreferencesSynchronize(application, user, host) == 0) {
    return 0;
  }
  const std::string name = described(application, function);
  for (const auto& [key, value] : machine().pendingPreferences[name]) {
    const auto keyText = static_cast<CFStringRef>(create(Value{key}));
    const CFTypeRef stored = __real_CFPreferencesCopyValue(keyText, application, user, host);
    machine().preferences[name][key] = valueOf(stored, function);
    __real_CFRelease(stored);
    release(keyText, function);
  }
  machine().pendingPreferences.erase(name);
  writeMachineFile();
  return 1;
}
}
