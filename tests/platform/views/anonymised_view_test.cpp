#include "platform/workstation/views/anonymised_view.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "tests/platform/viewer_camera.h"

using namespace std::chrono_literals;
using namespace workstation;

namespace {

constexpr Yuv kRed{81, 90, 240};
constexpr Yuv kGreen{145, 54, 34};
constexpr Yuv kBlue{41, 240, 110};
constexpr Yuv kWhite{235, 128, 128};

auto frame() { return quarters(64, 32, {kRed, kGreen, kBlue, kWhite}); }

char nameOf(std::uint32_t colour) {
  const bool red = (colour >> 16 & 255U) > 128;
  const bool green = (colour >> 8 & 255U) > 128;
  const bool blue = (colour & 255U) > 128;
  return red && green && blue ? 'W' : red ? 'R' : green ? 'G' : blue ? 'B' : '-';
}

TEST(CycleFrames, ACycleSeesOneMomentAndFailsUnlessItIsDrawn) {
  CycleFrames frames;
  const auto a = frame();
  const auto b = frame();
  const auto take = [&](std::uint64_t cycle, const CycleFrames::Frame& newest) {
    return frames.take(cycle, [&] { return newest; });
  };
  EXPECT_EQ(frames.draw(0), nullptr) << "the first drawing of all belongs to no cycle";
  EXPECT_EQ(take(1, a), a);
  EXPECT_EQ(take(1, b), a) << "a stream that is asked later in the cycle shows the same moment";
  EXPECT_EQ(take(0, b), b) << "between cycles there is no such moment";
  EXPECT_EQ(frames.draw(0), nullptr);
  EXPECT_EQ(frames.draw(1), a);
  EXPECT_EQ(take(2, b), b);
  EXPECT_FALSE(frames.hasFailed());
  EXPECT_EQ(frames.draw(3), nullptr) << "a cycle without a frame";
  EXPECT_EQ(take(3, a), a);
  EXPECT_TRUE(frames.hasFailed()) << "cycle 2 was never drawn";
  EXPECT_EQ(take(4, b), b);
  EXPECT_TRUE(frames.hasFailed());
  EXPECT_EQ(frames.draw(4), b);
  EXPECT_FALSE(frames.hasFailed());
  EXPECT_THROW(frames.take(5, []() -> CycleFrames::Frame { throw std::runtime_error("no camera"); }),
               std::runtime_error);
  EXPECT_EQ(frames.draw(5), nullptr);
  EXPECT_EQ(take(6, a), a);
  EXPECT_TRUE(frames.hasFailed()) << "the camera failed in cycle 5";
}

TEST(StreamChoice, IsReadFromTheStoredParameters) {
  const auto choice = [](const std::string& on, const std::string& size) {
    return readStreamChoice({{"AnonOverlaysOn", on}, {"SelectedAnonOverlay", size}, {"DetectionOverlaysOn", "false"}});
  };
  EXPECT_EQ(choice("true", "1280x720").anonymised, (StreamSize{1280, 720}));
  for (const char* lenient : {" 640x360 ", "640x360x2", "+640 x 360px"}) {
    EXPECT_EQ(choice("true", lenient).anonymised, (StreamSize{640, 360})) << "read as the program does: " << lenient;
  }
  EXPECT_EQ(choice("true", "4294967936x-1").anonymised, (StreamSize{0, 0}));
  for (const auto& [on, size] : {std::pair{"false", "1280x720"}, {"yes", "1280x720"}, {"true", "none"}}) {
    EXPECT_EQ(choice(on, size).anonymised, std::nullopt) << on << size;
  }
  tellParameters({{"AnonOverlaysOn", "true"}, {"SelectedAnonOverlay", "1280x720"}});
  const StreamChoice first = currentStreamChoice();
  tellParameters({{"AnonOverlaysOn", "true"}, {"SelectedAnonOverlay", "1280x720"}, {"Sensitivity", "0.5"}});
  EXPECT_EQ(currentStreamChoice().version, first.version);
  tellParameters({{"AnonOverlaysOn", "false"}, {"SelectedAnonOverlay", "1280x720"}});
  tellParameters({{"AnonOverlaysOn", "true"}, {"SelectedAnonOverlay", "1280x720"}});
  EXPECT_NE(currentStreamChoice().version, first.version) << "off and on again in between";
}

class AnonymisedViewTest : public testing::Test {
 protected:
  std::string reason(std::uint32_t rotation = 0) { return m_view.sightAt(m_choice, rotation, m_now).reason; }
  void showPicture(std::uint8_t opacity = 255) {
    const auto overlay = std::make_shared<BgraPicture>(1280, 720);
    overlay->bytes[3] = opacity;
    m_view.show({frame(), overlay}, m_choice, m_now);
  }

