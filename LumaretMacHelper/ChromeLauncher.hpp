// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/URL.hpp"

namespace lumaret {

/// A process that was awaited ended with another status than 0. what() is for the user.
class ChromeProcessError : public std::runtime_error {
 public:
  static ChromeProcessError unsuccessfulExit(std::int32_t status);

  [[nodiscard]] std::int32_t status() const noexcept { return status_; }

  bool operator==(const ChromeProcessError& other) const { return status_ == other.status_; }

 private:
  explicit ChromeProcessError(std::int32_t status);

  std::int32_t status_;
};

class ChromeLaunchEnvironment {
 public:
  virtual ~ChromeLaunchEnvironment() = default;
  [[nodiscard]] virtual bool isExecutableFile(const std::filesystem::path& path) const = 0;
  [[nodiscard]] virtual bool isApplicationRunning(const std::string& bundleIdentifier) const = 0;
  /// Starts a process with the tool's own streams (a platform may keep the process's output apart
  /// from the tool's result), environment and working directory. Where it is not awaited, it
  /// outlives the tool. Throws std::system_error when it cannot be started, and
  /// ChromeProcessError when it was awaited and failed; one that a signal ended has the signal's
  /// number as its status.
  virtual void run(const std::filesystem::path& executableURL,
                   const std::vector<std::string>& arguments, bool waitUntilExit) const = 0;
};

class ChromeLauncher final : public ChromeOpening {
 public:
  /// Over the platform's processes, for the default executable.
  ChromeLauncher();
  ChromeLauncher(std::filesystem::path executableURL,
                 std::shared_ptr<const ChromeLaunchEnvironment> environment);

  /// Where the platform has Google Chrome's executable, installed or not.
  static const std::filesystem::path& defaultExecutableURL();

  [[nodiscard]] bool isChromeInstalled() const override;
  void open() const override;

  /// Has a running Chrome re-read its policies, and awaits that without a time limit; then asks for
  /// a new window, at the destination if there is one (HTTP and HTTPS only), and does not wait.
  void open(const std::optional<URL>& destination) const;

 private:
  void refreshAndOpenWindow(const std::optional<URL>& destination) const;

  std::filesystem::path executableURL_;
  std::shared_ptr<const ChromeLaunchEnvironment> environment_;
};

}  // namespace lumaret
