// Cameras of a network as they are: many codecs and sizes, logins, certificates, bad networks, wrong clocks, too much
// of everything. On the system's clock; what waits for seconds waits for tenths of them here.
#include <gst/app/gstappsink.h>

#include <cstdlib>

#include "platform/scripted/stage/rtsp_camera.h"
#include "platform/workstation/camera/video_service.h"
#include "platform/workstation/decoding/live_camera.h"
#include "tests/platform/camera_stream.h"
#include "tests/platform/cameras/camera_relay.h"
#include "tests/platform/cameras/http_camera.h"
#include "tests/platform/conditions.h"
#include "tests/platform/state_folder.h"

using namespace std::chrono_literals;
using namespace workstation;
using scripted::RtspCamera;

namespace {

constexpr std::uint32_t kWidth = 128, kHeight = 72;

/// A JPEG of one grey.
std::string jpegOf(int luma, int width = 320, int height = 176) {
  const std::string grey = std::to_string(0xFF000000U + static_cast<unsigned>(luma) * 0x010101U);
  const std::string line = "videotestsrc num-buffers=1 pattern=solid-color foreground-color=" + grey +
                           " ! video/x-raw,format=I420,width=" + std::to_string(width) +
                           ",height=" + std::to_string(height) + " ! jpegenc ! appsink name=sink";
  const GstPtr<GstElement> pipeline(gst_parse_launch(line.c_str(), nullptr));
  const GstPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "sink"));
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  const GstPtr<GstSample> sample(gst_app_sink_pull_sample(GST_APP_SINK(sink.get())));
  GstMapInfo map;
  gst_buffer_map(gst_sample_get_buffer(sample.get()), &map, GST_MAP_READ);
  std::string jpeg(reinterpret_cast<const char*>(map.data), map.size);
  gst_buffer_unmap(gst_sample_get_buffer(sample.get()), &map);
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  return jpeg;
}

/// The picture says that it is of 10,000 x 10,000 pixels.
std::string boasting(std::string jpeg) {
  const std::size_t frame = jpeg.find("\xFF\xC0");
  return jpeg.replace(frame + 5, 4, std::string("\x27\x10\x27\x10", 4));
}

class NetworkCameraTest : public testing::Test {
 protected:
  NetworkCameraTest() {
    gst_init(nullptr, nullptr);
    liveTimes() = {.fresh = 1500ms,
                   .start = 300ms,
                   .first_frame = 20s,
                   .next_frame = 3s,
                   .closing = 1s,
                   .shortest_pause = 100ms,
                   .longest_pause = 400ms,
                   .refused_pause = 400ms,
                   .steady = 500ms};
  }

  void open(const std::string& source, const std::string& more = "") {
    m_stream.reset();
    const std::string name = "camera" + std::to_string(++m_cameras) + ".json";  // each is read once
    m_folder.write(name, R"({"stream_sizes": ["128x72"], "source": ")" + source + "\"" + more + "}");
    setenv("VELMOR_CAMERA", (m_folder / name).c_str(), 1);
    m_stream = openStream(kWidth, kHeight);
  }
  void keepLogin(const std::string& content) const {
    m_folder.write("login", content);
    std::filesystem::permissions(m_folder / "login", std::filesystem::perms::owner_read);
  }
  void renewLogin(const std::string& content) const {
    std::filesystem::remove(m_folder / "login");
    keepLogin(content);
  }
  /// The luma here now; -1 when the camera gives no picture.
  int luma(std::size_t x = kWidth / 2, std::size_t y = kHeight / 2) const {
    const auto bytes = pictureOf(m_stream, std::size_t{kWidth} * kHeight);
    return bytes.empty() ? -1 : bytes.at(y * kWidth + x);
  }
  /// A grey comes out as it went in, a few steps beside it: cameras with JPEG write video's range and say that it is
  /// the full one, which matters little near the middle.
  bool shows(int grey) const { return std::abs(luma() - (16 + grey * 219 / 255)) <= 6; }
  static std::string trouble() { return textOf(Trouble::kCameraAway); }
  static bool tells(const std::string& words) {
    return comes([&words] { return trouble().find(words) != std::string::npos; });
  }
  void expectNoSecret() const { EXPECT_EQ((m_folder.read("system.log") + trouble()).find("ecret"), std::string::npos); }

  StateFolder m_folder;
  int m_cameras = 0;
  StreamPtr m_stream;
};