  CycleFailures m_failures;
  AnonymisedView m_view{[this] { return m_failures; }};
  StreamChoice m_choice{StreamSize{1920, 1080}, StreamSize{1280, 720}, 1};
  AnonymisedView::Clock::time_point m_now;
};

TEST_F(AnonymisedViewTest, ShowsACardUnlessTheLastCycleGaveAPicture) {
  EXPECT_EQ(reason(), "No picture has been analysed yet.");
  showPicture();
  EXPECT_EQ(reason(), "");
  EXPECT_NE(m_view.sightAt(m_choice, 0, m_now).picture.frame, nullptr);
  m_failures = {1, "why"};
  EXPECT_EQ(reason(), "why") << "a cycle has failed since";
  EXPECT_EQ(m_view.sightAt(m_choice, 0, m_now).picture.frame, nullptr);
  showPicture();
  EXPECT_EQ(reason(), "");
  m_view.drop();
  EXPECT_EQ(reason(), "The last picture could not be analysed.");
  showPicture();
  EXPECT_EQ(reason(), "");
  m_now += 3s;
  EXPECT_EQ(reason(), "");
  m_now += 1ms;
  EXPECT_EQ(reason(), "No picture has been analysed for more than 3 seconds.");
  showPicture();
  m_choice.version = 2;
  EXPECT_EQ(reason(), "It has just been switched on.");
  m_view.show({frame(), nullptr}, m_choice, m_now);
  EXPECT_EQ(reason(), "People are not covered on it: choose its size again.") << "no overlay was drawn for it";
  showPicture(0);
  EXPECT_EQ(reason(), "People are not covered on it: choose its size again.") << "the program takes it for another";
  EXPECT_EQ(m_view.sightAt(m_choice, 0, m_now).picture.frame, nullptr);
}

TEST_F(AnonymisedViewTest, ShowsACardForASizeWhoseMasksAreMissing) {
  struct Case {
    std::string begin;
    std::uint32_t rotation;
    StreamSize anonymised;
    std::optional<StreamSize> overlay{};
  };
  const Case cases[] = {{"Its size is that of the stream with findings", 0, {1280, 720}, StreamSize{1280, 720}},
                        {"", 90, {1280, 720}, StreamSize{1920, 1080}},
                        {"Its size, 800x450, is that of the application's own stream", 0, {800, 450}},
                        {"", 0, {854, 480}},
                        {"", 0, {640, 480}},
                        {"People cannot be covered", 270, {640, 480}},
                        {"People cannot be covered", 180, {1280, 640}},
                        {"", 90, {1280, 640}}};
  for (const Case& test : cases) {
    m_choice.anonymised = test.anonymised;
    m_choice.overlay = test.overlay;
    showPicture();
    const std::string found = reason(test.rotation);
    EXPECT_TRUE(test.begin.empty() ? found.empty() : found.starts_with(test.begin))
        << toString(test.anonymised) << " at " << test.rotation << ": " << found;
  }
}

TEST(ViewPicture, IsTurnedClockwiseThenMirrored) {
  const std::pair<std::uint32_t, std::string> expected[] = {{0, "RGBW"}, {90, "BRWG"}, {180, "WBGR"}, {270, "GWRB"}};
  const auto corners = [](const BgraPicture& picture) {
    std::string names;
    for (const int y : {picture.height / 4, picture.height * 3 / 4}) {
      for (const int x : {picture.width / 4, picture.width * 3 / 4}) names += nameOf(colourAt(picture, x, y));
    }
    return names;
  };
  for (const auto& [rotation, names] : expected) {
    const BgraPicture plain = roomPicture(frame()->view(), {128, 72}, {rotation, false});
    EXPECT_EQ(plain.width, rotation % 180 == 0 ? 128 : 72);
    EXPECT_EQ(corners(plain), names) << rotation;
    const std::string mirrored = {names[1], names[0], names[3], names[2]};
    EXPECT_EQ(corners(roomPicture(frame()->view(), {128, 72}, {rotation, true})), mirrored) << rotation;
  }
}

TEST(ViewPicture, AnOverlayIsLaidOverByItsOpacity) {
  BgraPicture picture(8, 2);
  std::fill(picture.bytes.begin(), picture.bytes.end(), std::uint8_t{200});
  BgraPicture overlay(8, 2);
  const std::array<std::uint8_t, 8> pixels{10, 20, 30, 255, 64, 0, 0, 128};  // opaque, and blue at half
  std::copy(pixels.begin(), pixels.end(), overlay.bytes.begin() + 4);
  layOver(picture, overlay);
  EXPECT_EQ(colourAt(picture, 0, 0), 0xC8C8C8U);
  EXPECT_EQ(colourAt(picture, 1, 0), 0x1E140AU);
  EXPECT_NEAR(colourAt(picture, 2, 0) & 255U, 164, 1);
  EXPECT_NEAR(colourAt(picture, 2, 0) >> 16, 100, 1);
  EXPECT_THROW(layOver(picture, BgraPicture(2, 8)), std::runtime_error);
}

TEST(ViewPicture, CoarseningLeavesOnlyTheMeansOfBlocks) {
  constexpr int kColumns[] = {0, 32, 64, 100};
  constexpr int kRows[] = {0, 32, 70};
  BgraPicture picture(100, 70);
  for (std::size_t i = 0; i < picture.bytes.size(); ++i) picture.bytes[i] = static_cast<std::uint8_t>(i * i / 7);
  const BgraPicture before = picture;
  coarsen(picture, 32);
  for (std::size_t row = 0; row + 1 < std::size(kRows); ++row) {
    for (std::size_t column = 0; column + 1 < std::size(kColumns); ++column) {
      double green = 0;
      for (int y = kRows[row]; y < kRows[row + 1]; ++y) {
        for (int x = kColumns[column]; x < kColumns[column + 1]; ++x) {
          green += (colourAt(before, x, y) >> 8 & 255U);
          EXPECT_EQ(colourAt(picture, x, y), colourAt(picture, kColumns[column], kRows[row])) << x << ' ' << y;
        }
      }
      green /= (kRows[row + 1] - kRows[row]) * (kColumns[column + 1] - kColumns[column]);
      EXPECT_NEAR((colourAt(picture, kColumns[column], kRows[row]) >> 8 & 255U), green, 0.51);
    }
  }
}

TEST(ViewPicture, BlocksGrowWithTheStream) {
  for (const auto& [size, side] : {std::pair{StreamSize{640, 360}, 32},
                                   {StreamSize{1280, 720}, 32},
                                   {StreamSize{1281, 720}, 33},
                                   {StreamSize{640, 1080}, 48}}) {
    EXPECT_EQ(blockSide(size), side) << toString(size);
  }
}

TEST(AnonymisedPicture, IsCoarsenedUnderMasksThatAreNot) {
  BgraPicture overlay(64, 36);
  for (std::size_t i = 0; i < overlay.bytes.size() / 2; i += 8) overlay.bytes[i + 3] = 255;  // every other pixel black
  const BgraPicture picture = anonymisedPicture(frame()->view(), overlay, {64, 36}, {});
  EXPECT_EQ(colourAt(picture, 0, 0), 0U);
  EXPECT_EQ(colourAt(picture, 2, 17), 0U);
  EXPECT_EQ(colourAt(picture, 1, 0), colourAt(picture, 31, 35)) << "one block from top to bottom";
  EXPECT_NE(colourAt(picture, 31, 35), colourAt(picture, 33, 35));
}

}  // namespace
