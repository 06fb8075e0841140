// velmor_measure_privacy: how many true faces of the demo the anonymised stream would show.
//
//   velmor_measure_privacy SOURCE_TREE ROTATION MIRRORED(0|1)
//
// The program's own cycles, networks and all, on the demo's video, as a camera mounted so would see it; its truth
// turned alike. A face is one whose nose or at least one eye is visible in the truth.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "analysis/FindingsHistory.h"
#include "app/lifecycle/analysis_cycle.h"
#include "app/lifecycle/init_ai.h"
#include "app/lifecycle/startup.h"
#include "app/process_state.h"
#include "platform/clock/clock.h"
#include "platform/workstation/launcher/launch_plan.h"
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

void start() {
  init_parameter_controller();
  if (init_ai() != 0) throw std::runtime_error("the networks cannot be opened");
  init_overlay_manager();
  init_event_manager();
  if (!init_3D()) throw std::runtime_error("the floor does not calibrate");
  init_tracking();
}

struct Run {
  int rotation;
  std::ifstream truth;
  GMainLoop* loop;
  Tally tally;
};

gboolean cycle(gpointer data) {
  auto& run = *static_cast<Run*>(data);
  std::string line;
  if (!std::getline(run.truth, line)) {
    g_main_loop_quit(run.loop);
    return G_SOURCE_REMOVE;
  }
  const TruthPicture truth = parseTruth(line);
  if (truth.time != ticker_clock::now()) throw std::runtime_error("the truth is not of the cycle's time");
  do_one_analysis();
  ++run.tally.cycles;
  const auto sight = workstation::anonymisedView().sightAt(workstation::currentStreamChoice(),
                                                           static_cast<std::uint32_t>(run.rotation),
                                                           workstation::AnonymisedView::Clock::now());
  if (!sight.reason.empty()) {
    ++run.tally.cards;
    return G_SOURCE_CONTINUE;
  }
  for (const Skeleton& person : truth.skeletons) count(person, run.rotation, run.tally);
  return G_SOURCE_CONTINUE;
}

void measure(const fs::path& tree, int rotation, bool mirrored) {
  const fs::path demo = fs::absolute(tree) / "simulator" / "demo";
  std::string folder = (fs::temp_directory_path() / "velmor-privacy-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error(folder + ": cannot be created");
  const std::string camera = folder + "/camera-source.json";
  std::ofstream(camera) << describeCamera(demo, rotation, mirrored);
  workstation::LaunchRequest request;
  request.replay = true;
  request.source = camera;
  request.state = folder;
  const workstation::LaunchPlan plan = workstation::prepareLaunch(request, tree, false);
  for (const auto& [name, value] : plan.environment) setenv(name.c_str(), value.c_str(), 1);
  start();
  Run run{rotation, std::ifstream(demo / "demo.truth.jsonl"), g_main_loop_new(nullptr, FALSE), {}};
  ticker_clock::addTicker(static_cast<guint>(g_main_loop_time), cycle, &run);
  g_main_loop_run(run.loop);
  const Tally& tally = run.tally;
  std::printf(
      "rotation %d, mirrored %d: %d cycles, %d cards, %d true faces, %d outside every mask, of these %d at least "
      "%.0f blocks wide; widest face %.0f px, widest outside %.0f px\n",
      rotation, mirrored ? 1 : 0, tally.cycles, tally.cards, tally.faces, tally.unmasked, tally.seen_coarse,
      kBlocksOfFace, tally.widest_px, tally.widest_unmasked_px);
  fs::remove_all(folder);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: velmor_measure_privacy SOURCE_TREE ROTATION(0|90) MIRRORED(0|1)\n";
    return 2;
  }
  setenv("VELMOR_CLOCK", "replay", 1);
  try {
    measure(argv[1], std::stoi(argv[2]), std::string(argv[3]) == "1");
  } catch (const std::exception& error) {
    std::cerr << "velmor_measure_privacy: " << error.what() << '\n';
    return 1;
  }
  std::fflush(stdout);
  std::_Exit(0);
}
