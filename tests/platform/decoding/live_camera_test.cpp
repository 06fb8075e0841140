// Cameras that stand still, vanish, come late and come back, on the system's clock. What waits for seconds waits for
// tenths of them here.
#include "platform/workstation/decoding/live_camera.h"

#include <axparameter.h>
#include <fcntl.h>
#include <gst/base/gstpushsrc.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <iostream>
#include <optional>

#include "platform/scripted/stage/rtsp_camera.h"
#include "platform/workstation/launcher/launch_media.h"
#include "platform/workstation/web/view_streams.h"
#include "tests/platform/camera_stream.h"
#include "tests/platform/conditions.h"
#include "tests/platform/recording_writer.h"
#include "tests/platform/state_folder.h"
#include "tests/platform/viewed_program.h"

using namespace std::chrono_literals;
using namespace workstation;

namespace {

/// A source that cannot be called back: while it is stuck, none that was opened ever returns.
std::atomic<bool> is_stuck{true};
std::atomic<int> times_opened{0};

struct StuckSource {
  GstPushSrc base;
};
struct StuckSourceClass {
  GstPushSrcClass base;
};

GstFlowReturn createStuck(GstPushSrc* /*source*/, GstBuffer** buffer) {
  ++times_opened;
  while (is_stuck) std::this_thread::sleep_for(5ms);
  std::this_thread::sleep_for(20ms);
  *buffer = gst_buffer_new_allocate(nullptr, 64 * 36 * 3 / 2, nullptr);
  gst_buffer_memset(*buffer, 0, 77, 64 * 36 * 3 / 2);
  return GST_FLOW_OK;
}

void stuckUris(gpointer interface, gpointer /*data*/) {
  auto* handler = static_cast<GstURIHandlerInterface*>(interface);
  handler->get_type = [](GType) { return GST_URI_SRC; };
  handler->get_protocols = [](GType) -> const gchar* const* {
    static const gchar* const protocols[] = {"stuck", nullptr};
    return protocols;
  };
  handler->get_uri = [](GstURIHandler*) { return g_strdup("stuck://here"); };
  handler->set_uri = [](GstURIHandler*, const gchar*, GError**) -> gboolean { return TRUE; };
}

G_DEFINE_TYPE_WITH_CODE(StuckSource, stuck_source, GST_TYPE_PUSH_SRC,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_URI_HANDLER, stuckUris))

void stuck_source_init(StuckSource* self) {
  gst_base_src_set_live(GST_BASE_SRC(self), TRUE);
  gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_TIME);
}

void stuck_source_class_init(StuckSourceClass* klass) {
  static GstStaticPadTemplate pad = GST_STATIC_PAD_TEMPLATE(
      "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw,format=I420,width=64,height=36,framerate=10/1"));
  gst_element_class_add_static_pad_template(GST_ELEMENT_CLASS(klass), &pad);
  gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(klass), "stuck", "Source", "never returns", "tests");
  GST_PUSH_SRC_CLASS(klass)->create = createStuck;
}

class LiveCameraTest : public testing::Test {
 protected:
  LiveCameraTest() {
    std::signal(SIGPIPE, SIG_IGN);
    liveTimes() = {.fresh = 700ms,
                   .start = 300ms,
                   .first_frame = 8s,
                   .next_frame = 1s,
                   .closing = 300ms,
                   .shortest_pause = 100ms,
                   .longest_pause = 400ms,
                   .steady = 500ms};
  }

  void use(const std::string& source, const std::string& more = "") const {
    m_folder.write("camera.json", R"({"stream_sizes": ["96x54", "128x72"], "source": ")" + source + "\"" + more + "}");
  }
  void open() { m_stream = openStream(128, 72); }
  /// The first luma of the picture that the program gets now; -1 when its request fails.
  int luma() const { return lumaOf(m_stream); }
  bool showsNear(int expected) const { return std::abs(luma() - expected) <= 6; }

  static std::string trouble() { return textOf(Trouble::kCameraAway); }
  static bool troubleHas(const std::string& words) { return trouble().find(words) != std::string::npos; }

  StateFolder m_folder;
  StreamPtr m_stream;
};

