#include "platform/workstation/sight/sight.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/workstation/sight/stored_room.h"
#include "tests/platform/sight/drawn_room.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr unsigned kRoom = 7;

/// A camera whose pictures are looked at twice a second.
class Camera {
 public:
  /// Pictures that are so many pixels of a shot narrower have black bars beside them.
  explicit Camera(int bar = 0) : m_bar(bar) { sight.setReference(std::nullopt); }

  void shows(const Shot& shot, seconds time) {
    std::vector<Look> looks;
    for (unsigned seed = 0; seed < 3; ++seed) {
      const Shot noisy = shot.noisy(seed).with(0, 0, m_bar, Shot::kHeight, 0);
      looks.push_back(lookAt(noisy.with(Shot::kWidth - m_bar, 0, Shot::kWidth, Shot::kHeight, 0).view()));
    }
    for (const auto end = m_time + time; m_time < end; m_time += 500ms) {
      sight.take(looks[static_cast<std::size_t>(m_time / 500ms) % looks.size()], {Sight::Time(m_time), {}});
    }
  }
  /// What it says, in a letter for each fault: F, D, C, B for blurred, M.
  std::string says() const {
    std::string said;
    for (const SightFault fault : kSightFaults) {
      if (sight.since(fault)) said += "FDCBM"[static_cast<std::size_t>(fault)];
    }
    return said;
  }
  nanoseconds now() const { return m_time; }

  Sight sight;

 private:
  int m_bar;
  nanoseconds m_time{1h};
};

Shot cloth() {
  return Shot().changed(
      [](double, int x, int y) { return 190 - std::hypot(x - 350, y - 150) / 8 + 5 * std::sin(x / 45.0); });
}

const std::map<std::string, Shot>& blindness() {
  static const std::map<std::string, Shot> shots{
      {"D", drawnRoom(kRoom).lit(0.03)}, {"C", cloth()}, {"B", drawnRoom(kRoom).blurred(8)}};
  return shots;
}

TEST(SightTest, EachBlindnessIsToldWithinFiveSecondsAndSoIsItsEnd) {
  Camera camera;
  camera.shows(drawnRoom(kRoom), 30s);
  for (const auto& [name, shot] : blindness()) {
    EXPECT_EQ(camera.says(), "") << "before " << name;
    const auto began = camera.now();
    camera.shows(shot, 2s);
    EXPECT_EQ(camera.says(), "") << name << ": whoever passes right before the lens is no fault";
    camera.shows(shot, 3s);
    EXPECT_EQ(camera.says(), name);
    camera.shows(shot, 180s);
    EXPECT_EQ(camera.says(), name) << "nobody gets used to it";
    for (const SightFault fault : kSightFaults) {
      if (const auto since = camera.sight.since(fault)) {
        EXPECT_EQ(since->time_since_epoch(), began) << name;
      }
    }
    camera.shows(drawnRoom(kRoom), 5s);
  }
  EXPECT_EQ(camera.says(), "");
}

TEST(SightTest, ACameraThatStartsBlindSaysSoWhateverItsShape) {
  for (const auto& [name, shot] : blindness()) {
    Camera camera(100);
    camera.shows(shot, 5s);
    EXPECT_EQ(camera.says(), name);
    camera.shows(drawnRoom(kRoom), 5s);
    EXPECT_EQ(camera.says(), "") << name;
  }
}

/// At dusk a state neither comes and goes nor begins at the limit by which it ends.
TEST(SightTest, BetweenItsLimitsAStateStaysWhatItIs) {
  const Shot dim = drawnRoom(kRoom).lit(0.085);
  Camera camera;
  camera.shows(drawnRoom(kRoom).lit(0.12), 20s);
  camera.shows(dim, 20s);
  EXPECT_EQ(camera.says(), "") << "not dark yet";
  camera.shows(drawnRoom(kRoom).lit(0.04), 20s);
  EXPECT_EQ(camera.says(), "D");
  camera.shows(dim, 60s);
  EXPECT_EQ(camera.says(), "D") << "dark still";
  camera.shows(drawnRoom(kRoom).lit(0.12), 5s);
  EXPECT_EQ(camera.says(), "");
}

TEST(SightTest, PeopleLampsSunAndAPushedBedAreNoFaults) {
  const Shot room = drawnRoom(kRoom);
  const Shot elsewhere = drawnRoom(kRoom, {12, 9, 0});
  const std::map<std::string, Shot> cases{
      {"a carer right before the camera", room.with(150, 0, 430, 360, 60)},
      {"a lamp goes out", room.lit(0.25)},
      {"infrared light", room.changed([](double level, int, int) { return 230 - 0.6 * level; })},
      {"the sun", room.changed([](double level, int x, int) { return x > 400 ? level + 90 : level; })},
      {"a bed is pushed, with all that stands beside it", room.changed([&elsewhere](double level, int x, int y) {
         return x > 260 && y > 60 ? elsewhere.at(x, y) : level;
       })}};
  for (const auto& [what, shot] : cases) {
    Camera camera;
    camera.shows(room, 80s);
    ASSERT_TRUE(camera.sight.reference());
    for (const auto time : {4s, 60s, 60s}) {
      camera.shows(shot, time);
      EXPECT_EQ(camera.says(), "") << what;
    }
    camera.shows(room, 60s);
    EXPECT_EQ(camera.says(), "") << what << ", over";
  }
}

