#include "platform/workstation/views/own_view.h"

#include <gtest/gtest.h>

#include "tests/platform/viewer_camera.h"

using namespace std::chrono_literals;
using namespace workstation;

namespace {

constexpr Yuv kGrey{128, 128, 128};
const std::string kHeader =
    R"({"kind": "trace", "version": 1, "picture": [1280, 720], "replay": false, "period_ms": 500})"
    "\n";

auto frame() { return quarters(64, 32, {kGrey, kGrey, kGrey, kGrey}); }

/// A cycle's line; `more` is what it says of one person besides id, place and footing.
std::string cycleLine(const std::string& more = R"("box": [320, 180, 639, 539])") {
  return R"({"kind": "cycle", "ns": 1, "t": 0.5, "number": 1, "people": [{"id": 3, "place": [1, 1], "footing": "bed", )" +
         more + "}]}\n";
}

class OwnViewTest : public testing::Test {
 protected:
  OwnViewTest() {
    m_view.takeTrace(kHeader, 0, m_now);
    m_view.watch();
  }
  void draw(std::uint64_t cycle) { m_view.draw(frame(), std::make_shared<BgraPicture>(800, 450), cycle); }
  void tell(const std::string& lines, std::uint64_t cycle) { m_view.takeTrace(lines, cycle, m_now); }
  void complete(std::uint64_t cycle) {
    draw(cycle);
    tell(cycleLine(), cycle);
  }
  AnonymisedView::Sight sight(StreamSize size = {800, 450}) const { return m_view.sightAt(size, 0, m_now); }

