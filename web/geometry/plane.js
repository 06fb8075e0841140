/** Points and polygons of the analysis picture: x to the right, y down. */
import { say } from "../base/words.js";
import { percentToPixel } from "../program/wire.js";

/**
 * @typedef {import("../program/wire.js").Point} Point
 * @typedef {import("../program/wire.js").Size} Size
 */

export const clamp = (value, low, high) => Math.min(high, Math.max(low, value));

export const cross = (o, a, b) => (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
export const corner = (points, index) => points[(index + 4) % 4];
const distance = (a, b) => Math.hypot(a.x - b.x, a.y - b.y);

/** Twice the enclosed area, positive when the points go clockwise as one sees them. */
export const doubleArea = (points) =>
  points.reduce((sum, { x, y }, index) => sum + x * corner(points, index + 1).y - corner(points, index + 1).x * y, 0);

const segmentsCross = (a, b, c, d) => cross(a, b, c) * cross(a, b, d) < 0 && cross(c, d, a) * cross(c, d, b) < 0;

export const sidesCross = ([a, b, c, d]) => segmentsCross(a, b, c, d) || segmentsCross(b, c, d, a);

/** The least distance in pixels of a point from the line through its neighbours' far ends: 0 for three in a line. */
export function flatness(points) {
  return Math.min(
    ...points.map((point, index) => {
      const [before, after] = [corner(points, index - 1), corner(points, index + 1)];
      const longest = Math.max(distance(before, after), distance(point, before), distance(point, after));
      return longest === 0 ? 0 : Math.abs(cross(before, point, after)) / longest;
    }),
  );
}

/**
 * Why an area will not work, or null: a clause about "it".
 * @param {import("../program/wire.js").Area} area
 * @param {Size} size
 * @returns {?string}
 */
export function areaProblem({ corners }, size) {
  if (corners.some(({ x, y }) => x < 0 || y < 0 || x > 100 || y > 100)) return say("area.outside");
  const pixels = corners.map(({ x, y }) => ({ x: percentToPixel(x, size.width), y: percentToPixel(y, size.height) }));
  if (sidesCross(pixels)) return say("area.cross");
  const smallest = (size.width * size.height) / 10000;
  return Math.abs(doubleArea(pixels)) / 2 < smallest ? "it is empty: its corners enclose nothing." : null;
}

/** The entry of `points` nearest to `point` and at most `reach` away, or -1. */
export function nearest(points, point, reach) {
  let best = -1;
  let least = reach;
  points.forEach(({ x, y }, index) => {
    const away = Math.hypot(x - point.x, y - point.y);
    if (away > least || (away === least && best >= 0)) return;
    best = index;
    least = away;
  });
  return best;
}

/** True when a polygon holds a point: a line from it to the right crosses the edges an odd number of times. */
export function contains(polygon, { x, y }) {
  let inside = false;
  polygon.forEach((a, index) => {
    const b = polygon[(index + 1) % polygon.length];
    if (a.y > y !== b.y > y && x < a.x + ((b.x - a.x) * (y - a.y)) / (b.y - a.y)) inside = !inside;
  });
  return inside;
}

/** Distance of a point to the segment from a to b. */
export function distanceToSegment(point, a, b) {
  const along = { x: b.x - a.x, y: b.y - a.y };
  const squared = along.x ** 2 + along.y ** 2;
  const share = squared ? ((point.x - a.x) * along.x + (point.y - a.y) * along.y) / squared : 0;
  const t = clamp(share, 0, 1);
  return Math.hypot(point.x - a.x - t * along.x, point.y - a.y - t * along.y);
}

/**
 * Where the program draws a point of the analysis picture on a stream, and back: the analysis picture as high as the
 * stream and centred on it.
 * @param {{streamWidth: number, streamHeight: number, size: Size, mirrored: boolean}} stream as one sees it, turned
 * @returns {{toView: (p: Point) => Point, toAnalysis: (p: Point) => Point}}
 */
export function streamMapping({ streamWidth, streamHeight, size, mirrored }) {
  const scale = (streamHeight - 1) / (size.height - 1);
  const epsilon = (size.width - 1 - (streamWidth - 1) / scale) / 2;
  const mirror = (x) => (mirrored ? streamWidth - 1 - x : x);
  return {
    toView: ({ x, y }) => ({ x: mirror(scale * (x - epsilon)), y: scale * y }),
    toAnalysis: ({ x, y }) => ({ x: mirror(x) / scale + epsilon, y: y / scale }),
  };
}
