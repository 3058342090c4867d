// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/URL.hpp"

namespace lumaret {

/// An awaited process ended with a status other than 0. The description is for the user.
class ChromeProcessError : public DescribedError {
 public:
  static ChromeProcessError unsuccessfulExit(std::int32_t status) {
    return {"Google Chrome exited with status " + std::to_string(status) + "."};
  }

 private:
  using DescribedError::DescribedError;
};

class ChromeLaunchEnvironment {
 public:
  virtual ~ChromeLaunchEnvironment() = default;
  [[nodiscard]] virtual bool isExecutableFile(const std::filesystem::path& path) const = 0;
  [[nodiscard]] virtual bool isApplicationRunning(const std::string& bundleIdentifier) const = 0;
  /// Starts a process with the tool's own streams, environment and working directory. A platform
  /// may keep its output apart from the tool's result. Without `waitUntilExit`, it outlives the
  /// tool. Throws std::system_error if it cannot be started, and ChromeProcessError if it was
  /// awaited and its status, or the number of the signal that ended it, is not 0.
  virtual void run(const std::filesystem::path& executableURL,
                   const std::vector<std::string>& arguments, bool waitUntilExit) const = 0;
};

class ChromeLauncher final : public ChromeOpening {
 public:
  /// Uses the platform's processes and the default executable.
  ChromeLauncher();
  ChromeLauncher(std::filesystem::path executableURL,
                 std::shared_ptr<const ChromeLaunchEnvironment> environment);

  /// The path of Google Chrome's executable, whether it is installed or not.
  static const std::filesystem::path& defaultExecutableURL();

  [[nodiscard]] bool isChromeInstalled() const override;
  void open() const override;

  /// Makes a running Chrome reload its policies, and waits for that without a time limit. Throws
  /// CertificateSelectorError.
  void refreshPolicies() const;

  /// Refreshes the policies of a running Chrome. Then opens a new window, at the destination if
  /// there is one (HTTP or HTTPS), without waiting.
  void open(const std::optional<URL>& destination) const;

 private:
  std::filesystem::path executableURL_;
  std::shared_ptr<const ChromeLaunchEnvironment> environment_;
};

}  // namespace lumaret
