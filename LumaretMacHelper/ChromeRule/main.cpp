// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"

int main(int argumentCount, char** arguments) {
  return lumaret::runChromeRule(argumentCount, arguments);
}
