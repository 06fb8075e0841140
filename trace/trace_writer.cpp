#include "trace/trace_writer.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <exception>
#include <utility>

#include "app/calibration_params.h"
#include "app/detection_params.h"
#include "app/floor_params.h"
#include "app/initial_params.h"
#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "events/event_manager.h"
#include "events/event_names.h"
#include "geometry/distance_controller.h"
#include "pose/BodypixPoseEstimator.h"
#include "trace/person_record.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;
constexpr int kNobody = -1;

/// While it lives, developer mode's log lines are not written: rules are asked a second time here.
class Quiet {
 public:
  Quiet() { g_IsDevMode = false; }
  ~Quiet() { g_IsDevMode = m_before; }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  const bool m_before = g_IsDevMode;
};

Json pointsOf(const Skeleton& skeleton) {
  Json points = Json::array();
  for (const auto& [part, keypoint] : skeleton.keypoints) {
    points.push_back({keypoint.point.x, keypoint.point.y, numberOf(keypoint.score)});
  }
  return points;
}

Json poseRecord(int number, const Skeleton& skeleton) {
  return {{"n", number}, {"score", numberOf(skeleton.score)}, {"points", pointsOf(skeleton)}};
}

Json dropped(const char* rule, float value, float limit) {
  return {{"rule", rule}, {"value", numberOf(value)}, {"limit", numberOf(limit)}};
}

Json droppedFor(const Rejection& rejection) {
  static constexpr std::array kRules{"no place", "too small", "too large", "turned", "upside down at the top"};
  const char* rule = kRules[static_cast<std::size_t>(rejection.rule)];
  if (rejection.rule == Rejection::Rule::noPlace) return {{"rule", rule}};
  return dropped(rule, rejection.value, rejection.limit);
}

std::int64_t nanoseconds(TimeStamp time) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

}  // namespace

template <typename Step>
void TraceWriter::guarded(Step step) {
  if (m_has_ended) return;
  try {
    step();
  } catch (const std::exception& error) {
    m_has_ended = true;
    syslog(LOG_ERR, "The trace ends here, the analysis goes on: %s", error.what());
  }
}

int TraceWriter::numberAt(std::size_t index) const { return index < m_list.size() ? m_list[index] : kNobody; }

void TraceWriter::removeAt(std::size_t index) {
  if (index < m_list.size()) m_list.erase(m_list.begin() + static_cast<std::ptrdiff_t>(index));
}

Json* TraceWriter::findPose(int number) {
  for (Json& run : m_cycle["runs"]) {
    for (Json& pose : run["poses"]) {
      if (pose["n"] == number) return &pose;
    }
  }
  return nullptr;
}

bool TraceWriter::isDropped(int number) {
  const Json* pose = findPose(number);
  return pose != nullptr && pose->contains("dropped");
}

void TraceWriter::cycleBegan() {
  guarded([&] {
    m_time = ticker_clock::now();
    if (m_cycles == 0) m_begin = ticker_clock::isReplay() ? TimeStamp() : m_time;
    ++m_cycles;
    writeHeader();
    m_cycle = {{"kind", "cycle"},
               {"ns", nanoseconds(m_time)},
               {"t", std::chrono::duration<double>(m_time - m_begin).count()},
               {"number", m_cycles}};
    m_next = 0;
    m_valid.clear();
    m_list.clear();
    m_overlapping.clear();
    m_tracked.clear();
    for (const char* list : {"runs", "fusion", "filtered", "suppressed", "tracks", "forgotten", "people", "beds"}) {
      m_cycle[list] = Json::array();
    }
    m_cycle["fallen"] = nullptr;
  });
}

void TraceWriter::cycleEnded(bool completed) {
  guarded([&] {
    writeSettings();
    if (completed) {
      addEvents();
    } else {
      m_cycle = {{"kind", "cycle"}, {"ns", m_cycle["ns"]}, {"t", m_cycle["t"]}, {"number", m_cycles}, {"failed", true}};
    }
    if (g_StatusCode != 0) m_cycle["status"] = g_StatusCode;
    write(m_cycle);
  });
}

