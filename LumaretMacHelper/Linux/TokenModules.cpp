// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/TokenModules.hpp"

#include <secmod.h>

#include <array>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" {
#include <utilpars.h>  // The header does not declare this itself.
}

namespace lumaret {
namespace {

using PortText = std::unique_ptr<char, decltype([](char* text) { PORT_Free(text); })>;

/// The entries of the database's modules in NSS's one-line form, without NSS's own.
std::vector<std::string> foreignModules(const std::filesystem::path& folder) {
  const PortText place(NSSUTIL_Escape(("sql:" + folder.string()).c_str(), '\''));
  std::string parameters = "configdir='" + std::string(place.get()) + "' flags=readOnly";
  char** const entries =
      NSSUTIL_DoModuleDBFunction(SECMOD_MODULE_DB_FUNCTION_FIND, parameters.data(), nullptr);
  if (entries == nullptr) {
    return {};
  }
  std::vector<std::string> found;
  for (char** entry = entries; *entry != nullptr; ++entry) {
    if (entry != entries) {  // The first is NSS's own.
      found.emplace_back(*entry);
    }
  }
  NSSUTIL_DoModuleDBFunction(SECMOD_MODULE_DB_FUNCTION_RELEASE, parameters.data(),
                             static_cast<void*>(entries));
  return found;
}

/// A name without a folder is allowed: dlopen(3) searches for it in the system's folders.
bool mayBeLoaded(const std::string& module) {
  char* library = nullptr;
  char* name = nullptr;
  char* parameters = nullptr;
  char* options = nullptr;
  NSSUTIL_ArgParseModuleSpec(module.c_str(), &library, &name, &parameters, &options);
  const std::array owned = {PortText(library), PortText(name), PortText(parameters),
                            PortText(options)};
  const std::string path = library != nullptr ? library : "";
  std::error_code error;
  return path.find('/') == std::string::npos || std::filesystem::is_regular_file(path, error);
}

}  // namespace

void loadTokenModules(const std::filesystem::path& databaseFolder) {
  for (std::string& module : foreignModules(databaseFolder)) {
    if (mayBeLoaded(module)) {
      // NSS keeps its own reference until it is shut down.
      if (SECMODModule* loaded = SECMOD_LoadUserModule(module.data(), nullptr, PR_TRUE)) {
        SECMOD_DestroyModule(loaded);
      }
    }
  }
}

}  // namespace lumaret
