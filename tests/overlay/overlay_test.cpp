#include <gtest/gtest.h>
#include <syslog.h>

#include <climits>
#include <cmath>
#include <limits>
#include <tuple>

#include "analysis/FindingsHistory.h"
#include "app/process_state.h"
#include "geometry/calibrator.h"
#include "geometry/distance_controller.h"
#include "overlay/overlay_manager.h"
#include "platform/scripted/lens.h"
#include "platform/scripted/overlays.h"
#include "platform/scripted/system_log.h"
#include "platform/scripted/video.h"

namespace {

using namespace scripted;

constexpr std::uint32_t kNone = 0, kBlack = 0xFF000000, kRed = 0xFFFF0000, kGreen = 0xFF00FF00, kBlue = 0xFF0000FF,
                        kYellow = 0xFFFFFF00, kWhite = 0xFFFFFFFF, kOrange = 0xFFFF9900, kGray = 0xFF808080;

constexpr axoverlay_stream_data kOverlayStream = {1, 1, 1280, 720, 0, FALSE, AXOVERLAY_STREAM_JPEG};
constexpr axoverlay_stream_data kAnonymizedStream = {2, 1, 640, 360, 0, FALSE, AXOVERLAY_STREAM_JPEG};
constexpr axoverlay_stream_data kApplicationStream = {3, 1, 800, 450, 0, FALSE, AXOVERLAY_STREAM_JPEG};
constexpr axoverlay_stream_data kOtherStream = {4, 1, 1920, 1080, 0, FALSE, AXOVERLAY_STREAM_JPEG};

/// Somebody upright in the middle: shoulders at 200, feet at 560, box from (600, 150) to (680, 560).
Skeleton standing(int rotation = 0) {
  constexpr std::array<int, 17> x{640, 644, 636, 650, 630, 680, 600, 720, 560, 780, 540, 670, 610, 670, 610, 670, 610};
  constexpr std::array<int, 17> y{150, 150, 150, 150, 150, 200, 200, 280, 280, 280, 340, 360, 360, 460, 460, 560, 560};
  Keypoints keypoints;
  for (std::size_t i = 0; i < x.size(); ++i) keypoints[BodyParts[i]] = {{x[i], y[i]}, BodyParts[i], 1.0F};
  return {keypoints, rotation, 0.875F};
}

Finding findingOf(const Skeleton& skeleton, Footings footing = Footings::floor) {
  return {5, {skeleton.superior.x, skeleton.superior.y}, skeleton, footing};
}

/// Somebody whose neck, hips and feet have been seen for a while, one above the other.
Finding measured(int rotation, int hips, int feet) {
  Finding finding = findingOf(standing(rotation));
  finding.averageSuperior = {300, 200};
  finding.averageHipMedian = {300, hips};
  finding.averageInferior = {300, feet};
  finding.hasValidAverageHipMedian = finding.hasValidAverageInferior = finding.hasValidAverageSuperior = true;
  return finding;
}

class Overlay : public ::testing::Test {
 protected:
  Overlay() {
    g_StreamWidth = 1280;
    g_StreamHeight = 720;
    g_IsDevMode = false;
    g_StatusCode = 200;
    g_findingsHistory = FindingsHistory(12);
    g_calibrator = Calibrator();
    g_OverlayInfo = OverlayInfo();
    OverlayManager::SetOverlayStreamResolution(1280, 720);
    OverlayManager::SetAnonymizedStreamResolution(640, 360);
    OverlayManager::clearUserOverlays();
    overlays() = Overlays();
    camera() = Camera();
    systemLog().clear();
    m_manager = std::make_unique<OverlayManager>();
  }

  /// A stream's overlay as it is with nobody but this person.
  Canvas drawn(axoverlay_stream_data stream, Finding finding) {
    g_findingsHistory = FindingsHistory(12);
    g_findingsHistory.add(finding);
    return drawn(stream);
  }
  static Canvas drawn(axoverlay_stream_data stream, int overlay = Overlays::kOverlay) {
    Canvas picture = overlays().drawn(stream, overlay);
    EXPECT_EQ(cairo_status(picture.cairo()), CAIRO_STATUS_SUCCESS);
    return picture;
  }

