// The overlay service and the viewers' streams, over a real web server. The clock is a replay's: it stands still unless
// a cycle runs.
#include "platform/workstation/web/view_streams.h"

#include <axoverlay.h>
#include <axparameter.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/workstation/views/overlay_service.h"
#include "tests/platform/http_client.h"
#include "tests/platform/recording_writer.h"
#include "tests/platform/state_folder.h"
#include "tests/platform/viewed_program.h"

using namespace workstation;

namespace {

class ViewStreamsTest : public testing::Test {
 protected:
  void TearDown() override { m_server.stop(); }  // before the streams go

  void open(const std::string& more = "", const Recording& recording = {.width = 128, .height = 72}) {
    ticker_clock::setReplayTime(TimeStamp());
    m_folder.write("manifest.json", R"({"parameters": [{"name": "AnonOverlaysOn", "default": "false"},
                                                       {"name": "SelectedAnonOverlay", "default": "0x0"}]})");
    m_folder.write("camera.json",
                   R"({"source": "film", "stream_sizes": ["96x54", "128x72", "160x90", "1280x720"])" + more + "}");
    ASSERT_TRUE(writeRecording(recording, m_folder / "film"));
    m_store.reset(ax_parameter_new("velmor_care", nullptr));
    m_program.emplace();
    m_port = m_server.listen({"127.0.0.1", 0, 0});
  }

  /// The program stores its choice; an empty size switches off.
  void anonymise(const std::string& size) {
    ax_parameter_set(m_store.get(), "AnonOverlaysOn", size.empty() ? "false" : "true", TRUE, nullptr);
    ax_parameter_set(m_store.get(), "SelectedAnonOverlay", size.c_str(), TRUE, nullptr);
  }

  BgraPicture snapshot(const std::string& size) const {
    const HttpReply reply = request(m_port, "GET", kImage + size);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.headers.at("content-type"), "image/jpeg");
    return decode(reply.body);
  }

  /// Watches a stream; its head goes to `head`.
  class Viewer : public HttpClient {
   public:
    Viewer(std::uint16_t port, const std::string& size)
        : HttpClient(port, watchRequest(port, size)), head(receiveUntil("--velmor-picture\r\n")) {}
    const std::string head;
  };
  /// The next picture whose corner is near the colour; empty when the stream ends before.
  static std::string partWith(HttpClient& viewer, std::uint32_t corner) {
    std::string part;
    do part = nextPart(viewer);
    while (!part.empty() && !isNear(colourAt(decode(part), 2, 2), corner));
    return part;
  }

  StateFolder m_folder;
  HttpServer m_server{HttpServerSettings{}};
  ViewStreams m_views{m_server};
  std::unique_ptr<AXParameter, decltype(&ax_parameter_free)> m_store{nullptr, &ax_parameter_free};
  std::optional<Program> m_program;
  std::uint16_t m_port = 0;
};

TEST_F(ViewStreamsTest, ASnapshotShowsTheRoomWithTheOverlay) {
  open(R"(, "rotation": 90, "mirrored": true)", {.width = 128, .height = 72, .corners = true});
  m_program->cycle();
  const BgraPicture picture = snapshot("128x72");
  ASSERT_EQ(picture.width, 72);
  ASSERT_EQ(picture.height, 128);
  EXPECT_TRUE(isNear(colourAt(picture, 10, 10), kFound)) << "the overlay is not turned: its left top is the viewer's";
  EXPECT_TRUE(isNear(colourAt(picture, 60, 10), 0x1C1C1CU)) << "luma 40";
  EXPECT_EQ(m_program->drawn.width, 128);
  EXPECT_EQ(m_program->drawn.rotation, 90);
  EXPECT_EQ(m_program->drawn.mirrored, TRUE);
  m_program->shrinks = true;
  m_program->cycle();
  const BgraPicture shrunk = snapshot("160x90");
  EXPECT_TRUE(isNear(colourAt(shrunk, 50, 90), kFound)) << "its place is moved inside the stream";
  EXPECT_FALSE(isNear(colourAt(shrunk, 40, 75), kFound));
  EXPECT_FALSE(isNear(colourAt(shrunk, 85, 155), kFound));
}

