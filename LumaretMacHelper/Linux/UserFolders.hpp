// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// `HOME` where it names an existing folder by an absolute path, else the user's home in the
/// account database, else "/".
std::filesystem::path homeFolder();

/// The XDG base folders; a variable that is empty or relative counts as unset.
std::filesystem::path dataHomeFolder();
std::filesystem::path configHomeFolder();

}  // namespace lumaret
