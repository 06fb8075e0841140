/** What is drawn on a calibrated floor: its grid, stakes, and somebody who stands there. Heights are metres above it. */
import { floorToPicture, homogeneous, rectangle } from "./calibration.js";
import { NEAREST, cameraOver, plus, times, unit, vectorProduct } from "./camera.js";

/**
 * @typedef {import("../program/wire.js").Point} Point
 * @typedef {[Point, Point]} Segment
 */

const STEP = 0.5;
const MARGIN = 3;
const MOST_LINES = 80;
const STAKE = 1;

/** The part of a line on the floor that is in front of the camera and in the picture, or null. */
function visiblePart(matrix, from, to, size) {
  const ends = [from, to].map((end) => homogeneous(matrix, end));
  const limits = ([x, y, w]) => [w - NEAREST, x, size.width * w - x, y, size.height * w - y];
  const [before, after] = ends.map(limits);
  let [first, last] = [0, 1];
  before.forEach((value, index) => {
    const change = after[index] - value;
    const meet = -value / change;
    if (change > 0) first = Math.max(first, meet);
    else if (change < 0) last = Math.min(last, meet);
    else if (value < 0) last = -1;
  });
  if (first >= last) return null;
  return [first, last].map((share) => {
    const [x, y, w] = ends[0].map((value, index) => value + share * (ends[1][index] - value));
    return { x: x / w, y: y / w };
  });
}

/** Multiples of a step from a margin before 0 to a margin after `length`. */
function ticks(length, step) {
  const first = Math.ceil(-MARGIN / step);
  return Array.from({ length: Math.floor((length + MARGIN) / step) - first + 1 }, (_, index) => (first + index) * step);
}

/**
 * The floor's grid, one line every half metre (fewer on a very large rectangle), 3 m beyond the rectangle.
 * @returns {Segment[]} in the picture only
 */
export function floorGrid(points, widthM, depthM, size) {
  const matrix = floorToPicture(points, widthM, depthM);
  const [width, depth] = [Number(widthM), Number(depthM)];
  let step = STEP;
  while ((Math.max(width, depth) + 2 * MARGIN) / step > MOST_LINES) step *= 2;
  const [left, right, far, near] = [-MARGIN, width + MARGIN, -MARGIN, depth + MARGIN];
  const lines = [
    ...ticks(width, step).map((x) => [
      { x, y: far },
      { x, y: near },
    ]),
    ...ticks(depth, step).map((y) => [
      { x: left, y },
      { x: right, y },
    ]),
  ];
  return lines.map(([from, to]) => visiblePart(matrix, from, to, size)).filter(Boolean);
}

/** Posts of 1 m on the rectangle's corners: red, green, blue, yellow. @returns {Segment[]} from foot to top */
export function stakesOf(points, widthM, depthM, size) {
  const { place, up, project } = cameraOver(points, widthM, depthM, size);
  const [red, yellow, blue, green] = rectangle(Number(widthM), Number(depthM)).map(({ x, y }) => place(x, y));
  return [red, green, blue, yellow]
    .map((foot) => [project(foot), project(plus(foot, times(up, STAKE)))])
    .filter(([foot, top]) => foot && top);
}

const PERSON = 1.7;
const HEAD = { height: 1.56, radius: 0.14, corners: 12 };
/** A body seen from the front: [metres to the side, metres above the floor]. */
const JOINTS = {
  foot: [0.11, 0],
  hip: [0.1, 0.88],
  shoulder: [0.2, 1.36],
  hand: [0.28, 0.76],
};
const LIMBS = [
  ["foot", "hip"],
  ["hip", "shoulder"],
  ["shoulder", "hand"],
];

function bodySegments() {
  const mirrored = ([side, height]) => [-side, height];
  const limbs = LIMBS.map(([from, to]) => [JOINTS[from], JOINTS[to]]);
  const onHead = (index) => {
    const angle = (2 * Math.PI * index) / HEAD.corners;
    return [HEAD.radius * Math.cos(angle), HEAD.height + HEAD.radius * Math.sin(angle)];
  };
  return [
    ...limbs,
    ...limbs.map((limb) => limb.map(mirrored)),
    [JOINTS.hip, mirrored(JOINTS.hip)],
    [JOINTS.shoulder, mirrored(JOINTS.shoulder)],
    ...Array.from({ length: HEAD.corners }, (_, index) => [onHead(index), onHead(index + 1)]),
  ];
}

/**
 * A person of 1.7 m who stands on the floor and faces the camera.
 * @param {Point} floorPoint metres from the red point
 * @returns {?{foot: Point, head: Point, parts: Segment[]}} null when not wholly in front of the camera
 */
export function uprightFigure(points, widthM, depthM, size, floorPoint) {
  const { across, up, place, project } = cameraOver(points, widthM, depthM, size);
  const ground = place(floorPoint.x, floorPoint.y);
  const sideways = vectorProduct(ground, up);
  const seenFromAbove = Math.hypot(sideways.x, sideways.y, sideways.z) < 0.01;
  const side = unit(seenFromAbove ? across : sideways);
  const drawn = ([metres, height]) => project(plus(ground, times(side, metres), times(up, height)));
  const [foot, head] = [drawn([0, 0]), drawn([0, PERSON])];
  const parts = bodySegments().map((segment) => segment.map(drawn));
  return [foot, head, ...parts.flat()].every(Boolean) ? { foot, head, parts } : null;
}
