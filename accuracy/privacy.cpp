// How many true faces of the demo the anonymised stream would show.
//
// The program's own cycles, networks and all, on the demo's video, as a camera mounted so would see it; its truth
// turned alike. A face is one whose nose or at least one eye is visible in the truth.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "accuracy/commands.h"
#include "accuracy/program.h"
#include "analysis/FindingsHistory.h"
#include "app/process_state.h"
#include "platform/clock/clock.h"
#include "platform/workstation/views/overlay_service.h"
#include "platform/workstation/views/view_picture.h"
#include "reference/truth.h"

namespace {

namespace fs = std::filesystem;

constexpr StreamSize kStream{1280, 720};
constexpr float kVisible = 1.0F;  // score of a visible point of the truth
constexpr BodyPart kHead[] = {BodyPart::Nose, BodyPart::LeftEye, BodyPart::RightEye, BodyPart::LeftEar,
                              BodyPart::RightEar};
constexpr BodyPart kFace[] = {BodyPart::Nose, BodyPart::LeftEye, BodyPart::RightEye};
// A face of 4 points across is at the limit of telling that there is a person at all (25 points a metre, "detect" in
// IEC 62676-4; recognising somebody known takes 125).
constexpr double kBlocksOfFace = 4.0;

struct Tally {
  int cycles = 0;
  int cards = 0;
  int faces = 0;
  int unmasked = 0;     ///< no mask over at least one visible point
  int seen_coarse = 0;  ///< of these, as wide as kBlocksOfFace
  double widest_px = 0;
  double widest_unmasked_px = 0;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Tally, cycles, cards, faces, unmasked, seen_coarse, widest_px, widest_unmasked_px)

Point turned(const Point& point, int rotation) {
  return rotation == 90 ? Point{g_StreamWidth - 1 - point.y, point.x} : point;
}

/// The longest way between two points of the head, hidden ones included: no face is narrower.
double widthOf(const Skeleton& person) {
  double widest = 0;
  for (const BodyPart a : kHead) {
    for (const BodyPart b : kHead) {
      const Point p = person.keypoints.at(a).point;
      const Point q = person.keypoints.at(b).point;
      widest = std::max(widest, std::hypot(p.x - q.x, p.y - q.y));
    }
  }
  return widest;
}

bool isMasked(const Point& point) {
  const auto ids = g_findingsHistory.getIDs();
  return std::any_of(ids.begin(), ids.end(), [&](int id) {
    const BoundingBox& box = g_findingsHistory.getLatestFinding(id).skeleton.boundingBox;
    return point.x >= box.topLeft.x && point.x <= box.bottomRight.x && point.y >= box.topLeft.y &&
           point.y <= box.bottomRight.y;
  });
}

void count(const Skeleton& person, int rotation, Tally& tally) {
  const auto visible = [&](BodyPart part) { return person.keypoints.at(part).score == kVisible; };
  if (std::none_of(std::begin(kFace), std::end(kFace), visible)) return;
  ++tally.faces;
  const double width = widthOf(person);
  tally.widest_px = std::max(tally.widest_px, width);
  const auto shows = [&](BodyPart part) {
    return visible(part) && !isMasked(turned(person.keypoints.at(part).point, rotation));
  };
  if (std::none_of(std::begin(kFace), std::end(kFace), shows)) return;
  ++tally.unmasked;
  tally.widest_unmasked_px = std::max(tally.widest_unmasked_px, width);
  if (width >= kBlocksOfFace * workstation::blockSide(kStream)) ++tally.seen_coarse;
}

/// The demo's settings for a camera mounted so: the beds and the floor turn with the picture.
std::string describeCamera(const fs::path& demo, int rotation, bool mirrored) {
  std::ifstream settings(demo / "demo.settings.json");
  nlohmann::json camera = nlohmann::json::parse(settings);
  auto& parameters = camera["parameters"];
  for (auto entry = parameters.begin(); rotation == 90 && entry != parameters.end(); ++entry) {
    if (!entry.key().ends_with("x")) continue;
    auto& y = parameters[entry.key().substr(0, entry.key().size() - 1) + "y"];
    const int old_y = std::stoi(y.get<std::string>());
    y = entry.value();
    entry.value() = std::to_string(static_cast<int>(kStream.height) - 1 - old_y);
  }
  camera["source"] = (demo / "demo.mp4").string();
  camera["rotation"] = rotation;
  camera["mirrored"] = mirrored;
  parameters["AnonOverlaysOn"] = "true";
  parameters["SelectedAnonOverlay"] = toString(kStream);
  return camera.dump();
}

void count(const TruthPicture& truth, int rotation, Tally& tally) {
  if (truth.time != ticker_clock::now()) throw std::runtime_error("the truth is not of the cycle's time");
  ++tally.cycles;
  const auto sight =
      workstation::anonymisedView().sightAt(workstation::currentStreamChoice(), static_cast<std::uint32_t>(rotation),
                                            workstation::AnonymisedView::Clock::now());
  if (!sight.reason.empty()) {
    ++tally.cards;
    return;
  }
  for (const Skeleton& person : truth.skeletons) count(person, rotation, tally);
}

Tally watch(const PrivacyRequest& request) {
  const fs::path demo = fs::absolute(request.tree) / "simulator" / "demo";
  const TemporaryFolder folder;
  workstation::LaunchRequest launch;
  launch.source = folder.path() / "camera-source.json";
  std::ofstream(*launch.source) << describeCamera(demo, request.rotation, request.mirrored);
  const workstation::LaunchPlan plan = takeOver(launch, request.tree);
  startProgram();
  std::ifstream file(demo / "demo.truth.jsonl");
  Tally tally;
  runCycles([&] {
    std::string line;
    if (!std::getline(file, line)) return false;
    count(parseTruth(line), request.rotation, tally);
    return true;
  });
  return tally;
}

}  // namespace

void measurePrivacy(const PrivacyRequest& request) {
  const Tally tally = runApart([&] { return nlohmann::json(watch(request)); });
  const double block = workstation::blockSide(kStream);
  std::puts(
      "| mounted | pictures | cards | true faces | seen with masks alone | seen with masks and coarsening | widest "
      "face, "
      "pixels | widest face outside the masks |\n|---|---|---|---|---|---|---|---|");
  std::printf("| turned by %d degrees%s | %d | %d | %d | %d | %d | %.0f | %.0f pixels, %.1f blocks |\n",
              request.rotation, request.mirrored ? " and mirrored" : "", tally.cycles, tally.cards, tally.faces,
              tally.unmasked, tally.seen_coarse, tally.widest_px, tally.widest_unmasked_px,
              tally.widest_unmasked_px / block);
}
