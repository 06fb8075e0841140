#include "reference/truth.h"

#include <chrono>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "reference/json_fields.h"

namespace {

using nlohmann::json;

constexpr double kLongestRecording_s = 366.0 * 24 * 3600;
/// Far outside any picture; positions beyond it are mistakes.
constexpr double kFarthest_px = 10000.0;
/// Indexed by visibility: outside the picture, hidden, visible.
constexpr float kScores[] = {0.0F, 0.3F, 1.0F};

Keypoint keypointFrom(const json& row, BodyPart part, const std::string& where) {
  if (!row.is_array() || row.size() != 3) {
    throw std::runtime_error(where + bodyPartToName(part) + " must be a list of x, y and visibility");
  }
  const double x = numberFrom(row[0], where + bodyPartToName(part) + " x", -kFarthest_px, kFarthest_px);
  const double y = numberFrom(row[1], where + bodyPartToName(part) + " y", -kFarthest_px, kFarthest_px);
  const double visibility = numberFrom(row[2], where + bodyPartToName(part) + " visibility", 0, 2);
  if (visibility != std::floor(visibility)) {
    throw std::runtime_error(where + bodyPartToName(part) + " visibility must be 0, 1 or 2");
  }
  return {Point(static_cast<int>(std::lround(x)), static_cast<int>(std::lround(y))), part,
          kScores[static_cast<std::size_t>(visibility)]};
}

Keypoints keypointsFrom(const json& person, const std::string& where) {
  if (!person.is_object()) {
    throw std::runtime_error(where + "must be an object");
  }
  const json& rows = listOf(person, "keypoints", where.c_str());
  if (rows.size() != BodyParts.size()) {
    throw std::runtime_error(where + "\"keypoints\" must have " + std::to_string(BodyParts.size()) + " rows, not " +
                             std::to_string(rows.size()));
  }
  Keypoints keypoints;
  for (std::size_t i = 0; i < BodyParts.size(); ++i) {
    keypoints[BodyParts[i]] = keypointFrom(rows[i], BodyParts[i], where);
  }
  return keypoints;
}

Posture postureFrom(const json& person) {
  const auto is = [&person](const char* key) { return person.value(key, json()) == true; };
  if (is("in_bed")) return Posture::kInBed;
  if (is("lying_on_floor")) return Posture::kLyingOnFloor;
  return is("standing") ? Posture::kStanding : Posture::kChanging;
}

}  // namespace

TruthPicture parseTruth(const std::string& line) {
  const json picture = json::parse(line, nullptr, false);
  if (!picture.is_object()) {
    throw std::runtime_error("not a JSON object");
  }
  const double t = numberFrom(picture.value("t", json()), "\"t\"", 0, kLongestRecording_s);
  TruthPicture result;
  result.time = TimeStamp(std::chrono::round<TimeStamp::duration>(std::chrono::duration<double>(t)));
  const json& people = listOf(picture, "people", "");
  for (std::size_t i = 0; i < people.size(); ++i) {
    const std::string where = "person " + std::to_string(i + 1) + ": ";
    result.skeletons.emplace_back(keypointsFrom(people[i], where), -1, 1.0F);
    result.postures.push_back(postureFrom(people[i]));
  }
  return result;
}
