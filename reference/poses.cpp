#include "reference/poses.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "reference/json_fields.h"

namespace {

using nlohmann::json;

constexpr int kVersion = 1;
constexpr std::size_t kLongestLine = std::size_t{4} << 20;
constexpr double kFarthest_px = 1e6;
constexpr double kHighestScore = 1000;  // of somebody fused from many
constexpr double kLargestSide = 8192;   // pixels of a network's input
constexpr std::size_t kMostPoses = 1000;
constexpr double kLongestPeriod_ms = 3600000;
constexpr std::array kRotations{0, 90, 180, 270};

constexpr float kNoScore = -std::numeric_limits<float>::infinity();

int wholeFrom(const json& value, const std::string& what, double low, double high) {
  return static_cast<int>(numberFrom(value, what, low, high));
}

/// Null stands for what is no number.
float scoreFrom(const json& value, const std::string& what) {
  if (value.is_null()) return std::numeric_limits<float>::quiet_NaN();
  return static_cast<float>(numberFrom(value, what, -kHighestScore, kHighestScore));
}

TracedPose poseFrom(const json& pose, int rotation) {
  if (!pose.is_object()) throw std::runtime_error("a pose must be an object");
  const json& points = listOf(pose, "points", "a pose: ");
  if (points.size() != BodyParts.size()) {
    throw std::runtime_error("a pose: \"points\" must have " + std::to_string(BodyParts.size()) + " rows, not " +
                             std::to_string(points.size()));
  }
  Keypoints keypoints;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const json& row = points[i];
    const std::string what = "a pose's " + bodyPartToName(BodyParts[i]);
    if (!row.is_array() || row.size() != 3) throw std::runtime_error(what + " must be a list of x, y and score");
    const Point at(wholeFrom(row[0], what + " x", -kFarthest_px, kFarthest_px),
                   wholeFrom(row[1], what + " y", -kFarthest_px, kFarthest_px));
    keypoints[BodyParts[i]] = Keypoint(at, BodyParts[i], scoreFrom(row[2], what + " score"));
  }
  const json confirmation = pose.value("confirmation", json());
  return {Skeleton(keypoints, rotation, scoreFrom(pose.value("score", json()), "a pose's \"score\"")),
          confirmation.is_null() ? kNoScore : scoreFrom(confirmation, "a pose's \"confirmation\"")};
}

TracedRun runFrom(const json& run) {
  if (!run.is_object()) throw std::runtime_error("a run must be an object");
  TracedRun result;
  result.rotation = wholeFrom(run.value("rotation", json()), "a run's \"rotation\"", 0, kRotations.back());
  if (std::find(kRotations.begin(), kRotations.end(), result.rotation) == kRotations.end()) {
    throw std::runtime_error("a run's \"rotation\" must be 0, 90, 180 or 270");
  }
  const json& size = listOf(run, "size", "a run: ");
  if (size.size() != 2) throw std::runtime_error("a run's \"size\" must be width and height");
  result.width = wholeFrom(size[0], "a run's width", 1, kLargestSide);
  result.height = wholeFrom(size[1], "a run's height", 1, kLargestSide);
  result.limit = scoreFrom(run.value("limit", json()), "a run's \"limit\"");
  const json& poses = listOf(run, "poses", "a run: ");
  if (poses.size() > kMostPoses) throw std::runtime_error("a run has more poses than a network gives");
  for (const json& pose : poses) result.poses.push_back(poseFrom(pose, result.rotation));
  return result;
}

Settings settingsFrom(const json& line) {
  const json parameters = line.value("parameters", json());
  if (!parameters.is_object()) throw std::runtime_error("\"parameters\" must be an object of texts");
  Settings settings;
  for (const auto& [name, value] : parameters.items()) {
    if (!value.is_string()) throw std::runtime_error("parameter \"" + name + "\" must be a text");
    settings[name] = value.get<std::string>();
  }
  return settings;
}

std::int64_t nanosecondsFrom(const json& line) {
  const json value = line.value("ns", json());
  if (!value.is_number_integer() || value.get<std::int64_t>() < 0) {
    throw std::runtime_error("\"ns\" must be a whole number of nanoseconds");
  }
  return value.get<std::int64_t>();
}

}  // namespace

