#include "simulator/scenario.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <glm/gtc/constants.hpp>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

namespace simulator {
namespace {

using nlohmann::json;

constexpr float kStep = 0.62F;  // metres of one step

/// Reads one script and says what is wrong with it.
class Reader {
 public:
  explicit Reader(const std::filesystem::path& file) : file_(file) {}

  Scenario read() {
    std::ifstream in(file_);
    if (!in) fail("", "cannot be read");
    const json script = json::parse(in, nullptr, false, true);
    if (!script.is_object()) fail("", "is not a JSON object");
    allow(script, "",
          {"room", "camera", "light", "seconds", "frames_per_second", "product_name", "focal_length_um", "sensor_mm",
           "floor", "people", "description"});
    Scenario scenario;
    scenario.seconds = number(script, "seconds", 1, 3600);
    scenario.framesPerSecond = static_cast<int>(number(script, "frames_per_second", 2, 60));
    if (scenario.framesPerSecond % 2 != 0) fail("frames_per_second", "must be even");
    scenario.productName = script.value("product_name", scenario.productName);
    scenario.optics.focalLength = static_cast<unsigned>(number(script, "focal_length_um", 1000, 100000));
    const glm::vec2 sensor = pair(script, "sensor_mm");
    scenario.optics.sensorWidth = sensor.x;
    scenario.optics.sensorHeight = sensor.y;
    scenario.scene.room = makeRoom(static_cast<unsigned>(number(script, "room", 0, kAllRooms - 1)));
    camera(script, scenario);
    light(script, scenario);
    const json& floor = object(script, "floor");
    scenario.floor = {pair(floor, "corner"), number(floor, "width", 0.1F, 5), number(floor, "depth", 0.1F, 5)};
    for (const json& person : list(script, "people")) scenario.actors.push_back(actor(person, scenario));
    return scenario;
  }

 private:
  [[noreturn]] void fail(const std::string& key, const std::string& what) const {
    throw std::runtime_error(file_.string() + ": " + (key.empty() ? "" : key + ": ") + what);
  }

  void allow(const json& value, const std::string& where, const std::set<std::string>& keys) const {
    for (const auto& item : value.items()) {
      if (!keys.contains(item.key())) fail(where + item.key(), "is not known here");
    }
  }

  const json& member(const json& value, const std::string& key) const {
    if (!value.is_object() || !value.contains(key)) fail(key, "is missing");
    return value[key];
  }

  const json& object(const json& value, const std::string& key) const {
    const json& found = member(value, key);
    if (!found.is_object()) fail(key, "must be an object");
    return found;
  }

  const json& list(const json& value, const std::string& key) const {
    const json& found = member(value, key);
    if (!found.is_array() || found.empty()) fail(key, "must be a list with something in it");
    return found;
  }

