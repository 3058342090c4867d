// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// `HOME` if it is the absolute path of an existing folder, or else the user's home in the account
/// database, or else "/".
std::filesystem::path homeFolder();

/// The XDG base folders. A variable that is empty or relative counts as unset.
std::filesystem::path dataHomeFolder();
std::filesystem::path configHomeFolder();

}  // namespace lumaret
