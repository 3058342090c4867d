// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <systemd/sd-bus.h>

#include <memory>

#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

// Owners of what sd-bus hands out.

namespace lumaret {

struct BusRelease {
  void operator()(sd_bus* bus) const { ::sd_bus_flush_close_unref(bus); }
  void operator()(sd_bus_message* message) const { ::sd_bus_message_unref(message); }
  void operator()(sd_bus_slot* slot) const { ::sd_bus_slot_unref(slot); }
  void operator()(sd_bus_track* track) const { ::sd_bus_track_unref(track); }
  void operator()(sd_bus_creds* credentials) const { ::sd_bus_creds_unref(credentials); }
};

template <typename Object>
using BusOwner = std::unique_ptr<Object, BusRelease>;

/// Returns the result of a call of sd-bus. Throws std::system_error if it is a negative errno.
inline int checkBus(int result, const char* call) {
  requireSuccess(result < 0 ? -result : 0, call);
  return result;
}

}  // namespace lumaret
