// Which sizes the program has chosen for its streams, read from the parameters that it stores.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/support/stream_size.h"
#include "platform/workstation/parameters/stored_parameters.h"

namespace workstation {

struct StreamChoice {
  std::optional<StreamSize> overlay;     ///< shows findings; nothing while switched off
  std::optional<StreamSize> anonymised;  ///< nobody is to be recognised on it; nothing while switched off
  std::uint64_t version = 0;             ///< another one after each change
};

/// Reads the choice from all stored parameters.
StreamChoice readStreamChoice(const Parameters& stored);

/// The choice in force. From any thread.
StreamChoice currentStreamChoice();

}  // namespace workstation
