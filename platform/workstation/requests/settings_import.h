// Settings that somebody brings: into use and into the store as a save is, all of them or none.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/web/http_text.h"

namespace workstation {

/// Asks the program, on its main loop's thread: its reply, none when what it has set is not on disk.
using AskProgram = std::function<std::optional<std::string>(const HttpQuery& request)>;

/// What somebody who has brought settings is told.
struct ImportAnswer {
  unsigned int status = 200;
  std::string text;  ///< a JSON object where all is well, else one line
};

/// Lays the parameters, each of them good, over those in force. On the main loop's thread.
ImportAnswer importSettings(const ParameterGroup& brought, const AskProgram& ask);

}  // namespace workstation
