// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/LumaretMacHelper.hpp"

int main(int argumentCount, char** arguments) {
  lumaret::LumaretMacHelper::main(argumentCount, arguments);
}
