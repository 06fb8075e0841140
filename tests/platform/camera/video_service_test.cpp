#include <glib-unix.h>

#include <chrono>
#include <csignal>

#include "platform/clock/clock.h"
#include "tests/platform/camera_stream.h"
#include "tests/platform/recording_writer.h"
#include "tests/platform/state_folder.h"

using namespace std::chrono_literals;

namespace {

StreamPtr open(guint32 rotation = 0) { return openStream(64, 36, rotation); }

/// Why the camera gives no such stream.
std::string refusalOf(guint32 width, guint32 height, guint32 rotation = 0, guint32 format = VDO_FORMAT_YUV) {
  try {
    newStream(width, height, rotation, format);
    return "(none)";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

class VideoServiceTest : public testing::Test {
 protected:
  VideoServiceTest() {
    showTime(0ms);
    ticker_clock::setEnd(TimeStamp::max());
  }

  void useCamera(const std::string& source) {
    const std::string name = "camera" + std::to_string(++m_cameras) + ".json";
    m_folder.write(name, R"({"stream_sizes": ["64x36", "128x72", "32x32"], "source": ")" + source + "\"}");
    setenv("VELMOR_CAMERA", (m_folder / name).c_str(), 1);
  }
  void film(const Recording& recording) {
    ASSERT_TRUE(writeRecording(recording, m_folder / "film"));
    useCamera("film");
  }
  static void showTime(std::chrono::milliseconds time) { ticker_clock::setReplayTime(TimeStamp(time)); }

  /// Lets the clock tick from its beginning to the end that the camera has set; the grey level of every cycle.
  static std::vector<int> greysOfARun() {
    struct Run {
      StreamPtr stream = open();
      std::vector<int> greys = {};
      bool over = false;
    } run;
    const guint ended = g_unix_signal_add(
        SIGTERM, [](gpointer data) -> gboolean { return static_cast<Run*>(data)->over = true; }, &run);
    constexpr auto cycle = +[](gpointer data) -> gboolean {
      static_cast<Run*>(data)->greys.push_back(lumaOf(static_cast<Run*>(data)->stream));
      return G_SOURCE_CONTINUE;
    };
    const guint ticker = ticker_clock::addTicker(500, cycle, &run);
    while (!run.over) g_main_context_iteration(nullptr, TRUE);
    g_source_remove(ticker);
    g_source_remove(ended);
    return run.greys;
  }

  StateFolder m_folder;
  int m_cameras = 0;
};

TEST_F(VideoServiceTest, ServesTheNewestFrameAtTheClocksTimeToEveryStream) {
  film({.first_ms = 300});
  const auto small = open();
  const auto large = openStream(128, 72);
  const std::pair<std::chrono::milliseconds, int> expected[] = {{0ms, 0},   {99ms, 0},  {100ms, 1},
                                                                {500ms, 5}, {500ms, 5}, {1'999ms, 19}};
  for (const auto& [time, index] : expected) {
    showTime(time);
    EXPECT_EQ(lumaOf(large), greyOf(index)) << time.count();
    EXPECT_EQ(lumaOf(small), greyOf(index)) << time.count();
  }
  for (const auto& [name, value] :
       {std::pair{"width", 128u}, std::pair{"height", 72u}, std::pair{"rotation", 0u}, std::pair{"framerate", 10u}}) {
    EXPECT_EQ(settingOf(large, name), value) << name;
  }
}

TEST_F(VideoServiceTest, TheRunEndsWithTheLastPicture) {
  const std::string sound = "audiotestsrc num-buffers=200 ! mux.";  // more than twice as long as the pictures
  const std::pair<Recording, std::vector<int>> runs[] = {
      {{.frames = 20}, {5, 10, 15, 19}},
      {{.frames = 19}, {5, 10, 15}},
      {{.fps = 15, .frames = 15}, {7, 14}},  // 66.7 ms a frame: the container's rounding must not cost the last cycle
      {{.frames = 12, .more = sound}, {5, 10}},
      {{.frames = 19, .format = "avenc_ffv1 ! matroskamux"}, {5, 10, 15}},  // decoded by libav, as H.264 is
      {{.frames = 20, .format = "vp8enc deadline=1 cq-level=0 min-quantizer=0 max-quantizer=0 ! webmmux"},
       {5, 10, 15, 19}}};
  for (const auto& [recording, indices] : runs) {
    showTime(0ms);
    film(recording);
    std::vector<int> expected;
    for (const int index : indices) expected.push_back(greyOf(index));
    EXPECT_EQ(greysOfARun(), expected) << recording.format << recording.more;
  }
}

TEST_F(VideoServiceTest, RotationTurnsClockwiseAndAnotherAspectShowsTheMiddle) {
  film({.corners = true});
  // The dark quarter, left top in the recording, goes from corner to corner: left top, right top, right bottom, left
  // bottom.
  for (guint32 turns = 0; turns < 4; ++turns) {
    const std::size_t width = turns % 2 == 0 ? 64 : 36;
    const auto bytes = pictureOf(open(90 * turns), 64 * 36 * 3 / 2);
    const std::size_t left = width / 4;
    const std::size_t top = (64 + 36 - width) / 4;
    const std::size_t corners[] = {top * width + left, top * width + 3 * left, 3 * top * width + 3 * left,
                                   3 * top * width + left};
    for (guint32 i = 0; i < 4; ++i) EXPECT_EQ(bytes.at(corners[i]), i == turns ? 16 : greyOf(0)) << turns << i;
  }
  // Another aspect shows the middle, of columns 14 to 49: the dark quarter ends at 16.
  const auto square = pictureOf(openStream(32, 32), 32 * 32 * 3 / 2);
  EXPECT_EQ(square.at(4 * 32 + 10), 16);
  EXPECT_EQ(square.at(4 * 32 + 20), greyOf(0));
}

TEST_F(VideoServiceTest, AnyShapeAndFormatIsShownAsAWhole) {
  const std::string mkv = " ! matroskamux name=mux";
  const std::tuple<Recording, std::size_t, std::size_t> cases[] = {
      {{.width = 48}, 8, 0},                // bars beside it
      {{.width = 48, .height = 18}, 0, 6},  // bars above and below it
      {{.width = 24, .format = "capssetter caps=video/x-raw,pixel-aspect-ratio=2/1" + mkv}, 8, 0},
      {{.width = 48, .format = "videoconvert ! video/x-raw,format=YUY2" + mkv}, 8, 0},
      {{.width = 48, .format = "videoconvert ! video/x-raw,format=I420_10LE ! avenc_ffv1" + mkv}, 8, 0}};
  for (const auto& [recording, beside, above] : cases) {
    showTime(0ms);
    film(recording);
    const auto bytes = pictureOf(open(), 64 * 36 * 3 / 2);
    for (const auto& [x, y, is_bar] : {std::tuple{beside / 2, std::size_t{18}, beside > 0},
                                       {beside + 1, std::size_t{18}, false},
                                       {62 - beside, std::size_t{18}, false},
                                       {63 - beside / 2, std::size_t{18}, beside > 0},
                                       {std::size_t{32}, above / 2, above > 0},
                                       {std::size_t{32}, above + 1, false},
                                       {std::size_t{32}, 34 - above, false},
                                       {std::size_t{32}, 35 - above / 2, above > 0}}) {
      EXPECT_NEAR(bytes.at(y * 64 + x), is_bar ? 16 : greyOf(0), 1) << recording.format << ' ' << x << ' ' << y;
    }
    EXPECT_NEAR(bytes.at(64 * 36 + 9 * 64), 128, 1) << "bars have no colour";
  }
}

TEST_F(VideoServiceTest, OddSizesAndFullRangeAreBroughtToEvenVideoRange) {
  film({.width = 33, .height = 17, .format = "jpegenc quality=100 ! avimux"});
  const auto bytes = pictureOf(open(), 64 * 36 * 3 / 2);
  // JPEG's luma 40 of 0..255 is 50 of 16..235.
  EXPECT_NEAR(bytes.at(64 * 18 + 32), 50, 1);
  EXPECT_NEAR(bytes.back(), 128, 1);
}

TEST_F(VideoServiceTest, ASourceThatCannotBePlayedIsNamedWithTheReason) {
  ASSERT_TRUE(writeRecording({.format = "fakesink audiotestsrc num-buffers=5 ! wavenc"}, m_folder / "sound.wav"));
  ASSERT_TRUE(writeRecording({}, m_folder / "rare.mkv"));
  std::string rare = m_folder.read("rare.mkv");
  m_folder.write("rare.mkv", rare.replace(rare.find("V_UNCOMPRESSED"), 14, "V_UNKNOWNCODEC"));
  m_folder.write("empty", "");
  m_folder.write("letter.txt", "Dear patient,\nthis is no video.\n");
  for (const auto& [source, reason] :
       {std::pair{"absent", "there is no such file"}, std::pair{"empty", "is empty"}, std::pair{"letter.txt", ""},
        std::pair{"sound.wav", "it holds no picture"}, std::pair{"rare.mkv", "it holds no picture"},
        std::pair{".", "is a directory"}}) {
    useCamera(source);
    const std::string message = refusalOf(64, 36);
    const std::string file = std::filesystem::path(m_folder / source).lexically_normal().string();
    EXPECT_TRUE(message.starts_with("cannot play " + file + ": " + reason)) << message;
    EXPECT_GT(message.size(), ("cannot play " + file + ": ").size());
  }
}

TEST_F(VideoServiceTest, WrongSettingsAreRefused) {
  film({.frames = 2});
  EXPECT_EQ(refusalOf(64, 38), "the camera offers no stream of 64x38; it offers 64x36, 128x72, 32x32");
  EXPECT_EQ(refusalOf(64, 36, 45), "the rotation of a stream is 0, 90, 180 or 270");
  EXPECT_NE(refusalOf(64, 36, 0, 1), "(none)") << "another format";
  EXPECT_EQ(lumaOf(newStream(64, 36)), -1) << "not started";
}

TEST_F(VideoServiceTest, TheOneChannelTellsTheStreamsSizes) {
  useCamera("absent");
  GList* channels = vdo_channel_get_all(nullptr);
  ASSERT_EQ(g_list_length(channels), 1U);
  const std::unique_ptr<VdoResolutionSet, decltype(&g_free)> sizes(
      vdo_channel_get_resolutions(static_cast<VdoChannel*>(channels->data), nullptr, nullptr), &g_free);
  g_list_free_full(channels, g_object_unref);
  ASSERT_EQ(sizes->count, 3U);
  EXPECT_EQ(sizes->resolutions[1].width, 128U);
  EXPECT_EQ(sizes->resolutions[2].height, 32U);
}

TEST_F(VideoServiceTest, ADamagedRecordingEndsEarlyAndStillGivesPictures) {
  film({.frames = 40});
  std::string bytes = m_folder.read("film");
  const std::string whole = bytes;
  for (std::size_t i = bytes.size() / 2; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 131 >> 3);
  for (const std::string& damaged : {bytes, whole.substr(0, whole.size() / 2)}) {
    showTime(0ms);
    m_folder.write("film", damaged);
    const auto greys = greysOfARun();
    ASSERT_GE(greys.size(), 2u);
    EXPECT_LE(greys.size(), 8u);
    EXPECT_EQ(greys.front(), greyOf(5));
  }
}

}  // namespace
