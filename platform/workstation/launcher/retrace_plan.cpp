#include "platform/workstation/launcher/retrace_plan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "platform/workstation/decoding/video_source.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kVersion = 1;
/// Header and settings take some thousand bytes, a cycle of a full room 60 KB.
constexpr std::size_t kLongestLine = std::size_t{4} << 20;
constexpr std::array kPictureKeys{"LandscapeModelFileName", "PortraitModelFileName", "mobilenetModelFileName",
                                  "mobilenetModelWidth",    "mobilenetModelHeight",  "LarodChipType"};

/// The first lines of a trace.
class Opening {
 public:
  explicit Opening(const std::string& path) : m_path(path), m_file(path, std::ios::binary), m_buffer(kLongestLine) {
    if (!m_file) throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
  }

  /// The next line's object.
  json next() {
    ++m_line;
    m_file.getline(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
    if (m_file.eof() && m_file.gcount() == 0) refuse("is missing; header, settings and cycles make a trace");
    if (m_file.eof() || m_file.fail()) refuse("is cut off; each line of a trace ends with a line feed");
    json object = json::parse(m_buffer.data(), nullptr, false);
    if (!object.is_object()) refuse("is not a line of a trace; allowed is one JSON object");
    return object;
  }

  [[nodiscard]] std::string place() const { return m_path + " line " + std::to_string(m_line); }

  [[noreturn]] void refuse(const std::string& why) const { throw std::runtime_error(place() + ": " + why); }

 private:
  const std::string m_path;
  std::ifstream m_file;
  std::vector<char> m_buffer;
  int m_line = 0;
};

bool isOfKind(const json& line, const char* kind) { return line.contains("kind") && line["kind"] == kind; }

void checkHeader(const json& header, const Opening& opening) {
  if (!isOfKind(header, "trace") || !header.contains("version")) {
    opening.refuse("is not the header of a trace; allowed is {\"kind\": \"trace\", \"version\": 1, ...}");
  }
  if (header["version"] != kVersion) {
    opening.refuse("is of version " + header["version"].dump() + "; allowed is " + std::to_string(kVersion));
  }
}

/// Some keys of a line as a camera's description, checked as one.
CameraDescription describedBy(const json& line, std::initializer_list<const char*> keys, const Opening& opening,
                              const std::string& source) {
  json description = {{"source", source}};
  for (const char* key : keys) {
    if (!line.contains(key)) opening.refuse(std::string("\"") + key + "\" is missing");
    description[key] = line[key];
  }
  return parseCameraDescription(description.dump(-1, ' ', false, json::error_handler_t::replace), opening.place());
}

}  // namespace

bool isTraceReplay(const LaunchRequest& request) {
  if (!request.replay || request.model || !request.source || isUri(*request.source)) return false;
  std::error_code error;
  if (!fs::is_regular_file(*request.source, error)) return false;
  std::ifstream file(*request.source, std::ios::binary);
  if (file.peek() != '{') return false;
  // A camera's description begins so, too.
  if (fs::path(*request.source).extension() != ".json") return true;
  std::string line(kLongestLine, '\0');
  file.getline(line.data(), static_cast<std::streamsize>(line.size()));
  const json header = json::parse(line.c_str(), nullptr, false);
  return header.is_object() && isOfKind(header, "trace");
}

std::string pictureKeyIn(const ParameterGroup& group) {
  const auto key = std::find_if(kPictureKeys.begin(), kPictureKeys.end(),
                                [&group](const char* known) { return group.contains(known); });
  return key == kPictureKeys.end() ? "" : *key;
}

RecordedCamera recordedCamera(const std::string& trace) {
  const std::string source = fs::absolute(trace).lexically_normal().string();
  Opening opening(trace);
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
  recorded.was_live = header.contains("replay") && header["replay"] == false;
  return recorded;
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
