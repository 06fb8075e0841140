// The reference program as a user starts it. What it finds in true keypoints is the demo's test.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "tests/platform/state_folder.h"

namespace {

class Reference : public testing::Test {
 protected:
  Reference() {
    folder.write("video.mp4", "");
    folder.write("camera.json", R"({"source": "video.mp4"})");
    setenv("VELMOR_MANIFEST", VELMOR_SOURCE_DIR "/package/manifest.json", 1);
    setenv("VELMOR_TRUTH", (folder / "truth.jsonl").c_str(), 1);
  }

  /// Exit status of a program on the true people; what it says of errors is in "errors".
  int runOn(const std::string& lines, const std::string& program = VELMOR_REFERENCE) const {
    folder.write("truth.jsonl", lines);
    return WEXITSTATUS(std::system((program + " >/dev/null 2>" + (folder / "errors").string()).c_str()));
  }

  StateFolder folder;
};

/// A picture of one person.
std::string picture(const std::string& time, const std::string& x = "300.2", const std::string& visibility = "2") {
  std::string line = "{\"t\": " + time + R"(, "people": [{"id": 0, "keypoints": [)";
  for (int point = 0; point < 17; ++point) {
    line.append(point == 0 ? "[" : ", [").append(x).append(", ").append(std::to_string(100 + 30 * point));
    line.append(", ").append(visibility).append("]");
  }
  return line + "]}]}\n";
}

TEST_F(Reference, ABadLineIsNamed) {
  EXPECT_EQ(runOn(picture("0.5") + picture("1")), 0) << folder.read("errors");
  for (const auto& [line, complaint] :
       {std::pair{std::string("{\"t\": 1.0"), "not a JSON object"},
        {picture("0.5"), "\"t\" must be later than in the line before"},
        {picture("-1"), "\"t\" must be a number from 0 to 31622400"},
        {std::string("{\"t\": 1, \"people\": [7]}\n"), "person 1: must be an object"},
        {picture("1", "0", "3"), "person 1: Nose visibility must be a number from 0 to 2"},
        {picture("1", "1e9"), "person 1: Nose x must be a number from -10000 to 10000"}}) {
    EXPECT_EQ(runOn(picture("0.5") + line), 2) << line;
    EXPECT_EQ(folder.read("errors"),
              "velmor_reference: " + (folder / "truth.jsonl").string() + " line 2: " + complaint + "\n");
  }
  EXPECT_EQ(runOn(""), 2);
  EXPECT_NE(folder.read("errors").find("no picture in it"), std::string::npos);
}

TEST_F(Reference, TheProgramItselfEndsWithoutItsModels) {
  setenv("VELMOR_ROOT", folder.path().c_str(), 1);
  EXPECT_EQ(runOn("", VELMOR_CARE), 255);
  EXPECT_EQ(folder.read("errors"),
            "velmor_care: Failed to open model file " + folder.path().string() +
                "/usr/local/packages/velmor_care/pose_landscape.onnx. No such file or directory\n");
}

}  // namespace
