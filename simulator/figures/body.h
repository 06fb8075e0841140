// Articulated people: shape, pose, forward kinematics. Metres; world z is up.
#pragma once

#include <array>
#include <cstdint>
#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>
#include <random>
#include <string_view>
#include <vector>

namespace simulator {

using Random = std::mt19937;

/// Uniform in [low, high).
float uniform(Random& random, float low, float high);
bool chance(Random& random, float probability);

inline constexpr std::size_t kKeypoints = 17;

/// Proportions and clothes of one person. Colours are linear RGB in 0..1.
struct BodyShape {
  float height = 1.7F;
  float girth = 1.0F;
  glm::vec3 skin{0.8F, 0.6F, 0.5F};
  glm::vec3 hair{0.2F, 0.15F, 0.1F};
  glm::vec3 top{0.5F, 0.6F, 0.7F};
  glm::vec3 trousers{0.3F, 0.3F, 0.4F};
  glm::vec3 shoes{0.2F, 0.2F, 0.2F};
  bool longSleeves = true;
  bool longHair = false;
  bool stripedTop = false;
};

/// Joint angles of one limb in radians; 0 everywhere is standing at attention.
struct Limb {
  float flex = 0;    ///< forward at the shoulder or hip
  float abduct = 0;  ///< away from the body's middle
  float twist = 0;   ///< about the limb's own axis, inwards
  float bend = 0;    ///< elbow forwards, knee backwards
};

/// A posture. `orientation` turns body axes (x the person's right, y forward, z towards the head) into the world.
struct Pose {
  glm::vec3 root{0};  ///< middle of the hips
  glm::quat orientation{1, 0, 0, 0};
  float spineBend = 0;  ///< forward
  float neckBend = 0;
  float neckTurn = 0;
  std::array<Limb, 2> arms;  ///< left, right
  std::array<Limb, 2> legs;  ///< left, right
};

/// How the surface of a part is drawn.
enum class Surface : std::uint8_t { kPlain, kWood, kTiles, kStripes, kFabric, kLight };

/// A tapered, flattened capsule: one piece of a body.
struct Capsule {
  glm::vec3 a{0}, b{0};
  float radiusA = 0, radiusB = 0;
  glm::vec3 flatAxis{0, 1, 0};  ///< direction in which the radius is multiplied by `flat`
  float flat = 1;
  glm::vec3 color{1};
  Surface surface = Surface::kPlain;
};

/// A posed body: its pieces and its 17 keypoints in the pose network's order (nose, eyes, ears, shoulders, elbows,
/// wrists, hips, knees, ankles; left before right).
struct Figure {
  std::array<glm::vec3, kKeypoints> keypoints{};
  /// How far in front of a keypoint its own body's surface may lie.
  std::array<float, kKeypoints> keypointDepth{};
  std::vector<Capsule> capsules;

  float lowest() const;
};

/// One of the fixed bodies.
BodyShape makeBody(unsigned number);
inline constexpr unsigned kAllBodies = 16;

Figure makeFigure(const BodyShape& shape, const Pose& pose);

Pose blend(const Pose& from, const Pose& to, float fraction);

}  // namespace simulator
