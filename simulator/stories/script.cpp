// Reads a scenario's script and says what is wrong with it.
#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <glm/gtc/constants.hpp>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "simulator/stories/scenario.h"

namespace simulator {
namespace {

using nlohmann::json;

constexpr std::uintmax_t kLargestScript = std::uintmax_t{1} << 20;  // bytes
constexpr float kLongest = 3600;                                    // seconds
constexpr float kFarAway = 20;                                      // metres

/// A range as a message names it: "from 0.1 to 5".
std::string range(float low, float high) {
  std::ostringstream text;
  text << "from " << low << " to " << high;
  return text.str();
}

/// A value of the script together with where it stands, "people[0].keys[3].at", so that each message can say so.
class Field {
 public:
  Field(const std::string& file, std::string path, const json& value)
      : m_file(file), m_path(std::move(path)), m_value(value) {}

  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error(m_file + ": " + (m_path.empty() ? "" : m_path + ": ") + what);
  }

  /// The value must be an object with no other keys than these.
  void expectKeys(std::initializer_list<std::string_view> keys) const {
    if (!m_value.is_object()) refuse("an object");
    std::string known;
    for (const std::string_view key : keys) known.append(known.empty() ? "" : ", ").append(key);
    for (const auto& [key, value] : m_value.items()) {
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        Field(m_file, join(key), value).fail("is not known here; allowed are " + known);
      }
    }
  }

  bool has(const char* key) const { return m_value.contains(key); }

  Field operator[](const char* key) const {
    const auto found = m_value.find(key);
    if (found == m_value.end()) Field(m_file, join(key), m_value).fail("is missing");
    return {m_file, join(key), *found};
  }

  float number(float low, float high) const {
    if (!isNumber(m_value, low, high)) refuse("a number " + range(low, high));
    return m_value.get<float>();
  }

  unsigned whole(unsigned low, unsigned high) const {
    if (!m_value.is_number_integer() || m_value < low || m_value > high) {
      refuse("a whole number " + range(static_cast<float>(low), static_cast<float>(high)));
    }
    return m_value.get<unsigned>();
  }

  template <std::size_t count>
  std::array<float, count> numbers(float low, float high) const {
    const bool good =
        m_value.is_array() && m_value.size() == count &&
        std::all_of(m_value.begin(), m_value.end(), [&](const json& item) { return isNumber(item, low, high); });
    if (!good) refuse("a list of " + std::to_string(count) + " numbers " + range(low, high));
    return m_value.get<std::array<float, count>>();
  }

  bool yesOrNo() const {
    if (!m_value.is_boolean()) refuse("true or false");
    return m_value.get<bool>();
  }

  std::string text() const {
    if (!m_value.is_string() || m_value.get_ref<const std::string&>().empty()) refuse("a text that is not empty");
    return m_value.get<std::string>();
  }

  /// A text as one line; "" for anything else.
  std::string line() const {
    std::string text = m_value.is_string() ? m_value.get<std::string>() : "";
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, ' ');
    return text;
  }

  std::vector<Field> list() const {
    if (!m_value.is_array() || m_value.empty()) refuse("a list that is not empty");
    std::vector<Field> fields;
    fields.reserve(m_value.size());
    for (std::size_t i = 0; i < m_value.size(); ++i) {
      fields.emplace_back(m_file, m_path + "[" + std::to_string(i) + "]", m_value[i]);
    }
    return fields;
  }

  [[noreturn]] void refuse(const std::string& allowed) const {
    constexpr std::size_t kShown = 40;
    std::string shown = m_value.dump(-1, ' ', true, json::error_handler_t::replace);
    if (shown.size() > kShown) shown = shown.substr(0, kShown) + "...";
    fail("cannot be " + shown + "; allowed is " + allowed);
  }

 private:
  static bool isNumber(const json& value, float low, float high) {
    return value.is_number() && value.get<double>() >= low && value.get<double>() <= high;
  }

  std::string join(const std::string& key) const { return m_path.empty() ? key : m_path + "." + key; }

  const std::string& m_file;
  std::string m_path;
  const json& m_value;
};

bool isInPicture(const Camera& camera, const glm::vec3& place) {
  const glm::vec3 seen = camera.project(place);
  return seen.z > 0.1F && seen.x >= 0 && seen.y >= 0 && seen.x < static_cast<float>(camera.width) &&
         seen.y < static_cast<float>(camera.height);
}

void readCamera(const Field& script, Scenario& scenario) {
  scenario.optics.focalLength = script["focal_length_um"].whole(1000, 100000);
  const auto sensor = script["sensor_mm"].numbers<2>(1, 100);
  scenario.optics.sensorWidth = sensor[0];
  scenario.optics.sensorHeight = sensor[1];
  const Field settings = script["camera"];
  settings.expectKeys({"position", "look_at"});
  const auto from = settings["position"].numbers<3>(-kFarAway, kFarAway);
  const auto to = settings["look_at"].numbers<3>(-kFarAway, kFarAway);
  Camera& camera = scenario.scene.camera;
  setOptics(camera, scenario.optics);
  camera.position = {from[0], from[1], from[2]};
  const glm::vec3 way = glm::vec3(to[0], to[1], to[2]) - camera.position;
  camera.heading = std::atan2(way.y, way.x);
  camera.pitch = std::atan2(-way.z, glm::length(glm::vec2(way)));
  if (glm::length(way) < 0.01F || !isInPicture(camera, scenario.scene.room.beds[0].at(0.5F, 0.5F))) {
    settings.fail("must look at the bed");
  }
}