TracedPoses::TracedPoses(const std::string& path) : m_path(path), m_file(path) {
  if (!m_file) throw std::runtime_error(path + ": cannot be read");
  json header;
  if (!readObject(header)) throw std::runtime_error(path + ": is empty; a trace begins with its header");
  try {
    readHeader(header);
  } catch (const std::runtime_error& error) {
    fail(error.what());
  }
}

void TracedPoses::fail(const std::string& why) const {
  throw std::runtime_error(m_path + " line " + std::to_string(m_number) + ": " + why);
}

bool TracedPoses::readObject(json& object) {
  std::string line;
  for (char c = 0; m_file.get(c) && c != '\n';) {
    line += c;
    if (line.size() > kLongestLine) {
      ++m_number;
      fail("is longer than any line of a trace");
    }
  }
  if (line.empty() && !m_file) return false;
  ++m_number;
  const bool is_cut_off = !m_file;
  object = json::parse(line, nullptr, false);
  if (!object.is_object()) {
    fail(is_cut_off ? "is cut off; remove it to replay the lines before" : "is no JSON object");
  }
  return true;
}

void TracedPoses::readHeader(const json& header) {
  if (header.value("kind", json()) != "trace") throw std::runtime_error("is no header of a trace");
  if (header.value("version", json()) != kVersion) {
    throw std::runtime_error("this trace is of version " + header.value("version", json()).dump() +
                             "; this program reads version " + std::to_string(kVersion));
  }
  m_is_recording = header.value("replay", json()) == true;
  m_period =
      std::chrono::milliseconds(wholeFrom(header.value("period_ms", json()), "\"period_ms\"", 1, kLongestPeriod_ms));
}

void TracedPoses::readCycle(const json& line, TracedCycle& cycle) {
  const std::int64_t ns = nanosecondsFrom(line);
  const bool is_first = m_last_ns < 0;
  if (ns <= m_last_ns && m_is_recording) throw std::runtime_error("\"ns\" must be later than in the cycle before");
  // A live clock may be set back; a cycle is later than the one before all the same.
  const std::chrono::nanoseconds step(ns - m_last_ns);
  if (is_first) {
    m_time = TimeStamp(std::chrono::nanoseconds(m_is_recording ? ns : 0));
  } else {
    m_time += step.count() > 0 ? step : m_period;
  }
  m_last_ns = ns;
  cycle.time = m_time;
  cycle.failed = line.value("failed", json()) == true;
  cycle.had_picture_to_check = !line.contains("confirmation");
  cycle.runs.clear();
  if (cycle.failed) return;
  for (const json& run : listOf(line, "runs", "")) cycle.runs.push_back(runFrom(run));
}

/// Numbers count the cycles of a run from 1; a trace that somebody wrote may have none.
void TracedPoses::noteGap(const json& line) {
  const json number = line.value("number", json());
  if (!number.is_number_unsigned()) return;
  const std::int64_t last = std::exchange(m_last_cycle, number.get<std::int64_t>());
  if (!m_gap.empty() || m_last_cycle == last + 1) return;
  m_gap = m_path + " line " + std::to_string(m_number) + ": cycle " + number.dump() + " follows " +
          (last == 0 ? "none" : "cycle " + std::to_string(last)) +
          ": from there on events may differ from what was told then";
}

bool TracedPoses::next(TracedCycle& cycle) {
  std::optional<Settings> settings;
  for (json line; readObject(line);) {
    try {
      const json kind = line.value("kind", json());
      if (kind == "settings") settings = settingsFrom(line);
      if (kind == "trace") throw std::runtime_error("a second header; replay one trace at a time");
      if (kind != "cycle") continue;
      const bool is_first = m_last_ns < 0;
      readCycle(line, cycle);
      noteGap(line);
      cycle.settings = is_first ? std::nullopt : std::move(settings);
      return true;
    } catch (const std::runtime_error& error) {
      fail(error.what());
    }
  }
  if (m_last_ns < 0) throw std::runtime_error(m_path + ": no cycle in it");
  return false;
}
