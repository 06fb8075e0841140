#include "simulator/stories/area.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

namespace simulator {
namespace {

using Polygon = std::vector<glm::vec2>;  ///< clockwise as one sees it: y points down

constexpr float kNearest = 0.05F;  ///< metres before the camera; what is nearer is not in the picture

float cross(glm::vec2 a, glm::vec2 b) { return a.x * b.y - a.y * b.x; }
float triangle(glm::vec2 a, glm::vec2 b, glm::vec2 c) { return std::abs(cross(b - a, c - a)) / 2; }

std::array<glm::vec3, 4> outlineOf(const Bed& bed) {
  return {bed.at(1.05F, 1.05F), bed.at(1.05F, -0.05F), bed.at(-0.05F, -0.05F), bed.at(-0.05F, 1.05F)};
}

glm::vec2 seen(const Camera& camera, const glm::vec3& place) { return glm::vec2(camera.project(place)); }

/// Both ends of an edge in the picture's plane, or where it comes before the camera.
void addEdge(const Camera& camera, glm::vec3 from, glm::vec3 to, Polygon& points) {
  const glm::vec3 forward = glm::transpose(camera.axes())[2];
  const float a = glm::dot(forward, from - camera.position) - kNearest;
  const float b = glm::dot(forward, to - camera.position) - kNearest;
  if (a < 0 && b < 0) return;
  const glm::vec3 meet = a * b < 0 ? from + (to - from) * (a / (a - b)) : from;
  points.push_back(seen(camera, a < 0 ? meet : from));
  points.push_back(seen(camera, b < 0 ? meet : to));
}

Polygon hullOf(Polygon points) {
  const auto before = [](glm::vec2 a, glm::vec2 b) { return a.x < b.x || (a.x == b.x && a.y < b.y); };
  std::sort(points.begin(), points.end(), before);
  Polygon hull;
  for (int pass = 0; pass < 2; ++pass) {
    const std::size_t first = hull.size();
    for (const glm::vec2 point : points) {
      while (hull.size() >= first + 2 && cross(hull.back() - hull[hull.size() - 2], point - hull.back()) <= 0)
        hull.pop_back();
      hull.push_back(point);
    }
    hull.pop_back();
    std::reverse(points.begin(), points.end());
  }
  return hull;
}

/// What of it lies where `normal` * point <= limit.
Polygon cut(const Polygon& polygon, glm::vec2 normal, float limit) {
  Polygon rest;
  for (std::size_t i = 0; i < polygon.size(); ++i) {
    const glm::vec2 from = polygon[i], to = polygon[(i + 1) % polygon.size()];
    const float a = glm::dot(normal, from) - limit, b = glm::dot(normal, to) - limit;
    if (a <= 0) rest.push_back(from);
    if (a * b < 0) rest.push_back(from + (to - from) * (a / (a - b)));
  }
  return rest;
}

/// Where the sides before and after side `i` meet beyond it, if they do so in the picture.
std::optional<glm::vec2> meetingBeyond(const Polygon& polygon, std::size_t i, glm::vec2 last) {
  const std::size_t n = polygon.size();
  const glm::vec2 a = polygon[i], b = polygon[(i + 1) % n];
  const glm::vec2 along = a - polygon[(i + n - 1) % n], back = b - polygon[(i + 2) % n];
  const float turn = cross(along, back);
  if (turn >= 0) return std::nullopt;
  const glm::vec2 meet = a + along * (cross(b - a, back) / turn);
  const bool inside = meet.x >= 0 && meet.y >= 0 && meet.x <= last.x && meet.y <= last.y;
  return inside ? std::optional(meet) : std::nullopt;
}

/// Takes the side or the corner away that changes the polygon least.
void reduce(Polygon& polygon, glm::vec2 last) {
  const std::size_t n = polygon.size();
  float least = std::numeric_limits<float>::max();
  std::size_t which = 0;
  std::optional<glm::vec2> corner;
  for (std::size_t i = 0; i < n; ++i) {
    const glm::vec2 a = polygon[i], b = polygon[(i + 1) % n];
    const float loss = triangle(polygon[(i + n - 1) % n], a, b);
    const std::optional<glm::vec2> meet = meetingBeyond(polygon, i, last);
    const float gain = meet ? triangle(a, *meet, b) : loss;
    if (std::min(loss, gain) >= least) continue;
    least = std::min(loss, gain);
    which = i;
    corner = gain < loss ? meet : std::nullopt;
  }
  if (corner) polygon[(which + 1) % n] = *corner;
  polygon.erase(polygon.begin() + static_cast<std::ptrdiff_t>(which));
}

/// A triangle gets a fourth corner on its longest side.
void addCorner(Polygon& polygon) {
  const auto length = [&](std::size_t i) { return glm::distance(polygon[i], polygon[(i + 1) % polygon.size()]); };
  std::size_t longest = 0;
  for (std::size_t i = 1; i < polygon.size(); ++i) longest = length(i) > length(longest) ? i : longest;
  const glm::vec2 middle = (polygon[longest] + polygon[(longest + 1) % polygon.size()]) * 0.5F;
  polygon.insert(polygon.begin() + static_cast<std::ptrdiff_t>(longest) + 1, middle);
}

/// The polygon's corners, begun so that each is near to the one of the other area.
Area alike(const Polygon& polygon, const Area& other) {
  Area best{};
  float least = std::numeric_limits<float>::max();
  for (std::size_t first = 0; first < 4; ++first) {
    Area area{};
    float apart = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      area[i] = polygon[(first + i) % 4];
      apart += glm::dot(area[i] - other[i], area[i] - other[i]);
    }
    if (apart >= least) continue;
    least = apart;
    best = area;
  }
  return best;
}

glm::vec2 lastPixel(const Camera& camera) {
  return {static_cast<float>(camera.width - 1), static_cast<float>(camera.height - 1)};
}

}  // namespace

Area areaOf(const Camera& camera, const std::array<glm::vec3, 4>& places) {
  Area area{};
  std::transform(places.begin(), places.end(), area.begin(), [&](const glm::vec3& place) {
    return glm::clamp(seen(camera, place), glm::vec2(0), lastPixel(camera));
  });
  return area;
}

Area mattressArea(const Camera& camera, const Bed& bed) { return areaOf(camera, outlineOf(bed)); }

Area volumeArea(const Camera& camera, const Bed& bed) {
  const std::array<glm::vec3, 4> low = outlineOf(bed);
  const glm::vec3 up(0, 0, kAirAboveMattress);
  Polygon points;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t next = (i + 1) % 4;
    addEdge(camera, low[i], low[next], points);
    addEdge(camera, low[i] + up, low[next] + up, points);
    addEdge(camera, low[i], low[i] + up, points);
  }
  const glm::vec2 last = lastPixel(camera);
  Polygon polygon = hullOf(points);
  polygon = cut(cut(polygon, {-1, 0}, 0), {0, -1}, 0);
  polygon = cut(cut(polygon, {1, 0}, last.x), {0, 1}, last.y);
  while (polygon.size() > 4) reduce(polygon, last);
  while (polygon.size() < 4) addCorner(polygon);
  return alike(polygon, mattressArea(camera, bed));
}

}  // namespace simulator
