// Where a run keeps what must outlive it: parameters, the event journal, the log.
#pragma once

#include <filesystem>

namespace workstation {

/// The directory named by VELMOR_STATE (absolute), else velmor_care under $XDG_STATE_HOME or $HOME/.local/state.
/// Created when missing, readable by its owner only. Throws std::runtime_error with one line when there is none.
std::filesystem::path stateDirectory();

/// The directory below which every state directory of this user lies, whatever VELMOR_STATE says; not created.
std::filesystem::path stateHome();

}  // namespace workstation
