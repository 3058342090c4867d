// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lumaret {

/// The open descriptor of the standard output that the caller gave the tool: descriptor 1 until
/// prepareStandardStreams() is called, and the one that it keeps for results from then on.
int callersStandardOutput() noexcept;

}  // namespace lumaret
