#include "simulator/figures/body.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/constants.hpp>

namespace simulator {
namespace {

constexpr glm::vec3 kX{1, 0, 0};
constexpr glm::vec3 kY{0, 1, 0};
constexpr glm::vec3 kZ{0, 0, 1};

glm::quat turn(float angle, const glm::vec3& axis) { return glm::angleAxis(angle, axis); }

/// Builds the pieces of one body from its joint frames.
class FigureBuilder {
 public:
  FigureBuilder(const BodyShape& shape, const Pose& pose) : m_shape(shape), m_pose(pose), m_h(shape.height) {
    m_chest = pose.orientation * turn(-pose.spineBend, kX);
    m_neck = pose.root + m_chest * glm::vec3(0, 0, 0.288F * m_h);
  }

  Figure build() {
    torso();
    head();
    for (std::size_t side = 0; side < 2; ++side) {
      arm(side);
      leg(side);
    }
    return std::move(m_figure);
  }

 private:
  void keypoint(std::size_t index, const glm::vec3& place, float depth) {
    m_figure.keypoints[index] = place;
    m_figure.keypointDepth[index] = depth;
  }

  void capsule(const glm::vec3& a, const glm::vec3& b, float radiusA, float radiusB, const glm::vec3& color,
               const glm::vec3& flatAxis = kY, float flat = 1, Surface surface = Surface::kPlain) {
    m_figure.capsules.push_back({a, b, radiusA, radiusB, flatAxis, flat, color, surface});
  }

  void torso() {
    const glm::vec3 forward = m_chest * kY;
    const float wide = 0.088F * m_h * m_shape.girth;
    const Surface cloth = m_shape.stripedTop ? Surface::kStripes : Surface::kFabric;
    const glm::vec3 hipAxis = m_pose.orientation * kX * (0.04F * m_h);
    capsule(m_pose.root - hipAxis, m_pose.root + hipAxis, 0.068F * m_h * m_shape.girth, 0.068F * m_h * m_shape.girth,
            m_shape.trousers, m_pose.orientation * kY, 0.95F, Surface::kFabric);
    const glm::vec3 waist = m_pose.root + m_chest * glm::vec3(0, 0, 0.07F * m_h);
    const glm::vec3 ribs = m_pose.root + m_chest * glm::vec3(0, 0, 0.21F * m_h);
    capsule(waist, ribs, wide, wide * 1.12F, m_shape.top, forward, 0.72F, cloth);
    const glm::vec3 shoulders = m_chest * kX * (0.078F * m_h);
    const glm::vec3 yoke = m_neck - m_chest * kZ * (0.03F * m_h);
    capsule(yoke - shoulders, yoke + shoulders, 0.05F * m_h, 0.05F * m_h, m_shape.top, forward, 0.95F, cloth);
  }

  void head() {
    const glm::quat frame = m_chest * turn(m_pose.neckTurn, kZ) * turn(-m_pose.neckBend, kX);
    const glm::vec3 centre =
        m_neck + m_chest * glm::vec3(0, 0.01F * m_h, 0.04F * m_h) + frame * glm::vec3(0, 0.01F * m_h, 0.075F * m_h);
    const auto at = [&](float x, float y, float z) { return centre + frame * (glm::vec3(x, y, z) * m_h); };
    capsule(m_neck - m_chest * kZ * (0.01F * m_h), centre - frame * kZ * (0.03F * m_h), 0.034F * m_h, 0.032F * m_h,
            m_shape.skin);
    capsule(at(0, 0.006F, -0.022F), at(0, 0, 0.02F), 0.044F * m_h, 0.052F * m_h, m_shape.skin, frame * kX, 0.88F);
    capsule(at(0, -0.014F, 0.006F), at(0, -0.008F, 0.03F), 0.052F * m_h, 0.053F * m_h, m_shape.hair, frame * kX, 0.95F);
    if (m_shape.longHair)
      capsule(at(0, -0.03F, 0.0F), at(0, -0.036F, -0.06F), 0.042F * m_h, 0.034F * m_h, m_shape.hair);
    const glm::vec3 dark = m_shape.skin * 0.75F;
    capsule(at(0, 0.05F, -0.008F), at(0, 0.053F, -0.014F), 0.009F * m_h, 0.012F * m_h, dark);
    for (const float side : {-1.0F, 1.0F}) {
      capsule(at(side * 0.019F, 0.046F, 0.006F), at(side * 0.019F, 0.047F, 0.006F), 0.009F * m_h, 0.009F * m_h,
              glm::vec3(0.08F));
      capsule(at(side * 0.046F, -0.002F, -0.012F), at(side * 0.046F, -0.002F, 0.008F), 0.011F * m_h, 0.013F * m_h,
              dark);
    }
    capsule(at(-0.014F, 0.043F, -0.034F), at(0.014F, 0.043F, -0.034F), 0.007F * m_h, 0.007F * m_h,
            glm::vec3(0.55F, 0.2F, 0.2F));
    keypoint(0, at(0, 0.06F, -0.012F), 0.03F);
    keypoint(1, at(-0.019F, 0.052F, 0.006F), 0.03F);
    keypoint(2, at(0.019F, 0.052F, 0.006F), 0.03F);
    keypoint(3, at(-0.05F, -0.002F, -0.002F), 0.03F);
    keypoint(4, at(0.05F, -0.002F, -0.002F), 0.03F);
  }

