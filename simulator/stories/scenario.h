// A script of what happens in a room, read from a small JSON file, and the recording made of it. docs:
// simulator/README.md.
#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/drawing/scene.h"
#include "simulator/rooms/furniture.h"

namespace simulator {

/// What somebody does from one key of the script to the next.
enum class Posture : std::uint8_t {
  kInBed,
  kSitUp,
  kSitEdge,
  kHalfOut,
  kStand,
  kLieFloor,
  kKneel,
  kBend,
  kSit,
  kSitFloor,
  kCrawl
};

/// Whether that is done on the bed, so that the script gives no place for it.
bool isOnBed(Posture posture);
/// Whether somebody lies or sits on the floor.
bool isOnFloor(Posture posture);

/// How somebody lies: as `roll` says, or on a side.
enum class Lying : std::uint8_t { kByRoll, kOnLeftSide, kOnRightSide };

/// How far up a blanket is when the script does not say.
inline constexpr float kUsualCover = 0.75F;

struct Key {
  float time = 0;  ///< seconds
  Posture posture = Posture::kStand;
  glm::vec2 place{0};  ///< metres; unused in bed
  float heading = 0;   ///< radians; where the face (upright) or the head (lying) points
  float roll = 0;      ///< radians; lying: 0 on the back
  Lying lying = Lying::kByRoll;
  float cover = kUsualCover;          ///< in bed: how far the blanket is pulled up
  bool farSide = false;               ///< on the bed's edge: of the two the one that people do not get up by
  bool helpless = true;               ///< on the floor: not of one's own will
  std::optional<bool> countsAsInBed;  ///< half out of the bed
  std::optional<std::size_t> thing;   ///< what somebody sits on, or pushes along
  bool rolls = false;                 ///< sitting on the thing: it has come along to `place`

  bool pushes(std::size_t which) const { return posture == Posture::kStand && thing == which; }
  bool sitsOn(std::size_t which) const { return posture == Posture::kSit && thing == which; }
};

struct Actor {
  int id = 0;
  BodyShape shape;
  bool patient = false;     ///< and no carer or visitor
  bool hasBlanket = false;  ///< the bed's blanket follows this person
  std::size_t bed = 0;      ///< the bed that is used, 0 for the first
  /// In order of time, at least one. The person comes with the first; who stands at the last leaves with it, everybody
  /// else stays until the end.
  std::vector<Key> keys;

  bool comes() const;
  bool leaves() const;
  bool isThere(float time) const;
};

/// Where a piece of furniture that people use stands, and where its front points (radians).
struct Placement {
  glm::vec2 place{0};
  float heading = 0;
};

struct Thing {
  const Movable* sort = nullptr;
  Placement first;
  Mesh mesh;  ///< its origin is its middle, its front is y
};

/// What lights the room, from a moment on.
struct Lighting {
  enum class Kind : std::uint8_t { kDay, kDark, kLamp, kInfrared };
  float time = 0;
  Kind kind = Kind::kDay;
  float level = 1;
  float noise = 0;  ///< of the sensor, standard deviation in grey levels
  glm::vec3 lamp{0};
};

/// The floor rectangle that an installer would have measured: `corner` is its far left corner.
struct FloorRectangle {
  glm::vec2 corner{1, 3};
  float width = 2;
  float depth = 1.5F;

  /// Clockwise from the far left one, as a camera on the near wall sees it.
  std::array<glm::vec2, 4> corners() const;
};

struct Scenario {
  std::string description;  ///< one line for the reader, may be empty
  float seconds = 60;
  int framesPerSecond = 10;
  std::string productName = "AXIS P3255-LVE";
  Optics optics;
  unsigned rotation = 0;  ///< degrees clockwise that turn the sensor's picture upright; the scene's is upright
  Scene scene;            ///< the room, camera and light; its people are the actors at a moment
  FloorRectangle floor;
  std::vector<std::array<glm::vec3, 4>> exclusions;  ///< corners in the room
  std::vector<Lighting> lighting;                    ///< in order of time; before the first it is day
  std::vector<Thing> things;
  std::vector<Actor> actors;

  /// The scene at a moment.
  Scene at(float time) const;
};

/// Reads a script. Throws std::runtime_error with one line that names file, key ("people[0].keys[3].at") and what is
/// allowed.
Scenario readScenario(const std::filesystem::path& file);

/// One line of the truth file: who is where at `time` seconds. `truth` belongs to the scene's people one by one.
std::string truthLine(const Scene& scene, const std::vector<TrueKeypoints>& truth, double time);

/// What an installer draws around a bed: see area.h.
enum class BedArea : std::uint8_t { kVolume, kMattress };

/// The settings file: what an installer would have set, areas and floor points in pixels of the upright picture.
std::string settingsText(const Scenario& scenario, BedArea bedArea = BedArea::kVolume);

/// The file of what happened, as docs/happened.md describes it: who is where from when to when, and the moments.
std::string happenedText(const Scenario& scenario);

/// How much of a recording is made: nothing is drawn; the people are, twice a second; all pictures are.
enum class Extent : std::uint8_t { kTold, kTruth, kVideo };

/// Writes NAME.settings.json, NAME.mattress.settings.json and NAME.happened.txt into the folder, from kTruth on also
/// NAME.truth.jsonl (one line per analysed picture, every half second), from kVideo on NAME.mp4. Throws
/// std::runtime_error.
void record(const Scenario& scenario, const std::filesystem::path& folder, const std::string& name, Extent extent);

/// Writes the picture at a moment as a PNG file. Throws std::runtime_error.
void writePicture(const Scenario& scenario, float time, const std::filesystem::path& file);

}  // namespace simulator
