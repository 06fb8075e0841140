// Scripts, and the demo that is made of one.
#include "simulator/stories/scenario.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace simulator {
namespace {

using nlohmann::json;

/// What reading a script of that text complains about, after the file's name; "" if it does not.
std::string complaint(const std::string& text) {
  const std::string path = testing::TempDir() + "velmor_script_" + std::to_string(getpid()) + ".json";
  std::ofstream(path) << text;
  std::string message;
  try {
    readScenario(path);
  } catch (const std::runtime_error& error) {
    message = error.what();
    EXPECT_TRUE(message.starts_with(path + ": ")) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
    message.erase(0, path.size() + 2);
  }
  std::filesystem::remove(path);
  return message;
}

struct Broken {
  const char* place;  ///< of the changed value in the demo's script, as a JSON pointer
  const char* value;  ///< JSON, nullptr to take it out
  const char* says;   ///< how the complaint begins: the key
};

TEST(Script, FaultsAreRefusedInOneLineThatNamesFileAndKey) {
  const json demo = json::parse(std::ifstream(VELMOR_DEMO));
  EXPECT_EQ(complaint(demo.dump()), "");
  for (const auto& [place, value, says] :
       {Broken{"/camera/tilt", "1", "camera.tilt: is not known here"},
        {"/camera/rotation", "45", "camera.rotation: cannot be 45; allowed is 0, 90, 180 or 270"},
        {"/camera/position", "[2.5, 0.15, 3.7]", "camera.position: hangs above the ceiling, 3.7 m of 3.5"},
        {"/lighting", R"([{"at": 5, "is": "dark"}, {"at": 5, "is": "day"}])", "lighting[1].at: must grow"},
        {"/lighting", R"([{"at": 5, "is": "dim"}])", "lighting[0].is: cannot be \"dim\"; allowed is one of day, dark"},
        {"/lighting", R"([{"at": 5, "is": "day", "lamp": [1, 1, 1]}])", "lighting[0].lamp: is for the light"},
        {"/exclusions", "[[[2, 3, 0]]]", "exclusions[0]: has 1 corners; allowed are four"},
        {"/exclusions", "[[[2, 3, 0], [2.5, 3, 0], [2, 3.2, 0], [2, -9, 0]]]",
         "exclusions[0]: corner 4 is behind the camera"},
        {"/furniture", R"([{"what": "chair", "place": [1.5, 4.3], "heading": 0}])",
         "furniture[0].place: lies in the bedside table"},
        {"/people/0/bed", "2", "people[0].bed: cannot be 2; allowed is a whole number from 1 to 1"},
        {"/people/1/bed", "1", "people[1].bed: bed 1 is people[0]'s"},
        {"/people/1/keys/0/place", nullptr, "people[1].keys[0].place: is missing"},
        {"/seconds", "\"long\"", "seconds: cannot be \"long\"; allowed is a number from 1 to 3600"},
        {"/floor/width", "0", "floor.width: cannot be 0; allowed is a number from 0.1 to 5"},
        {"/frames_per_second", "15", "frames_per_second: cannot be 15; allowed is an even number"},
        {"/frames_per_second", "10.5", "frames_per_second: cannot be 10.5; allowed is a whole number"},
        {"/room", "18446744073709551615", "room: cannot be 18446744073709551615; allowed is a whole number"},
        {"/product_name", "\"\"", "product_name: cannot be \"\"; allowed is a text"},
        {"/sensor_mm", "[6.3]", "sensor_mm: cannot be [6.3]; allowed is a list of 2 numbers"},
        {"/sensor_mm", "[0, 3.5]", "sensor_mm: cannot be [0,3.5]; allowed is a list of 2 numbers"},
        {"/camera", "[1, 2]", "camera: cannot be [1,2]; allowed is an object"},
        {"/camera/look_at", "[2.5, -3, 0.5]", "camera: must look at the bed: the middle of bed 1 is behind the camera"},
        {"/floor/corner", "[1.7, -1]", "floor: corner 1 (-"},
        {"/floor/width", "5", "floor: corner 2 (1584, 449) is outside the picture, which is 1280 x 720"},
        {"/people", "{}", "people: cannot be {}; allowed is a list"},
        {"/people/0/keys", "[]", "people[0].keys: cannot be []; allowed is a list that is not empty"},
        {"/people/0/keys/1/at", "0", "people[0].keys[1].at: must grow"},
        {"/people/1/keys", R"([{"at": 92, "do": "in_bed"}])", "people[1].keys[0].at: must be before the video's end"},
        {"/people/0/keys/0/helpless", "true", "people[0].keys[0].helpless: is not for somebody in bed"},
        {"/people/0/keys/0/do", "\"fly\"", "people[0].keys[0].do: cannot be \"fly\"; allowed is one of in_bed"},
        {"/people/1/keys/0/place", "[4.3, 9]", "people[1].keys[0].place: cannot be [4.3,9]; allowed is x from 0"}}) {
    json change = {{"op", value == nullptr ? "remove" : "add"}, {"path", place}};
    if (value != nullptr) change["value"] = json::parse(value);
    EXPECT_EQ(complaint(demo.patch(json::array({change})).dump()).find(says), 0U) << says;
  }
  EXPECT_THROW(readScenario(testing::TempDir()), std::runtime_error);
  EXPECT_EQ(complaint(std::string(200'000, '[')), "is not valid JSON");
  EXPECT_EQ(complaint(std::string(2'000'000, ' ')), "is larger than 1 MiB; allowed is a JSON file");
}

/// What happens when the demo's patient and carer do these keys for a minute.
std::string happens(const char* patient, const char* carer) {
  json script = json::parse(std::ifstream(VELMOR_DEMO));
  script["description"] = "Two\nlines.";
  script["seconds"] = 60;
  script["people"][0]["keys"] = json::parse(patient);
  script["people"][1]["keys"] = json::parse(carer);
  const std::string path = testing::TempDir() + "velmor_story_" + std::to_string(getpid()) + ".json";
  std::ofstream(path) << script;
  std::string text = happenedText(readScenario(path));
  std::filesystem::remove(path);
  return text;
}

TEST(Happened, IsToldInIntervalsAndMoments) {
  EXPECT_EQ(happens(R"([{"at": 0, "do": "in_bed"}, {"at": 5, "do": "sit_up"}, {"at": 6, "do": "sit_edge"},
                        {"at": 8.125, "do": "stand", "place": [1.9, 2.6], "heading": 0},
                        {"at": 9, "do": "lie", "place": [2.3, 2.3], "heading": 0},
                        {"at": 20, "do": "lie", "place": [2.3, 2.3], "heading": 5},
                        {"at": 22, "do": "stand", "place": [1.9, 2.6], "heading": 0},
                        {"at": 24, "do": "lie", "place": [2.3, 2.3], "heading": 0, "helpless": false},
                        {"at": 30, "do": "lie", "place": [2.3, 2.3], "heading": 0, "helpless": false},
                        {"at": 32, "do": "stand", "place": [1.9, 2.6], "heading": 0},
                        {"at": 34, "do": "sit_edge"}, {"at": 36, "do": "in_bed"}])",
                    R"([{"at": 19, "do": "stand", "place": [3.3, 2.5], "heading": 180},
                        {"at": 21, "do": "stand", "place": [3.3, 2.5], "heading": 180}])"),
            "# Two lines.\nlength 60\n\n"
            "0 - 5  in bed\n36 - 60  in bed\n8.13 - 32  out of bed\n9 - 20  fallen\n19 - 21  carer present\n\n"
            "8.13  the patient leaves the bed\n9  the patient falls\n19  a carer comes\n"
            "20  the patient is helped up\n21  a carer goes\n36  the patient is back in bed\n");
  // Who is away is out of bed; who is on the floor at the end stays there; nobody helps from afar.
  EXPECT_EQ(happens(R"([{"at": 10, "do": "stand", "place": [1.9, 2.6], "heading": 0},
                        {"at": 11, "do": "lie", "place": [2.3, 2.3], "heading": 0},
                        {"at": 20, "do": "kneel", "place": [2.3, 2.3], "heading": 0},
                        {"at": 30, "do": "sit_edge"}, {"at": 31, "do": "in_bed"}, {"at": 33, "do": "in_bed"},
                        {"at": 35, "do": "stand", "place": [1.9, 2.6], "heading": 0},
                        {"at": 40, "do": "stand", "place": [1.9, 2.6], "heading": 0}])",
                    R"([{"at": 5, "do": "stand", "place": [4.2, 1.7], "heading": 180},
                        {"at": 6, "do": "stand", "place": [4.2, 1.7], "heading": 180},
                        {"at": 90, "do": "lie", "place": [3.6, 1.7], "heading": 180}])"),
            "# Two lines.\nlength 60\n\n"
            "31 - 33  in bed\n0 - 20  out of bed\n35 - 60  out of bed\n0 - 5  nobody\n5 - 60  carer present\n\n"
            "5  a carer comes\n10  the patient comes\n11  the patient falls\n11  the patient gets up\n"
            "31  the patient is back in bed\n35  the patient leaves the bed\n40  the patient goes\n");
}

