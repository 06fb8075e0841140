#include "platform/workstation/inference/pose_adapter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include "platform/support/body_tree.h"

namespace workstation {
namespace {

constexpr auto kCellSide = static_cast<float>(kPoseCell);
constexpr float kPlateau = 1.5F;    // cells around a point that hold its full score: sampling between cells reads it
constexpr float kHeatReach = 3.0F;  // cells around a point that are warm at all
constexpr float kFallOff = 4.0F;    // logits lost for each cell beyond the plateau
constexpr float kReach = 8.0F;      // cells around a point that lead to it
constexpr float kLeastScore = 1.0e-6F;

constexpr size_t kEdges = kBodyTree.size();
constexpr size_t kShortChannels = 2 * kPersonPoints;
constexpr size_t kMidChannels = 4 * kEdges;

float logit(float score) {
  const float bounded = std::clamp(score, kLeastScore, 1.0F - kLeastScore);
  return std::log(bounded / (1.0F - bounded));
}

void toPixels(DecodedPerson& person, float cell) {
  for (PersonPoint& point : person.points) {
    point.y *= cell;
    point.x *= cell;
  }
}

std::uint8_t encode(float value, Quantization code) {
  const float byte = std::round(value / code.scale + static_cast<float>(code.zero_point));
  return static_cast<std::uint8_t>(std::clamp(byte, 0.0F, 255.0F));
}

/// One cell, and its corner in the picture.
struct Cell {
  size_t index;
  float y;
  float x;
};

/// The cells along one side that a joint may reach, from the first to behind the last.
std::pair<int, int> reached(float joint, int cells) {
  const float cell = joint / kCellSide;
  const auto bounded = [cells](float at) { return static_cast<int>(std::clamp(at, 0.0F, static_cast<float>(cells))); };
  return {bounded(std::floor(cell - kReach)), bounded(std::ceil(cell + kReach) + 1)};
}

void writeDisplacements(const Cell& cell, size_t point, const DecodedPerson& person, const PoseTensors& tensors) {
  const PoseTensor& mids = tensors.mid_offsets;
  const auto write = [&](size_t channel, size_t target) {
    std::uint8_t* place = &mids.bytes[cell.index * kMidChannels + channel];
    place[0] = encode(person.points[target].y - cell.y, mids.code);
    place[kEdges] = encode(person.points[target].x - cell.x, mids.code);
  };
  for (size_t edge = 0; edge < kEdges; ++edge) {
    if (kBodyTree[edge].first == point) write(edge, kBodyTree[edge].second);
    if (kBodyTree[edge].second == point) write(2 * kEdges + edge, kBodyTree[edge].first);
  }
}

/// What a cell says of a kind of joint when it belongs to that person, whose joint is `distance` cells away.
void writeCell(const Cell& cell, size_t point, const DecodedPerson& person, float distance,
               const PoseTensors& tensors) {
  const PersonPoint& joint = person.points[point];
  if (distance <= kHeatReach) {
    const float loss = kFallOff * std::max(0.0F, distance - kPlateau);
    tensors.heat.bytes[cell.index * kPersonPoints + point] = encode(logit(joint.score) - loss, tensors.heat.code);
  }
  std::uint8_t* place = &tensors.short_offsets.bytes[cell.index * kShortChannels + point];
  place[0] = encode(joint.y - cell.y, tensors.short_offsets.code);
  place[kPersonPoints] = encode(joint.x - cell.x, tensors.short_offsets.code);
  writeDisplacements(cell, point, person, tensors);
}

/// A cell belongs to the person whose joint is nearest, the first of equals; `distances` are those of who has it so
/// far.
void writeJoint(size_t point, const DecodedPerson& person, const PoseTensors& tensors, std::span<float> distances) {
  const PersonPoint& joint = person.points[point];
  const auto [top, bottom] = reached(joint.y, tensors.rows);
  const auto [left, right] = reached(joint.x, tensors.columns);
  for (int row = top; row < bottom; ++row) {
    for (int column = left; column < right; ++column) {
      const Cell cell{static_cast<size_t>(row) * static_cast<size_t>(tensors.columns) + static_cast<size_t>(column),
                      static_cast<float>(row) * kCellSide, static_cast<float>(column) * kCellSide};
      const float distance = std::hypot(joint.y - cell.y, joint.x - cell.x) / kCellSide;
      if (distance > kReach || distance >= distances[cell.index]) continue;
      distances[cell.index] = distance;
      writeCell(cell, point, person, distance, tensors);
    }
  }
}

float meanScore(const DecodedPerson& person) {
  const float sum = std::accumulate(person.points.begin(), person.points.end(), 0.0F,
                                    [](float so_far, const PersonPoint& point) { return so_far + point.score; });
  return sum / static_cast<float>(kPersonPoints);
}

/// Top, left, bottom, right.
std::array<float, 4> boxAround(const DecodedPerson& person) {
  std::array<float, 4> box = {person.points[0].y, person.points[0].x, person.points[0].y, person.points[0].x};
  for (const PersonPoint& point : person.points) {
    box = {std::min(box[0], point.y), std::min(box[1], point.x), std::max(box[2], point.y), std::max(box[3], point.x)};
  }
  return box;
}

}  // namespace

std::vector<DecodedPerson> findPeople(std::span<const PoseHeads> heads, const AdapterSettings& settings) {
  std::vector<DecodedPerson> people;
  for (size_t scale = 0; scale < heads.size(); ++scale) {
    const size_t seen_before = people.size();
    for (DecodedPerson& person : decodePeople(heads[scale], settings.rules)) {
      toPixels(person, settings.scales[scale].cell);
      const auto last = people.begin() + static_cast<std::ptrdiff_t>(seen_before);
      const bool isKnown = std::any_of(people.begin(), last, [&](const DecodedPerson& known) {
        return areTwins(known, person, settings.same_distance);
      });
      if (!isKnown) people.push_back(person);
    }
  }
  for (DecodedPerson& person : people) {
    for (PersonPoint& point : person.points) {
      point.score = sigmoid(settings.confidence_gain * logit(point.score) + settings.confidence_bias);
    }
  }
  return people;
}

void writePose(std::span<const DecodedPerson> people, const PoseTensors& tensors) {
  std::fill(tensors.heat.bytes.begin(), tensors.heat.bytes.end(), std::uint8_t{0});
  for (const PoseTensor& offsets : {tensors.short_offsets, tensors.mid_offsets}) {
    std::fill(offsets.bytes.begin(), offsets.bytes.end(), offsets.code.zero_point);
  }
  std::vector<float> distances(static_cast<size_t>(tensors.rows) * static_cast<size_t>(tensors.columns));
  for (size_t point = 0; point < kPersonPoints; ++point) {
    std::fill(distances.begin(), distances.end(), std::numeric_limits<float>::infinity());
    for (const DecodedPerson& person : people) writeJoint(point, person, tensors, distances);
  }
}

void writeCandidates(std::span<const DecodedPerson> people, float height, float width,
                     const CandidateTensors& tensors) {
  std::vector<std::pair<float, const DecodedPerson*>> ranked;
  for (const DecodedPerson& person : people) ranked.emplace_back(meanScore(person), &person);
  std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  ranked.resize(std::min(ranked.size(), tensors.scores.size()));
  for (const auto& floats : {tensors.scores, tensors.boxes, tensors.classes}) {
    std::fill(floats.begin(), floats.end(), 0.0F);
  }
  std::fill(tensors.count.begin(), tensors.count.end(), static_cast<float>(ranked.size()));
  for (size_t i = 0; i < ranked.size(); ++i) {
    tensors.scores[i] = ranked[i].first;
    const std::array<float, 4> box = boxAround(*ranked[i].second);
    for (size_t side = 0; side < box.size(); ++side) {
      tensors.boxes[4 * i + side] = std::clamp(box[side] / (side % 2 == 0 ? height : width), 0.0F, 1.0F);
    }
  }
}

}  // namespace workstation