TEST_F(NetworkCameraTest, ShowsAnyCodecAndSizeAsAWholeAlsoWhenItChanges) {
  RtspCamera camera;
  open(camera.uri());
  const RtspCamera::Shown all[] = {
      {.luma = 200, .width = 320, .height = 240, .codec = RtspCamera::Codec::kH264},
      {.luma = 60, .width = 320, .height = 176, .codec = RtspCamera::Codec::kH265},
      {.luma = 120, .width = 176, .height = 320, .codec = RtspCamera::Codec::kJpeg},
      {.luma = 220, .width = 320, .height = 176, .codec = RtspCamera::Codec::kH264, .only_udp = true},
  };
  for (const RtspCamera::Shown& shown : all) {
    camera.plug(shown);
    EXPECT_TRUE(comes([&] { return shows(shown.luma); })) << shown.width << ' ' << trouble();
    const bool has_bars = shown.width * 9 < shown.height * 15;
    for (const std::size_t x : {0U, kWidth - 1}) {
      EXPECT_EQ(luma(x, kHeight / 2) == 16, has_bars) << shown.width << ' ' << luma(x, kHeight / 2);
    }
    EXPECT_GT(luma(kWidth / 2, 2), 40) << "no bar where it fills the picture";
    EXPECT_GT(luma(kWidth / 2, kHeight - 4), 40);
    camera.unplug();
    EXPECT_TRUE(comes([this] { return luma() == -1; }));
  }
}

TEST_F(NetworkCameraTest, SignsInWithTheFileAndTakesANewPasswordWithoutARestart) {
  RtspCamera camera;
  camera.plug({.luma = 130, .login = "ward:s:ecret 1"});
  keepLogin("ward\nwrong-ecret");
  open(camera.uri(), R"(, "login": "login")");
  EXPECT_TRUE(tells("it does not take this user with this password")) << trouble();
  renewLogin("ward\ns:ecret 1\n");
  EXPECT_TRUE(comes([this] { return shows(130); })) << trouble();
  camera.unplug();
  camera.plug({.luma = 100, .login = "ward:secret2"});
  EXPECT_TRUE(tells("it does not take this user with this password")) << trouble();
  std::filesystem::remove(m_folder / "login");
  EXPECT_TRUE(tells("login: there is no such file")) << trouble();
  keepLogin("ward\nsecret2");
  EXPECT_TRUE(comes([this] { return shows(100); })) << trouble();
  expectNoSecret();
}

TEST_F(NetworkCameraTest, ShowsPartsOverHttpToWhoeverMaySeeThem) {
  keepLogin("ward\nsecret");
  const std::string jpeg = jpegOf(130, 320, 240);
  for (const auto door : {HttpCamera::Door::kOpen, HttpCamera::Door::kBasic, HttpCamera::Door::kDigest}) {
    HttpCamera camera(door, "ward", "secret");
    camera.show(jpeg);
    if (door != HttpCamera::Door::kOpen) {
      open(camera.uri());
      EXPECT_TRUE(tells("it asks for a user and a password")) << trouble();
    }
    open(camera.uri(), R"(, "login": "login")");
    EXPECT_TRUE(comes([this] { return shows(130); })) << trouble();
    EXPECT_EQ(luma(0), 16) << "a bar";
    m_stream.reset();
  }
  expectNoSecret();
}

TEST_F(NetworkCameraTest, BelievesAnEncryptedCameraByItsFingerprintAlone) {
  const std::string both = (m_folder / "both.pem").string();
  ASSERT_EQ(std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=camera -keyout " + both +
                         " -out " + both + ".cert 2>/dev/null && cat " + both + ".cert >> " + both)
                            .c_str()),
            0);
  RtspCamera camera;
  camera.plug({.luma = 130, .certificate = both});
  const std::string uri = "rtsps" + camera.uri().substr(4);
  open(uri);
  ASSERT_TRUE(tells("if the camera itself shows the fingerprint ")) << trouble();
  const std::string text = trouble();
  const std::string fingerprint = text.substr(text.find("fingerprint ") + 12, 64);
  open(uri, R"(, "certificate": ")" + fingerprint + '"');
  EXPECT_TRUE(comes([this] { return shows(130); })) << trouble();
  open(uri, R"(, "certificate": ")" + std::string(64, 'a') + '"');
  EXPECT_TRUE(tells("another than the one that was agreed on; its fingerprint is " + fingerprint)) << trouble();
}