TEST_F(LiveCameraTest, ANetworkCameraComesLateFreezesDiesAndComesBackAsAnother) {
  scripted::RtspCamera camera;
  use(camera.uri("ward:s%2Fecret@"));
  open();
  EXPECT_EQ(luma(), -1);
  EXPECT_EQ(settingOf(m_stream, "framerate"), 0U);
  EXPECT_TRUE(comes([] { return troubleHas("Connection refused"); })) << trouble();
  EXPECT_FALSE(troubleHas("ecret"));
  camera.plug({.luma = 200});
  EXPECT_TRUE(comes([this] { return showsNear(177); })) << trouble();
  EXPECT_TRUE(comes([] { return trouble().empty(); }));
  camera.freeze();
  EXPECT_TRUE(comes([this] { return luma() == -1; })) << "the last picture is no picture";
  EXPECT_TRUE(comes([] { return troubleHas("stopped sending"); })) << trouble();
  EXPECT_EQ(settingOf(m_stream, "framerate"), 10U);
  camera.unplug();
  camera.plug({.luma = 60, .width = 480, .height = 272, .codec = scripted::RtspCamera::Codec::kVp8});
  EXPECT_TRUE(comes([this] { return showsNear(68); })) << trouble();
  camera.unplug();
  EXPECT_TRUE(comes([this] { return luma() == -1 && !trouble().empty(); }));
  EXPECT_EQ(m_folder.read("system.log").find("ecret"), std::string::npos);
}

