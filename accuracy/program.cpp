#include "accuracy/program.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "app/lifecycle/init_ai.h"
#include "app/lifecycle/startup.h"
#include "platform/clock/clock.h"

namespace fs = std::filesystem;

fs::path sourceTree() {
  const char* tree = std::getenv("VELMOR_SOURCE_DIR");
  return tree == nullptr ? fs::current_path() : fs::path(tree);
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (fs::temp_directory_path() / "velmor-accuracy-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name + ": cannot be created: " + std::strerror(errno));
  m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(m_path, ignored);
}

workstation::LaunchPlan takeOver(workstation::LaunchRequest request, const fs::path& tree) {
  request.replay = true;
  workstation::LaunchPlan plan = workstation::prepareLaunch(request, tree, false);
  for (const auto& [name, value] : plan.environment) setenv(name.c_str(), value.c_str(), 1);
  ticker_clock::setReplayTime(TimeStamp());
  return plan;
}

void startEyes() {
  init_parameter_controller();
  if (init_ai() != 0) throw std::runtime_error("the networks cannot be opened");
}

void startProgram() {
  startEyes();
  init_overlay_manager();
  init_event_manager();
  if (!init_3D()) throw std::runtime_error("the floor does not calibrate");
  init_tracking();
}