void TraceWriter::posesDecoded(int rotation, int width, int height, const std::vector<Skeleton>& poses,
                               std::size_t counted, float limit) {
  guarded([&] {
    const Quiet quiet;
    m_last_rotation = rotation;
    std::vector<int>& valid = m_valid[rotation];
    Json records = Json::array();
    for (std::size_t i = 0; i < poses.size(); ++i) {
      const int number = m_next++;
      Json record = poseRecord(number, poses[i]);
      if (i >= counted) {
        record["dropped"] = dropped("pose score", poses[i].score, limit);
      } else if (const auto rejection = poses[i].findRejection(width, height)) {
        record["dropped"] = droppedFor(*rejection);
      } else {
        valid.push_back(number);
      }
      records.push_back(std::move(record));
    }
    m_cycle["runs"].push_back(
        {{"rotation", rotation}, {"size", {width, height}}, {"limit", numberOf(limit)}, {"poses", std::move(records)}});
  });
}

void TraceWriter::personChecked(std::size_t index, float score, bool confirmed) {
  guarded([&] {
    std::vector<int>& valid = m_valid[m_last_rotation];
    if (index >= valid.size()) return;
    Json* pose = findPose(valid[index]);
    if (pose == nullptr) return;
    (*pose)["confirmation"] = numberOf(score);
    if (!confirmed) (*pose)["dropped"] = dropped("not confirmed", score, g_CalibrationParams.f_Sensitivity);
  });
}

void TraceWriter::confirmationFailed() {
  guarded([&] { m_cycle["confirmation"] = "no picture"; });
}

void TraceWriter::fusionBegan(const std::vector<Skeleton>& all) {
  guarded([&] {
    std::map<int, std::size_t> taken;
    m_list.clear();
    for (const Skeleton& skeleton : all) {
      const std::vector<int>& run = m_valid[skeleton.detectorRotation];
      std::size_t& next = taken[skeleton.detectorRotation];
      while (next < run.size() && isDropped(run[next])) ++next;
      m_list.push_back(next < run.size() ? run[next++] : kNobody);
    }
  });
}

void TraceWriter::pairFused(std::size_t first, std::size_t second, float distance, const Skeleton& fused) {
  guarded([&] {
    const int made = m_next++;
    Json record = poseRecord(made, fused);
    Json step = {{"of", {numberAt(first), numberAt(second)}}, {"distance", numberOf(distance)}, {"made", made}};
    step["score"] = std::move(record["score"]);
    step["points"] = std::move(record["points"]);
    m_cycle["fusion"].push_back(std::move(step));
    removeAt(second);
    removeAt(first);
    m_list.push_back(made);
  });
}

void TraceWriter::pairReduced(std::size_t first, std::size_t second, float distance, std::size_t dropped) {
  guarded([&] {
    m_cycle["fusion"].push_back({{"of", {numberAt(first), numberAt(second)}},
                                 {"distance", numberOf(distance)},
                                 {"dropped", numberAt(dropped)}});
    removeAt(dropped);
  });
}

void TraceWriter::fusedFiltered(const std::vector<Skeleton>& all, float limit) {
  guarded([&] {
    std::vector<int> kept;
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (!(all[i].score > limit)) {
        Json record = dropped("score", all[i].score, limit);
        record["n"] = numberAt(i);
        m_cycle["filtered"].push_back(std::move(record));
      } else if (!all[i].hasSuperior) {
        m_cycle["filtered"].push_back({{"rule", "no top"}, {"n", numberAt(i)}});
      } else {
        kept.push_back(numberAt(i));
      }
    }
    m_list = std::move(kept);
  });
}

void TraceWriter::overlapFound(std::size_t smaller, std::size_t larger, float share, float limit) {
  guarded([&] {
    m_overlapping.try_emplace(smaller, Json{{"n", numberAt(smaller)},
                                            {"by", numberAt(larger)},
                                            {"share", numberOf(share)},
                                            {"limit", numberOf(limit)}});
  });
}

void TraceWriter::leaveOverlapping() {
  std::size_t gone = 0;
  for (auto& [index, record] : m_overlapping) {
    removeAt(index - gone++);
    m_cycle["suppressed"].push_back(std::move(record));
  }
  m_overlapping.clear();
}

void TraceWriter::personTracked(int id, std::size_t index, float distance) {
  guarded([&] {
    leaveOverlapping();
    m_tracked[id] = numberAt(index);
    m_cycle["tracks"].push_back(
        {{"id", id}, {"n", numberAt(index)}, {"distance", numberOf(distance)}, {"age", ++m_ages[id]}});
  });
}