TEST_F(ViewStreamsTest, AStreamNeedsAnOfferedSizeAndACamera) {
  open();
  const HttpReply usual = request(m_port, "GET", "/axis-cgi/jpg/image.cgi");
  EXPECT_EQ(decode(usual.body).width, 1280);
  for (const char* address : {"jpg/image.cgi", "mjpg/video.cgi"}) {
    for (const char* size : {"", "128x73", "0128x72"}) {
      const HttpReply refused = request(m_port, "GET", std::string("/axis-cgi/") + address + "?resolution=" + size);
      EXPECT_EQ(refused.status, 400) << address << size;
      EXPECT_NE(refused.body.find("it offers 96x54, 128x72, 160x90, 1280x720"), std::string::npos) << refused.body;
    }
  }
  EXPECT_EQ(request(m_port, "GET", "/axis-cgi/param.cgi?action=list&group=root.Image.I0.Appearance").body,
            "root.Image.I0.Appearance.Rotation=0\nroot.Image.I0.Appearance.MirrorEnabled=no\n");
  EXPECT_EQ(request(m_port, "GET", "/axis-cgi/param.cgi?action=list").status, 400);
  m_program.reset();
  EXPECT_EQ(request(m_port, "GET", "/axis-cgi/jpg/image.cgi").status, 503);
}

TEST_F(ViewStreamsTest, ViewersOfASizeSeeTheSameEncoding) {
  open();
  Viewer first(m_port, "128x72");
  Viewer second(m_port, "128x72");
  EXPECT_NE(first.head.find("multipart/x-mixed-replace; boundary=velmor-picture"), std::string::npos);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(decode(nextPart(first)).width, 128) << "it is repeated while nothing changes";
  m_program->cycle();
  const std::string seen = partWith(first, kFound);
  ASSERT_FALSE(seen.empty());
  std::string other;
  while ((other = nextPart(second)) != seen) ASSERT_FALSE(other.empty());
}

