// A trial in words: for a terminal and for the page.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/workstation/camera_check/trial.h"

namespace workstation {

/// "login-wrong": the name by which others know it.
const char* nameOf(TrialEnd end);

/// What was found about a source that gave pictures, as headings and sentences: {"Video", "H.264, 1920x1080, ..."}.
using Facts = std::vector<std::pair<std::string, std::string>>;
Facts factsOf(const Trial& trial);

/// What is wrong, as a sentence; empty for a source that fits.
std::string problemOf(const Trial& trial);

/// What to do about it, as sentences; empty where there is nothing to do.
std::string adviceFor(const Trial& trial);

}  // namespace workstation