void TraceWriter::personAppeared(int id, std::size_t index) {
  guarded([&] {
    leaveOverlapping();
    m_tracked[id] = numberAt(index);
    m_ages[id] = 1;
    m_cycle["tracks"].push_back({{"id", id}, {"n", numberAt(index)}, {"new", true}, {"age", 1}});
  });
}

void TraceWriter::personMissing(int id, int cycles) {
  guarded([&] { m_cycle["tracks"].push_back({{"id", id}, {"missing", cycles}, {"age", ++m_ages[id]}}); });
}

void TraceWriter::personForgotten(int id) {
  guarded([&] {
    m_cycle["forgotten"].push_back(id);
    m_ages.erase(id);
  });
}

void TraceWriter::personJudged(const std::deque<one_find>& findings, std::size_t depth) {
  guarded([&] {
    const Quiet quiet;
    Json person = personRecord(findings, depth);
    if (const auto tracked = m_tracked.find(findings.back().id); tracked != m_tracked.end()) {
      person["n"] = tracked->second;
    }
    m_cycle["people"].push_back(std::move(person));
  });
}

void TraceWriter::bedsWatched(const bool (&occupied)[3], int empty_cycles, int limit) {
  guarded([&] {
    leaveOverlapping();
    const std::array used{g_DetectionParams.b_Detection1Active, g_DetectionParams.b_Detection2Active,
                          g_DetectionParams.b_Detection3Active};
    for (std::size_t i = 0; i < used.size(); ++i) {
      if (!used[i]) continue;
      const std::size_t area = i + 1;
      Json bed = {{"area", area}, {"occupied", occupied[i]}};
      for (const Json& person : m_cycle["people"]) {
        if (person["footing"] == "bed" && person["area"] == area && !bed.contains("by")) bed["by"] = person["id"];
      }
      m_cycle["beds"].push_back(std::move(bed));
    }
    m_cycle["out_of_bed"] = {{"cycles", empty_cycles}, {"limit", limit}};
  });
}

void TraceWriter::fallFound(int id) {
  guarded([&] { m_cycle["fallen"] = id; });
}

void TraceWriter::addEvents() {
  Json events = Json::array();
  for (const char* name : kEvents) {
    const bool active = g_EventManager->isEventStarted(name);
    events.push_back({{"name", name}, {"active", active}});
    if (std::exchange(m_active[name], active) != active) events.back()["changed"] = true;
  }
  m_cycle["events"] = std::move(events);
}

void TraceWriter::writeHeader() {
  if (std::exchange(m_has_header, true)) return;
  Json parts = Json::array();
  for (const BodyPart part : BodyParts) parts.push_back(bodyPartToName(part));
  write({{"kind", "trace"},
         {"version", kVersion},
         {"program", g_app_name + " " + VELMOR_VERSION},
         {"picture", {g_StreamWidth, g_StreamHeight}},
         {"rotation", g_ParameterController.get_rotation()},
         {"product_name", g_ParameterController.findProdShortName()},
         {"focal_length_um", g_DistanceController.focalLengthInUse()},
         {"replay", ticker_clock::isReplay()},
         {"period_ms", g_main_loop_time},
         {"decoder_threshold", numberOf(BodypixPoseEstimator::kDecoderThreshold)},
         {"parts", std::move(parts)}});
}

void TraceWriter::writeSettings() {
  std::map<std::string, std::string> settings =
      textsOf(g_CalibrationParams, g_InitialParams, g_DetectionParams, g_FloorParams);
  if (settings == m_settings) return;
  m_settings = std::move(settings);
  write({{"kind", "settings"}, {"ns", nanoseconds(m_time)}, {"parameters", m_settings}});
}

void TraceWriter::write(const Json& line) {
  m_sink.take(line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

void TraceWriter::runEnded() {
  guarded([&] {
    writeHeader();
    write({{"kind", "end"}, {"ns", nanoseconds(ticker_clock::now())}, {"cycles", m_cycles}});
    m_has_ended = true;
  });
}

namespace {

TraceWriter* the_writer = nullptr;

}  // namespace

void startTrace() {
  TraceSink* sink = openTraceSink();
  if (sink == nullptr) return;
  static TraceWriter writer(*sink);
  the_writer = &writer;
  g_observer = &writer;
}

void endTrace() {
  if (the_writer != nullptr) the_writer->runEnded();
}