void readFloor(const Field& script, Scenario& scenario) {
  const Field settings = script["floor"];
  settings.expectKeys({"corner", "width", "depth"});
  const auto corner = settings["corner"].numbers<2>(-kFarAway, kFarAway);
  scenario.floor = {{corner[0], corner[1]}, settings["width"].number(0.1F, 5), settings["depth"].number(0.1F, 5)};
  for (const glm::vec2& point : scenario.floor.corners()) {
    if (!isInPicture(scenario.scene.camera, {point, 0})) settings.fail("must lie in the picture with all its corners");
  }
}

Posture readPosture(const Field& field) {
  static constexpr std::array<std::pair<std::string_view, Posture>, 7> kPostures = {{{"in_bed", Posture::kInBed},
                                                                                     {"sit_up", Posture::kSitUp},
                                                                                     {"sit_edge", Posture::kSitEdge},
                                                                                     {"stand", Posture::kStand},
                                                                                     {"lie", Posture::kLieFloor},
                                                                                     {"kneel", Posture::kKneel},
                                                                                     {"bend", Posture::kBend}}};
  const std::string word = field.text();
  const auto* const found =
      std::find_if(kPostures.begin(), kPostures.end(), [&](const auto& posture) { return posture.first == word; });
  if (found == kPostures.end()) field.refuse("in_bed, sit_up, sit_edge, stand, lie, kneel or bend");
  return found->second;
}

Key readKey(const Field& field, const Room& room) {
  field.expectKeys({"at", "do", "place", "heading", "roll", "helpless"});
  Key key;
  key.time = field["at"].number(0, kLongest);
  key.posture = readPosture(field["do"]);
  if (isOnBed(key.posture)) {
    field.expectKeys({"at", "do", "roll"});
  } else {
    const auto place = field["place"].numbers<2>(-kFarAway, kFarAway);
    key.place = {place[0], place[1]};
    if (place[0] < 0 || place[1] < 0 || place[0] > room.width || place[1] > room.depth) {
      field["place"].refuse("x " + range(0, room.width) + " and y " + range(0, room.depth) + " in this room");
    }
    key.heading = glm::radians(field["heading"].number(-360, 360));
  }
  if (field.has("roll")) key.roll = glm::radians(field["roll"].number(-360, 360));
  if (!field.has("helpless")) return key;
  if (!isOnFloor(key.posture)) field["helpless"].fail("is for somebody on the floor: leave it out");
  key.helpless = field["helpless"].yesOrNo();
  return key;
}

Actor readActor(const Field& field, const Scenario& scenario) {
  field.expectKeys({"body", "keys", "who"});
  Actor actor;
  actor.id = static_cast<int>(scenario.actors.size());
  actor.shape = makeBody(field["body"].whole(0, kAllBodies - 1));
  for (const Field& item : field["keys"].list()) {
    const Key key = readKey(item, scenario.scene.room);
    if (!actor.keys.empty() && key.time <= actor.keys.back().time) item["at"].fail("must grow from key to key");
    if (actor.keys.empty() && key.time >= scenario.seconds) item["at"].fail("must be before the video's end");
    actor.patient = actor.patient || isOnBed(key.posture);
    actor.keys.push_back(key);
  }
  return actor;
}

Scenario readScript(const Field& script) {
  script.expectKeys({"room", "camera", "light", "seconds", "frames_per_second", "product_name", "focal_length_um",
                     "sensor_mm", "floor", "people", "description"});
  Scenario scenario;
  if (script.has("description")) scenario.description = script["description"].line();
  scenario.seconds = script["seconds"].number(1, kLongest);
  const unsigned rate = script["frames_per_second"].whole(2, 60);
  if (rate % 2 != 0) script["frames_per_second"].refuse("an even number");
  scenario.framesPerSecond = static_cast<int>(rate);
  if (script.has("product_name")) scenario.productName = script["product_name"].text();
  scenario.scene.room = makeRoom(script["room"].whole(0, kAllRooms - 1));
  Random random(script["light"].whole(0, 999999));
  scenario.scene.light = makeLight(random);
  readCamera(script, scenario);
  readFloor(script, scenario);
  for (const Field& person : script["people"].list()) scenario.actors.push_back(readActor(person, scenario));
  return scenario;
}

}  // namespace

Scenario readScenario(const std::filesystem::path& file) {
  const std::string name = file.string();
  std::error_code error;
  const std::uintmax_t bytes = std::filesystem::file_size(file, error);
  std::ifstream in(file);
  if (error || !in) throw std::runtime_error(name + ": cannot be read; allowed is a JSON file");
  if (bytes > kLargestScript) throw std::runtime_error(name + ": is larger than 1 MiB; allowed is a JSON file");
  const json script = json::parse(in, nullptr, false, true);
  if (script.is_discarded()) throw std::runtime_error(name + ": is not valid JSON");
  return readScript(Field(name, "", script));
}

}  // namespace simulator