  std::unique_ptr<OverlayManager> m_manager;
};

TEST_F(Overlay, MasksAreCheckeredWithWhite) {
  for (const auto& [index, color, pattern] :
       {std::tuple{int{Red}, kRed, kRed}, {Orange, kOrange, kOrange}, {Black, kBlack, kGray}, {8, kBlack, kGray}}) {
    Canvas picture(40, 40);
    OverlayManager::drawRectangle(picture.cairo(), 10, 10, 30, 30, index, 4, true);
    EXPECT_EQ(picture.at(10, 20), color) << index;
    for (const auto& [x, y] : {std::pair{12, 12}, {13, 15}, {16, 19}, {17, 20}, {27, 27}}) {
      EXPECT_EQ(picture.at(x, y), (x / 4 + y / 4) % 2 == 0 ? pattern : kWhite) << index << " at " << x;
    }
  }
}

TEST_F(Overlay, FootingThenActivityColourAPerson) {
  using enum Activity;
  for (const auto& [footing, activity, color] : {std::tuple{Footings::bed, fallen, kGreen},
                                                 {Footings::floor, lying_down, kOrange},
                                                 {Footings::floor, fallen, kRed},
                                                 {Footings::floor, standing, kYellow},
                                                 {Footings::unknown, unknownActivity, kYellow},
                                                 {Footings::exclusion, fallen, kNone}}) {
    Finding finding = findingOf(::standing(), footing);
    finding.activity = activity;
    const Canvas picture = drawn(kOverlayStream, finding);
    EXPECT_EQ(picture.at(660, 200), color) << "shoulders";
    EXPECT_EQ(picture.at(640, 110), color) << "head";
    EXPECT_EQ(picture.at(640, 150), kNone) << "a face has no lines";
  }
}

TEST_F(Overlay, EachStreamShowsItsShare) {
  g_OverlayInfo.overlayStreamWidth = 1024;
  g_OverlayInfo.overlayStreamHeight = 576;
  for (const bool developer : {false, true}) {
    g_IsDevMode = developer;
    for (axoverlay_stream_data stream : {axoverlay_stream_data{1, 1, 1024, 576, 0, FALSE, AXOVERLAY_STREAM_JPEG},
                                         kApplicationStream, kAnonymizedStream, kOtherStream}) {
      for (const auto footing : {Footings::floor, Footings::exclusion}) {
        const Canvas picture = drawn(stream, findingOf(standing(), footing));
        const auto at = [&](int x, int y) {
          return picture.at(x * (stream.width - 1) / 1279, y * (stream.height - 1) / 719);
        };
        const bool isOurs = stream.id != kOtherStream.id, isMasked = stream.id == kAnonymizedStream.id;
        EXPECT_EQ(at(750, 280) == kYellow, isOurs && footing == Footings::floor) << "forearm";
        EXPECT_EQ(at(600, 300) == kBlack, isOurs && (isMasked || developer)) << "box";
        for (int y = 160; y < 550; y += 5) {
          const std::uint32_t inside = at(655, y);
          ASSERT_EQ(inside == kGray || inside == kWhite, isMasked) << "mask";
        }
        EXPECT_EQ(picture.countNear(kRed, 0, 0, stream.width, stream.height * 150 / 720) > 10, isOurs && developer)
            << "label of an unknown ratio";
        EXPECT_EQ(picture.find(kWhite).bottom > stream.height - 30, isOurs) << "status";
      }
    }
  }
  const Canvas untouched = drawn(kAnonymizedStream, Overlays::kOverlay + 1);
  EXPECT_EQ(untouched.find(kNone).pixels, 640 * 360) << "another application's overlay";
}

TEST_F(Overlay, HeadVelocityAndLegs) {
  // Where the head's centre and the far side of a head of unknown size are.
  constexpr std::array<int, 5> kHeads[] = {{0, 640, 155, 640, 190},
                                           {90, 595, 200, 630, 200},
                                           {180, 640, 245, 640, 209},
                                           {270, 685, 200, 649, 200},
                                           {-1, 640, 155, 640, 190}};
  for (const auto& [rotation, x, y, farX, farY] : kHeads) {
    Finding finding = findingOf(standing(rotation));
    finding.skeleton.edges.clear();
    finding.hasValidAverageNormalFactorVelocity = true;
    finding.averageNormalFactorVelocity = {-60.9F, 0};
    const Canvas picture = drawn(kOverlayStream, finding);
    EXPECT_EQ(picture.at(x - 45, y), kYellow) << rotation;
    EXPECT_EQ(picture.at(x, y + 44), kYellow) << rotation;
    const Canvas::Part velocity = picture.find(kBlue);
    EXPECT_EQ(std::tuple(velocity.left, velocity.right, velocity.top), std::tuple(x, x + 59, y - 1)) << rotation;
    finding.skeleton.hasSkeletonHeight = finding.hasValidAverageNormalFactorVelocity = false;
    EXPECT_EQ(drawn(kOverlayStream, finding).at(farX, farY), kYellow) << rotation;
  }
  for (const auto& [hips, color] : {std::pair{330, kNone}, {310, kYellow}}) {
    const Canvas picture = drawn(kOverlayStream, measured(0, hips, 560));
    EXPECT_EQ(picture.at(300, hips), color) << "cross";
    EXPECT_EQ(picture.at(300, hips + 5), color) << "circle";
  }
}

TEST_F(Overlay, DeveloperModeShowsWhatActivityFollowsFrom) {
  g_IsDevMode = true;
  const std::tuple<int, bool, std::uint32_t> cases[] = {{0, true, kWhite},    {90, false, kRed}, {180, true, kYellow},
                                                        {270, false, kGreen}, {-1, true, kBlue}, {-2, false, kBlack}};
  for (const auto& [rotation, isMoving, feet] : cases) {
    Finding finding = measured(rotation, 300, isMoving ? 400 : 560);
    finding.isMoving = isMoving;
    finding.expectedSuperior = {900, 300};
    finding.expectedInferior = {900, 600};
    finding.hasValidExpectedInferior = finding.hasValidExpectedSuperior = true;
    const Canvas picture = drawn(kOverlayStream, finding);
    EXPECT_EQ(picture.at(635, 559), feet) << rotation;
    EXPECT_EQ(picture.at(300, 200), isMoving ? kYellow : kOrange);
    EXPECT_EQ(picture.at(300, finding.averageInferior.y), kBlack);
    EXPECT_EQ(picture.at(300, 300), kBlue);
    EXPECT_EQ(picture.at(900, 450), kWhite);
    EXPECT_EQ(picture.at(901, 450), kNone);
    // The box is narrow, so the whole width is the radius.
    EXPECT_GT(picture.countNear(kWhite, 970, 299, 990, 301), 1);
    // The label stands on the box, white for a ratio from 0.5 on.
    const auto labelled = [&](std::uint32_t color) { return picture.countNear(color, 700, 105, 800, 130) > 20; };
    EXPECT_TRUE(labelled(isMoving ? kWhite : kRed) && labelled(kBlack));
    EXPECT_FALSE(labelled(isMoving ? kRed : kWhite));
  }
}

TEST_F(Overlay, ThePictureIsCentredTurnedAndMirrored) {
  const auto box = [&](axoverlay_stream_data stream) {
    OverlayManager::SetAnonymizedStreamResolution(static_cast<unsigned>(stream.width),
                                                  static_cast<unsigned>(stream.height));
    const Canvas::Part mask = drawn(stream, findingOf(standing())).find(kGray);
    return std::array{mask.left, mask.top, mask.right, mask.bottom};
  };
  const auto expectNear = [](std::array<int, 4> part, std::array<int, 4> expected) {
    for (std::size_t i = 0; i < part.size(); ++i) EXPECT_NEAR(part[i], expected[i], 5) << "side " << i;
  };
  expectNear(box({1, 1, 640, 360, 0, FALSE, {}}), {300, 75, 340, 280});
  expectNear(box({1, 1, 640, 360, 0, TRUE, {}}), {299, 75, 339, 280});
  // A stream of 4:3 shows the middle of the picture: 160 columns are cut off on the left.
  expectNear(box({1, 1, 640, 480, 0, FALSE, {}}), {293, 100, 346, 373});
  expectNear(box({1, 1, 640, 480, 180, TRUE, {}}), {293, 100, 346, 373});
  g_StreamWidth = 720;
  g_StreamHeight = 1280;
  expectNear(box({1, 1, 640, 360, 90, FALSE, {}}), {300, 75, 340, 280});
  expectNear(box({1, 1, 640, 360, 270, TRUE, {}}), {19, 75, 59, 280});
}

TEST_F(Overlay, TheStatusStandsAtTheBottomLeft) {
  for (const auto& [width, height, rotation] : {std::tuple{1280, 720, 0}, {1280, 720, 90}, {1920, 1080, 270}}) {
    OverlayManager::SetOverlayStreamResolution(static_cast<unsigned>(width), static_cast<unsigned>(height));
    const auto status = [&, w = width, h = height, r = rotation](int code, int time_ms) {
      g_StatusCode = code;
      g_ExecutionTime = time_ms;
      return drawn({1, 1, w, h, r, FALSE, {}}).find(kWhite);
    };
    const int fontSize = height * 3 / 100;
    const int bottom = rotation % 180 == 0 ? height : width;
    const Canvas::Part part = status(502, 7);
    EXPECT_NEAR(part.left, 11, 3);
    EXPECT_NEAR((part.top + part.bottom) / 2.0, bottom + 5 - 1.5 * fontSize, fontSize * 0.6) << rotation;
    EXPECT_GT(status(502, 77777).right, part.right + fontSize);
    EXPECT_LT(status(200, 7).right, part.right - 4 * fontSize);
  }
}

TEST_F(Overlay, StakesStandOnACalibratedFloor) {
  g_calibrator.setSize(1.5F, 2.0F);
  EXPECT_EQ(drawn(kOverlayStream).at(640, 360), kNone);
  g_calibrator.setRender(true);
  const scripted::Lens lens("UINT32 3700;\n");
  ASSERT_TRUE(g_DistanceController.calibrate("AXIS Q1656", Quad(479, 381, 385, 591, 679, 591, 665, 381), 1.5F, 2.0F));
  const Canvas picture = drawn(kOverlayStream);
  for (const auto& [x, y] : {std::pair{630, 360}, {649, 360}, {640, 350}}) EXPECT_EQ(picture.at(x, y), kWhite);
  for (const int corner : {0, 1, 2, 3}) {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    ASSERT_TRUE(g_calibrator.getStakeScreenCoordinates(static_cast<Calibrator::Corner>(corner), x0, y0, x1, y1));
    EXPECT_EQ(picture.at((x0 + x1) / 2, (y0 + y1) / 2), kWhite) << corner;
  }
}

TEST_F(Overlay, UserShapesHaveTheirOrderAndTheirLimits) {
  OverlayManager::addUserLine(60, 0, 60, 100, Green, 4);
  OverlayManager::addUserCircle(20, 60, 40, Blue, 4);
  OverlayManager::addUserRectangle(20, 20, 100, 30, Red, 4);
  const Canvas picture = drawn(kOverlayStream);
  EXPECT_EQ(picture.at(60, 60), kGreen) << "lines over circles";
  EXPECT_EQ(picture.at(20, 20), kBlue) << "circles over rectangles";
  EXPECT_EQ(std::pair(picture.at(90, 50), picture.at(120, 35)), std::pair(kRed, kRed));
  for (int i = 0; i < 257; ++i) {
    OverlayManager::addUserRectangle(0, 0, 20, 20, Red, 2);
    OverlayManager::addUserCircle(0, 0, 10, Red, 2);
    OverlayManager::addUserLine(0, 0, 10, 20, Red, 2);
  }
  OverlayManager::clearUserRectangles();
  EXPECT_EQ(std::tuple(g_nUserRectangles, g_nUserCircles, g_nUserLines), std::tuple(0, 256, 256));
}

TEST_F(Overlay, TheFirstMatchingSizeDecidesWhatAStreamIs) {
  OverlayInfo info;
  EXPECT_EQ(info.getStreamType(800, 450), StreamType::ApplicationStream);
  EXPECT_EQ(info.getStreamType(450, 800), StreamType::OtherStream);
  info.anonymizedStreamWidth = 640;
  info.anonymizedStreamHeight = 360;
  EXPECT_EQ(info.getStreamType(640, 360), StreamType::AnonymizedStream);
  info.overlayStreamWidth = info.appStreamWidth = 640;
  info.overlayStreamHeight = 360;
  EXPECT_EQ(info.getStreamType(640, 360), StreamType::OverlayStream);
  info.appStreamHeight = 360;
  EXPECT_EQ(info.getStreamType(640, 360), StreamType::ApplicationStream);
}

TEST_F(Overlay, ResolutionTextsMayBeAnything) {
  const std::string tooMuch = "2147483648x99999999999999999999";
  const std::tuple<std::string, unsigned, unsigned> cases[] = {
      {"1280x720", 1280, 720}, {"", 0, 0},         {"x720", 0, 720}, {"1280", 1280, 0},
      {"-5x+7", 0, 7},         {" 12 x7z", 12, 7}, {tooMuch, 0, 0}};
  for (const auto& [text, width, height] : cases) {
    OverlayManager::SetOverlayStreamResolutionFromString(text);
    OverlayManager::SetAnonymizedStreamResolutionFromString(text);
    const OverlayInfo& info = g_OverlayInfo;
    EXPECT_EQ(std::pair(info.overlayStreamWidth, info.overlayStreamHeight), std::pair(width, height)) << text;
    EXPECT_EQ(std::pair(info.anonymizedStreamWidth, info.anonymizedStreamHeight), std::pair(width, height)) << text;
  }
}

TEST_F(Overlay, TheCamerasResolutionsAreListedInOrderAndOnce) {
  camera().channels = {{{1920, 1080}, {640, 480}}, {{640, 360}, {1920, 1080}}};
  EXPECT_EQ(OverlayManager::getCamerasResolutionsAsCsv(), "640x360,640x480,1920x1080,");
  for (const char* call : {"vdo_channel_get_resolutions", "vdo_channel_get_all"}) {
    camera().faults = {{call, 0}};
    EXPECT_EQ(OverlayManager::getCamerasResolutionsAsCsv(), "") << call;
  }
}

TEST_F(Overlay, TheManagerLivesWithWhateverFails) {
  const axoverlay_overlay_data& overlay = overlays().overlay;
  EXPECT_EQ(std::tuple(overlay.width, overlay.height, overlay.anchor_point, overlay.scale_to_stream),
            std::tuple(1920, 1080, AXOVERLAY_ANCHOR_TOP_LEFT, FALSE));
  EXPECT_TRUE(overlays().settings.select_callback(1, 1, 1, 0, FALSE, AXOVERLAY_STREAM_OTHER));
  EXPECT_TRUE(m_manager->renderFindings());
  EXPECT_EQ(overlays().redraws, 2);
  overlays().faults = {{"axoverlay_redraw", 0}};
  EXPECT_FALSE(m_manager->renderFindings());
  m_manager.reset();
  EXPECT_EQ(std::pair(overlays().live_overlays, overlays().live_sessions), std::pair(0, 0));

  for (const char* call : {"axoverlay_is_backend_supported", "axoverlay_init", "axoverlay_get_max_resolution_width",
                           "axoverlay_create_overlay", "axoverlay_redraw"}) {
    overlays() = Overlays();
    overlays().faults = {{call, 0}};
    systemLog().clear();
    m_manager = std::make_unique<OverlayManager>();
    EXPECT_EQ(m_manager->renderFindings(), !overlays().faults.contains("axoverlay_redraw")) << call;
    ASSERT_EQ(systemLog().size(), 1U) << call;
    EXPECT_EQ(systemLog()[0].level, LOG_ERR) << call;
    m_manager.reset();
    EXPECT_EQ(overlays().live_overlays, 0) << call;
    EXPECT_EQ(overlays().live_sessions, overlays().faults.contains("axoverlay_init") ? -1 : 0) << call;
  }
}

TEST_F(Overlay, WildFindingsNeitherHarmNorUncover) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  g_IsDevMode = true;
  for (const int far : {INT_MAX, 1 << 29, 1 << 23, 100000}) {
    Finding finding = measured(90, 0, 0);
    finding.hasValidAverageNormalFactorVelocity = finding.hasValidExpectedInferior = finding.hasValidExpectedSuperior =
        true;
    finding.averageNormalFactorVelocity = {-kInfinity, std::nanf("")};
    finding.averageSuperior = finding.expectedInferior = {-far, far};
    finding.averageInferior = finding.expectedSuperior = {far, -far - 1};
    Skeleton& skeleton = finding.skeleton;
    skeleton.superior = {-far - 1, far};
    skeleton.edges.front().b.point = {-far, far};
    skeleton.score = kInfinity;
    skeleton.boundingBox = {{-far - 1, -far}, {far, far}};
    for (const float height : {-800.0F, 1e30F, std::nanf("")}) {
      skeleton.skeletonHeight = height;
      for (axoverlay_stream_data stream : {kAnonymizedStream, kOverlayStream}) {
        for (const gboolean mirrored : {0, 1}) {
          stream.mirrored = mirrored;
          const Canvas picture = drawn(stream, finding);
          if (stream.id != kAnonymizedStream.id) continue;
          for (int i = 0; i < 36; ++i) EXPECT_NE(picture.at(i * 17, i * 10), kNone) << far << " at " << i;
        }
      }
    }
    for (const int width : {far, -far}) {
      OverlayManager::addUserRectangle(far, far, far, -far, Red, width);
      OverlayManager::addUserLine(-far, far, far, -far, 99, width);
      OverlayManager::addUserCircle(far, -far, width, -99, width);
    }
  }
  drawn(kOverlayStream, findingOf(Skeleton(Keypoints(), Edges(), 0, 1.0F)));
  g_StreamWidth = g_StreamHeight = 0;
  drawn(kOverlayStream);
  g_StreamWidth = g_StreamHeight = 1;
  drawn(kOverlayStream);
}

}  // namespace
