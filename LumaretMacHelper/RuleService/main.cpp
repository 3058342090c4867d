// SPDX-License-Identifier: Apache-2.0
// The rule service. The system bus starts it when somebody calls it. It ends when it has had
// nothing to do for half a minute.

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

void takeName(sd_bus* bus) {
  checkBus(::sd_bus_request_name(bus, ruleService::busName, 0), ruleService::busName);
}

/// Handles what has arrived.
void process(sd_bus* bus) {
  while (checkBus(::sd_bus_process(bus, nullptr), "sd_bus_process") > 0) {
  }
}

/// Once the name is released, the bus starts another service for the next call. Calls that arrived
/// before are still handled here.
bool end(sd_bus* bus, const RuleService& service) {
  checkBus(::sd_bus_release_name(bus, ruleService::busName), "sd_bus_release_name");
  process(bus);
  if (service.isIdle()) {
    return true;
  }
  takeName(bus);
  return false;
}

void serve() {
  const auto bus = obtainFromBus<BusOwner>("sd_bus_open_system", ::sd_bus_open_system);
  const RuleService service(bus.get());
  takeName(bus.get());
  while (true) {
    process(bus.get());
    const bool isIdle = service.isIdle();
    const std::uint64_t wait = isIdle ? std::chrono::microseconds(idleTime).count() : UINT64_MAX;
    if (checkBus(::sd_bus_wait(bus.get(), wait), "sd_bus_wait") == 0 && isIdle &&
        end(bus.get(), service)) {
      return;
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
    lumaret::serve();
  } catch (const std::exception& error) {
    lumaret::writeStandardError("rule-service: " + std::string(error.what()) + "\n");
    return EXIT_FAILURE;
  }
}