  void arm(std::size_t side) {
    const float out = side == 0 ? -1.0F : 1.0F;
    const Limb& angles = m_pose.arms[side];
    const glm::vec3 shoulder = m_neck + m_chest * glm::vec3(out * 0.105F * m_h, 0, -0.025F * m_h);
    const glm::quat upper =
        m_chest * turn(-out * angles.abduct, kY) * turn(angles.flex, kX) * turn(out * angles.twist, kZ);
    const glm::vec3 elbow = shoulder + upper * glm::vec3(0, 0, -0.172F * m_h);
    const glm::quat lower = upper * turn(angles.bend, kX);
    const glm::vec3 wrist = elbow + lower * glm::vec3(0, 0, -0.15F * m_h);
    const glm::vec3 hand = wrist + lower * glm::vec3(0, 0, -0.045F * m_h);
    const float thick = 0.5F + 0.5F * m_shape.girth;
    capsule(shoulder, elbow, 0.04F * m_h * thick, 0.03F * m_h * thick, m_shape.top, kY, 1, Surface::kFabric);
    capsule(elbow, wrist, 0.028F * m_h * thick, 0.02F * m_h * thick, m_shape.longSleeves ? m_shape.top : m_shape.skin);
    capsule(wrist, hand, 0.019F * m_h, 0.024F * m_h, m_shape.skin, lower * kX, 0.6F);
    keypoint(5 + side, shoulder, 0.1F);
    keypoint(7 + side, elbow, 0.09F);
    keypoint(9 + side, wrist, 0.08F);
  }

  void leg(std::size_t side) {
    const float out = side == 0 ? -1.0F : 1.0F;
    const Limb& angles = m_pose.legs[side];
    const glm::vec3 hip = m_pose.root + m_pose.orientation * glm::vec3(out * 0.054F * m_h, 0, -0.01F * m_h);
    const glm::quat upper =
        m_pose.orientation * turn(-out * angles.abduct, kY) * turn(angles.flex, kX) * turn(out * angles.twist, kZ);
    const glm::vec3 knee = hip + upper * glm::vec3(0, 0, -0.245F * m_h);
    const glm::quat lower = upper * turn(-angles.bend, kX);
    const glm::vec3 ankle = knee + lower * glm::vec3(0, 0, -0.235F * m_h);
    const glm::vec3 toe = ankle + lower * glm::vec3(0, 0.095F * m_h, -0.028F * m_h);
    const float thick = 0.4F + 0.6F * m_shape.girth;
    capsule(hip, knee, 0.06F * m_h * thick, 0.041F * m_h * thick, m_shape.trousers, kY, 1, Surface::kFabric);
    capsule(knee, ankle, 0.04F * m_h * thick, 0.027F * m_h * thick, m_shape.trousers, kY, 1, Surface::kFabric);
    capsule(ankle + lower * glm::vec3(0, -0.012F * m_h, -0.018F * m_h), toe, 0.027F * m_h, 0.022F * m_h, m_shape.shoes);
    keypoint(11 + side, hip, 0.16F);
    keypoint(13 + side, knee, 0.12F);
    keypoint(15 + side, ankle, 0.1F);
  }

