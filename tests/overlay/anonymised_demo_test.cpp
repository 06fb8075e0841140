// Every analysed frame of the demo on the anonymised views, with the people who are truly there: the camera, the
// program's analysis, its overlay and its trace as they are, only the networks left out.
#include <gtest/gtest.h>
#include <vdostream.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "analysis/FindingsHistory.h"
#include "analysis/detection_processing.h"
#include "app/lifecycle/startup.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "events/event_manager.h"
#include "overlay/overlay_manager.h"
#include "platform/workstation/trace/trace_listener.h"
#include "platform/workstation/views/anonymised_view.h"
#include "platform/workstation/views/overlay_service.h"
#include "platform/workstation/views/own_view.h"
#include "reference/truth.h"
#include "tests/platform/state_folder.h"
#include "tests/platform/viewer_camera.h"
#include "trace/trace_writer.h"

using namespace workstation;

namespace {

const std::string kSource = VELMOR_SOURCE_DIR;
constexpr std::chrono::milliseconds kPeriod{500};

struct Mount {
  std::uint32_t rotation;
  bool mirrored;
  StreamSize stream;
  bool own = false;         ///< the workstation's own view; else the stream that the settings choose
  const char* chosen = "";  ///< by the settings for the own view's test: "", or a size for masks and for findings
};

/// A corner's place on the stream as viewers see it.
Point shownAt(const Point& point, const Mount& mount) {
  const StreamSize shown = shownSize(mount.stream, mount.rotation);
  const auto place = [](int position, int of, std::uint32_t to) {
    return static_cast<int>(static_cast<double>(position) * (to - 1) / (of - 1));
  };
  const int x = place(point.x, g_StreamWidth, shown.width);
  return {mount.mirrored ? static_cast<int>(shown.width) - 1 - x : x, place(point.y, g_StreamHeight, shown.height)};
}

/// The people of the sensor's picture, in the picture that is turned for the analysis.
Skeletons turned(const Skeletons& people, const Mount& mount) {
  Skeletons result;
  for (const Skeleton& person : people) {
    if (!person.hasSuperior) continue;
    Keypoints keypoints = person.keypoints;
    for (auto& [part, keypoint] : keypoints) {
      if (mount.rotation == 90) keypoint.point = {g_StreamWidth - 1 - keypoint.point.y, keypoint.point.x};
    }
    result.emplace_back(keypoints, -1, 1.0F);
  }
  return result;
}

class AnonymisedDemo : public testing::TestWithParam<Mount> {
 protected:
  void SetUp() override {
    ticker_clock::setReplayTime(TimeStamp());
    ticker_clock::setEnd(TimeStamp::max());
    std::ifstream settings(kSource + "/simulator/demo/demo.settings.json");
    nlohmann::json camera = nlohmann::json::parse(settings);
    camera["source"] = kSource + "/simulator/demo/demo.mp4";
    camera["rotation"] = GetParam().rotation;
    camera["mirrored"] = GetParam().mirrored;
    if (GetParam().rotation == 90) turnFloor(camera["parameters"]);
    choose(camera["parameters"]);
    m_folder.write("camera.json", camera.dump());
    setenv("VELMOR_MANIFEST", (kSource + "/package/manifest.json").c_str(), 1);
    init_parameter_controller();
    init_stream_size();
    init_overlay_manager();
    init_event_manager();
    ASSERT_TRUE(init_3D());
    init_tracking();
    openStream();
    g_observer = &m_trace;
    if (GetParam().own) ownView().watch();
  }

  void TearDown() override {
    if (GetParam().own) ownView().leave();
    g_observer = nullptr;
    delete std::exchange(g_EventManager, nullptr);
    g_overlayManager.reset();
  }

  static void choose(nlohmann::json& parameters) {
    const std::string chosen = GetParam().own ? GetParam().chosen : toString(GetParam().stream);
    parameters["AnonOverlaysOn"] = chosen.empty() ? "false" : "true";
    parameters["SelectedAnonOverlay"] = chosen;
    parameters["DetectionOverlaysOn"] = GetParam().own ? parameters["AnonOverlaysOn"] : "false";
    parameters["SelectedDetectionOverlay"] = chosen;
  }

  static void turnFloor(nlohmann::json& parameters) {
    for (const char corner : {'0', '1', '2', '3'}) {
      const std::string name = std::string("FallCalibration") + corner;
      const int y = std::stoi(parameters[name + "y"].get<std::string>());
      parameters[name + "y"] = parameters[name + "x"];
      parameters[name + "x"] = std::to_string(719 - y);
    }
  }

  void openStream() {
    const std::unique_ptr<VdoMap, decltype(&g_object_unref)> stream(vdo_map_new(), &g_object_unref);
    vdo_map_set_uint32(stream.get(), "width", 1280);
    vdo_map_set_uint32(stream.get(), "height", 720);
    vdo_map_set_uint32(stream.get(), "rotation", GetParam().rotation);
    m_stream.reset(vdo_stream_new(stream.get(), nullptr, nullptr));
    vdo_stream_start(m_stream.get(), nullptr);
  }

