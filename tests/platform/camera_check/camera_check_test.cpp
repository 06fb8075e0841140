// velmor_camera as somebody starts it, at cameras that work and at all that is none.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "platform/scripted/stage/rtsp_camera.h"
#include "platform/workstation/web/http_server.h"
#include "tests/platform/recording_writer.h"
#include "tests/platform/state_folder.h"

namespace {

struct Said {
  int status = -1;
  std::string text;  ///< on both outputs
};

class CameraCheck : public testing::Test {
 protected:
  CameraCheck() {
    m_folder.write("login", "ward\ns3cret pass\n");
    m_folder.write("wrong", "ward\nother s3cret\n");
    for (const char* file : {"login", "wrong"}) ::chmod((m_folder / file).c_str(), S_IRUSR | S_IWUSR);
  }

  /// `more` goes before the program's name: its environment.
  Said check(const std::string& words, const std::string& more = "") const {
    const std::string command = more + " " PROGRAM_DIRECTORY "/velmor_camera check " + words + " 2>&1";
    std::FILE* const output = ::popen(command.c_str(), "r");
    Said said;
    std::array<char, 4096> block{};
    while (std::fgets(block.data(), static_cast<int>(block.size()), output) != nullptr) said.text += block.data();
    said.status = WEXITSTATUS(::pclose(output));
    return said;
  }
  std::string file(const char* name) const { return (m_folder / name).string(); }

  /// Until the camera's process listens.
  Said checkUntil(const std::string& words, int status) const {
    Said said = check(words);
    for (int tries = 0; tries < 20 && said.status != status; ++tries) said = check(words);
    return said;
  }

  StateFolder m_folder;
};

/// Whether all the words stand in the text.
testing::AssertionResult has(const Said& said, std::initializer_list<const char*> words) {
  for (const char* word : words) {
    if (said.text.find(word) == std::string::npos) return testing::AssertionFailure() << word << "\n" << said.text;
  }
  return testing::AssertionSuccess() << said.text;
}

TEST_F(CameraCheck, AsksForALoginAndThenTellsWhatTheCameraGives) {
  scripted::RtspCamera camera;
  camera.plug({.login = "ward:s3cret pass"});
  const std::string picture = file("room.jpg");
  const Said seen = checkUntil(camera.uri() + " --login " + file("login") + " --picture " + picture, 0);
  EXPECT_EQ(seen.status, 0) << seen.text;
  EXPECT_TRUE(has(seen, {"can be watched", "JPEG", "320x176", "10 pictures a second told", "RTSP over TCP",
                         "bars stand above and below", "% of one core", "fast enough", "room.jpg"}));
  EXPECT_EQ(m_folder.read("room.jpg").substr(0, 2), "\xFF\xD8");
  const Said asked = check(camera.uri());
  EXPECT_TRUE(has(asked, {"cannot be watched", "asks for a user name and a password"}));
  const Said refused = check(camera.uri() + " --login " + file("wrong"));
  EXPECT_TRUE(has(refused, {"refuses this user name or this password"}));
  const Said elsewhere = check("rtsp://127.0.0.1:" + camera.port() + "/kitchen --login " + file("login"));
  EXPECT_TRUE(has(elsewhere, {"nothing at this path (404)"}));
  for (const Said& said : {asked, refused, elsewhere}) EXPECT_EQ(said.status, 1) << said.text;
  for (const Said& said : {seen, refused, elsewhere})
    EXPECT_EQ(said.text.find("ecret"), std::string::npos) << said.text;
  const Said missing =
      check(camera.uri() + " --login " + file("login"), "GST_PLUGIN_FEATURE_RANK=jpegdec:0,avdec_mjpeg:0");
  EXPECT_TRUE(has(missing, {"cannot be decoded here", "JPEG", "Debian package gstreamer1.0-plugins-good"}));
  camera.unplug();
  camera.plug({.width = 4096, .height = 3200, .codec = scripted::RtspCamera::Codec::kH264});
  while (check(camera.uri()).text.find("refuses the connection") != std::string::npos) continue;
  EXPECT_TRUE(has(check(camera.uri()), {"more than this program takes", "4096x3200", "second, smaller stream"}));
  camera.freeze();
  const Said silent = check(camera.uri() + " --wait 1 --login " + file("login"));
  EXPECT_EQ(silent.status, 1) << silent.text;
  camera.unplug();
  const Said gone = check(camera.uri());
  EXPECT_EQ(gone.status, 1);
  EXPECT_TRUE(has(gone, {"refuses the connection", "Check the port"}));
}

TEST_F(CameraCheck, TellsWhatIsNoCamera) {
  m_folder.write("page.html", "<!doctype html><title>camera</title>");
  workstation::HttpServerSettings settings;
  settings.page = m_folder.path();
  workstation::HttpServer server(settings);
  const std::string host = "http://127.0.0.1:" + std::to_string(server.listen({"127.0.0.1", 0, 0}));
  EXPECT_TRUE(has(check(host + "/local/velmor_care/page.html"), {"holds no video", "Check the path"}));
  EXPECT_TRUE(has(check(host + "/none?key=secret"), {"nothing at this path", "?..."}));
  EXPECT_TRUE(
      has(check("rtsp://nobody.invalid/x", "RES_OPTIONS='timeout:1 attempts:1'"), {"of this name", "spelling"}));
  EXPECT_TRUE(has(check("rtsp://:1/x"), {"cannot be watched"}));
  EXPECT_TRUE(has(check(file("none.mp4")), {"there is no such file"}));
  server.stop();
}

TEST_F(CameraCheck, TriesWhatADescriptionNames) {
  ASSERT_TRUE(writeRecording({.width = 128, .height = 72, .frames = 20}, file("film")));
  m_folder.write("camera.json", R"({"source": "film", "rotation": 90})");
  const Said said = check("--camera " + file("camera.json"));
  EXPECT_EQ(said.status, 0) << said.text;
  EXPECT_TRUE(has(said, {"128x72", "fills the picture", "not told"}));
  EXPECT_FALSE(std::filesystem::exists(m_folder / "room.jpg"));
  for (const std::string& words : std::initializer_list<std::string>{
           "", "a b", "a --camera " + file("camera.json"), "a --login", "a --login " + file("none"), "a --user x",
           "rtsp://user:s3cret@h/", "rtsp://h/ --picture /nowhere/x.jpg", "rtsp://h/ --wait 0",
           "rtsp://h/ --certificate 12", "--camera " + file("login")}) {
    EXPECT_EQ(check(words).status, 2) << words;
  }
}

}  // namespace