  const BodyShape& m_shape;
  const Pose& m_pose;
  float m_h;
  glm::quat m_chest{1, 0, 0, 0};
  glm::vec3 m_neck{0};
  Figure m_figure;
};

float mix(float a, float b, float t) { return a + (b - a) * t; }

Limb blend(const Limb& a, const Limb& b, float t) {
  return {mix(a.flex, b.flex, t), mix(a.abduct, b.abduct, t), mix(a.twist, b.twist, t), mix(a.bend, b.bend, t)};
}

}  // namespace

float uniform(Random& random, float low, float high) {
  return std::uniform_real_distribution<float>(low, high)(random);
}

bool chance(Random& random, float probability) { return uniform(random, 0, 1) < probability; }

float Figure::lowest() const {
  float z = 1e9F;
  for (const Capsule& piece : capsules) {
    z = std::min({z, piece.a.z - piece.radiusA * piece.flat, piece.b.z - piece.radiusB * piece.flat});
  }
  return z;
}

BodyShape makeBody(unsigned number) {
  Random random(Random::result_type{7919} * (number + 1));
  random.discard(16);
  static constexpr std::array<glm::vec3, 5> kSkins = {{{0.86F, 0.65F, 0.52F},
                                                       {0.75F, 0.53F, 0.4F},
                                                       {0.9F, 0.72F, 0.62F},
                                                       {0.52F, 0.34F, 0.24F},
                                                       {0.36F, 0.23F, 0.16F}}};
  static constexpr std::array<glm::vec3, 5> kHair = {
      {{0.1F, 0.07F, 0.05F}, {0.35F, 0.22F, 0.12F}, {0.6F, 0.6F, 0.6F}, {0.8F, 0.8F, 0.78F}, {0.6F, 0.42F, 0.2F}}};
  static constexpr std::array<glm::vec3, 6> kPyjamas = {{{0.42F, 0.58F, 0.8F},
                                                         {0.5F, 0.75F, 0.6F},
                                                         {0.75F, 0.45F, 0.5F},
                                                         {0.55F, 0.45F, 0.7F},
                                                         {0.8F, 0.68F, 0.35F},
                                                         {0.35F, 0.42F, 0.5F}}};
  static constexpr std::array<glm::vec3, 4> kTunics = {
      {{0.1F, 0.45F, 0.5F}, {0.12F, 0.25F, 0.5F}, {0.5F, 0.12F, 0.22F}, {0.2F, 0.5F, 0.25F}}};
  BodyShape body;
  body.height = uniform(random, 1.56F, 1.86F);
  body.girth = uniform(random, 0.9F, 1.3F);
  body.skin = kSkins[number % kSkins.size()] * uniform(random, 0.92F, 1.05F);
  body.hair = kHair[(number * 3 + 1) % kHair.size()];
  body.longHair = number % 3 == 1;
  const bool carer = number % 3 == 2;
  if (carer) {
    body.top = kTunics[(number / 3) % kTunics.size()];
    body.trousers = glm::vec3(uniform(random, 0.1F, 0.3F)) + glm::vec3(0, 0, 0.06F);
    body.shoes = glm::vec3(0.85F);
    body.longSleeves = false;
  } else {
    body.top = kPyjamas[number % kPyjamas.size()];
    body.trousers = chance(random, 0.6F) ? body.top * 0.85F : kPyjamas[(number + 3) % kPyjamas.size()] * 0.7F;
    body.shoes = chance(random, 0.5F) ? body.skin : glm::vec3(0.35F, 0.2F, 0.15F);
    body.longSleeves = chance(random, 0.6F);
    body.stripedTop = number % 2 == 0;
  }
  return body;
}

Figure makeFigure(const BodyShape& shape, const Pose& pose) { return FigureBuilder(shape, pose).build(); }

Pose blend(const Pose& from, const Pose& to, float fraction) {
  Pose pose;
  pose.root = glm::mix(from.root, to.root, fraction);
  pose.orientation = glm::slerp(from.orientation, to.orientation, fraction);
  pose.spineBend = mix(from.spineBend, to.spineBend, fraction);
  pose.neckBend = mix(from.neckBend, to.neckBend, fraction);
  pose.neckTurn = mix(from.neckTurn, to.neckTurn, fraction);
  for (std::size_t side = 0; side < 2; ++side) {
    pose.arms[side] = blend(from.arms[side], to.arms[side], fraction);
    pose.legs[side] = blend(from.legs[side], to.legs[side], fraction);
  }
  return pose;
}

}  // namespace simulator