/// A room with two beds, a walker and a wheelchair; in it, people.
Scenario ward(const char* people) {
  json script = json::parse(std::ifstream(VELMOR_DEMO));
  script["room"] = 28;
  script["camera"]["position"] = {2.8, 0.15, 2.6};
  script["camera"]["look_at"] = {2.8, 3.5, 0.4};
  script["furniture"] = json::parse(R"([{"what": "walker", "place": [2, 1.5], "heading": 0},
                                        {"what": "wheelchair", "place": [2.8, 2.5], "heading": 90}])");
  script["people"] = json::parse(people);
  const std::string path = testing::TempDir() + "velmor_ward_" + std::to_string(getpid()) + ".json";
  std::ofstream(path) << script;
  Scenario scenario = readScenario(path);
  std::filesystem::remove(path);
  return scenario;
}

/// Middle of the hips.
glm::vec3 hipsOf(const Scene& scene, std::size_t person) { return scene.people.at(person).pose.root; }

TEST(Story, WhoSitsInAWheelchairIsTakenAlongAndStaysWhereItIsLeft) {
  const Scenario story = ward(R"([
    {"body": 1, "bed": 2, "keys": [{"at": 0, "do": "in_bed", "cover": 1.5}, {"at": 90, "do": "in_bed", "cover": 1.5}]},
    {"body": 3, "bed": 1, "keys": [{"at": 0, "do": "sit", "on": 1}, {"at": 40, "do": "sit", "on": 1},
                                   {"at": 45, "do": "sit", "on": 1, "place": [2.8, 2.6], "heading": -90}]},
    {"body": 2, "keys": [{"at": 0, "do": "stand", "place": [2.8, 1.72], "heading": 90, "with": 1},
                         {"at": 10, "do": "stand", "place": [2.8, 2.7], "heading": 90, "with": 1},
                         {"at": 12, "do": "stand", "place": [2.8, 2.7], "heading": 90},
                         {"at": 14, "do": "stand", "place": [2.8, 1.5], "heading": -90}]}])");
  for (const auto& [time, place] :
       {std::pair{0.0F, 2.5F}, {5.0F, 2.99F}, {10.0F, 3.48F}, {30.0F, 3.48F}, {45.0F, 2.6F}}) {
    const Scene now = story.at(time);
    EXPECT_NEAR(boundsOf(now.things).high.y, place + 0.45F, 0.1F) << time;
    EXPECT_LT(glm::distance(glm::vec2(hipsOf(now, 1)), glm::vec2(2.8F, place)), 0.15F) << time;
    EXPECT_NEAR(hipsOf(now, 1).z, 0.6F, 0.05F) << "on the seat";
    EXPECT_GT(now.covers[1], 1) << "the other bed's blanket";
    EXPECT_EQ(now.covers[0], 0) << "nobody's";
  }
  EXPECT_EQ(happenedText(story).substr(happenedText(story).find("0 - ")),
            "0 - 92  in bed 2\n0 - 92  out of bed\n0 - 14  carer present\n\n14  a carer goes\n");
}

