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

using BusOwner = std::unique_ptr<sd_bus, BusRelease>;
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;
using BusSlot = std::unique_ptr<sd_bus_slot, BusRelease>;
using BusTrack = std::unique_ptr<sd_bus_track, BusRelease>;
using BusCredentials = std::unique_ptr<sd_bus_creds, BusRelease>;

/// Returns the result of a call of sd-bus. Throws std::system_error if it is a negative errno.
inline int checkBus(int result, const char* call) {
  requireSuccess(result < 0 ? -result : 0, call);
  return result;
}

/// Calls a function of sd-bus that returns its result through a first argument of type Handle**,
/// and takes ownership. Throws std::system_error.
template <typename Owner, typename Function>
Owner obtainFromBus(const char* call, Function function) {
  typename Owner::pointer handle = nullptr;
  const int result = function(&handle);
  Owner owner(handle);
  checkBus(result, call);
  return owner;
}

}  // namespace lumaret
