#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <stdexcept>

#include "platform/scripted/stage/pictures.h"
#include "platform/scripted/system_log.h"
#include "platform/scripted/video.h"
#include "video/VideoStreamSource.h"
#include "video/imgconverter.h"

namespace {

using namespace scripted;
using Bytes = std::vector<uint8_t>;

// Its bytes are no multiple of eight, which are reversed at once.
constexpr int kHeight = 38;
constexpr int kWidth = 70;
constexpr std::size_t kPictureBytes = std::size_t{kHeight} * kWidth * 3;

Bytes randomFrame(unsigned seed) {
  std::mt19937 random(seed);
  Bytes frame(kHeight * kWidth * 3 / 2);
  std::generate(frame.begin(), frame.end(), [&] { return static_cast<uint8_t>(random()); });
  return frame;
}

Bytes toRgb(Bytes frame, unsigned width, unsigned height) {
  Bytes rgb(std::size_t{width} * height * 3);
  convertU8yuvToRGBlibYuv(width, height, frame.data(), rgb.data());
  return rgb;
}

/// Turns a picture pixel by pixel; at 180 degrees the channels change places too.
Bytes turned(const Bytes& source, int rows, int columns, int rotation) {
  Bytes result(source.size());
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      const int from = r * columns + c;
      int to = from;
      if (rotation == 90) to = c * rows + rows - 1 - r;
      if (rotation == 180) to = (rows - 1 - r) * columns + columns - 1 - c;
      if (rotation == 270) to = (columns - 1 - c) * rows + r;
      for (int channel = 0; channel < 3; ++channel) {
        const int toChannel = rotation == 180 ? 2 - channel : channel;
        result[static_cast<std::size_t>(to) * 3 + static_cast<std::size_t>(toChannel)] =
            source[static_cast<std::size_t>(from) * 3 + static_cast<std::size_t>(channel)];
      }
    }
  }
  return result;
}

class Video : public testing::Test {
 protected:
  Video() {
    camera() = {};
    camera().frame = randomFrame(1);
    systemLog().clear();
  }
  ~Video() override { EXPECT_EQ(camera().live_streams, 0); }

  static Bytes take(VideoStreamSource& source, int height, int width, int rotation) {
    Bytes out(static_cast<std::size_t>(height * width * 3), 0xA5);
    EXPECT_TRUE(source.getFrame(height, width, rotation, out.data()));
    return out;
  }
};

TEST_F(Video, ServesEveryQuarterTurnOfTheFrame) {
  for (const int streamRotation : {0, 90, 180, 270}) {
    const bool isPortrait = streamRotation % 180 == 90;  // the camera then delivers kWidth rows of kHeight pixels
    const int rows = isPortrait ? kWidth : kHeight;
    const int columns = isPortrait ? kHeight : kWidth;
    const Bytes picture = toRgb(camera().frame, static_cast<unsigned>(columns), static_cast<unsigned>(rows));
    VideoStreamSource source(kHeight, kWidth, streamRotation);
    source.setDirty();
    for (const int rotation : {0, 180, 90, 270}) {
      SCOPED_TRACE(testing::Message() << "stream " << streamRotation << " request " << rotation);
      const bool swaps = rotation % 180 == 90;
      EXPECT_EQ(take(source, swaps ? columns : rows, swaps ? rows : columns, rotation),
                turned(picture, rows, columns, rotation));
    }
  }
  EXPECT_EQ(camera().settings,
            (std::map<std::string, unsigned>{
                {"channel", 1}, {"format", 3}, {"width", kWidth}, {"height", kHeight}, {"rotation", 270}}));
}

TEST_F(Video, ShowsOnePictureUntilMarkedDirtyAndReturnsEveryBuffer) {
  VideoStreamSource source(kHeight, kWidth, 0);
  EXPECT_EQ(take(source, kHeight, kWidth, 0), Bytes(kPictureBytes, 0)) << "nothing was asked for yet";
  source.setDirty();
  const Bytes first = take(source, kHeight, kWidth, 0);
  camera().frame = randomFrame(2);
  EXPECT_EQ(take(source, kHeight, kWidth, 0), first);
  source.setDirty();
  take(source, 20, 20, 0);  // scaled from the fresh buffer, leaves the cached picture due
  EXPECT_EQ(take(source, kHeight, kWidth, 0), toRgb(camera().frame, kWidth, kHeight));
  EXPECT_EQ(camera().buffers_taken, 5);
  EXPECT_EQ(camera().buffers_returned, 5);
}

