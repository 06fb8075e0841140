// Reads a scenario's script and says what is wrong with it.
#include <cmath>
#include <fstream>
#include <glm/gtc/constants.hpp>

#include "simulator/stories/check.h"
#include "simulator/stories/field.h"
#include "simulator/stories/scenario.h"

namespace simulator {
namespace {

using nlohmann::json;

constexpr std::uintmax_t kLargestScript = std::uintmax_t{1} << 20;  // bytes
constexpr float kLongest = 3600;                                    // seconds
constexpr float kFarAway = 20;                                      // metres
constexpr unsigned kMostThings = 999;

float degrees(const Field& field) { return glm::radians(field.number(-360, 360)); }

glm::vec3 point(const Field& field) {
  const auto values = field.numbers<3>(-kFarAway, kFarAway);
  return {values[0], values[1], values[2]};
}

glm::vec2 placeIn(const Room& room, const Field& field) {
  const auto place = field.numbers<2>(-kFarAway, kFarAway);
  if (place[0] < 0 || place[1] < 0 || place[0] > room.width || place[1] > room.depth) {
    field.refuse("x " + range(0, room.width) + " and y " + range(0, room.depth) + " in this room");
  }
  return {place[0], place[1]};
}

/// " (x, y) is outside the picture", in pixels.
std::string outside(const Camera& camera, const glm::vec3& place) {
  const glm::vec3 seen = camera.project(place);
  if (seen.z < 0.1F) return " is behind the camera";
  return " (" + std::to_string(std::lround(seen.x)) + ", " + std::to_string(std::lround(seen.y)) +
         ") is outside the picture, which is " + std::to_string(camera.width) + " x " + std::to_string(camera.height);
}

void readCamera(const Field& script, Scenario& scenario) {
  scenario.optics.focalLength = script["focal_length_um"].whole(1000, 100000);
  const auto sensor = script["sensor_mm"].numbers<2>(1, 100);
  const Field settings = script["camera"];
  settings.expectKeys({"position", "look_at", "roll", "rotation"});
  if (settings.has("rotation")) {
    scenario.rotation = settings["rotation"].whole(0, 270);
    if (scenario.rotation % 90 != 0) settings["rotation"].refuse("0, 90, 180 or 270");
  }
  Camera& camera = scenario.scene.camera;
  const bool portrait = scenario.rotation % 180 != 0;
  if (portrait) std::swap(camera.width, camera.height);
  scenario.optics.sensorWidth = sensor[portrait ? 1 : 0];
  scenario.optics.sensorHeight = sensor[portrait ? 0 : 1];
  setOptics(camera, scenario.optics);
  camera.position = point(settings["position"]);
  const glm::vec3 way = point(settings["look_at"]) - camera.position;
  if (glm::length(way) < 0.01F) settings["look_at"].fail("is where the camera is");
  camera.heading = std::atan2(way.y, way.x);
  camera.pitch = std::atan2(-way.z, glm::length(glm::vec2(way)));
  if (settings.has("roll")) camera.roll = glm::radians(settings["roll"].number(-45, 45));
  const std::vector<Bed>& beds = scenario.scene.room.beds;
  for (std::size_t i = 0; i < beds.size(); ++i) {
    const glm::vec3 middle = beds[i].at(0.5F, 0.5F);
    if (camera.sees(middle)) continue;
    settings.fail("must look at the bed: the middle of bed " + std::to_string(i + 1) + outside(camera, middle));
  }
}

void readFloor(const Field& script, Scenario& scenario) {
  const Field settings = script["floor"];
  settings.expectKeys({"corner", "width", "depth"});
  const auto corner = settings["corner"].numbers<2>(-kFarAway, kFarAway);
  scenario.floor = {{corner[0], corner[1]}, settings["width"].number(0.1F, 5), settings["depth"].number(0.1F, 5)};
  const std::array<glm::vec2, 4> corners = scenario.floor.corners();
  const Camera& camera = scenario.scene.camera;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    const glm::vec3 place(corners[i], 0);
    if (!camera.sees(place)) settings.fail("corner " + std::to_string(i + 1) + outside(camera, place));
  }
}

void readExclusions(const Field& script, Scenario& scenario) {
  constexpr std::size_t kMost = 3;
  const Camera& camera = scenario.scene.camera;
  const std::vector<Field> areas = script["exclusions"].list(true);
  if (areas.size() > kMost) script["exclusions"].fail("are " + std::to_string(areas.size()) + "; allowed are three");
  for (const Field& area : areas) {
    const std::vector<Field> corners = area.list();
    if (corners.size() != 4)
      area.fail("has " + std::to_string(corners.size()) + " corners; allowed are four [x, y, z]");
    std::array<glm::vec3, 4> places{};
    for (std::size_t i = 0; i < places.size(); ++i) {
      places[i] = point(corners[i]);
      if (!camera.sees(places[i])) area.fail("corner " + std::to_string(i + 1) + outside(camera, places[i]));
    }
    scenario.exclusions.push_back(places);
  }
}

Lighting readLighting(const Field& field, const Room& room) {
  field.expectKeys({"at", "is", "level", "noise", "lamp"});
  static constexpr std::array<float, 4> kLevels = {1, 0.08F, 1, 1};  // of day, dark, lamp and infrared
  Lighting entry;
  entry.time = field["at"].number(0, kLongest);
  entry.kind = static_cast<Lighting::Kind>(field["is"].oneOf({"day", "dark", "lamp", "infrared"}));
  entry.level = field.has("level") ? field["level"].number(0, 3) : kLevels[static_cast<std::size_t>(entry.kind)];
  if (field.has("noise")) entry.noise = field["noise"].number(0, 60);
  entry.lamp = {room.width / 2, room.depth / 2, room.height - 0.2F};
  if (!field.has("lamp")) return entry;
  if (entry.kind != Lighting::Kind::kLamp) field["lamp"].fail("is for the light \"lamp\": leave it out");
  entry.lamp = point(field["lamp"]);
  return entry;
}

void readLights(const Field& script, Scenario& scenario) {
  Random random(script["light"].whole(0, 999999));
  scenario.scene.light = makeLight(random);
  if (!script.has("lighting")) return;
  for (const Field& item : script["lighting"].list()) {
    const Lighting entry = readLighting(item, scenario.scene.room);
    if (!scenario.lighting.empty() && entry.time <= scenario.lighting.back().time) {
      item["at"].fail("must grow from entry to entry");
    }
    scenario.lighting.push_back(entry);
  }
}

void readThings(const Field& script, Scenario& scenario) {
  for (const Field& item : script["furniture"].list(true)) {
    item.expectKeys({"what", "place", "heading"});
    Thing thing;
    static_assert(kMovables.size() == 3);
    thing.sort = &kMovables[item["what"].oneOf({"chair", "walker", "wheelchair"})];
    thing.first = {placeIn(scenario.scene.room, item["place"]), degrees(item["heading"])};
    Random random(static_cast<Random::result_type>(scenario.things.size() + 1));
    thing.mesh = moved(thing.sort->make(random), {0, -thing.sort->depth / 2, 0}, 0);
    scenario.things.push_back(std::move(thing));
  }
}

/// The number of a thing that `fits`, which a message says to be `allowed`.
std::size_t readThing(const Field& field, const Scenario& scenario, bool (*fits)(const Movable&), const char* allowed) {
  const unsigned number = field.whole(0, kMostThings);
  if (number >= scenario.things.size() || !fits(*scenario.things[number].sort)) {
    field.refuse(std::string("the number in furniture of ") + allowed);
  }
  return number;
}

bool isSeat(const Movable& sort) { return sort.seatHeight > 0; }
bool isRolling(const Movable& sort) { return sort.reach > 0; }

void readPlace(const Field& field, const Scenario& scenario, Key& key) {
  key.place = placeIn(scenario.scene.room, field["place"]);
  key.heading = degrees(field["heading"]);
}

void readSeat(const Field& field, const Scenario& scenario, Key& key) {
  field.expectOnly({"at", "do", "on", "place", "heading"}, "somebody who sits on something");
  key.thing = readThing(field["on"], scenario, isSeat, "a chair or a wheelchair");
  key.rolls = field.has("place") || field.has("heading");
  if (!key.rolls) return;
  readThing(field["on"], scenario, isRolling, "a wheelchair, when it is to be elsewhere then");
  readPlace(field, scenario, key);
}

void readLying(const Field& field, Key& key) {
  if (field.has("roll")) key.roll = degrees(field["roll"]);
  if (!field.has("on_side")) return;
  if (field.has("roll")) field["roll"].fail("is not for somebody on a side: leave it out");
  key.lying = field["on_side"].oneOf({"left", "right"}) == 0 ? Lying::kOnLeftSide : Lying::kOnRightSide;
}

void readBedKey(const Field& field, Key& key) {
  if (key.posture == Posture::kInBed) {
    field.expectOnly({"at", "do", "roll", "on_side", "cover"}, "somebody in bed");
    readLying(field, key);
    if (field.has("cover")) key.cover = field["cover"].number(0, 1.5F);
    return;
  }
  if (key.posture == Posture::kSitUp) return field.expectOnly({"at", "do", "roll"}, "somebody who sits in bed");
  const bool half = key.posture == Posture::kHalfOut;
  if (half) {
    field.expectOnly({"at", "do", "side", "counts_as"}, "somebody half out of the bed");
  } else {
    field.expectOnly({"at", "do", "roll", "side"}, "somebody on the bed's edge");
  }
  if (field.has("side")) key.farSide = field["side"].oneOf({"near", "far"}) == 1;
  if (field.has("counts_as")) key.countsAsInBed = field["counts_as"].oneOf({"in bed", "out of bed"}) == 0;
}

void readFloorKey(const Field& field, const Scenario& scenario, Key& key) {
  if (key.posture == Posture::kStand) {
    field.expectOnly({"at", "do", "place", "heading", "roll", "with"}, "somebody who stands");
    if (field.has("with")) key.thing = readThing(field["with"], scenario, isRolling, "a walker or a wheelchair");
  } else if (!isOnFloor(key.posture)) {
    field.expectOnly({"at", "do", "place", "heading", "roll"}, "somebody who is not on bed or floor");
  } else {
    field.expectOnly({"at", "do", "place", "heading", "roll", "on_side", "helpless"}, "somebody on the floor");
    if (field.has("helpless")) key.helpless = field["helpless"].yesOrNo();
  }
  readPlace(field, scenario, key);
  readLying(field, key);
}

Key readKey(const Field& field, const Scenario& scenario) {
  field.expectKeys(
      {"at", "do", "place", "heading", "roll", "on_side", "cover", "side", "counts_as", "helpless", "on", "with"});
  Key key;
  key.time = field["at"].number(0, kLongest);
  key.posture = static_cast<Posture>(field["do"].oneOf(
      {"in_bed", "sit_up", "sit_edge", "half_out", "stand", "lie", "kneel", "bend", "sit", "sit_floor", "crawl"}));
  if (isOnBed(key.posture)) {
    readBedKey(field, key);
  } else if (key.posture == Posture::kSit) {
    readSeat(field, scenario, key);
  } else {
    readFloorKey(field, scenario, key);
  }
  return key;
}

Actor readActor(const Field& field, const Scenario& scenario) {
  field.expectKeys({"body", "keys", "who", "bed", "patient"});
  Actor actor;
  actor.id = static_cast<int>(scenario.actors.size());
  actor.shape = makeBody(field["body"].whole(0, kAllBodies - 1));
  bool usesBed = field.has("bed");
  const auto beds = static_cast<unsigned>(scenario.scene.room.beds.size());
  if (usesBed) actor.bed = field["bed"].whole(1, beds) - 1;
  for (const Field& item : field["keys"].list()) {
    const Key key = readKey(item, scenario);
    if (!actor.keys.empty() && key.time <= actor.keys.back().time) item["at"].fail("must grow from key to key");
    if (actor.keys.empty() && key.time >= scenario.seconds) item["at"].fail("must be before the video's end");
    usesBed = usesBed || (isOnBed(key.posture) && (actor.keys.empty() || key.posture != Posture::kSitEdge));
    actor.keys.push_back(key);
  }
  actor.patient = field.has("patient") ? field["patient"].yesOrNo() : usesBed;
  actor.hasBlanket = actor.patient && (field.has("bed") || isOnBed(actor.keys.front().posture));
  return actor;
}

Scenario readScript(const Field& script) {
  script.expectKeys({"room", "camera", "light", "lighting", "seconds", "frames_per_second", "product_name",
                     "focal_length_um", "sensor_mm", "floor", "exclusions", "furniture", "people", "description"});
  Scenario scenario;
  if (script.has("description")) scenario.description = script["description"].line();
  scenario.seconds = script["seconds"].number(1, kLongest);
  const unsigned rate = script["frames_per_second"].whole(2, 60);
  if (rate % 2 != 0) script["frames_per_second"].refuse("an even number");
  scenario.framesPerSecond = static_cast<int>(rate);
  if (script.has("product_name")) scenario.productName = script["product_name"].text();
  scenario.scene.room = makeRoom(script["room"].whole(0, kAllRooms - 1));
  readLights(script, scenario);
  readCamera(script, scenario);
  readFloor(script, scenario);
  if (script.has("exclusions")) readExclusions(script, scenario);
  if (script.has("furniture")) readThings(script, scenario);
  for (const Field& person : script["people"].list(true)) scenario.actors.push_back(readActor(person, scenario));
  const auto tucksIn = [](const Key& key) { return key.cover > kUsualCover || key.lying != Lying::kByRoll; };
  scenario.scene.ampleBlankets = scenario.scene.room.beds.size() > 1 ||
                                 std::any_of(scenario.actors.begin(), scenario.actors.end(), [&](const Actor& actor) {
                                   return std::any_of(actor.keys.begin(), actor.keys.end(), tucksIn);
                                 });
  if (const std::optional<Fault> fault = faultOf(scenario)) script.failAt(fault->path, fault->what);
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
