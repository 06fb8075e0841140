// The files of a recording: video, truth, settings.
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "simulator/stories/area.h"
#include "simulator/stories/scenario.h"

namespace simulator {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr const char* kH264 =
    "video/x-raw,format=I420 ! x264enc pass=qual quantizer=21 speed-preset=slow key-int-max=40 threads=2 ! "
    "mp4mux faststart=true";
constexpr const char* kPng = "video/x-raw,format=RGB ! pngenc snapshot=true";

/// Encodes pictures of one size into a file.
class VideoFile {
 public:
  VideoFile(const std::filesystem::path& file, const std::string& encoder, int width, int height, int framesPerSecond)
      : m_rate(framesPerSecond) {
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    const std::string pipeline =
        "appsrc name=in format=time max-bytes=0 ! videoconvert ! " + encoder + " ! filesink name=out";
    m_pipeline = gst_parse_launch_full(pipeline.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error);
    if (m_pipeline == nullptr) {
      const std::string why = error != nullptr ? error->message : "unknown error";
      g_clear_error(&error);
      throw std::runtime_error("cannot encode video (" + why + "): install gstreamer1.0-plugins-ugly");
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(m_pipeline), "out");
    g_object_set(sink, "location", file.c_str(), nullptr);
    gst_object_unref(sink);
    m_source = gst_bin_get_by_name(GST_BIN(m_pipeline), "in");
    GstCaps* caps =
        gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "RGB", "width", G_TYPE_INT, width, "height",
                            G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, m_rate, 1, nullptr);
    gst_app_src_set_caps(GST_APP_SRC(m_source), caps);
    gst_caps_unref(caps);
    gst_element_set_state(m_pipeline, GST_STATE_PLAYING);
  }

  ~VideoFile() {
    gst_element_set_state(m_pipeline, GST_STATE_NULL);
    gst_object_unref(m_source);
    gst_object_unref(m_pipeline);
  }
  VideoFile(const VideoFile&) = delete;
  VideoFile& operator=(const VideoFile&) = delete;

  void add(const Picture& picture) {
    failOnError(0);
    while (gst_app_src_get_current_level_bytes(GST_APP_SRC(m_source)) > kMostWaiting) failOnError(5 * GST_MSECOND);
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, picture.rgb.size(), nullptr);
    gst_buffer_fill(buffer, 0, picture.rgb.data(), picture.rgb.size());
    const auto rate = static_cast<guint64>(m_rate);
    GST_BUFFER_PTS(buffer) = gst_util_uint64_scale(m_count, GST_SECOND, rate);
    GST_BUFFER_DURATION(buffer) = GST_SECOND / rate;
    ++m_count;
    if (gst_app_src_push_buffer(GST_APP_SRC(m_source), buffer) != GST_FLOW_OK)
      throw std::runtime_error("the video encoder stopped");
  }

  void finish() {
    gst_app_src_end_of_stream(GST_APP_SRC(m_source));
    GstBus* bus = gst_element_get_bus(m_pipeline);
    GstMessage* message =
        gst_bus_timed_pop_filtered(bus, kLongestEnd, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool late = message == nullptr;
    const bool good = !late && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (!late) gst_message_unref(message);
    gst_object_unref(bus);
    if (late) throw std::runtime_error("the video encoder did not come to an end within half an hour");
    if (!good) throw std::runtime_error("the video could not be written: is there room on the disk?");
  }

 private:
  /// The encoder looks ahead, so that the last pictures of a dark, noisy room keep a busy machine for minutes.
  static constexpr GstClockTime kLongestEnd = 1800 * GST_SECOND;
  static constexpr guint64 kMostWaiting = 30'000'000;  ///< bytes of pictures that the encoder has not taken yet

  /// A failed encoder takes no more pictures, so that waiting for it must end here.
  void failOnError(GstClockTime patience) {
    GstBus* bus = gst_element_get_bus(m_pipeline);
    GstMessage* message = gst_bus_timed_pop_filtered(bus, patience, GST_MESSAGE_ERROR);
    gst_object_unref(bus);
    if (message == nullptr) return;
    gst_message_unref(message);
    throw std::runtime_error("the video encoder failed: is there room on the disk?");
  }

  int m_rate;
  guint64 m_count = 0;
  GstElement* m_pipeline = nullptr;
  GstElement* m_source = nullptr;
};

/// An area's corners, and that it is in use.
void putArea(ordered_json& parameters, const std::string& name, const Area& area) {
  for (std::size_t k = 0; k < area.size(); ++k) {
    parameters[name + std::to_string(k) + "x"] = std::to_string(std::lround(area[k].x));
    parameters[name + std::to_string(k) + "y"] = std::to_string(std::lround(area[k].y));
  }
  parameters[name + "Active"] = "true";
}

/// What the camera's sensor delivers of the scene that the renderer has drawn.
Picture sensorPicture(const Scenario& scenario, const Scene& scene, const Renderer& renderer, int frame) {
  Picture picture = asMounted(renderer.picture(), scenario.rotation);
  addNoise(picture, scene.noise, !scene.light.infrared, static_cast<std::uint32_t>(frame) + 1);
  return picture;
}