TEST_F(NetworkCameraTest, SurvivesABadNetworkAndTellsHowOldItsPicturesAre) {
  RtspCamera camera;
  camera.plug({.luma = 200, .codec = RtspCamera::Codec::kH264});
  CameraRelay relay(camera.port());
  open(relay.uri());
  const auto capture = [] {
    const auto frame = newestFrame();
    return frame ? std::optional(std::pair(frame->captured(), frame->taken())) : std::nullopt;
  };
  const auto late = [&capture] {
    const auto now = capture();
    return now && now->first.is_known ? now->second - now->first.time : -1s;
  };
  EXPECT_TRUE(comes([&] { return late() >= 0s && late() < 800ms; })) << trouble();
  relay.delay = 900ms;
  EXPECT_TRUE(comes([&] { return late() >= 800ms; })) << "what the network holds up is seen";
  relay.delay = 0ms;
  EXPECT_TRUE(comes([&] { return late() >= 0s && late() < 800ms; }));
  for (const std::int64_t lie : {-7200, 7200, 3}) {
    relay.clock_s = lie;
    EXPECT_TRUE(comes([&] { return capture() && !capture()->first.is_known; })) << lie;
    for (int look = 0; look < 20; ++look, std::this_thread::sleep_for(10ms)) {
      const auto now = capture();
      EXPECT_TRUE(!now || (now->first.time <= now->second && now->second - now->first.time < 2s)) << lie;
    }
  }
  relay.clock_s = 0;
  EXPECT_TRUE(comes([&] { return late() >= 0s; })) << "believed again";
  relay.lost_percent = 20;
  EXPECT_TRUE(comes([this] { return luma() >= 0; })) << trouble();
  relay.lost_percent = 0;
  for (const std::chrono::milliseconds stall : {300ms, 2000ms, 5000ms}) {
    relay.is_stalled = true;
    std::this_thread::sleep_for(stall);
    EXPECT_EQ(luma() == -1, stall >= 2s) << "no picture of before the stall is shown as one of now";
    relay.is_stalled = false;
    for (int look = 0; look < 50; ++look, std::this_thread::sleep_for(10ms)) {
      const auto now = capture();
      EXPECT_TRUE(!now || std::chrono::steady_clock::now() - now->first.time < 3s) << "what the stall held up is late";
    }
    EXPECT_TRUE(comes([this] { return shows(200); })) << trouble();
  }
}

TEST_F(NetworkCameraTest, TooMuchCostsPicturesAndNotTheProgram) {
  const std::string jpeg = jpegOf(130);
  HttpCamera camera(HttpCamera::Door::kOpen, "", "");
  camera.show(boasting(jpeg));
  open(camera.uri());
  EXPECT_TRUE(tells("its pictures of 10000x10000 are too large")) << trouble();
  camera.show(jpeg);
  EXPECT_TRUE(comes([this] { return shows(130); })) << trouble();
  camera.show(boasting(jpeg));
  EXPECT_TRUE(tells("its pictures of 10000x10000 are too large")) << "in mid-run: " << trouble();
  std::string many = jpeg;
  for (int i = 0; i < 100; ++i) many.append("\r\n--next\r\nContent-Type: image/jpeg\r\n\r\n").append(jpeg);
  camera.show(many, 0ms);
  EXPECT_TRUE(comes(
      [this] { return m_folder.read("system.log").find("more than 60 pictures a second") != std::string::npos; }));
  EXPECT_TRUE(comes([this] { return shows(130); })) << trouble();
  camera.has_no_end = true;
  camera.show(std::string(std::size_t{1} << 20, 'x'), 1ms);
  EXPECT_TRUE(tells("32 MB and more for one picture")) << trouble();
  RtspCamera large;
  large.plug({.width = 4096, .height = 3200, .codec = RtspCamera::Codec::kH264, .fps = 1});
  open(large.uri());
  EXPECT_TRUE(tells("its pictures of 4096x3200 are too large")) << trouble();
}

/// One picture every 100 ms, stated and come as the case says.
TEST(CaptureClock, BelievesWhatCanBeAndIsNeverFlattered) {
  const CaptureClock::Steady begin;
  const CaptureClock::Stated wall(1'800'000'000s);
  CaptureClock clock;
  std::chrono::milliseconds now{};
  const auto age = [&](std::chrono::milliseconds way, std::chrono::milliseconds wrong, bool is_known) {
    now += 100ms;
    const CaptureTime captured = clock.at(wall + now - way + wrong, begin + now, wall + now);
    EXPECT_EQ(captured.is_known, is_known) << way.count() << ' ' << wrong.count();
    return std::chrono::round<std::chrono::milliseconds>(begin + now - captured.time);
  };
  EXPECT_EQ(age(300ms, 0ms, true), 300ms);
  EXPECT_EQ(age(350ms, 0ms, true), 350ms);
  now += 3s;
  EXPECT_EQ(age(3350ms, 0ms, true), 3350ms) << "late, and it is seen";
  EXPECT_EQ(age(300ms, 0ms, true), 300ms);
  EXPECT_EQ(age(300ms, 100ms, true), 200ms) << "100 ms wrong cannot be known";
  EXPECT_EQ(age(300ms, 3h, false), 0ms) << "of the future";
  now += 600ms;
  EXPECT_EQ(age(900ms, 3h, false), 600ms) << "later than the one before, whatever the clock says";
  EXPECT_EQ(age(300ms, -3h, false), 0ms) << "set back: of long ago";
  EXPECT_EQ(age(300ms, -3h, false), 0ms);
  EXPECT_EQ(age(300ms, 0ms, true), 300ms) << "set right";
  EXPECT_EQ(clock.at(std::nullopt, begin + now, wall + now).time, begin + now);
  for (int hours = 0; hours < 10; ++hours, now += 1h) age(300ms, -hours * 400ms, hours < 5);  // a clock that goes slow
}

}  // namespace
