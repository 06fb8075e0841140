#include "platform/workstation/parameters/settings_document.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/state_folder.h"

using namespace workstation;

namespace {

class SettingsDocument : public testing::Test {
 protected:
  /// What is wrong with a document; empty if nothing is.
  std::string problemOf(const std::string& document) const {
    try {
      parametersOf(document, m_camera, m_rules);
    } catch (const std::runtime_error& problem) {
      EXPECT_EQ(std::string(problem.what()).find('\n'), std::string::npos) << problem.what();
      return problem.what();
    }
    return "";
  }

  const ParameterRules m_rules{VELMOR_SOURCE_DIR "/package/manifest.json"};
  CameraDescription m_camera;
};

TEST_F(SettingsDocument, GivesBackWhatItWasMadeOf) {
  Parameters values = m_rules.defaults();
  values["SelectedAnonOverlay"] = "a \"quoted\" \\ line\nand 窓";
  values["Sensitivity"] = "0.250000";
  const ParameterGroup read = parametersOf(settingsDocument(values), m_camera, m_rules);
  EXPECT_EQ(Parameters(read.begin(), read.end()), values);
  CameraDescription camera;
  layOver(camera, settingsDocument(values), "file");
  EXPECT_EQ(camera.parameters, read) << "as a start takes it";
}

TEST_F(SettingsDocument, IsRefusedInOneLineThatNamesWhatIsWrong) {
  m_camera.rotation = 90;
  const auto one = [](const std::string& name, const std::string& value) {
    return R"({"parameters": {")" + name + "\": " + value + "}}";
  };
  const std::pair<std::string, std::string> cases[] = {
      {one("Sensitivity", "\"1.01\""), "\"Sensitivity\" must be a number from 0 to 1"},
      {one("Sensitivity", "\"nan\""), "\"Sensitivity\" must be a number"},
      {one("Sensitivity", "0.5"), "parameters.\"Sensitivity\": cannot be 0.5"},
      {one("Detection10x", "\"12.5\""), "\"Detection10x\" must be a whole number from 0 to 1280"},
      {one("Detection10x", "\"-1\""), "\"Detection10x\" must be a whole number"},
      {one("Detection1Active", "\"1\""), R"("Detection1Active" must be "true" or "false")"},
      {one("WRectM", "\"0\""), "\"WRectM\" must be a number from 0.1 to 100"},
      {one("Unknown\\u001b", "\"1\""), "\"Unknown?\" is not a parameter"},
      {R"({"source": "rtsp://evil"})", "source: is not a setting"},
      {R"({"rotation": 0})", "rotation: is another here"},
      {R"({"product_name": "AXIS P3255-LVE"})", "product_name: is another here"},
      {R"({"focal_length_um": 0})", "focal_length_um: cannot be 0"},
      {"[]", "is not a JSON object"},
      {"", "is not a JSON object"},
      {R"({"parameters": )" + std::string(60000, '[') + std::string(60000, ']') + "}", "is not a JSON object"}};
  for (const auto& [document, why] : cases) {
    EXPECT_NE(problemOf(document).find(why), std::string::npos)
        << document.substr(0, 80) << ": " << problemOf(document);
  }
  EXPECT_EQ(problemOf(R"({"rotation": 90, "mirrored": false, "focal_length_um": 3700, "parameters": {}})"), "");
  EXPECT_EQ(problemOf(one("Sensitivity", "\"1\"")), "");
}

}  // namespace
