// The reference program, from true keypoints to events on standard output.
#include <sys/wait.h>

#include <sstream>

#include "tests/analysis/room.h"

namespace {

class Reference : public Room {
 protected:
  Reference() {
    folder.write("video.mp4", "");
    const auto [x, y] = inBed1().superior;
    std::ostringstream camera;
    camera << R"({"source": "video.mp4", "parameters": {"Detection1Active": "true", )";
    const int corners[] = {x - 90, y - 40, x + 60, y - 40, x + 60, y + 40, x - 90, y + 40};
    for (int i = 0; i < 8; ++i) {
      camera << "\"Detection1" << i / 2 << "xy"[i % 2] << "\": \"" << corners[i] << (i < 7 ? "\", " : "\"}}");
    }
    folder.write("camera.json", camera.str());
    setenv("VELMOR_MANIFEST", VELMOR_SOURCE_DIR "/package/manifest.json", 1);
    setenv("VELMOR_TRUTH", (folder / "truth.jsonl").c_str(), 1);
    setenv("VELMOR_OUTPUT", "json", 1);
  }

  /// Everybody's picture for some cycles.
  void see(int cycles, const Skeletons& people) {
    for (; cycles > 0; --cycles) {
      truth << "{\"t\": " << (m_t += 0.5) << ", \"people\": [";
      for (std::size_t i = 0; i < people.size(); ++i) {
        truth << (i == 0 ? "" : ", ") << "{\"id\": 0, \"keypoints\": [";
        for (const auto& [part, keypoint] : people[i].keypoints) {
          truth << (part == BodyPart::Nose ? "" : ", ") << "[" << keypoint.point.x << ".2, " << keypoint.point.y
                << ", 2]";
        }
        truth << "]}";
      }
      truth << "]}\n";
    }
  }
  /// Exit status, and what was printed.
  std::pair<int, std::string> runOn(const std::string& lines, const std::string& command = VELMOR_REFERENCE) {
    folder.write("truth.jsonl", lines);
    FILE* program = popen((command + " 2>" + (folder / "errors").string()).c_str(), "r");
    std::string output;
    for (int c = 0; (c = fgetc(program)) != EOF;) output += static_cast<char>(c);
    return {WEXITSTATUS(pclose(program)), output};
  }

  StateFolder folder;
  std::ostringstream truth;

 private:
  double m_t = 0;
};

TEST_F(Reference, PrintsBothEventsAndRepeatsItself) {
  see(20, {inBed1()});
  see(4, {standing(0.3, 3.2)});
  see(40, {lying(0.3, 3.2)});
  see(10, {inBed1(), standing(0.9, 2.4)});
  const auto [status, output] = runOn(truth.str());
  EXPECT_EQ(status, 0);
  EXPECT_EQ(output, R"({"t": 15.5, "event": "Patient Out of Bed", "active": true}
{"t": 23.0, "event": "Fall Detected", "active": true}
{"t": 32.5, "event": "Patient Out of Bed", "active": false}
{"t": 36.0, "event": "Fall Detected", "active": false}
)");
  EXPECT_EQ(runOn(truth.str()).second, output);
}

TEST_F(Reference, ABadLineIsNamed) {
  see(1, {standing(0, 3)});
  const std::string good = truth.str();
  const auto changed = [&good](const std::string& from, const std::string& to) {
    std::string line = good;
    return good + line.replace(line.find(from), from.size(), to);
  };
  for (const auto& [lines, complaint] :
       {std::pair{good + "{\"t\": 1.0", std::string("line 2: not a JSON object")},
        {good + good, "line 2: \"t\" must be later than in the line before"},
        {changed("0.5", "-1"), "line 2: \"t\" must be a number from 0 to 31622400"},
        {good + "{\"t\": 1, \"people\": [7]}\n", "line 2: person 1: must be an object"},
        {changed(", 2]", ", 3]").replace(good.find("0.5"), 3, "0.1"), "line 2: person 1: Nose visibility must be"},
        {changed(".2, ", "e9, ").replace(good.find("0.5"), 3, "0.1"), "line 2: person 1: Nose x must be a number"},
        {std::string(), "no picture in it"}}) {
    EXPECT_EQ(runOn(lines).first, 2) << lines;
    const std::string errors = folder.read("errors");
    EXPECT_NE(errors.find("velmor_reference: " + (folder / "truth.jsonl").string()), std::string::npos) << errors;
    EXPECT_NE(errors.find(complaint), std::string::npos) << errors << lines;
  }
}

TEST_F(Reference, TheProgramItselfEndsWithoutItsModels) {
  setenv("VELMOR_ROOT", folder.path().c_str(), 1);
  EXPECT_EQ(runOn("", VELMOR_CARE).first, 255);
  EXPECT_EQ(folder.read("errors"),
            "velmor_care: Failed to open model file " + folder.path().string() +
                "/usr/local/packages/velmor_care/pose_landscape.onnx. No such file or directory\n");
}

}  // namespace