  void analyse(const TruthPicture& truth) {
    ticker_clock::setReplayTime(truth.time - kPeriod);
    runCycle(
        [&] {
          VdoBuffer* buffer = vdo_stream_get_buffer(m_stream.get(), nullptr);
          vdo_stream_buffer_unref(m_stream.get(), &buffer, nullptr);
          m_trace.cycleBegan();
          g_skeletons = turned(truth.skeletons, GetParam());
          DetectionProcessing::monitor_AOI();
          DetectionProcessing::fallen_detection();
          g_overlayManager->renderFindings();
          m_trace.cycleEnded(true);
        },
        static_cast<guint>(kPeriod.count()));
  }

  static AnonymisedView::Sight sight() {
    const auto [rotation, mirrored, stream, own, chosen] = GetParam();
    const auto now = AnonymisedView::Clock::now();
    return own ? ownView().sightAt(stream, rotation, now)
               : anonymisedView().sightAt(currentStreamChoice(), rotation, now);
  }

  static BgraPicture overlayOf(const AnalysedPicture& picture) {
    const Mount& mount = GetParam();
    return mount.own ? coveringOverlay(picture, mount.stream, {mount.rotation, mount.mirrored}) : *picture.overlay;
  }

  /// Hands the trace on as a live run does.
  struct ToTheViews : TraceSink {
    void take(const std::string& lines) override { tellTraceListener(lines); }
  };

  StateFolder m_folder;
  ToTheViews m_sink;
  TraceWriter m_trace{m_sink};
  std::unique_ptr<VdoStream, decltype(&g_object_unref)> m_stream{nullptr, &g_object_unref};
};

/// The picture's pixels as 0xAARRGGBB, row by row.
std::vector<std::uint32_t> pixelsOf(const BgraPicture& picture) {
  std::vector<std::uint32_t> pixels(picture.bytes.size() / 4);
  std::memcpy(pixels.data(), picture.bytes.data(), picture.bytes.size());
  return pixels;
}

/// How many pixels of a person's box are not what was drawn over them, opaque. Lines of other people and the status
/// text may cross the mask, but let nothing through.
int openPixels(const BgraPicture& picture, const BgraPicture& overlay, const BoundingBox& box, const Mount& mount) {
  const Point a = shownAt(box.topLeft, mount);
  const Point b = shownAt(box.bottomRight, mount);
  const auto shown = pixelsOf(picture);
  const auto drawn = pixelsOf(overlay);
  int open = 0;
  const auto width = static_cast<std::size_t>(picture.width);
  for (int y = std::max(0, a.y); y <= std::min(b.y, picture.height - 1); ++y) {
    for (int x = std::max(0, std::min(a.x, b.x)); x <= std::min(std::max(a.x, b.x), picture.width - 1); ++x) {
      const auto place = static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x);
      if (drawn[place] != (0xFF000000U | shown[place])) ++open;
    }
  }
  return open;
}

/// Whether every block has one colour where nothing was drawn.
bool isCoarse(const BgraPicture& picture, const BgraPicture& overlay, int side) {
  const auto shown = pixelsOf(picture);
  const auto drawn = pixelsOf(overlay);
  const auto block_side = static_cast<std::size_t>(side);
  const auto width = static_cast<std::size_t>(picture.width);
  const std::size_t columns = width / block_side + 1;
  std::vector<std::uint32_t> blocks(columns * (static_cast<std::size_t>(picture.height) / block_side + 1));
  for (std::size_t i = 0; i < shown.size(); ++i) {
    if (drawn[i] >> 24 != 0) continue;
    std::uint32_t& block = blocks[i / width / block_side * columns + i % width / block_side];
    if (block != 0 && block != shown[i]) return false;  // opaque pixels are never 0
    block = shown[i];
  }
  return true;
}

TEST_P(AnonymisedDemo, CoversEveryTrackedPersonAndCoarsensTheRest) {
  const Mount& mount = GetParam();
  std::ifstream truth(kSource + "/simulator/demo/demo.truth.jsonl");
  EXPECT_EQ(sight().picture.frame, nullptr) << "nothing is analysed";
  int pictures = 0;
  int people = 0;
  const DecodedFrame* before = nullptr;
  for (std::string line; std::getline(truth, line); ++pictures) {
    analyse(parseTruth(line));
    const AnonymisedView::Sight seen = sight();
    ASSERT_EQ(seen.reason, "") << "picture " << pictures;
    EXPECT_NE(seen.picture.frame.get(), before) << "the picture of the cycle before";
    before = seen.picture.frame.get();
    const BgraPicture overlay = overlayOf(seen.picture);
    const BgraPicture picture =
        anonymisedPicture(seen.picture.frame->view(), overlay, mount.stream, {mount.rotation, mount.mirrored});
    // Who is covered changes from picture to picture; how it is coarsened does not.
    if (pictures % 6 == 0) {
      EXPECT_TRUE(isCoarse(picture, overlay, blockSide(mount.stream))) << "picture " << pictures;
    }
    for (const int person : g_findingsHistory.getIDs()) {
      const BoundingBox& box = g_findingsHistory.getLatestFinding(person).skeleton.boundingBox;
      EXPECT_EQ(openPixels(picture, overlay, box, mount), 0) << "picture " << pictures;
      ++people;
    }
  }
  EXPECT_EQ(pictures, 183);
  EXPECT_GT(people, pictures);
}

INSTANTIATE_TEST_SUITE_P(Mounted, AnonymisedDemo,
                         testing::Values(Mount{0, false, {1280, 720}}, Mount{90, true, {640, 360}},
                                         Mount{0, false, {800, 450}, true, ""},
                                         Mount{90, true, {1280, 720}, true, "1280x720"}));

}  // namespace
