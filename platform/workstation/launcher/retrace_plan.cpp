#include "platform/workstation/launcher/retrace_plan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/system/shown_text.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kVersion = 1;
/// Header and settings take some thousand bytes, a cycle of a full room 60 KB.
constexpr std::size_t kLongestLine = std::size_t{4} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::array kPictureKeys{"LandscapeModelFileName", "PortraitModelFileName", "mobilenetModelFileName",
                                  "mobilenetModelWidth",    "mobilenetModelHeight",  "LarodChipType"};

/// The lines of a trace.
class TraceLines {
 public:
  explicit TraceLines(const std::string& path) : m_path(path), m_file(path, std::ios::binary), m_buffer(kLongestLine) {
    if (!m_file) throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
  }

  /// The next line's object.
  json next() {
    ++m_line;
    m_file.getline(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
    if (m_file.eof() && m_file.gcount() == 0) refuse("is missing; header, settings and cycles make a trace");
    if (m_file.eof() || m_file.fail()) refuse("is cut off; each line of a trace ends with a line feed");
    if (std::string_view(m_buffer.data()).starts_with(kByteOrderMark)) {
      refuse("begins with a byte order mark; save it without");
    }
    json object = json::parse(m_buffer.data(), nullptr, false);
    if (!object.is_object()) refuse("is not a line of a trace; allowed is one JSON object");
    return object;
  }

  /// The next line's object, none at the end or where a line is bad.
  std::optional<json> more() {
    ++m_line;
    if (!m_file.getline(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size())) || m_file.eof()) return {};
    json object = json::parse(m_buffer.data(), nullptr, false);
    return object.is_object() ? std::optional(std::move(object)) : std::nullopt;
  }

  [[nodiscard]] int line() const { return m_line; }
  [[nodiscard]] std::string place() const { return m_path + " line " + std::to_string(m_line); }

  [[noreturn]] void refuse(const std::string& why) const { throw std::runtime_error(place() + ": " + why); }

 private:
  const std::string m_path;
  std::ifstream m_file;
  std::vector<char> m_buffer;
  int m_line = 0;
};

bool isOfKind(const json& line, const char* kind) { return line.contains("kind") && line["kind"] == kind; }

void checkHeader(const json& header, const TraceLines& opening) {
  if (!isOfKind(header, "trace") || !header.contains("version")) {
    opening.refuse(
        "is not the header of a trace, and no camera's description (*.json); allowed is {\"kind\": \"trace\", "
        "\"version\": 1, ...}");
  }
  if (header["version"] != kVersion) {
    opening.refuse("is of version " + header["version"].dump() + "; allowed is " + std::to_string(kVersion));
  }
}

/// Some keys of a line as a camera's description, checked as one.
CameraDescription describedBy(const json& line, std::initializer_list<const char*> keys, const TraceLines& opening,
                              const std::string& source) {
  json description = {{"source", source}};
  for (const char* key : keys) {
    if (!line.contains(key)) opening.refuse(std::string("\"") + key + "\" is missing");
    description[key] = line[key];
  }
  return parseCameraDescription(description.dump(-1, ' ', false, json::error_handler_t::replace), opening.place());
}

/// Follows the cycles' numbers: the first place from which on a replay knows less than the run did.
class Continuity {
 public:
  explicit Continuity(std::string trace) : m_trace(std::move(trace)) {}

  void take(const json& line, int place) {
    if (isOfKind(line, "missing")) {
      const json lines = line.value("lines", json());
      note(m_trace + ": " + (lines.is_number_unsigned() ? lines.dump() + " lines" : "lines") + " are missing", place);
    }
    const json number = line.value("number", json());
    if (!isOfKind(line, "cycle") || !number.is_number_unsigned()) return;
    if (m_last == 0 && number != 1 && m_problem.empty()) {
      m_problem = m_trace + " begins at cycle " + number.dump() +
                  " of its run: what was known before is not in it, events may differ from what was told then";
    } else if (m_last != 0 && number != m_last + 1) {
      note(m_trace + ": cycle " + number.dump() + " follows cycle " + std::to_string(m_last), place);
    }
    m_last = number;
  }

  [[nodiscard]] const std::string& problem() const { return m_problem; }

 private:
  void note(const std::string& what, int place) {
    if (!m_problem.empty()) return;
    m_problem =
        what + " at line " + std::to_string(place) + ": from there on events may differ from what was told then";
  }