TEST_F(ViewStreamsTest, TheAnonymisedStreamShowsItsOwnCyclesOnly) {
  open();
  anonymise("128x72");
  const auto corner = [&] { return colourAt(snapshot("128x72"), 2, 2); };
  const auto edge = [&] { return colourAt(snapshot("128x72"), 125, 69); };
  EXPECT_TRUE(isNear(corner(), kCard)) << "nothing is analysed yet";
  m_program->cycle();
  EXPECT_TRUE(isNear(corner(), kFound));
  ticker_clock::setReplayTime(TimeStamp(std::chrono::milliseconds(1'900)));
  EXPECT_TRUE(isNear(edge(), 0x1C1C1CU)) << "the frame of the cycle, not the newest";
  axoverlay_redraw(nullptr);
  EXPECT_TRUE(isNear(edge(), 0x1C1C1CU)) << "drawn between cycles";
  m_program->cycle(false);
  m_program->cycle(false);
  EXPECT_TRUE(isNear(corner(), kCard)) << "a cycle failed";
  m_program->cycle();
  EXPECT_TRUE(isNear(corner(), kFound));
  anonymise("");
  anonymise("128x72");
  EXPECT_TRUE(isNear(corner(), kCard)) << "off and on again";
  anonymise("96x54");
  m_program->cycle();
  EXPECT_TRUE(isNear(colourAt(snapshot("96x54"), 2, 2), kCard)) << "the program draws nothing there";
}

TEST_F(ViewStreamsTest, AFailedDrawingLeavesNoPictureOnTheAnonymisedStream) {
  open();
  anonymise("128x72");
  const auto corner = [&] { return colourAt(snapshot("128x72"), 2, 2); };
  for (const auto drawing : {Program::Drawing::kThrows, Program::Drawing::kFails}) {
    m_program->drawing = Program::Drawing::kGood;
    m_program->cycle();
    EXPECT_TRUE(isNear(corner(), kFound));
    EXPECT_FALSE(m_program->is_told_of_failure);
    m_program->drawing = drawing;
    m_program->cycle();
    EXPECT_TRUE(isNear(corner(), kCard)) << "neither the cycle before nor masks that are half drawn";
    EXPECT_TRUE(m_program->is_told_of_failure);
  }
  m_program->drawing = Program::Drawing::kGood;
  m_program->cycle();
  EXPECT_TRUE(isNear(corner(), kFound));
}

TEST_F(ViewStreamsTest, WhoWatchesTheAnonymisedStreamIsNotShownTheRoomWhenItIsSwitchedOff) {
  open();
  Viewer earlier(m_port, "128x72");
  EXPECT_FALSE(nextPart(earlier).empty());
  anonymise("128x72");
  Viewer viewer(m_port, "128x72");
  EXPECT_FALSE(nextPart(viewer).empty());
  EXPECT_FALSE(partWith(earlier, kCard).empty());
  EXPECT_EQ(request(m_port, "HEAD", kImage + "128x72&anonymised=1").status, 200);
  anonymise("");
  EXPECT_TRUE(viewer.seesEnd());
  EXPECT_TRUE(earlier.seesEnd()) << "it has come to count on it";
  for (const std::string& address : {kImage, kVideo}) {
    EXPECT_EQ(request(m_port, "GET", address + "128x72&anonymised=1").status, 409) << address;
    EXPECT_EQ(request(m_port, "HEAD", address + "128x72&anonymised=1").status, 409) << address;
  }
}

TEST_F(ViewStreamsTest, TheOwnViewIsAnonymisedWhateverIsChosen) {
  open();
  const HttpClient watcher(m_port, requestText(m_port, "GET", "/platform/anonymised.mjpg"));  // keeps it drawn
  const auto own = [&](const std::string& size = "800x450") {
    const HttpReply reply = request(m_port, "GET", "/platform/anonymised.jpg?resolution=" + size);
    EXPECT_EQ(reply.status, 200);
    return decode(reply.body);
  };
  m_program->trace = R"({"kind": "trace", "version": 1, "picture": [1280, 720], "replay": false, "period_ms": 500})"
                     "\n"
                     R"({"kind": "cycle", "ns": 1, "t": 0.5, "number": 1, "people": [)"
                     R"({"id": 3, "place": [1, 1], "footing": "bed", "box": [640, 360, 1000, 700]}]})"
                     "\n";
  const auto expectCard = [&](const char* why) { EXPECT_TRUE(isNear(colourAt(own(), 2, 2), kCard)) << why; };
  const auto expectCovered = [&](const char* chosen) {
    m_program->cycle();
    const BgraPicture usual = own();
    const BgraPicture large = own("1280x720");
    EXPECT_EQ(usual.width, 800);
    EXPECT_TRUE(isNear(colourAt(usual, 420, 240), 0x60646CU)) << "a mask, chosen: " << chosen;
    EXPECT_TRUE(isNear(colourAt(large, 660, 380), 0x60646CU)) << "a mask, chosen: " << chosen;
    EXPECT_TRUE(isNear(colourAt(usual, 100, 100), kFound)) << "what the program draws, chosen: " << chosen;
    EXPECT_TRUE(isNear(colourAt(usual, 700, 20), 0x1C1C1CU)) << "the room, chosen: " << chosen;
  };
  expectCard("nothing is analysed yet");
  expectCovered("nothing");
  for (const char* chosen : {"128x72", "800x450", "96x54"}) {
    anonymise(chosen);
    expectCovered(chosen);
  }
  anonymise("");
  m_program->cycle(false);
  m_program->cycle(false);
  expectCard("a cycle failed");
  expectCovered("nothing, once more");
  m_program->drawing = Program::Drawing::kThrows;
  m_program->cycle();
  expectCard("half of it is drawn");
  m_program->drawing = Program::Drawing::kGood;
  m_program->trace = "";
  m_program->cycle();
  m_program->cycle();
  expectCard("nobody tells where people are");
}

TEST_F(ViewStreamsTest, TheOwnViewHasTheSizesOfTheStreamsAndNeverEndsForAChoice) {
  open();
  EXPECT_EQ(request(m_port, "GET", "/platform/anonymised.jpg?resolution=128x73").status, 400);
  EXPECT_EQ(request(m_port, "GET", "/platform/anonymised.mjpg?resolution=").status, 400);
  EXPECT_EQ(request(m_port, "HEAD", "/platform/anonymised.mjpg?resolution=160x90").status, 200);
  HttpClient viewer(m_port, requestText(m_port, "GET", "/platform/anonymised.mjpg?resolution=160x90"));
  viewer.receiveUntil("--velmor-picture\r\n");
  EXPECT_EQ(decode(nextPart(viewer)).width, 160);
  anonymise("160x90");
  m_program->cycle();
  Viewer chosen(m_port, "160x90");
  EXPECT_FALSE(partWith(chosen, kFound).empty()) << "the two streams of a size are two";
  EXPECT_FALSE(partWith(viewer, kCard).empty());
  anonymise("");
  EXPECT_TRUE(chosen.seesEnd());
  EXPECT_EQ(decode(nextPart(viewer)).width, 160) << "no choice ends it";
}

TEST_F(ViewStreamsTest, ASlowViewerMissesPicturesAndCatchesUp) {
  open("", {.format = "fakesink videotestsrc pattern=snow num-buffers=20 ! video/x-raw,format=I420,width=1280,"
                      "height=720,framerate=10/1 ! matroskamux"});
  constexpr int kPictures = 15;  // of more than half a megabyte each
  Viewer slow(m_port, "1280x720");
  Viewer quick(m_port, "1280x720");
  std::string last = nextPart(quick);
  for (int i = 1; i < kPictures; ++i) {
    const std::string before = last;
    ticker_clock::setReplayTime(TimeStamp(std::chrono::milliseconds(100 * i)));
    while ((last = nextPart(quick)) == before) ASSERT_FALSE(last.empty());
  }
  int taken = 1;
  for (std::string part; (part = nextPart(slow)) != last; ++taken) ASSERT_FALSE(part.empty());
  EXPECT_LT(taken, kPictures);
}

TEST(OverlayService, RefusesWhatItCannotDo) {
  const StateFolder folder;
  folder.write("camera.json", R"({"source": "film", "stream_sizes": ["640x480", "1280x64"]})");
  CaughtError error;
  const auto refused = [&error](auto call) {
    call(error.out());
    return static_cast<bool>(error);
  };
  axoverlay_settings settings;
  axoverlay_init_axoverlay_settings(&settings);
  EXPECT_EQ(axoverlay_is_backend_supported(settings.backend), TRUE);
  EXPECT_TRUE(refused([&](GError** why) { axoverlay_init(&settings, why); })) << "nothing would be drawn";
  EXPECT_TRUE(refused([](GError** why) { axoverlay_redraw(why); })) << "not initialised";
  EXPECT_TRUE(refused([](GError** why) { axoverlay_destroy_overlay(77, why); }));
  EXPECT_EQ(axoverlay_get_max_resolution_width(1, nullptr), 1280);
  EXPECT_EQ(axoverlay_get_max_resolution_height(1, nullptr), 480);
  EXPECT_TRUE(refused([](GError** why) { axoverlay_get_max_resolution_width(2, why); }));
}

}  // namespace
