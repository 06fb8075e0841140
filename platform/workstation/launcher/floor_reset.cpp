#include "platform/workstation/launcher/floor_reset.h"

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>

#include "platform/support/owners.h"
#include "platform/workstation/camera/chosen_optics.h"
#include "platform/workstation/camera/taken_camera.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/launcher/launch_plan.h"
#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/parameters/stored_parameters.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;

/// The program's last words when the calibration was rejected.
constexpr const char* kFloorFailure = " error: Failed init_3D";

bool isFloorKey(const std::string& name) {
  return name.starts_with("FallCalibration") || name == "WRectM" || name == "HRectM";
}

/// The floor's keys as a state without stored ones would have them.
Parameters originalFloor(const LaunchRequest& request, const fs::path& source_tree) {
  const CameraDescription camera = requestedCamera(request, source_tree);
  Parameters values = startFrom({}, packageDefaults(source_tree), camera.parameters).values;
  std::erase_if(values, [](const auto& entry) { return !isFloorKey(entry.first); });
  return values;
}

/// Lays the values over the stored ones; a line for each that changes them.
std::string replaceValues(Parameters& stored, const Parameters& values) {
  std::string lines;
  for (const auto& [name, value] : values) {
    std::string& now = stored[name];
    if (isSameValue(now, value)) continue;
    lines.append("  ").append(name).append(": ").append(now).append(" -> ").append(value).append("\n");
    now = value;
  }
  return lines;
}

/// As a shell takes it for one word.
std::string shellWord(const std::string& text) {
  const auto is_plain = [](char c) { return g_ascii_isalnum(c) || std::strchr("_./:@%+=,-", c) != nullptr; };
  if (!text.empty() && std::all_of(text.begin(), text.end(), is_plain)) return text;
  const GLibPtr<gchar> quoted(g_shell_quote(text.c_str()));
  return quoted.get();
}

std::string resetCommand(const LaunchRequest& request) {
  std::string command = "./run --reset floor";
  const auto add = [&command](const char* option, const std::optional<std::string>& value) {
    if (value) command.append(" ").append(option).append(" ").append(shellWord(*value));
  };
  if (request.source) add("--source", withoutUser(*request.source));
  add("--settings", request.settings);
  add("--state", request.state);
  return command;
}

}  // namespace

std::string resetFloor(const LaunchRequest& request, const fs::path& source_tree) {
  const Parameters original = originalFloor(request, source_tree);
  const fs::path directory = lastingPlace(request);
  std::string nothing = directory.string() + ": no settings are stored here, so there is nothing to reset\n";
  if (!fs::exists(directory)) return nothing;
  const StatePlace place(directory, false);
  StoredParameters file(directory, kAppName);
  std::optional<StoredState> state = file.load();
  if (!state) return nothing;
  const std::string changes = replaceValues(state->values, original);
  if (changes.empty()) return directory.string() + ": the floor calibration is the original one already\n";
  file.save(*state);
  return directory.string() + ": the floor calibration is the original one again\n" + changes;
}

std::string resetCamera(const LaunchRequest& request, const fs::path& source_tree) {
  const std::string camera = withoutSecrets(requestedCamera(request, source_tree).source);
  const fs::path directory = lastingPlace(request);
  std::string done;
  if (fs::exists(directory)) {
    const StatePlace place(directory, false);
    if (forgetTakenCamera(directory)) done += directory.string() + ": the camera is " + camera + " again\n";
    if (forgetChosenOptics(directory)) done += directory.string() + ": the lens and the sensor are the start's again\n";
  }
  return done.empty() ? directory.string() + ": neither camera nor lens was chosen here, so there is nothing to reset\n"
                      : done;
}

StartWatch::StartWatch(const fs::path& state_directory) : m_log(state_directory / "system.log") {
  std::error_code error;
  m_end = fs::file_size(m_log, error);
  if (error) m_end = 0;
}

bool StartWatch::failedOnFloor() const {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(m_log, error);
  std::ifstream log(m_log, std::ios::binary);
  // A log that is shorter than before has been begun anew.
  log.seekg(static_cast<std::streamoff>(!error && size >= m_end ? m_end : 0));
  const std::string lines{std::istreambuf_iterator<char>(log), {}};
  return lines.find(kFloorFailure) != std::string::npos;
}

std::string floorAdvice(const LaunchRequest& request, const fs::path& source_tree, const fs::path& state_directory) {
  const std::string outcome = "The program did not start: nobody is being watched.\n";
  StoredState state = StoredParameters(state_directory, kAppName).load().value_or(StoredState());
  if (replaceValues(state.values, originalFloor(request, source_tree)).empty()) {
    return outcome + "The floor calibration comes from " + settingsName(request) +
           (request.sets.empty() ? "" : " or --set") + "; correct it there\n";
  }
  return outcome + "To put the floor calibration back to the original one: " + resetCommand(request) + "\n";
}

}  // namespace workstation