  const std::string m_trace;
  std::uint64_t m_last = 0;
  std::string m_problem;
};

std::optional<double> secondsIn(const json& line) {
  const json ns = line.value("ns", json());
  return ns.is_number_integer() ? std::optional(static_cast<double>(ns.get<std::int64_t>()) / 1e9) : std::nullopt;
}

/// The alarms that begin with a cycle, at the cycle's time: events are sent once it has been computed, which is later.
void takeAlarms(const json& cycle, std::vector<Alarm>& alarms) {
  const auto time = secondsIn(cycle);
  const json events = cycle.value("events", json());
  if (!time || !events.is_array()) return;
  for (const json& event : events) {
    if (!event.is_object() || event.value("changed", json()) != true || event.value("active", json()) != true) continue;
    if (const json name = event.value("name", json()); name.is_string()) alarms.push_back({shown(name), *time});
  }
}

}  // namespace

bool isTraceFile(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string line(kLongestLine, '\0');
  stream.getline(line.data(), static_cast<std::streamsize>(line.size()));
  const json header = json::parse(line.c_str(), nullptr, false);
  return header.is_object() && isOfKind(header, "trace");
}

bool isTraceReplay(const LaunchRequest& request) {
  if (!request.replay || request.model || !request.source || isUri(*request.source)) return false;
  std::error_code error;
  if (!fs::is_regular_file(*request.source, error)) return false;
  std::ifstream file(*request.source, std::ios::binary);
  std::string begin(kByteOrderMark.size(), '\0');
  file.read(begin.data(), static_cast<std::streamsize>(begin.size()));
  if (begin.front() != '{' && begin != kByteOrderMark) return false;
  // A camera's description begins so, too.
  return fs::path(*request.source).extension() != ".json" || isTraceFile(*request.source);
}

std::string pictureKeyIn(const ParameterGroup& group) {
  const auto key = std::find_if(kPictureKeys.begin(), kPictureKeys.end(),
                                [&group](const char* known) { return group.contains(known); });
  return key == kPictureKeys.end() ? "" : *key;
}

RecordedCamera recordedCamera(const std::string& trace) {
  const std::string source = fs::absolute(trace).lexically_normal().string();
  TraceLines opening(trace);
  const json header = opening.next();
  checkHeader(header, opening);
  RecordedCamera recorded{describedBy(header, {"rotation", "product_name", "focal_length_um"}, opening, source), ""};
  json settings = opening.next();
  while (!isOfKind(settings, "settings")) {
    if (isOfKind(settings, "cycle")) opening.refuse("comes before the settings; a trace has them after its header");
    settings = opening.next();
  }
  recorded.camera.parameters = describedBy(settings, {"parameters"}, opening, source).parameters;
  recorded.settings_place = opening.place();
  return recorded;
}

RecordedRun recordedRun(const std::string& trace, const fs::path& manifest) {
  RecordedRun run;
  TraceLines lines(trace);
  Continuity continuity(trace);
  bool is_live = false;
  bool has_begun = false;
  while (const auto line = lines.more()) {
    continuity.take(*line, lines.line());
    if (isOfKind(*line, "trace")) is_live = line->value("replay", json()) == false;
    if (isOfKind(*line, "cycle")) takeAlarms(*line, run.told);
    if (isOfKind(*line, "settings") && has_begun) {
      checkRecorded(describedBy(*line, {"parameters"}, lines, trace).parameters, manifest, lines.place());
    }
    if (!isOfKind(*line, "cycle") || std::exchange(has_begun, true)) continue;
    run.begin_s = is_live ? secondsIn(*line).value_or(0) : 0;
  }
  for (Alarm& alarm : run.told) alarm.begin -= run.begin_s;
  run.inexact = continuity.problem();
  return run;
}

void checkTraceReplay(const LaunchRequest& request) {
  for (const auto& [option, value] : {std::pair{"--settings", &request.settings}, {"--truth", &request.truth}}) {
    if (*value) throw UsageError(std::string(option) + " is for a video; a trace has its own, --set changes settings");
  }
  if (request.state) throw UsageError("--state is for a video; the replay of a trace keeps nothing");
  for (const ParameterGroup& group : request.sets) {
    const std::string key = pictureKeyIn(group);
    if (!key.empty()) throw UsageError(key + " needs the picture again: replay the video instead");
  }
}

}  // namespace workstation
