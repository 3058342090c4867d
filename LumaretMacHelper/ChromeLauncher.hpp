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

/// A process that the tool waited for ended with a status other than 0. what() is a message for the
/// user.
class ChromeProcessError : public std::runtime_error {
 public:
  static ChromeProcessError unsuccessfulExit(std::int32_t status) {
    return ChromeProcessError(status);
  }

  [[nodiscard]] std::int32_t status() const noexcept { return status_; }

  bool operator==(const ChromeProcessError& other) const { return status_ == other.status_; }

 private:
  explicit ChromeProcessError(std::int32_t status)
      : std::runtime_error("Google Chrome exited with status " + std::to_string(status) + "."),
        status_(status) {}

  std::int32_t status_;
};

class ChromeLaunchEnvironment {
 public:
  virtual ~ChromeLaunchEnvironment() = default;
  [[nodiscard]] virtual bool isExecutableFile(const std::filesystem::path& path) const = 0;
  [[nodiscard]] virtual bool isApplicationRunning(const std::string& bundleIdentifier) const = 0;
  /// Starts a process with the tool's own streams, environment and working directory. A platform
  /// may send the process's output elsewhere, to keep it apart from the tool's result. Without
  /// `waitUntilExit`, the process outlives the tool. Throws std::system_error if the process cannot
  /// be started, and ChromeProcessError if it was waited for and its status is not 0. The status of
  /// a process that a signal ended is the signal's number.
  virtual void run(const std::filesystem::path& executableURL,
                   const std::vector<std::string>& arguments, bool waitUntilExit) const = 0;
};

class ChromeLauncher final : public ChromeOpening {
 public:
  /// Uses the platform's processes and the default executable.
  ChromeLauncher();
  ChromeLauncher(std::filesystem::path executableURL,
                 std::shared_ptr<const ChromeLaunchEnvironment> environment);

  /// The path of Google Chrome's executable on this platform, whether it is installed or not.
  static const std::filesystem::path& defaultExecutableURL();

  [[nodiscard]] bool isChromeInstalled() const override;
  void open() const override;

  /// Has a running Chrome read its policies again, and waits for that without a time limit. Then
  /// asks for a new window, without waiting. The window shows the destination, if there is one;
  /// only HTTP and HTTPS are supported.
  void open(const std::optional<URL>& destination) const;

 private:
  void refreshAndOpenWindow(const std::optional<URL>& destination) const;

  std::filesystem::path executableURL_;
  std::shared_ptr<const ChromeLaunchEnvironment> environment_;
};

}  // namespace lumaret