TEST(SightTest, ACameraThatIsMovedSaysSoUntilItIsBack) {
  const std::map<std::string, Shot> cases{{"turned by a degree", drawnRoom(kRoom, {7, 0, 0})},
                                          {"tilted by half a degree", drawnRoom(kRoom, {0, -4, 0})},
                                          {"rolled by two degrees", drawnRoom(kRoom, {0, 0, 2})},
                                          {"turned by nine degrees", drawnRoom(kRoom, {60, 20, 0})},
                                          {"looking at another room", drawnRoom(kRoom + 1)}};
  for (const auto& [what, shot] : cases) {
    Camera camera;
    camera.shows(drawnRoom(kRoom), 80s);
    ASSERT_TRUE(camera.sight.reference());
    camera.shows(shot, 15s);
    EXPECT_EQ(camera.says(), "") << what << ": it may be cleaned";
    camera.shows(shot, 45s);
    EXPECT_EQ(camera.says(), "M") << what;
    camera.shows(shot.lit(0.02), 10s);
    EXPECT_EQ(camera.says(), "DM") << what << ", and the light goes out";
    camera.shows(drawnRoom(kRoom), 40s);
    EXPECT_EQ(camera.says(), "") << what << ", and back";
  }
}

TEST(SightTest, AClockThatStopsOrRepeatsIsFrozenAndOneThatJumpsIsNot) {
  const Look look = lookAt(drawnRoom(kRoom).view());
  const auto frozenBy = [&look](auto captured) {
    Sight sight;
    for (int i = 0; i < 40; ++i) {
      const std::optional<nanoseconds> time = i < 20 ? std::optional(nanoseconds(i * 500ms)) : captured(i);
      sight.take(look, {Sight::Time(1h + i * 500ms), time});
      if (i == 19) {
        EXPECT_FALSE(sight.since(SightFault::kFrozen));
      }
      if (i == 29 && sight.since(SightFault::kFrozen)) {
        EXPECT_GE(*sight.since(SightFault::kFrozen), Sight::Time(1h + 20 * 500ms));
        return true;
      }
    }
    return sight.since(SightFault::kFrozen).has_value();
  };
  EXPECT_TRUE(frozenBy([](int) { return nanoseconds(9500ms); })) << "it stops";
  EXPECT_TRUE(frozenBy([](int i) { return nanoseconds((12 + i % 8) * 500ms); })) << "the last seconds again and again";
  EXPECT_TRUE(frozenBy([](int i) { return nanoseconds(9500ms + i * 1ms); })) << "it creeps";
  EXPECT_FALSE(frozenBy([](int i) { return nanoseconds(i * 500ms + 1h); })) << "it jumps ahead";
  EXPECT_FALSE(frozenBy([](int i) { return nanoseconds(i * 490ms - 1h); })) << "it is set back";
  EXPECT_FALSE(frozenBy([](int i) { return nanoseconds(i * 250ms + 5s); })) << "it is slow";
  EXPECT_FALSE(frozenBy([](int) { return std::optional<nanoseconds>(); })) << "the stream stops telling";
  Sight slow;  // the camera gives a picture in three seconds: the same one is looked at again
  for (int i = 0; i < 60; ++i) slow.take(look, {Sight::Time(1h + i / 6 * 3s), nanoseconds(i / 6 * 3s)});
  EXPECT_FALSE(slow.since(SightFault::kFrozen));
}

/// What is kept of the room shows nobody who moves, nor a bed, and comes back from the disk as it was.
TEST(SightTest, TheStoredRoomHoldsNoPersonAndSurvivesNoDamage) {
  const Shot room = drawnRoom(kRoom);
  std::vector<bool> bed(kCells);
  for (std::size_t cell = 0; cell < kCells; ++cell) bed[cell] = cell % kCellColumns > 100;
  Camera camera;
  camera.sight.hideCells(bed);
  for (int i = 0; i < 8; ++i) camera.shows(room.with(20 + 25 * i, 100, 100 + 25 * i, 330, 70), 10s);
  ASSERT_TRUE(camera.sight.reference());
  const RoomReference& kept = *camera.sight.reference();
  Camera alone;
  alone.shows(room, 80s);
  int same = 0;
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    for (std::size_t direction = 0; direction < kDirections; ++direction) {
      const int strength = kept.edges.cells[cell][direction];
      ASSERT_TRUE(strength == 0 || !bed[cell]);
      if (strength == 0) continue;
      ASSERT_GT(alone.sight.reference()->edges.cells[cell][direction], 0) << "an edge of nothing in the empty room";
      ++same;
    }
  }
  EXPECT_GT(same, 300);

  const StateFolder folder;
  saveRoom({"573 362 1.6", "2026-03-01T12:00:31.500Z", kept}, folder.path());
  const auto loaded = loadRoom(folder.path());
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loaded->floor + loaded->taken, "573 362 1.62026-03-01T12:00:31.500Z");
  EXPECT_TRUE(loaded->room.edges.cells == kept.edges.cells && loaded->room.shade == kept.shade);
  const std::string text = folder.read("room.edges");
  for (const std::size_t place : {std::size_t{0}, std::size_t{30}, text.size() / 2, text.size() - 3}) {
    std::string damaged = text;
    damaged[place] = static_cast<char>(damaged[place] ^ 1);
    folder.write("room.edges", damaged);
    EXPECT_THROW(loadRoom(folder.path()), std::runtime_error) << place;
    folder.write("room.edges", text.substr(0, place));
    EXPECT_THROW(loadRoom(folder.path()), std::runtime_error) << place;
  }
}

}  // namespace