/// As a double, so that it is written with one decimal.
double tenths(float value) { return std::round(static_cast<double>(value) * 10) / 10; }

}  // namespace

std::string truthLine(const Scene& scene, const std::vector<TrueKeypoints>& truth, double time) {
  ordered_json people = ordered_json::array();
  for (std::size_t i = 0; i < truth.size(); ++i) {
    ordered_json keypoints = ordered_json::array();
    for (const TrueKeypoint& keypoint : truth[i]) {
      keypoints.push_back({tenths(keypoint.x), tenths(keypoint.y), static_cast<int>(keypoint.visibility)});
    }
    const Person& person = scene.people[i];
    people.push_back({{"id", person.id},
                      {"in_bed", person.inBed},
                      {"standing", person.standing},
                      {"lying_on_floor", person.lyingOnFloor},
                      {"keypoints", keypoints}});
  }
  return json{{"t", time}, {"people", people}}.dump();
}

std::string settingsText(const Scenario& scenario, BedArea bedArea) {
  const Scene& scene = scenario.scene;
  ordered_json parameters;
  const auto put = [&](const std::string& name, float value) { parameters[name] = std::to_string(std::lround(value)); };
  for (std::size_t i = 0; i < scene.room.beds.size(); ++i) {
    const auto draw = bedArea == BedArea::kVolume ? volumeArea : mattressArea;
    putArea(parameters, "Detection" + std::to_string(i + 1), draw(scene.camera, scene.room.beds[i]));
  }
  for (std::size_t i = 0; i < scenario.exclusions.size(); ++i) {
    putArea(parameters, "Exclusion" + std::to_string(i + 1), areaOf(scene.camera, scenario.exclusions[i]));
  }
  const std::array<glm::vec2, 4> points = scenario.floor.corners();
  for (std::size_t k = 0; k < points.size(); ++k) {
    const glm::vec3 seen = scene.camera.project({points[k], 0});
    put("FallCalibration" + std::to_string(k) + "x", seen.x);
    put("FallCalibration" + std::to_string(k) + "y", seen.y);
  }
  parameters["WRectM"] = std::to_string(scenario.floor.width);
  parameters["HRectM"] = std::to_string(scenario.floor.depth);
  const ordered_json settings = {{"product_name", scenario.productName},
                                 {"focal_length_um", scenario.optics.focalLength},
                                 {"rotation", scenario.rotation},
                                 {"parameters", parameters}};
  return settings.dump(2) + "\n";
}

namespace {

void tell(const Scenario& scenario, const std::filesystem::path& folder, const std::string& name) {
  std::filesystem::create_directories(folder);
  std::ofstream settings(folder / (name + ".settings.json"));
  std::ofstream mattress(folder / (name + ".mattress.settings.json"));
  std::ofstream happened(folder / (name + ".happened.txt"));
  const bool written = (settings << settingsText(scenario)).flush() &&
                       (mattress << settingsText(scenario, BedArea::kMattress)).flush() &&
                       (happened << happenedText(scenario)).flush();
  if (!written) throw std::runtime_error("cannot write into " + folder.string());
}

}  // namespace

void record(const Scenario& scenario, const std::filesystem::path& folder, const std::string& name, Extent extent) {
  tell(scenario, folder, name);
  if (extent == Extent::kTold) return;
  std::ofstream truth(folder / (name + ".truth.jsonl"));
  if (!truth) throw std::runtime_error("cannot write into " + folder.string());
  const bool withVideo = extent == Extent::kVideo;
  const Camera& camera = scenario.scene.camera;
  const int width = std::max(camera.width, camera.height), height = std::min(camera.width, camera.height);
  std::optional<VideoFile> video;
  if (withVideo) video.emplace(folder / (name + ".mp4"), kH264, width, height, scenario.framesPerSecond);
  Renderer renderer;
  const int frames = static_cast<int>(scenario.seconds * static_cast<float>(scenario.framesPerSecond));
  const int analysed = scenario.framesPerSecond / 2;
  for (int frame = 0; frame < frames; frame += withVideo ? 1 : analysed) {
    const double time = static_cast<double>(frame) / scenario.framesPerSecond;
    const Scene scene = scenario.at(static_cast<float>(time));
    const std::vector<TrueKeypoints> people = scene.draw(renderer);
    if (video) video->add(sensorPicture(scenario, scene, renderer, frame));
    if (frame > 0 && frame % analysed == 0) truth << truthLine(scene, people, time) << '\n';
    if (frame % 100 == 0) std::cerr << name << ": " << frame << " of " << frames << " pictures\n";
  }
  if (video) video->finish();
  if (!truth.flush()) throw std::runtime_error("cannot write all of " + folder.string());
}

void writePicture(const Scenario& scenario, float time, const std::filesystem::path& file) {
  Renderer renderer;
  const Scene scene = scenario.at(time);
  scene.draw(renderer);
  const int frame = static_cast<int>(std::lround(time * static_cast<float>(scenario.framesPerSecond)));
  const Picture picture = sensorPicture(scenario, scene, renderer, frame);
  VideoFile png(file, kPng, picture.width, picture.height, 1);
  png.add(picture);
  png.finish();
}

}  // namespace simulator
