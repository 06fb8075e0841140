#include "evaluate/running/recordings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "evaluate/judging/stills.h"
#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/launcher/launch_plan.h"

namespace evaluate {
namespace {

namespace fs = std::filesystem;

constexpr std::array kVideos{".mp4", ".mkv", ".mov", ".m4v", ".avi", ".webm", ".ts", ".mpg"};
/// A length that differs by more was told of another video.
constexpr double kSameLength_s = 1;
/// A folder that was named by mistake, "/", is not searched to its end.
constexpr int kDeepest = 4;

/// Sorted.
std::vector<fs::path> filesIn(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> files;
  fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
  for (const fs::recursive_directory_iterator end; !error && entry != end; entry.increment(error)) {
    if (entry.depth() >= kDeepest) entry.disable_recursion_pending();
    files.push_back(entry->path());
  }
  if (error) throw std::runtime_error(folder.string() + ": cannot be read: " + error.message());
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<fs::path> videosOf(const fs::path& stem) {
  std::vector<fs::path> videos;
  for (const char* ending : kVideos) {
    const fs::path video = stem.string() + ending;
    if (fs::is_regular_file(video)) videos.push_back(video);
  }
  return videos;
}

/// The one video of this name. Throws std::runtime_error.
fs::path videoOf(const fs::path& stem, const fs::path& happened) {
  const std::vector<fs::path> videos = videosOf(stem);
  if (videos.empty()) throw std::runtime_error(happened.string() + ": there is no video of this name beside it");
  if (videos.size() > 1) {
    throw std::runtime_error(happened.string() + ": " + videos[0].filename().string() + " and " +
                             videos[1].filename().string() + " stand beside it; allowed is one video");
  }
  return videos[0];
}

fs::path without(std::string_view ending, const fs::path& file) {
  const std::string text = file.string();
  return text.substr(0, text.size() - ending.size());
}

/// Whether the simulator is to say what is wrong with it: somebody meant it as a script.
bool isScript(const fs::path& file) {
  constexpr std::uintmax_t kLargest = std::uintmax_t{1} << 20;
  std::error_code error;
  if (file.extension() != ".json" || file.string().ends_with(".settings.json") || !fs::is_regular_file(file, error) ||
      fs::file_size(file, error) > kLargest || !videosOf(without(".json", file)).empty()) {
    return false;
  }
  std::ifstream stream(file);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  return text.find("\"room\"") != std::string::npos && text.find("\"camera\"") != std::string::npos;
}

}  // namespace

fs::path beside(const fs::path& video, const std::string& ending) { return fs::path(video).replace_extension(ending); }

Recording recordingOf(const fs::path& happened, const std::string& name) {
  Recording recording{name, videoOf(without(kHappenedEnding, happened), happened), readHappened(happened), {}};
  const double length_s = lengthOf(recording.video);
  if (length_s > 0 && std::abs(length_s - recording.happened.length_s) > kSameLength_s) {
    char text[96];
    std::snprintf(text, sizeof text,
                  ": the length is %g s, and the video's %.1f s; allowed is what is told of this video",
                  recording.happened.length_s, length_s);
    throw std::runtime_error(happened.string() + text);
  }
  return recording;
}

std::optional<workstation::ParameterGroup> changesTo(const fs::path& settings, const fs::path& from) {
  workstation::CameraDescription before;
  workstation::CameraDescription after;
  if (fs::exists(from)) workstation::layOver(before, from);
  if (fs::exists(settings)) workstation::layOver(after, settings);
  const bool same_camera = before.product_name == after.product_name && before.rotation == after.rotation &&
                           before.focal_length_um == after.focal_length_um && before.mirrored == after.mirrored;
  const bool all_told = std::all_of(before.parameters.begin(), before.parameters.end(),
                                    [&](const auto& entry) { return after.parameters.contains(entry.first); });
  if (!same_camera || !all_told) return std::nullopt;
  workstation::ParameterGroup changes;
  for (const auto& [key, value] : after.parameters) {
    const auto old = before.parameters.find(key);
    if (old == before.parameters.end() || old->second != value) changes[key] = value;
  }
  return changes;
}

Contents contentsOf(const fs::path& folder) {
  Contents contents;
  for (const fs::path& file : filesIn(folder)) {
    const auto name = [&](std::string_view ending) { return without(ending, fs::relative(file, folder)).string(); };
    try {
      if (file.string().ends_with(kHappenedEnding)) {
        contents.recordings.push_back(recordingOf(file, name(kHappenedEnding)));
      } else if (isScript(file)) {
        contents.scripts.push_back({name(".json"), file});
      }
    } catch (const std::exception& error) {
      contents.problems.emplace_back(error.what());
    }
  }
  return contents;
}

}  // namespace evaluate
