// Scripts, the demo that is made of one, and the files of a recording.
#include "simulator/scenario.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <ostream>

namespace simulator {
namespace {

using nlohmann::json;

/// A script in a file that goes with the object.
class ScriptFile {
 public:
  explicit ScriptFile(const std::string& text) { std::ofstream(path_) << text; }
  ~ScriptFile() { std::filesystem::remove(path_); }
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_ = testing::TempDir() + "velmor_script_" + std::to_string(getpid()) + ".json";
};

/// What reading the file complains about, "" if it does not.
std::string complaint(const std::string& path) {
  try {
    readScenario(path);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

json demoScript() { return json::parse(std::ifstream(VELMOR_DEMO)); }

struct Broken {
  const char* place;  ///< of the changed value in the demo's script, as a JSON pointer
  const char* value;  ///< JSON, nullptr to take it out
  const char* key;    ///< that the message must name
  const char* says;

  friend void PrintTo(const Broken& broken, std::ostream* out) {
    *out << broken.place << " " << (broken.value != nullptr ? broken.value : "missing");
  }
};

class BrokenScript : public testing::TestWithParam<Broken> {};

TEST_P(BrokenScript, IsRefusedInOneLineThatNamesFileAndKey) {
  const auto& [place, value, key, says] = GetParam();
  json change = {{"op", value == nullptr ? "remove" : "add"}, {"path", place}};
  if (value != nullptr) change["value"] = json::parse(value);
  const ScriptFile file(demoScript().patch(json::array({change})).dump());
  const std::string message = complaint(file.path());
  EXPECT_TRUE(message.starts_with(file.path() + ": " + key + ": ")) << message;
  EXPECT_NE(message.find(says), std::string::npos) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos) << message;
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, BrokenScript,
    testing::Values(
        Broken{"/sconds", "5", "sconds", "is not known here"}, Broken{"/seconds", nullptr, "seconds", "is missing"},
        Broken{"/seconds", "\"long\"", "seconds", "a number from 1 to 3600"},
        Broken{"/seconds", "0", "seconds", "a number from 1 to 3600"},
        Broken{"/frames_per_second", "15", "frames_per_second", "an even number"},
        Broken{"/frames_per_second", "10.5", "frames_per_second", "a whole number from 2 to 60"},
        Broken{"/product_name", "7", "product_name", "a text"},
        Broken{"/product_name", "\"\"", "product_name", "a text"},
        Broken{"/focal_length_um", "-1", "focal_length_um", "a whole number from 1000 to 100000"},
        Broken{"/sensor_mm", "[0, 3.5]", "sensor_mm", "a list of 2 numbers from 1 to 100"},
        Broken{"/sensor_mm", "[6.3]", "sensor_mm", "a list of 2 numbers"},
        Broken{"/sensor_mm", "{\"0\": 6, \"1\": 3}", "sensor_mm", "a list of 2 numbers"},
        Broken{"/room", "28", "room", "a whole number from 0 to 27"},
        Broken{"/room", "18446744073709551615", "room", "a whole number from 0 to 27"},
        Broken{"/light", "null", "light", "a whole number"}, Broken{"/camera", "[1, 2]", "camera", "an object"},
        Broken{"/camera/look_at", "[2.5, 0.15, 2.6]", "camera", "must look at the bed"},
        Broken{"/camera/look_at", "[2.5, -3, 0.5]", "camera", "must look at the bed"},
        Broken{"/camera/position", "[1, 2, \"3\"]", "camera.position", "a list of 3 numbers"},
        Broken{"/camera/roll", "1", "camera.roll", "is not known here"},
        Broken{"/floor/corner", "[1.7, -1]", "floor", "must lie in the picture"},
        Broken{"/floor/width", "0", "floor.width", "a number from 0.1 to 5"},
        Broken{"/people", "[]", "people", "a list that is not empty"},
        Broken{"/people/0", "\"patient\"", "people[0]", "an object"},
        Broken{"/people/1/body", "16", "people[1].body", "a whole number from 0 to 15"},
        Broken{"/people/1/keys", "{}", "people[1].keys", "a list that is not empty"},
        Broken{"/people/0/keys/0", "3", "people[0].keys[0]", "an object"},
        Broken{"/people/0/keys/1/at", "0", "people[0].keys[1].at", "must grow"},
        Broken{"/people/1/keys", R"([{"at": 3000, "do": "in_bed"}])", "people[1].keys[0].at", "before the video's end"},
        Broken{"/people/0/keys/0/do", "5", "people[0].keys[0].do", "a text"},
        Broken{"/people/0/keys/0/do", "\"fly\"", "people[0].keys[0].do", "sit_edge, stand, lie"},
        Broken{"/people/0/keys/0/place", "[1, 1]", "people[0].keys[0].place", "is not known here"},
        Broken{"/people/1/keys/0/place", nullptr, "people[1].keys[0].place", "is missing"},
        Broken{"/people/1/keys/0/place", "[4.3, 9]", "people[1].keys[0].place", "in this room"},
        Broken{"/people/1/keys/0/heading", "1e300", "people[1].keys[0].heading", "a number from -360 to 360"}));

TEST(Script, FilesThatAreNoScriptsAreRefused) {
  EXPECT_NE(complaint("/nowhere/at-all.json").find("cannot be read"), std::string::npos);
  EXPECT_NE(complaint(testing::TempDir()).find("cannot be read"), std::string::npos);
  const std::string deep(200'000, '[');
  const std::string large(2'000'000, ' ');
  for (const auto& [text, says] : {std::pair{std::string(), "is not valid JSON"},
                                   {"{\"room\": 1e999}", "is not valid JSON"},
                                   {deep, "is not valid JSON"},
                                   {"[]", "allowed is an object"},
                                   {large, "is larger than 1 MiB"}}) {
    const ScriptFile file(text);
    EXPECT_EQ(complaint(file.path()).rfind(file.path() + ": ", 0), 0U);
    EXPECT_NE(complaint(file.path()).find(says), std::string::npos) << complaint(file.path());
  }
}

TEST(Script, TheProductNameAloneMayBeLeftOut) {
  json script = demoScript();
  script.erase("product_name");
  EXPECT_EQ(readScenario(ScriptFile(script.dump()).path()).productName, "AXIS P3255-LVE");
}

/// A convex outline in the picture, clockwise as seen.
struct Outline {
  std::array<glm::vec2, 4> corners;

  /// How far inside a point lies, in pixels; negative outside.
  float inside(glm::vec2 point) const {
    float least = 1e9F;
    for (std::size_t k = 0; k < corners.size(); ++k) {
      const glm::vec2 edge = glm::normalize(corners[(k + 1) % 4] - corners[k]);
      const glm::vec2 way = point - corners[k];
      least = std::min(least, edge.x * way.y - edge.y * way.x);
    }
    return least;
  }
};

/// An outline as the settings file gives it.
Outline outline(const json& settings, const std::string& name) {
  Outline found{};
  for (std::size_t k = 0; k < 4; ++k) {
    const auto coordinate = [&](const char* axis) {
      return std::stof(settings["parameters"].at(name + std::to_string(k) + axis).get<std::string>());
    };
    found.corners[k] = {coordinate("x"), coordinate("y")};
  }
  return found;
}

class Demo : public testing::Test {
 protected:
  static constexpr float kEverySeconds = 0.1F;

  /// Calls `look(time, scene)` for moments all through the video.
  template <typename Look>
  void watch(const Look& look) const {
    for (int i = 0; static_cast<float>(i) * kEverySeconds < demo_.seconds; ++i) {
      const float time = static_cast<float>(i) * kEverySeconds;
      look(time, demo_.at(time));
    }
  }

  static std::filesystem::path folder() { return std::filesystem::path(VELMOR_DEMO).parent_path(); }
  static Figure figure(const Person& person) { return makeFigure(person.shape, person.pose); }
  static const Person* find(const Scene& scene, int id) {
    const auto found =
        std::find_if(scene.people.begin(), scene.people.end(), [&](const Person& p) { return p.id == id; });
    return found == scene.people.end() ? nullptr : &*found;
  }

  const Scenario demo_ = readScenario(VELMOR_DEMO);
};

TEST_F(Demo, PeopleAreAndDoWhatTheKeysSay) {
  for (const Actor& actor : demo_.actors) {
    for (const Key& key : actor.keys) {
      const Scene scene = demo_.at(key.time);
      const Person* person = find(scene, actor.id);
      if (key.time >= demo_.seconds) continue;
      ASSERT_NE(person, nullptr);
      const auto points = figure(*person).keypoints;
      const glm::vec3 up = (points[5] + points[6]) / 2.0F - person->pose.root;
      const glm::vec3 right = points[6] - points[5];
      const glm::vec3 heading(std::cos(key.heading), std::sin(key.heading), 0);
      SCOPED_TRACE(testing::Message() << "person " << actor.id << " at " << key.time << " s");
      if (isOnBed(key.posture)) {
        EXPECT_LT(glm::distance(glm::vec2(person->pose.root), scene.room.bed.centre), 0.8F);
        EXPECT_GT(person->pose.root.z, scene.room.bed.mattress);
        EXPECT_EQ(up.z < 0.2F, key.posture == Posture::kInBed);
      } else {
        EXPECT_LT(glm::distance(glm::vec2(person->pose.root), key.place), 0.01F);
        const glm::vec3 way = key.posture == Posture::kLieFloor ? up : glm::cross(glm::vec3(0, 0, 1), right);
        EXPECT_GT(glm::dot(glm::normalize(way), heading), 0.9F);
        EXPECT_EQ(up.z < 0.2F, key.posture == Posture::kLieFloor);
      }
    }
  }
}

TEST_F(Demo, NobodySinksUnderTheFloorOrLeaps) {
  std::vector<Figure> before(demo_.actors.size());
  watch([&](float time, const Scene& scene) {
    for (const Person& person : scene.people) {
      const Figure now = figure(person);
      Mesh mesh;
      addFigure(now, mesh);
      const auto lowest = std::min_element(
          mesh.begin(), mesh.end(), [](const Vertex& a, const Vertex& b) { return a.position.z < b.position.z; });
      EXPECT_GT(lowest->position.z, -0.04F) << "person " << person.id << " at " << time << " s";
      Figure& last = before[static_cast<std::size_t>(person.id)];
      for (std::size_t k = 0; !last.capsules.empty() && k < kKeypoints; ++k) {
        const float speed = glm::distance(now.keypoints[k], last.keypoints[k]) / kEverySeconds;
        EXPECT_LT(speed, 6) << "keypoint " << k << " of person " << person.id << " at " << time << " s";
      }
      last = now;
    }
  });
}

TEST_F(Demo, TellsItsStory) {
  std::vector<std::string> story;
  watch([&](float, const Scene& scene) {
    const Person* patient = find(scene, 0);
    ASSERT_NE(patient, nullptr);
    std::string now = patient->inBed ? "in bed" : patient->standing ? "up" : patient->lyingOnFloor ? "lies" : "";
    if (!now.empty() && find(scene, 1) != nullptr) now += ", carer there";
    if (!now.empty() && (story.empty() || story.back() != now)) story.push_back(now);
  });
  EXPECT_EQ(story, (std::vector<std::string>{"in bed", "up", "lies", "lies, carer there", "up, carer there",
                                             "in bed, carer there", "in bed"}));
}

TEST_F(Demo, ContactIsShort) {
  float since = -1;
  float longest = 0;
  watch([&](float time, const Scene& scene) {
    const Person* patient = find(scene, 0);
    const Person* carer = find(scene, 1);
    bool contact = false;
    if (carer != nullptr) {
      const Figure one = figure(*patient);
      contact = std::any_of(one.keypoints.begin(), one.keypoints.end(), [&](const glm::vec3& point) {
        return glm::distance(glm::vec2(point), glm::vec2(carer->pose.root)) < 0.9F;
      });
    }
    if (!contact) since = -1;
    if (contact && since < 0) since = time;
    if (contact) longest = std::max(longest, time - since);
  });
  EXPECT_LT(longest, 4);
  EXPECT_GT(longest, 1) << "the carer helps up";
}

TEST_F(Demo, WalkersKeepClearOfTheBedsOutline) {
  const Outline bed = outline(json::parse(settingsText(demo_)), "Detection1");
  std::array<glm::vec2, 2> last{};
  int walking = 0;
  watch([&](float time, const Scene& scene) {
    for (const Person& person : scene.people) {
      glm::vec2& place = last.at(static_cast<std::size_t>(person.id));
      const float speed = glm::distance(place, glm::vec2(person.pose.root)) / kEverySeconds;
      place = person.pose.root;
      if (!person.standing || speed < 0.2F || speed > 3) continue;
      ++walking;
      const Figure now = figure(person);
      for (const std::size_t shoulder : {5U, 6U}) {
        EXPECT_LT(bed.inside(glm::vec2(scene.camera.project(now.keypoints[shoulder]))), 0)
            << "person " << person.id << " at " << time << " s";
      }
    }
  });
  EXPECT_GT(walking, 100);
}

TEST_F(Demo, SettingsHoldWhatAnInstallerWouldSet) {
  const json settings = json::parse(settingsText(demo_));
  EXPECT_EQ(settings["product_name"], demo_.productName);
  EXPECT_EQ(settings["focal_length_um"], demo_.optics.focalLength);
  EXPECT_EQ(settings["rotation"], 0);
  EXPECT_EQ(settings["parameters"]["Detection1Active"], "true");
  EXPECT_FLOAT_EQ(std::stof(settings["parameters"]["WRectM"].get<std::string>()), demo_.floor.width);
  EXPECT_FLOAT_EQ(std::stof(settings["parameters"]["HRectM"].get<std::string>()), demo_.floor.depth);

  const Outline bed = outline(settings, "Detection1");
  const auto seen = [&](const glm::vec3& place) { return glm::vec2(demo_.scene.camera.project(place)); };
  for (const auto& [along, across, inside] : {std::tuple{0.5F, 0.5F, true},
                                              {0.0F, 0.5F, true},
                                              {0.5F, 0.0F, true},
                                              {0.5F, 1.0F, true},
                                              {-0.1F, 0.5F, false},
                                              {0.5F, -0.1F, false},
                                              {0.5F, 1.1F, false}}) {
    EXPECT_EQ(bed.inside(seen(demo_.scene.room.bed.at(along, across))) > 0, inside) << along << ' ' << across;
  }
  const Outline floor = outline(settings, "FallCalibration");
  const glm::vec2 middle = demo_.floor.corner + glm::vec2(demo_.floor.width, -demo_.floor.depth) / 2.0F;
  EXPECT_GT(floor.inside(seen({middle, 0})), 20) << "clockwise around the rectangle's middle";
  const auto& [farLeft, farRight, nearRight, nearLeft] = floor.corners;
  EXPECT_TRUE(farLeft.x < farRight.x && nearLeft.x < nearRight.x && farLeft.y < nearLeft.y && farRight.y < nearRight.y);
}

TEST_F(Demo, TruthLinesHoldPeopleAndTheirKeypoints) {
  const Scene scene = demo_.at(50);
  std::vector<TrueKeypoints> truth(2);
  truth[1][16] = {12.34F, 700.06F, Visibility::kHidden};
  const std::string line = truthLine(scene, truth, 50);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  const json found = json::parse(line);
  EXPECT_EQ(found["t"], 50.0);
  ASSERT_EQ(found["people"].size(), 2U);
  EXPECT_EQ(found["people"][0]["lying_on_floor"], true);
  EXPECT_EQ(found["people"][1]["id"], 1);
  EXPECT_EQ(found["people"][1]["standing"], true);
  EXPECT_EQ(found["people"][1]["in_bed"], false);
  ASSERT_EQ(found["people"][1]["keypoints"].size(), kKeypoints);
  EXPECT_EQ(found["people"][1]["keypoints"][16].dump(), "[12.3,700.1,1]");
}

TEST_F(Demo, CommittedFilesAreTheScripts) {
  std::ifstream settings(folder() / "demo.settings.json");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(settings), {}), settingsText(demo_));
  std::ifstream file(folder() / "demo.truth.jsonl");
  int lines = 0;
  for (std::string line; std::getline(file, line);) {
    const json truth = json::parse(line);
    EXPECT_EQ(truth["t"], 0.5 * ++lines);
    const Scene scene = demo_.at(truth["t"]);
    ASSERT_EQ(truth["people"].size(), scene.people.size());
    for (std::size_t i = 0; i < scene.people.size(); ++i) {
      const Figure now = figure(scene.people[i]);
      for (std::size_t k = 0; k < kKeypoints; ++k) {
        const json& point = truth["people"][i]["keypoints"][k];
        const glm::vec2 seen(scene.camera.project(now.keypoints[k]));
        EXPECT_LT(glm::distance(seen, glm::vec2(point[0], point[1])), 0.2F) << "keypoint " << k << " at " << truth["t"];
      }
    }
  }
  EXPECT_EQ(lines, std::lround(demo_.seconds * 2) - 1);
}

}  // namespace
}  // namespace simulator