TEST(Story, ThoseThatCannotBeAreRefusedByKey) {
  const auto fault = [](const std::string& keys) {
    try {
      ward(("[{\"body\": 1, \"keys\": [" + keys + "]}]").c_str());
    } catch (const std::runtime_error& error) {
      const std::string what = error.what();
      return what.substr(what.find("people[0]"));
    }
    return std::string();
  };
  const std::string stand = R"({"at": 0, "do": "stand", "place": [2.8, 1.2], "heading": 90}, )";
  EXPECT_EQ(fault(stand + R"({"at": 5, "do": "stand", "place": [2.8, 3.5], "heading": 90})"),
            "people[0].keys[1].place: the way there leads through the wheelchair (furniture[1])");
  const Bed bed = makeRoom(28).beds[0];
  const auto at = [](glm::vec2 place) { return "[" + std::to_string(place.x) + ", " + std::to_string(place.y) + "]"; };
  EXPECT_EQ(fault(R"({"at": 0, "do": "kneel", "heading": 0, "place": )" + at(bed.centre) + "}"),
            "people[0].keys[0].place: lies in bed 1");
  EXPECT_EQ(fault(R"({"at": 0, "do": "lie", "heading": 180, "place": [0.6, 1.5]})"),
            "people[0].keys[0].place: lies in the wall");
  EXPECT_EQ(fault(R"({"at": 0, "do": "sit", "on": 0})"),
            "people[0].keys[0].on: cannot be 0; allowed is the number in furniture of a chair or a wheelchair");
  EXPECT_EQ(fault(R"({"at": 0, "do": "stand", "place": [2.8, 1.2], "heading": 90, "with": 2})"),
            "people[0].keys[0].with: cannot be 2; allowed is the number in furniture of a walker or a wheelchair");
  EXPECT_EQ(fault(R"({"at": 0, "do": "half_out", "side": "far", "counts_as": "out of bed"})"), "")
      << "room on both sides";
}

