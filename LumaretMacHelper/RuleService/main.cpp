// SPDX-License-Identifier: Apache-2.0
// The rule service. The system bus starts it when somebody calls it. It ends when it has had
// nothing to do for half a minute.

#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/RuleService/Address.hpp"
#include "LumaretMacHelper/RuleService/Bus.hpp"
#include "LumaretMacHelper/RuleService/RuleService.hpp"

namespace lumaret {
namespace {

constexpr std::chrono::seconds idleTime{30};

/// In bytes. A block of this size goes back to the system as soon as it is free. By default, glibc
/// would keep that of a huge message, and fragments of it would make the next one take a new block.
constexpr int leastReturnedBlock = 1 << 20;

/// Like sd_bus_open_system, but the bus hands over no files of callers: calls that wait would use
/// up all descriptors.
BusOwner connect(sd_event* loop) {
  auto bus = obtainFromBus<BusOwner>("sd_bus_new", ::sd_bus_new);
  checkBus(::sd_bus_set_address(bus.get(), "unix:path=/run/dbus/system_bus_socket"),
           "sd_bus_set_address");
  checkBus(::sd_bus_set_bus_client(bus.get(), 1), "sd_bus_set_bus_client");
  checkBus(::sd_bus_negotiate_fds(bus.get(), 0), "sd_bus_negotiate_fds");
  checkBus(::sd_bus_set_exit_on_disconnect(bus.get(), 1), "sd_bus_set_exit_on_disconnect");
  checkBus(::sd_bus_start(bus.get()), "sd_bus_start");
  checkBus(::sd_bus_attach_event(bus.get(), loop, SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
  return bus;
}

int handleNameReleased(sd_bus_message* /*answer*/, void* isReleased, sd_bus_error* /*error*/) {
  *static_cast<bool*>(isReleased) = true;
  return 0;
}

/// Once the name is released, the bus starts another service for the next call. Calls that arrived
/// before are still handled here.
void serve() {
  const auto loop = obtainFromBus<EventLoop>("sd_event_new", ::sd_event_new);
  const BusOwner calls = connect(loop.get());
  const BusOwner questions = connect(loop.get());
  const RuleService service(calls.get(), questions.get());
  checkBus(
      ::sd_bus_request_name_async(calls.get(), nullptr, ruleService::busName, 0, nullptr, nullptr),
      ruleService::busName);

  bool isEnding = false;
  bool isReleased = false;
  while (!isReleased || !service.isIdle()) {
    const std::uint64_t wait =
        isEnding || !service.isIdle() ? UINT64_MAX : std::chrono::microseconds(idleTime).count();
    if (checkBus(::sd_event_run(loop.get(), wait), "sd_event_run") == 0) {
      checkBus(::sd_bus_release_name_async(calls.get(), nullptr, ruleService::busName,
                                           handleNameReleased, &isReleased),
               "sd_bus_release_name_async");
      isEnding = true;
    }
    if (::sd_event_get_state(loop.get()) == SD_EVENT_FINISHED) {
      throw std::runtime_error("The system bus closed the connection.");
    }
  }
}

}  // namespace
}  // namespace lumaret

int main(int argumentCount, char** /*arguments*/) {
  try {
    lumaret::prepareStandardStreams();
    if (argumentCount > 1 || ::geteuid() != 0) {
      throw std::runtime_error(
          "The system bus starts this program, as root and without arguments.");
    }
    ::mallopt(M_MMAP_THRESHOLD, lumaret::leastReturnedBlock);
    lumaret::serve();
  } catch (const std::exception& error) {
    lumaret::writeStandardError("rule-service: " + std::string(error.what()) + "\n");
    return EXIT_FAILURE;
  }
}