TEST_F(LiveCameraTest, WhatCannotBeClosedIsLeftBehindAFewTimes) {
  gst_init(nullptr, nullptr);
  gst_element_register(nullptr, "stucksource", GST_RANK_PRIMARY, stuck_source_get_type());
  liveTimes().first_frame = 1s;
  liveTimes().closing = 50ms;
  use("stuck://here");
  open();
  EXPECT_TRUE(comes([] { return times_opened == 4 && troubleHas("restart the program"); })) << times_opened;
  m_stream.reset();
  EXPECT_EQ(times_opened, 4) << "no more of them";
  liveTimes().first_frame = 8s;
  is_stuck = false;
  setenv("VELMOR_CAMERA", (m_folder / "other.json").c_str(), 1);
  m_folder.write("other.json", R"({"stream_sizes": ["128x72"], "source": "stuck://here"})");
  open();
  EXPECT_TRUE(comes([this] { return luma() == 77; })) << trouble();
}

TEST_F(LiveCameraTest, AFifoIsACameraWhoeverWritesIntoIt) {
  ASSERT_EQ(mkfifo((m_folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(videoProblem((m_folder / "fifo").string(), false), "") << "nobody writes yet";
  ASSERT_TRUE(writeRecording({.frames = 10}, m_folder / "film"));
  const std::string film = m_folder.read("film");
  use("fifo");
  open();
  EXPECT_EQ(luma(), -1);
  for (int writer = 0; writer < 2; ++writer) {
    const int fifo = ::open((m_folder / "fifo").c_str(), O_WRONLY);
    ASSERT_EQ(::write(fifo, film.data(), film.size()), static_cast<ssize_t>(film.size()));
    EXPECT_TRUE(comes([this] { return luma() >= greyOf(0); })) << writer << trouble();
    EXPECT_TRUE(writer == 1 || comes([this] { return luma() == -1; })) << "it stands still";
    ::close(fifo);
    EXPECT_TRUE(comes([] { return troubleHas(". It is tried again"); }));
  }
}

TEST_F(LiveCameraTest, ViewersSeeThatAFilmHasVanishedAndComesBack) {
  m_folder.write("manifest.json", R"({"parameters": [{"name": "AnonOverlaysOn", "default": "true"},
                                                     {"name": "SelectedAnonOverlay", "default": "128x72"}]})");
  ASSERT_TRUE(writeRecording({.width = 128, .height = 72, .frames = 5}, m_folder / "film"));
  use("film", R"(, "loop": true)");
  const std::unique_ptr<AXParameter, decltype(&ax_parameter_free)> store(ax_parameter_new("velmor_care", nullptr),
                                                                         &ax_parameter_free);
  HttpServer server{HttpServerSettings{}};
  ViewStreams views{server};
  std::optional<Program> program{std::in_place};
  const std::uint16_t port = server.listen({"127.0.0.1", 0, 0});
  const auto corner = [&] { return colourAt(decode(request(port, "GET", kImage + "128x72").body), 2, 2); };
  ASSERT_TRUE(comes([&] { return program->cycle(); }));
  EXPECT_TRUE(isNear(corner(), kFound));
  HttpClient plain(port, watchRequest(port, "96x54"));
  HttpClient anonymised(port, watchRequest(port, "128x72&anonymised=1"));
  for (HttpClient* viewer : {&plain, &anonymised}) {
    viewer->receiveUntil("--velmor-picture\r\n");
    EXPECT_FALSE(nextPart(*viewer).empty());
  }
  std::filesystem::rename(m_folder / "film", m_folder / "away");
  ASSERT_TRUE(comes([&] { return !program->cycle(); }));
  EXPECT_TRUE(isNear(corner(), kCard));
  EXPECT_TRUE(plain.seesEnd());
  std::string part;
  while (!isNear(colourAt(decode(part = nextPart(anonymised)), 2, 2), kCard)) ASSERT_FALSE(part.empty());
  for (const std::string& address : {kImage, kVideo}) {
    const HttpReply refused = request(port, "GET", address + "96x54");
    EXPECT_EQ(refused.status, 503);
    EXPECT_NE(refused.body.find("the camera gives no picture"), std::string::npos) << refused.body;
  }
  EXPECT_TRUE(comes([] { return troubleHas("no such file"); })) << trouble();
  std::filesystem::rename(m_folder / "away", m_folder / "film");
  ASSERT_TRUE(comes([&] { return program->cycle(); }));
  EXPECT_TRUE(isNear(corner(), kFound));
  server.stop();
}

/// The end of a process is a matter of processes of their own.
class FilmDeathTest : public LiveCameraTest {
 protected:
  FilmDeathTest() {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    liveTimes().fresh = 60s;  // a busy machine may take a while to begin again
  }

  /// A program that watches until it is told to end, or the film has begun again twice, and then returns 0 from main.
  /// Shows each grey level once.
  void watch() {
    static volatile sig_atomic_t is_told = 0;
    std::signal(SIGTERM, [](int) { is_told = 1; });
    open();
    int shown = -1;
    for (int beginnings = 0; beginnings < 3 && is_told == 0; std::this_thread::yield()) {
      const int now = luma();
      if (now < shown || shown < 0) ++beginnings;
      if (now != shown) std::cerr << now << ' ';
      shown = now;
    }
    m_stream.reset();
    std::exit(0);
  }
};

TEST_F(FilmDeathTest, AFilmPlaysOnceOrAgainAndAgain) {
  ASSERT_TRUE(writeRecording({.frames = 5}, m_folder / "film"));
  use("film");
  EXPECT_EXIT(watch(), testing::ExitedWithCode(0), "40 .*56 .*film has come to its end; give --loop to begin again");
  use("film", R"(, "loop": true)");
  EXPECT_EXIT(watch(), testing::ExitedWithCode(0), "40 .*56 40 .*56 40 ");
}

TEST_F(FilmDeathTest, ABrokenFilmIsNoGoodEnd) {
  ASSERT_TRUE(writeRecording({.frames = 20}, m_folder / "film"));
  m_folder.write("film", brokenAtTheEnd(m_folder.read("film")));
  use("film");
  EXPECT_EXIT(watch(), testing::ExitedWithCode(1), "cannot play .*film any further: ");
  m_folder.write("film", "Dear patient,\nthis is no video.\n");
  EXPECT_THROW(open(), std::runtime_error) << "no camera that will come";
}

}  // namespace