TEST(Story, TheLightChangesAtItsTimeAndTheCameraMayBeTurned) {
  json script = json::parse(std::ifstream(VELMOR_DEMO));
  script["people"] = json::array();
  script["camera"]["rotation"] = 90;
  script["camera"]["look_at"] = {1.9, 2.75, 0.5};
  script["floor"]["width"] = 0.8;
  script["exclusions"] = {{{1, 3, 0}, {1.5, 3, 0}, {1.5, 2.5, 0}, {1, 2.5, 0}}};
  script["lighting"] = json::parse(R"([{"at": 5, "is": "infrared", "noise": 9}, {"at": 20, "is": "lamp"}])");
  const std::string path = testing::TempDir() + "velmor_light_" + std::to_string(getpid()) + ".json";
  std::ofstream(path) << script;
  const Scenario story = readScenario(path);
  std::filesystem::remove(path);
  EXPECT_EQ(story.at(4.9F).light.lamp, story.scene.light.lamp);
  EXPECT_TRUE(story.at(5).light.infrared);
  EXPECT_EQ(story.at(5).noise, 9);
  EXPECT_EQ(story.at(5).light.torchPlace, story.scene.camera.position);
  EXPECT_FALSE(story.at(20).light.infrared);
  EXPECT_EQ(story.at(20).noise, 0);
  const json settings = json::parse(settingsText(story));
  EXPECT_EQ(settings["rotation"], 90);
  EXPECT_EQ(settings["parameters"]["Exclusion1Active"], "true");
  const glm::vec3 corner = story.scene.camera.project({1.5F, 2.5F, 0});
  EXPECT_GT(corner.y, 720) << "pixels of the upright picture, 720 x 1280";
  EXPECT_EQ(settings["parameters"]["Exclusion12y"], std::to_string(std::lround(corner.y)));
  EXPECT_EQ(happenedText(story).substr(happenedText(story).find("0 - ")), "0 - 92  nobody\n");
}

