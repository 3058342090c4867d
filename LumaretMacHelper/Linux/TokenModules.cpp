// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/TokenModules.hpp"

#include <secmod.h>

#include <memory>
#include <string>
#include <system_error>

extern "C" {
#include <utilpars.h>  // Which does not say itself that it is C.
}

namespace lumaret {
namespace {

struct PortDeleter {
  void operator()(char* text) const { PORT_Free(text); }
};
using PortText = std::unique_ptr<char, PortDeleter>;

/// Each module's entry in the database, in the one line that NSS makes of it.
class ModuleList {
 public:
  explicit ModuleList(const std::filesystem::path& folder)
      : parameters_(
            "configdir='" +
            std::string(PortText(NSSUTIL_Escape(("sql:" + folder.string()).c_str(), '\'')).get()) +
            "' flags=readOnly"),
        entries_(NSSUTIL_DoModuleDBFunction(SECMOD_MODULE_DB_FUNCTION_FIND, parameters_.data(),
                                            nullptr)) {}
  ModuleList(const ModuleList&) = delete;
  ModuleList& operator=(const ModuleList&) = delete;
  ~ModuleList() {
    if (entries_ != nullptr) {
      NSSUTIL_DoModuleDBFunction(SECMOD_MODULE_DB_FUNCTION_RELEASE, parameters_.data(), entries_);
    }
  }

  /// Those after NSS's own, which is always the first; up to a null pointer.
  [[nodiscard]] char** foreign() const {
    static char* none = nullptr;
    return entries_ == nullptr || *entries_ == nullptr ? &none : entries_ + 1;
  }

 private:
  std::string parameters_;
  char** entries_;
};

/// A name without a folder is searched for in the system's, as dlopen(3) does.
bool mayBeLoaded(const char* entry) {
  char *library = nullptr, *name = nullptr, *parameters = nullptr, *options = nullptr;
  NSSUTIL_ArgParseModuleSpec(entry, &library, &name, &parameters, &options);
  const PortText owned[] = {PortText(library), PortText(name), PortText(parameters),
                            PortText(options)};
  const std::string path = library != nullptr ? library : "";
  std::error_code error;
  return path.find('/') == std::string::npos || std::filesystem::is_regular_file(path, error);
}

}  // namespace

void loadTokenModules(const std::filesystem::path& databaseFolder) {
  const ModuleList list(databaseFolder);
  for (char** entry = list.foreign(); *entry != nullptr; ++entry) {
    if (mayBeLoaded(*entry)) {
      // NSS keeps a reference of its own until it is shut down.
      if (SECMODModule* module = SECMOD_LoadUserModule(*entry, nullptr, PR_TRUE)) {
        SECMOD_DestroyModule(module);
      }
    }
  }
}

}  // namespace lumaret
