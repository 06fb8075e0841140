#include "platform/workstation/sight/sight_watch.h"

#include <gst/video/video.h>
#include <gtest/gtest.h>

#include "tests/platform/conditions.h"
#include "tests/platform/sight/drawn_room.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;

std::shared_ptr<const DecodedFrame> frameOf(const Shot& shot) {
  gst_init(nullptr, nullptr);
  std::vector<std::uint8_t> bytes = shot.grey();
  bytes.resize(bytes.size() * 3 / 2, 128);
  GstCaps* caps = gst_caps_from_string("video/x-raw,format=I420,width=640,height=360,framerate=2/1,colorimetry=jpeg");
  GstBuffer* buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
  GstPtr<GstSample> sample(gst_sample_new(buffer, caps, nullptr, nullptr));
  gst_buffer_unref(buffer);
  gst_caps_unref(caps);
  return std::make_shared<const DecodedFrame>(std::move(sample));
}

/// Watches that follow each other over restarts, and a camera in simulated time.
class SightWatchTest : public testing::Test {
 protected:
  SightWatchTest() { start(); }
  ~SightWatchTest() override {
    for (const Trouble trouble : {Trouble::kCameraMoved, Trouble::kLensCovered}) endTrouble(trouble);
  }

  void start() {
    m_watch = std::make_unique<SightWatch>(m_folder.path());
    m_watch->setParameters(m_parameters);
  }
  void shows(const Shot& shot, int seconds) {
    const std::array frames{frameOf(shot.noisy(1)), frameOf(shot.noisy(2))};
    for (int i = 0; i < seconds; ++i) {
      m_time += 1s;
      m_watch->look({frames.at(static_cast<std::size_t>(i % 2)), 0, {m_time, {}}});
      ASSERT_TRUE(m_watch->settle(60s));
    }
  }

  StateFolder m_folder;
  std::map<std::string, std::string, std::less<>> m_parameters{{"FallCalibration0x", "573"}, {"WRectM", "1.6"}};
  std::unique_ptr<SightWatch> m_watch;
  Sight::Time m_time{1h};
};

TEST_F(SightWatchTest, RemembersOverARestartHowTheCameraHungWhenTheFloorWasCalibrated) {
  const Shot moved = drawnRoom(1, {10, 0, 0});
  shows(drawnRoom(1), 85);
  ASSERT_TRUE(std::filesystem::exists(m_folder / "room.edges"));
  start();
  shows(moved, 60);
  EXPECT_NE(textOf(Trouble::kCameraMoved).find("check the floor points"), std::string::npos);
  const SightPictures pictures = m_watch->pictures();
  ASSERT_TRUE(pictures.edges_then && !pictures.edges_now.cells.empty());
  EXPECT_NE(pictures.edges_then->cells, pictures.edges_now.cells);

  m_parameters["Sensitivity"] = "0.4";  // another save says nothing about the camera
  m_watch->setParameters(m_parameters);
  shows(moved, 10);
  EXPECT_NE(textOf(Trouble::kCameraMoved), "");
  m_parameters["FallCalibration0x"] = "600";  // a new calibration does
  m_watch->setParameters(m_parameters);
  shows(moved, 10);
  EXPECT_EQ(textOf(Trouble::kCameraMoved), "");
  shows(moved, 80);
  shows(drawnRoom(1), 60);
  EXPECT_NE(textOf(Trouble::kCameraMoved), "") << "where it hung first it is moved now";
  m_watch->accept();  // the installer says that the points are right
  shows(drawnRoom(1), 90);
  EXPECT_EQ(textOf(Trouble::kCameraMoved), "");
  start();
  shows(drawnRoom(1), 60);
  EXPECT_EQ(textOf(Trouble::kCameraMoved), "") << "and so it is kept";
}

TEST_F(SightWatchTest, ADamagedRoomOrADiskThatTakesNoneKeepsNobodyFromSeeing) {
  m_folder.write("room.edges", "velmor_care room 1\n");
  std::filesystem::create_directory(m_folder / "room.edges.new");  // nothing can be written beside it
  shows(drawnRoom(1), 90);
  shows(drawnRoom(1, {10, 0, 0}), 60);
  EXPECT_NE(textOf(Trouble::kCameraMoved), "") << "a new one is taken, in memory at least";
  shows(Shot(), 6);
  EXPECT_NE(textOf(Trouble::kLensCovered), "");
  EXPECT_NE(m_watch->pictures().shade_then, m_watch->pictures().shade_now);
  shows(drawnRoom(1, {10, 0, 0}), 6);
  EXPECT_EQ(textOf(Trouble::kLensCovered), "");
}

}  // namespace