TEST_F(Video, ScalesAnyOtherSizeWithoutTurning) {
  VideoStreamSource source(kHeight, kWidth, 0);
  source.setDirty();
  EXPECT_EQ(take(source, kHeight, kWidth, 90), toRgb(camera().frame, kWidth, kHeight));
  const Bytes untouched(kPictureBytes, 0xA5);
  VideoStreamSource slanted(kHeight, kWidth, 45);
  EXPECT_EQ(take(slanted, kHeight, kWidth, 0), untouched) << "a stream that is turned by no quarter";
}

TEST_F(Video, FailuresAreReportedWithTheirReason) {
  for (const char* call : {"vdo_stream_new", "vdo_stream_attach", "vdo_stream_start"}) {
    camera().faults = {{call, 0}};
    try {
      VideoStreamSource source(kHeight, kWidth, 0);
      ADD_FAILURE() << call;
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find("camera is gone"), std::string::npos) << call;
      EXPECT_EQ(systemLog().back(), (LogLine{LOG_ERR, error.what()}));
    }
  }
  camera().faults = {{"vdo_stream_get_settings", 0}};  // tells what the camera gives, no more
  VideoStreamSource source(kHeight, kWidth, 0);
  Bytes out(kPictureBytes);
  for (const char* call : {"vdo_stream_get_buffer", "vdo_stream_buffer_unref"}) {
    camera().faults = {{call, 0}};
    EXPECT_FALSE(source.getFrame(kHeight, kWidth, 0, out.data())) << call;
    EXPECT_NE(systemLog().back().text.find("camera is gone"), std::string::npos) << call;
  }
  camera().faults.clear();
  EXPECT_FALSE(source.getFrame(0, 0, 0, out.data())) << "a picture without pixels";
}

// A frame that is white inside the expected crop and black outside comes out white to the border.
TEST(ImageConverter, CutsTheCentredRectangleOfTheDestinationsShape) {
  struct Case {
    unsigned width, height, left, top, cropWidth, cropHeight;
  };
  for (const Case& c : {Case{257, 257, 280, 0, 720, 720}, Case{640, 360, 0, 0, 1280, 720},
                        Case{1280, 360, 0, 180, 1280, 360}, Case{100, 720, 590, 0, 100, 720}}) {
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
    Bytes frame = greyFrame(1280, 720, [&c](unsigned x, unsigned y) -> uint8_t {
      return x >= c.left && x < c.left + c.cropWidth && y >= c.top && y < c.top + c.cropHeight ? 235 : 16;
    });
    Bytes rgb(std::size_t{c.width} * c.height * 3);
    ASSERT_TRUE(convertCropScaleU8yuvToRGB(frame.data(), 1280, 720, rgb.data(), c.width, c.height));
    EXPECT_GE(*std::min_element(rgb.begin(), rgb.end()), 253);
  }
}

// Two rows of four pixels: chroma pairs (128, 128) and (0, 255).
TEST(ImageConverter, PlainFormulaTruncatesWrapsAndSharesChroma) {
  Bytes frame = {0, 255, 255, 100, 10, 20, 255, 0, 128, 128, 0, 255};
  Bytes rgb(24);
  convertU8yuvToRGBnaive(4, 2, frame.data(), rgb.data());
  const Bytes expected = {0, 0, 1, 255, 254, 0, 144, 231, 0, 245, 76, 0, 10, 9, 11, 20, 19, 21, 144, 231, 0, 145, 0, 0};
  EXPECT_EQ(rgb, expected);

  std::vector<float> floats(24);
  convertU8yuvToFloat32RGB(4, 2, frame.data(), floats.data(), 2.0F, 0.0F);
  EXPECT_NEAR(floats[12], 2.0 * (10.0 / 255.0 + 1.13983 * (128.0 / 255.0 - 0.5)) - 1.0, 1e-6);
  EXPECT_EQ(floats[6], 1.0F) << "red above the range";
  EXPECT_EQ(floats[11], -1.0F) << "blue below the range";
}

TEST(StillSources, FillTheRequestedPicture) {
  Bytes out(7, 9);
  EXPECT_TRUE(ConstantStreamSource(77).getFrame(1, 2, 90, out.data()));
  EXPECT_EQ(out, (Bytes{77, 77, 77, 77, 77, 77, 9}));
  const std::string path = testing::TempDir() + "still_source.rgb";
  std::ofstream(path, std::ios::binary) << "abcde";
  ImageFromBinaryFileSource source(2, 1, path);
  EXPECT_TRUE(source.getFrame(2, 1, 0, out.data()));
  EXPECT_EQ(out, (Bytes{'a', 'b', 'c', 'd', 'e', 0, 9})) << "what the file lacks is black";
  EXPECT_FALSE(source.getFrame(1, 2, 0, out.data()));
}

}  // namespace