  CycleFailures m_failures;
  AnonymisedView::Clock::time_point m_now;
  OwnView m_view{[this] { return m_failures; }};
};

TEST_F(OwnViewTest, ShowsAPictureOnlyWithThePeopleOfItsOwnCycle) {
  const std::string unknown = "Where people are is not known just now.";
  EXPECT_EQ(sight().reason, "The next picture is being analysed.");
  draw(1);
  EXPECT_NE(sight().reason, "") << "nobody has told where people are";
  tell(cycleLine(), 2);
  EXPECT_NE(sight().reason, "") << "another cycle's people";
  tell(cycleLine(), 1);
  ASSERT_EQ(sight().reason, "");
  ASSERT_EQ(sight().picture.people->boxes.size(), 1U);
  EXPECT_EQ(sight().picture.people->boxes[0].right, 639);
  const auto first = sight().picture.frame;
  draw(2);
  EXPECT_EQ(sight().picture.frame, first) << "the picture before, until its own people are known";
  tell(cycleLine() + cycleLine(), 2);
  EXPECT_NE(sight().picture.frame, first);
  for (const std::string& line :
       {cycleLine("\"n\": 1"), cycleLine(R"("box": [1, 2, 3])"), cycleLine(R"("box": [1, 2, 3, "4"])"),
        std::string("{\"kind\": \"cycle\"}\n"), std::string("garbage\n"), cycleLine().substr(0, 90), std::string(),
        std::string(R"({"kind": "cycle", "ns": 1, "t": 0.5, "number": 1, "failed": true})"
                    "\n")}) {
    complete(3);
    ASSERT_EQ(sight().reason, "") << line;
    draw(4);
    tell(line, 4);
    draw(5);
    EXPECT_EQ(sight().reason, unknown) << line;
    EXPECT_EQ(sight().picture.frame, nullptr);
  }
}

TEST_F(OwnViewTest, GivesWayToACardAsSoonAsAnythingSpeaksAgainstIt) {
  complete(1);
  m_failures = {1, "why"};
  EXPECT_EQ(sight().reason, "why");
  complete(2);
  EXPECT_EQ(sight().reason, "");
  m_now += 3s;
  EXPECT_EQ(sight().reason, "");
  m_now += 1ms;
  EXPECT_EQ(sight().reason, "No picture has been analysed for more than 3 seconds.");
  complete(3);
  draw(4);
  m_view.drop();
  tell(cycleLine(), 4);
  EXPECT_EQ(sight().reason, "The last picture could not be analysed.") << "half of it was drawn";
  complete(5);
  EXPECT_EQ(sight({1280, 640}).reason, "People cannot be covered on its shape: choose another.");
  EXPECT_EQ(sight({640, 480}).reason, "");
  m_view.leave();
  draw(6);
  tell(cycleLine(), 6);
  m_view.watch();
  EXPECT_EQ(sight().reason, "The next picture is being analysed.") << "whoever comes sees nothing of before";
  tell(cycleLine(), 6);
  EXPECT_NE(sight().reason, "") << "nor is it made up for";
  OwnView deaf([this] { return m_failures; });
  deaf.watch();
  deaf.draw(frame(), nullptr, 1);
  deaf.takeTrace(cycleLine(), 1, m_now);
  EXPECT_NE(deaf.sightAt({800, 450}, 0, m_now).reason, "") << "in pixels of a picture of unknown size";
}

int alphaAt(const BgraPicture& picture, int x, int y) {
  const int at = y * picture.stride() + x * 4 + 3;
  return int{picture.bytes[static_cast<std::size_t>(at)]};
}

/// The first and the last covered pixel of the middle row, and of the column in the box's middle.
std::array<int, 4> coveredBy(const BgraPicture& overlay) {
  const auto covered = [&](int x, int y) { return alphaAt(overlay, x, y) == 255; };
  std::array<int, 4> edges{-1, -1, -1, -1};
  for (int x = 0; x < overlay.width; ++x) {
    if (!covered(x, overlay.height / 2)) continue;
    if (edges[0] < 0) edges[0] = x;
    edges[2] = x;
  }
  for (int y = 0; y < overlay.height; ++y) {
    if (!covered((edges[0] + edges[2]) / 2, y)) continue;
    if (edges[1] < 0) edges[1] = y;
    edges[3] = y;
  }
  return edges;
}

TEST(CoveringOverlay, CoversPeopleWhereTheProgramWouldDrawThem) {
  const auto covered = [](StreamSize analysed, PersonBox box, StreamSize size, Mounting mounting) {
    const auto people = std::make_shared<SeenPeople>(SeenPeople{analysed, {box}});
    return coveredBy(coveringOverlay({frame(), nullptr, people}, size, mounting));
  };
  using Edges = std::array<int, 4>;
  const PersonBox box{320, 180, 639, 539};
  EXPECT_EQ(covered({1280, 720}, box, {1280, 720}, {}), (Edges{318, 178, 641, 541}));
  EXPECT_EQ(covered({1280, 720}, {639, 539, 320, 180}, {1280, 720}, {}), (Edges{318, 178, 641, 541})) << "turned round";
  EXPECT_EQ(covered({1280, 720}, box, {1280, 720}, {0, true}), (Edges{638, 178, 961, 541}));
  EXPECT_EQ(covered({1280, 720}, box, {640, 360}, {180, false}), (Edges{158, 88, 321, 271}));
  EXPECT_EQ(covered({1280, 720}, box, {640, 480}, {}), (Edges{104, 118, 321, 361})) << "its middle is shown";
  EXPECT_EQ(covered({720, 1280}, {180, 320, 359, 959}, {1280, 720}, {90, false}), (Edges{178, 318, 361, 961}));
  EXPECT_EQ(covered({1280, 720}, {-1e9, 100, 1e9, 1e9}, {1280, 720}, {}), (Edges{0, 98, 1279, 719}));
}

TEST(CoveringOverlay, LaysTheProgramsDrawingOverThePeople) {
  const auto drawn = std::make_shared<BgraPicture>(800, 450);
  for (int x = 100; x < 300; ++x) {  // a line at a third of the height, opaque red
    for (int y = 148; y < 152; ++y) {
      std::uint8_t* pixel = drawn->bytes.data() + std::ptrdiff_t{y} * drawn->stride() + std::ptrdiff_t{x} * 4;
      pixel[2] = pixel[3] = 255;
    }
  }
  const auto people = std::make_shared<SeenPeople>(SeenPeople{{1280, 720}, {{320, 0, 400, 719}}});
  const BgraPicture overlay = coveringOverlay({frame(), drawn, people}, {1280, 720}, {});
  EXPECT_EQ(colourAt(overlay, 360, 240), 0xFF0000U) << "over the mask";
  EXPECT_EQ(colourAt(overlay, 200, 240), 0xFF0000U) << "and beside it";
  EXPECT_EQ(alphaAt(overlay, 200, 200), 0);
  for (int y = 0; y < overlay.height; ++y)
    EXPECT_EQ(alphaAt(overlay, 360, y), 255) << "nothing shines through at " << y;
}

}  // namespace