/// What the script leads to stands beside it: the settings, what happened, and every half second who is where.
TEST(Demo, ComesOutAsItIsKept) {
  const Scenario demo = readScenario(VELMOR_DEMO);
  const std::filesystem::path folder = std::filesystem::path(VELMOR_DEMO).parent_path();
  for (const auto& [file, area] :
       {std::pair{"demo.settings.json", BedArea::kVolume}, {"demo.mattress.settings.json", BedArea::kMattress}}) {
    std::ifstream settings(folder / file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(settings), {}), settingsText(demo, area)) << file;
  }
  std::ifstream happened(folder / "demo.happened.txt");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(happened), {}), happenedText(demo));
  std::ifstream file(folder / "demo.truth.jsonl");
  int lines = 0;
  for (std::string line; std::getline(file, line);) {
    json kept = json::parse(line);
    const double time = 0.5 * ++lines;
    const Scene scene = demo.at(static_cast<float>(time));
    ASSERT_EQ(kept["people"].size(), scene.people.size()) << time;
    std::vector<TrueKeypoints> truth(scene.people.size());
    for (std::size_t i = 0; i < truth.size(); ++i) {
      const Figure figure = makeFigure(scene.people[i].shape, scene.people[i].pose);
      for (std::size_t k = 0; k < kKeypoints; ++k) {
        const glm::vec3 seen = scene.camera.project(figure.keypoints[k]);
        truth[i][k] = {seen.x, seen.y, kept["people"][i]["keypoints"][k][2].get<Visibility>()};
      }
    }
    json now = json::parse(truthLine(scene, truth, time));
    for (std::size_t i = 0; i < truth.size(); ++i) {
      for (std::size_t k = 0; k < kKeypoints; ++k) {
        json& point = now["people"][i]["keypoints"][k];
        json& keptPoint = kept["people"][i]["keypoints"][k];
        for (const int axis : {0, 1}) {  // another compiler may round a tenth of a pixel the other way
          EXPECT_NEAR(point[axis].get<float>(), keptPoint[axis].get<float>(), 0.15) << time << " keypoint " << k;
          point[axis] = keptPoint[axis];
        }
      }
    }
    EXPECT_EQ(now, kept) << time;
  }
  EXPECT_EQ(lines, std::lround(demo.seconds * 2) - 1);
}

TEST(Demo, NobodyWalksOrFallsThroughFurniture) {
  const Scenario demo = readScenario(VELMOR_DEMO);
  ASSERT_FALSE(demo.scene.room.furniture.empty());
  const long frames = std::lround(demo.seconds) * demo.framesPerSecond;
  for (long frame = 0; frame < frames; ++frame) {
    const float time = static_cast<float>(frame) / static_cast<float>(demo.framesPerSecond);
    for (const Person& person : demo.at(time).people) {
      const Figure figure = makeFigure(person.shape, person.pose);
      for (const Capsule& part : figure.capsules) {
        for (const float t : {0.0F, 0.25F, 0.5F, 0.75F, 1.0F}) {
          const glm::vec3 place = glm::mix(part.a, part.b, t);
          const float radius = glm::mix(part.radiusA, part.radiusB, t);
          for (const Box& piece : demo.scene.room.furniture) {
            ASSERT_GT(glm::distance(place, glm::clamp(place, piece.low, piece.high)), radius) << time << " s";
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace simulator
