// Another camera takes the place of the one that is watched, now and at the next start.
#include "platform/workstation/camera/takeover.h"

#include <sys/stat.h>

#include <atomic>
#include <csignal>

#include "platform/scripted/stage/rtsp_camera.h"
#include "platform/workstation/camera/taken_camera.h"
#include "platform/workstation/camera/video_service.h"
#include "platform/workstation/decoding/live_camera.h"
#include "tests/platform/camera_stream.h"
#include "tests/platform/conditions.h"
#include "tests/platform/state_folder.h"

using namespace std::chrono_literals;
using namespace workstation;

namespace {

class TakeoverTest : public testing::Test {
 protected:
  TakeoverTest() {
    std::signal(SIGPIPE, SIG_IGN);
    liveTimes() = {.fresh = 2s, .start = 300ms, .first_frame = 20s, .next_frame = 2s, .closing = 300ms};
    m_folder.write("camera.json", R"({"stream_sizes": ["128x72"], "source": ")" + m_old.uri() + "\"}");
    m_old.plug({.luma = kBright, .width = 256, .height = 144});
    m_stream = openStream(128, 72);
  }
  static constexpr int kBright = 220, kDark = 40;

  bool showsOld() const { return lumaOf(m_stream) > 150; }
  bool showsNext() const {
    const int luma = lumaOf(m_stream);
    return luma > 0 && luma < 100;
  }
  static bool ends(const Takeover& takeover) {
    return comes([&] { return takeover.progress().state != Takeover::State::kOpening; });
  }
  bool isPrivate(const std::string& file) const {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  }

  StateFolder m_folder;
  scripted::RtspCamera m_old, m_next;
  StreamPtr m_stream;
};

TEST_F(TakeoverTest, TheNewCameraIsWatchedOnceItGivesPicturesAndAlsoAfterARestart) {
  ASSERT_TRUE(comes([this] { return showsOld(); }));
  m_next.plug({.luma = kDark, .width = 256, .height = 144, .login = "ward:s3cret"});
  {
    liveTimes().first_frame = 3s;
    const Takeover refused(openedCamera(), {.uri = m_next.uri(), .login = {"ward", "wrong"}});
    ASSERT_TRUE(ends(refused));
    EXPECT_EQ(refused.progress().state, Takeover::State::kFailed);
    EXPECT_NE(refused.progress().reason, "");
    EXPECT_TRUE(showsOld());
    EXPECT_EQ(textOf(Trouble::kCameraAway), "") << "it is not the one that is watched";
    EXPECT_FALSE(readTakenCamera(m_folder.path()));
    liveTimes().first_frame = 20s;
  }
  std::filesystem::create_directory(m_folder / "taken-camera.json");
  std::atomic<int> told = 0;
  const auto tell = [&told] { ++told; };
  const Takeover unkept(openedCamera(), {.uri = m_next.uri(), .login = {"ward", "s3cret"}}, tell);
  ASSERT_TRUE(ends(unkept));
  EXPECT_NE(unkept.progress().reason.find("taken-camera.json"), std::string::npos) << unkept.progress().reason;
  EXPECT_TRUE(showsOld()) << "what a restart would not watch is not watched now";
  EXPECT_EQ(told, 0);
  std::filesystem::remove(m_folder / "taken-camera.json");
  const Takeover taking(openedCamera(), {.uri = m_next.uri(), .login = {"ward", "s3cret"}}, tell);
  ASSERT_TRUE(ends(taking));
  EXPECT_EQ(taking.progress().reason, "");
  EXPECT_EQ(told, 1);
  EXPECT_TRUE(comes([this] { return showsNext(); }));
  m_old.unplug();
  EXPECT_EQ(watchedSource().uri, m_next.uri());
  EXPECT_TRUE(comes([this] { return showsNext(); }));
  EXPECT_EQ(textOf(Trouble::kCameraAway), "");

  const std::string json = (m_folder / "taken-camera.json").string();
  EXPECT_TRUE(isPrivate(json));
  EXPECT_EQ(m_folder.read("taken-camera.json").find("s3cret"), std::string::npos);
  CameraDescription camera;
  camera.source = m_old.uri("ward:new%20password@");
  EXPECT_NE(useTakenCamera(m_folder.path(), camera).find("taken over on the page"), std::string::npos);
  EXPECT_EQ(camera.source, m_next.uri());
  EXPECT_TRUE(isPrivate(camera.login));
  EXPECT_EQ(loginOf(sourceOf(camera)).password, "s3cret");

  m_next.unplug();
  EXPECT_TRUE(comes([] { return !textOf(Trouble::kCameraAway).empty(); })) << "it is in charge";
  const Takeover back(openedCamera(), {.uri = m_old.uri()});
  m_old.plug({.luma = kBright, .width = 256, .height = 144});
  ASSERT_TRUE(ends(back));
  EXPECT_TRUE(comes([this] { return showsOld(); }));
  EXPECT_TRUE(comes([] { return textOf(Trouble::kCameraAway).empty(); }));
  EXPECT_FALSE(std::filesystem::exists(camera.login)) << "of a camera that is watched no more";
  EXPECT_EQ(readTakenCamera(m_folder.path())->in_place_of, m_old.uri()) << "what the start named";
}

}  // namespace
