// Scripts, and the demo that is made of one.
#include "simulator/stories/scenario.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

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
       {Broken{"/camera/roll", "1", "camera.roll: is not known here"},
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
        {"/camera/look_at", "[2.5, -3, 0.5]", "camera: must look at the bed"},
        {"/floor/corner", "[1.7, -1]", "floor: must lie in the picture"},
        {"/people", "[]", "people: cannot be []; allowed is a list that is not empty"},
        {"/people/0/keys/1/at", "0", "people[0].keys[1].at: must grow"},
        {"/people/1/keys", R"([{"at": 92, "do": "in_bed"}])", "people[1].keys[0].at: must be before the video's end"},
        {"/people/0/keys/0/helpless", "true", "people[0].keys[0].helpless: is for somebody on the floor"},
        {"/people/0/keys/0/do", "\"fly\"", "people[0].keys[0].do: cannot be \"fly\"; allowed is in_bed"},
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
  const std::string text = happenedText(readScenario(path));
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
                        {"at": 30, "do": "sit_edge"},
                        {"at": 35, "do": "stand", "place": [1.9, 2.6], "heading": 0},
                        {"at": 40, "do": "stand", "place": [1.9, 2.6], "heading": 0}])",
                    R"([{"at": 5, "do": "stand", "place": [4.2, 1.7], "heading": 180},
                        {"at": 6, "do": "stand", "place": [4.2, 1.7], "heading": 180},
                        {"at": 90, "do": "lie", "place": [4.2, 1.7], "heading": 180}])"),
            "# Two lines.\nlength 60\n\n"
            "0 - 20  out of bed\n35 - 60  out of bed\n0 - 5  nobody\n5 - 60  carer present\n\n"
            "5  a carer comes\n10  the patient comes\n11  the patient falls\n11  the patient gets up\n"
            "35  the patient leaves the bed\n40  the patient goes\n");
}

/// What the script leads to stands beside it: the settings, what happened, and every half second who is where.
TEST(Demo, ComesOutAsItIsKept) {
  const Scenario demo = readScenario(VELMOR_DEMO);
  const std::filesystem::path folder = std::filesystem::path(VELMOR_DEMO).parent_path();
  std::ifstream settings(folder / "demo.settings.json");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(settings), {}), settingsText(demo));
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