  float number(const json& value, const std::string& key, float low, float high) const {
    const json& found = member(value, key);
    if (!found.is_number() || found.get<float>() < low || found.get<float>() > high) {
      fail(key, "must be a number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return found.get<float>();
  }

  glm::vec2 pair(const json& value, const std::string& key) const {
    const json& found = member(value, key);
    if (!found.is_array() || found.size() != 2 || !found[0].is_number() || !found[1].is_number()) {
      fail(key, "must be two numbers");
    }
    return {found[0].get<float>(), found[1].get<float>()};
  }

  glm::vec3 triple(const json& value, const std::string& key) const {
    const json& found = member(value, key);
    if (!found.is_array() || found.size() != 3 || !found[0].is_number() || !found[1].is_number() ||
        !found[2].is_number()) {
      fail(key, "must be three numbers");
    }
    return {found[0].get<float>(), found[1].get<float>(), found[2].get<float>()};
  }

  void camera(const json& script, Scenario& scenario) const {
    const json& settings = object(script, "camera");
    Camera& camera = scenario.scene.camera;
    setOptics(camera, scenario.optics);
    camera.position = triple(settings, "position");
    const glm::vec3 way = triple(settings, "look_at") - camera.position;
    camera.heading = std::atan2(way.y, way.x);
    camera.pitch = std::atan2(-way.z, glm::length(glm::vec2(way)));
  }

  void light(const json& script, Scenario& scenario) const {
    Random random(static_cast<unsigned>(number(script, "light", 0, 1e6F)));
    scenario.scene.light = makeLight(random);
  }

  Actor actor(const json& person, const Scenario& scenario) const {
    allow(person, "people: ", {"body", "keys", "who"});
    Actor actor;
    actor.id = static_cast<int>(scenario.actors.size());
    actor.shape = makeBody(static_cast<unsigned>(number(person, "body", 0, kAllBodies - 1)));
    for (const json& item : list(person, "keys")) {
      actor.keys.push_back(key(item));
      const std::size_t n = actor.keys.size();
      if (n > 1 && actor.keys[n - 1].time <= actor.keys[n - 2].time)
        fail("people: keys: at", "must grow from key to key");
    }
    return actor;
  }

  Key key(const json& item) const {
    static const std::map<std::string, Posture> kPostures = {
        {"in_bed", Posture::kInBed}, {"sit_up", Posture::kSitUp}, {"sit_edge", Posture::kSitEdge},
        {"stand", Posture::kStand},  {"lie", Posture::kLieFloor}, {"kneel", Posture::kKneel},
        {"bend", Posture::kBend}};
    allow(item, "people: keys: ", {"at", "do", "place", "heading", "roll"});
    Key key;
    key.time = number(item, "at", 0, 3600);
    const auto posture = kPostures.find(item.value("do", ""));
    if (posture == kPostures.end())
      fail("people: keys: do", "must be in_bed, sit_up, sit_edge, stand, lie, kneel or bend");
    key.posture = posture->second;
    const bool placed =
        key.posture != Posture::kInBed && key.posture != Posture::kSitUp && key.posture != Posture::kSitEdge;
    if (placed) {
      key.place = pair(item, "place");
      key.heading = glm::radians(number(item, "heading", -360, 360));
    }
    if (item.contains("roll")) key.roll = glm::radians(number(item, "roll", -360, 360));
    return key;
  }

  std::filesystem::path file_;
};

/// Side of the bed that people leave it by: the one nearer to the room's middle. 0 is the bed's right.
float freeSide(const Room& room) {
  const glm::vec2 middle(room.width / 2, room.depth / 2);
  return glm::distance(glm::vec2(room.bed.at(0.5F, 0)), middle) < glm::distance(glm::vec2(room.bed.at(0.5F, 1)), middle)
             ? 0.0F
             : 1.0F;
}

Pose keyPose(const Key& key, const Actor& actor, const Room& room) {
  const Bed& bed = room.bed;
  const float side = freeSide(room);
  Pose pose;
  switch (key.posture) {
    case Posture::kInBed:
      pose = lyingPose(glm::vec2(bed.at(0.48F, 0.5F)), bed.heading, key.roll);
      pose.neckBend = 0.35F;
      settle(actor.shape, pose, bed.mattress - 0.02F);
      return pose;
    case Posture::kSitUp:
      pose = sittingPose(glm::vec2(bed.at(0.48F, 0.5F)), bed.heading + glm::pi<float>());
      for (Limb& leg : pose.legs) leg = {1.45F, 0.1F, 0, 0.15F};
      settle(actor.shape, pose, bed.mattress - 0.02F);
      return pose;
    case Posture::kSitEdge:
      pose = sittingPose(glm::vec2(bed.at(0.48F, side == 0 ? 0.12F : 0.88F)),
                         bed.heading + (side == 0 ? -1.0F : 1.0F) * glm::half_pi<float>());
      pose.root.z = bed.mattress + 0.07F * actor.shape.height;
      return pose;
    case Posture::kLieFloor:
      pose = lyingPose(key.place, key.heading, key.roll);
      pose.legs[0] = {0.35F, 0.2F, 0, 0.5F};
      pose.arms[0].abduct = 0.7F;
      break;
    case Posture::kKneel:
      pose = kneelingPose(key.place, key.heading);
      break;
    case Posture::kBend:
      pose = bendingPose(key.place, key.heading);
      break;
    case Posture::kStand:
      pose = standingPose(key.place, key.heading);
      break;
  }
  settle(actor.shape, pose, 0);
  return pose;
}

float smooth(float t) { return t * t * (3 - 2 * t); }

bool isOnBed(Posture posture) {
  return posture == Posture::kInBed || posture == Posture::kSitUp || posture == Posture::kSitEdge;
}

/// Walking from one standing key to the next, turning on the spot at both ends.
Pose walk(const Key& from, const Key& to, float time, const Actor& actor, const Room& room) {
  const glm::vec2 way = to.place - from.place;
  const float length = glm::length(way);
  const float t = (time - from.time) / (to.time - from.time);
  const glm::vec2 place = from.place + way * t;
  const float phase = glm::pi<float>() * t * std::max(1.0F, std::round(length / kStep));
  Pose pose = walkingPose(place, std::atan2(way.y, way.x), phase);
  const float turning = std::min(0.6F, (to.time - from.time) / 2);
  const float since = time - from.time;
  const float left = to.time - time;
  if (since < turning) pose = blend(keyPose(from, actor, room), pose, smooth(since / turning));
  if (left < turning) pose = blend(keyPose(to, actor, room), pose, smooth(left / turning));
  pose.root = {place, pose.root.z};
  settle(actor.shape, pose, 0);
  return pose;
}

Pose poseBetween(const Key& from, const Key& to, float time, const Actor& actor, const Room& room) {
  const bool walks = from.posture == Posture::kStand && to.posture == Posture::kStand;
  if (walks && glm::distance(from.place, to.place) > 0.05F) return walk(from, to, time, actor, room);
  const float t = (time - from.time) / (to.time - from.time);
  const bool falls = from.posture == Posture::kStand && to.posture == Posture::kLieFloor;
  Pose pose = blend(keyPose(from, actor, room), keyPose(to, actor, room), falls ? t * t : smooth(t));
  if (!isOnBed(from.posture) && !isOnBed(to.posture)) settle(actor.shape, pose, 0);
  return pose;
}

/// Nobody is ever quite still: breath, a swaying head, a moving hand.
void enliven(Pose& pose, float time, int id) {
  const float own = 1.7F * static_cast<float>(id);
  pose.neckTurn += 0.22F * std::sin(0.5F * time + own);
  pose.neckBend += 0.06F * std::sin(0.8F * time + own);
  pose.spineBend += 0.012F * std::sin(1.6F * time);
  pose.arms[0].bend += 0.1F * std::sin(0.37F * time + own);
  pose.arms[1].flex += 0.06F * std::sin(0.29F * time + own);
}

Person personAt(const Actor& actor, float time, const Room& room) {
  const auto next = std::upper_bound(actor.keys.begin(), actor.keys.end(), time,
                                     [](float moment, const Key& key) { return moment < key.time; });
  const Key& from = *std::prev(next);
  const bool last = next == actor.keys.end();
  Person person;
  person.id = actor.id;
  person.shape = actor.shape;
  person.pose = last ? keyPose(from, actor, room) : poseBetween(from, *next, time, actor, room);
  enliven(person.pose, time, actor.id);
  const Posture to = last ? from.posture : next->posture;
  person.inBed = isOnBed(from.posture) && isOnBed(to);
  person.lyingOnFloor = from.posture == Posture::kLieFloor && to == Posture::kLieFloor;
  person.standing = from.posture == Posture::kStand && to == Posture::kStand;
  return person;
}

/// The blanket comes off as the patient sits up and on again after lying down.
float coverAt(const Actor& actor, float time) {
  float cover = 0;
  for (std::size_t i = 0; i + 1 < actor.keys.size(); ++i) {
    if (time < actor.keys[i].time || time >= actor.keys[i + 1].time) continue;
    const float t = (time - actor.keys[i].time) / (actor.keys[i + 1].time - actor.keys[i].time);
    const float a = actor.keys[i].posture == Posture::kInBed ? 0.75F : 0.0F;
    const float b = actor.keys[i + 1].posture == Posture::kInBed ? 0.75F : 0.0F;
    cover = a + (b - a) * t;
  }
  return time >= actor.keys.back().time && actor.keys.back().posture == Posture::kInBed ? 0.75F : cover;
}

}  // namespace

Scenario readScenario(const std::filesystem::path& file) { return Reader(file).read(); }

Scene Scenario::at(float time) const {
  Scene now = scene;
  now.cover = 0.4F;
  for (const Actor& actor : actors) {
    const bool patient = isOnBed(actor.keys.front().posture);
    if (patient) now.cover = coverAt(actor, time);
    const bool leaves = actor.keys.size() > 1 && actor.keys.back().posture == Posture::kStand;
    if (time < actor.keys.front().time || (leaves && time > actor.keys.back().time)) continue;
    now.people.push_back(personAt(actor, time, scene.room));
  }
  return now;
}

}  // namespace simulator
