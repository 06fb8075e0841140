/**
 * A bed as a volume: from its mattress in the picture and the calibrated floor to the four corners of an area that covers
 * the mattress and the air above it. An area drawn at mattress height is left by the shoulders of whoever sits up.
 */
import { say } from "../base/words.js";
import { NEAREST, cameraOver, plus, times } from "./camera.js";
import { corner, cross, flatness } from "./plane.js";

/**
 * @typedef {import("../program/wire.js").Point} Point
 * @typedef {import("../program/wire.js").Size} Size
 */

/** A bed is taken to be so much longer and wider than its mattress was marked. */
const LARGER = 1.1;
/** The least pixels by which a mattress' corner must stick out. */
const FLATTEST = 4;

// ---- Polygons, clockwise as one sees them.

/** The outline of all points. */
function hullOf(points) {
  const sorted = [...points].sort((a, b) => a.x - b.x || a.y - b.y);
  const half = (ordered) =>
    ordered
      .reduce((hull, point) => {
        while (hull.length > 1 && cross(hull.at(-2), hull.at(-1), point) <= 0) hull.pop();
        return [...hull, point];
      }, [])
      .slice(0, -1);
  return [...half(sorted), ...half([...sorted].reverse())];
}

/** What of a polygon is where `outside` of a point, which grows evenly, is not above 0. */
function cut(polygon, outside) {
  return polygon.flatMap((from, index) => {
    const to = polygon[(index + 1) % polygon.length];
    const [a, b] = [outside(from), outside(to)];
    const share = a / (a - b);
    const meet = { x: from.x + share * (to.x - from.x), y: from.y + share * (to.y - from.y) };
    return [...(a <= 0 ? [from] : []), ...(a * b < 0 ? [meet] : [])];
  });
}

const triangle = (a, b, c) => Math.abs(cross(a, b, c)) / 2;

/** Where the sides beside the one from b to c, made longer, meet beyond it in the picture, or null. */
function meetingBeyond([a, b, c, d], { width, height }) {
  const [along, back] = [
    { x: b.x - a.x, y: b.y - a.y },
    { x: c.x - d.x, y: c.y - d.y },
  ];
  const turn = along.x * back.y - along.y * back.x;
  if (turn >= 0) return null;
  const share = ((c.x - b.x) * back.y - (c.y - b.y) * back.x) / turn;
  const meet = { x: b.x + share * along.x, y: b.y + share * along.y };
  return meet.x >= 0 && meet.y >= 0 && meet.x <= width - 1 && meet.y <= height - 1 ? meet : null;
}

/** A polygon with one corner less: the side or the corner goes that changes it least. */
function reduced(polygon, size) {
  const at = (index) => polygon[(index + polygon.length) % polygon.length];
  const ways = polygon.flatMap((point, index) => {
    const [before, next] = [at(index - 1), at(index + 1)];
    const meet = meetingBeyond([before, point, next, at(index + 2)], size);
    const cutOff = { index, corners: [], cost: triangle(before, point, next) };
    return meet ? [cutOff, { index, corners: [meet], cost: triangle(point, meet, next) }] : [cutOff];
  });
  const { index, corners } = ways.reduce((best, way) => (way.cost < best.cost ? way : best));
  const others = polygon.map((_, step) => at(index + 1 + step)).slice(corners.length, -1);
  return [...others, ...corners];
}

/** A triangle with a fourth corner on its longest side. */
function withFourth(polygon) {
  const longest = polygon
    .map((from, index) => ({ from, index, to: polygon[(index + 1) % polygon.length] }))
    .reduce((best, side) =>
      Math.hypot(side.to.x - side.from.x, side.to.y - side.from.y) >
      Math.hypot(best.to.x - best.from.x, best.to.y - best.from.y)
        ? side
        : best,
    );
  const { from, to, index } = longest;
  return polygon.toSpliced(index + 1, 0, { x: (from.x + to.x) / 2, y: (from.y + to.y) / 2 });
}

/** Four corners begun so that each is near to the one of the other four. */
function alike(polygon, other) {
  const turned = other.map((_, first) => other.map((__, index) => corner(polygon, first + index)));
  const apart = (corners) =>
    corners.reduce((sum, { x, y }, index) => sum + (x - other[index].x) ** 2 + (y - other[index].y) ** 2, 0);
  return turned.reduce((best, corners) => (apart(corners) < apart(best) ? corners : best));
}

/** The four corners in the picture that cover the points best: as the simulator draws a bed's volume. */
function fourCorners(points, size) {
  const { width, height } = size;
  const edges = [(p) => -p.x, (p) => -p.y, (p) => p.x - (width - 1), (p) => p.y - (height - 1)];
  let polygon = edges.reduce(cut, hullOf(points));
  if (polygon.length < 3) return null;
  while (polygon.length > 4) polygon = reduced(polygon, size);
  return polygon.length < 4 ? withFourth(polygon) : polygon;
}

// ---- The volume.

/** Points of the picture on the level at `height` metres above the floor, or null where one of them shows no such place. */
function onLevel({ up, place, ray }, points, height) {
  const origin = place(0, 0);
  const along = (a, b) => a.x * b.x + a.y * b.y + a.z * b.z;
  const distances = points.map((point) => (height + along(up, origin)) / along(up, ray(point)));
  if (!distances.every((away) => away > NEAREST)) return null;
  return points.map((point, index) => times(ray(point), distances[index]));
}

function larger(places) {
  const middle = times(plus(...places), 1 / places.length);
  return places.map((place) => plus(times(place, LARGER), times(middle, 1 - LARGER)));
}

/** What is seen of an edge from one place to another: its ends in the picture's plane, or where it comes before the camera. */
function seen(project, from, to) {
  const nearest = 1.01 * NEAREST;
  if (from.z < nearest && to.z < nearest) return [];
  const meet = plus(from, times(plus(to, times(from, -1)), (nearest - from.z) / (to.z - from.z)));
  return [from, to].map((end) => project(end.z < nearest ? meet : end));
}

/** Why points cannot be a mattress' corners, or null. */
export function mattressProblem(points) {
  const hull = hullOf(points);
  if (hull.length < 4) return say("mattress.between");
  return flatness(hull) < FLATTEST ? say("mattress.flat") : null;
}

/**
 * The area that covers a mattress and the air above it.
 * @param {Point[]} mattress its four corners in the picture, in any order
 * @param {[Point[], number, number]} floor its points (red, green, blue, yellow), width and depth in metres
 * @param {{height: number, air: number}} metres the mattress' upper side above the floor, and the air above that
 * @param {Size} size of the analysis picture
 * @returns {?Point[]} clockwise, in the picture, each beside the mattress' corner of that number if those go clockwise; null
 *   when no bed of that height can look like that
 */
export function volumeOutline(mattress, floor, { height, air }, size) {
  const camera = cameraOver(...floor, size);
  const around = hullOf(mattress);
  const first = Math.max(0, around.indexOf(mattress[0]));
  const marked = mattress.map((_, index) => corner(around, first + index));
  const places = onLevel(camera, marked, height);
  if (!places) return null;
  const low = larger(places);
  const high = low.map((place) => plus(place, times(camera.up, air)));
  const edges = low.flatMap((place, index) => {
    const next = (index + 1) % 4;
    return [
      [place, low[next]],
      [high[index], high[next]],
      [place, high[index]],
    ];
  });
  const corners = fourCorners(
    edges.flatMap(([from, to]) => seen(camera.project, from, to)),
    size,
  );
  return corners && alike(corners, marked);
}
