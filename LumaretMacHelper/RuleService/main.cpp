// SPDX-License-Identifier: Apache-2.0
// The rule service. The system bus starts it when somebody calls it. It ends when it has had
// nothing to do for half a minute.

#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/POSIX/SystemCalls.hpp"
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
BusOwner<sd_bus> connect() {
  sd_bus* unconnected = nullptr;
  checkBus(::sd_bus_new(&unconnected), "sd_bus_new");
  BusOwner<sd_bus> bus(unconnected);
  checkBus(::sd_bus_set_address(bus.get(), "unix:path=/run/dbus/system_bus_socket"),
           "sd_bus_set_address");
  checkBus(::sd_bus_set_bus_client(bus.get(), 1), "sd_bus_set_bus_client");
  checkBus(::sd_bus_negotiate_fds(bus.get(), 0), "sd_bus_negotiate_fds");
  checkBus(::sd_bus_start(bus.get()), "sd_bus_start");
  return bus;
}

/// Handles one message of each connection, or else waits for the next one. Returns false if none
/// came in time. sd-bus looks at its own time limits whenever this is called.
bool handleMessage(const std::array<sd_bus*, 2>& connections, std::chrono::milliseconds wait) {
  bool handled = false;
  std::array<pollfd, 2> files{};
  for (std::size_t index = 0; index < files.size(); ++index) {
    sd_bus* const bus = connections.at(index);
    handled |= checkBus(::sd_bus_process(bus, nullptr), "sd_bus_process") > 0;
    files.at(index) = {checkBus(::sd_bus_get_fd(bus), "sd_bus_get_fd"),
                       static_cast<short>(checkBus(::sd_bus_get_events(bus), "sd_bus_get_events")),
                       0};
  }
  return handled ||
         checked(::poll(files.data(), files.size(), static_cast<int>(wait.count())), "poll") > 0;
}

int handleNameReleased(sd_bus_message* /*answer*/, void* isReleased, sd_bus_error* /*error*/) {
  *static_cast<bool*>(isReleased) = true;
  return 0;
}

void serve() {
  const BusOwner<sd_bus> calls = connect();
  const BusOwner<sd_bus> questions = connect();
  const RuleService service(calls.get(), questions.get());
  const std::array<sd_bus*, 2> connections = {calls.get(), questions.get()};
  checkBus(
      ::sd_bus_request_name_async(calls.get(), nullptr, ruleService::busName, 0, nullptr, nullptr),
      ruleService::busName);
  while (handleMessage(connections, idleTime) || !service.isIdle()) {
  }

  // Once the name is released, the bus starts another service for the next call, and systemd ends
  // this one by a signal. Calls that arrived before are still handled here.
  static_cast<void>(std::signal(SIGTERM, SIG_IGN));
  bool isReleased = false;
  checkBus(::sd_bus_release_name_async(calls.get(), nullptr, ruleService::busName,
                                       handleNameReleased, &isReleased),
           ruleService::busName);
  while (!isReleased || !service.isIdle()) {
    handleMessage(connections, idleTime);
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
