/**
 * The page's own calculation of what a floor calibration means: where the floor is in the picture, through which lens it
 * is seen, and what is wrong with it. The floor has its origin at the red point, x towards green (the width) and y
 * towards yellow (the depth), in metres; heights are metres above it.
 */
import { limitProblem, plainNumber } from "../base/limits.js";
import { numberText, say } from "../base/words.js";
import { corner, cross, doubleArea, flatness, sidesCross } from "./plane.js";

/**
 * @typedef {import("../program/wire.js").Point} Point
 * @typedef {import("../program/wire.js").Size} Size
 * @typedef {number[]} Matrix 3 x 3, row by row
 */

// ---- Projective mappings between quads, in the program's steps. `round` is Math.fround for its single precision.

const asItIs = (value) => value;

function inverse([a, b, c, d, e, f, g, h, i], round) {
  const minor = (p, q, r, s) => round(round(p * q) - round(r * s));
  const det = round(round(round(a * minor(e, i, h, f)) - round(b * minor(d, i, g, f))) + round(c * minor(d, h, g, e)));
  const adjugate = [
    minor(e, i, h, f),
    -minor(b, i, h, c),
    minor(b, f, e, c),
    -minor(d, i, g, f),
    minor(a, i, g, c),
    -minor(a, f, d, c),
    minor(d, h, g, e),
    -minor(a, h, g, b),
    minor(a, e, d, b),
  ];
  return adjugate.map((value) => round(value / det));
}

function product(a, b, round) {
  const columns = b.length / 3;
  return Array.from({ length: 3 * columns }, (_, at) => {
    const [row, column] = [Math.floor(at / columns), at % columns];
    return [0, 1, 2].reduce((sum, k) => round(sum + round(a[row * 3 + k] * b[k * columns + column])), 0);
  });
}

function basisToQuad([p0, p1, p2, p3], round) {
  const corners = [p0.x, p1.x, p2.x, p0.y, p1.y, p2.y, 1, 1, 1].map(round);
  const scale = product(inverse(corners, round), [round(p3.x), round(p3.y), 1], round);
  return corners.map((value, at) => round(value * scale[at % 3]));
}

function quadToQuad(source, target, round = asItIs) {
  return product(basisToQuad(target, round), inverse(basisToQuad(source, round), round), round);
}

/** The program's order around the rectangle: red, yellow, blue, green. */
const around = ([red, green, blue, yellow]) => [red, yellow, blue, green];

/** The floor rectangle's corners in that order, in metres. */
export const rectangle = (width, depth) => [
  { x: 0, y: 0 },
  { x: 0, y: depth },
  { x: width, y: depth },
  { x: width, y: 0 },
];

/** A point mapped, before the division by the last of the three. */
export const homogeneous = (matrix, { x, y }) => product(matrix, [x, y, 1], asItIs);

function apply(matrix, point) {
  const [u, v, w] = homogeneous(matrix, point);
  return { x: u / w, y: v / w };
}

/** Floor to picture; the last element is 1, and the third row is positive in front of the camera. */
export function floorToPicture(points, widthM, depthM) {
  const matrix = quadToQuad(rectangle(Number(widthM), Number(depthM)), around(points));
  return matrix.map((value) => value / matrix[8]);
}

/**
 * The floor's mapping.
 * @param {Point[]} points red, green, blue, yellow in pixels
 * @param {number | string} widthM
 * @param {number | string} depthM
 * @returns {{toFloor: (p: Point) => Point, toPicture: (p: Point) => Point}} not finite at the horizon
 */
export function floorTransform(points, widthM, depthM) {
  const matrix = quadToQuad(around(points), rectangle(Number(widthM), Number(depthM)));
  const back = floorToPicture(points, widthM, depthM);
  return { toFloor: (point) => apply(matrix, point), toPicture: (point) => apply(back, point) };
}

// ---- The camera, estimated from the rectangle: its two pairs of parallel sides are at right angles on the floor, which
// leaves one equation for the focal length when the principal point is the picture's centre and pixels are square
// (Hartley & Zisserman, Multiple View Geometry, 2nd edition, 8.6). The points are known to a pixel or so, and a rectangle
// seen straight from the front says nothing that way. Its proportions as measured then say something, and where these
// say little as well, the usual lens is assumed.

const POINT_ERROR = 1;
const USUAL_LENS = Math.PI / 3;
const USUAL_SPREAD = 0.7;
const MEASURING_ERROR = 0.1;
const NARROWEST_LENS = Math.PI / 9;
const WIDEST_LENS = (130 * Math.PI) / 180;
const LENSES = 160;

/** Focal length in pixels of a lens that sees `angle` along the picture's longer side. */
const focalLength = (angle, size) => Math.max(size.width, size.height) / 2 / Math.tan(angle / 2);

/** Columns of the mapping, relative to the picture's centre: a metre of width, a metre of depth, the origin. */
export function columnsOf(points, widthM, depthM, size) {
  const centred = points.map(({ x, y }) => ({ x: x - size.width / 2, y: y - size.height / 2 }));
  const m = floorToPicture(centred, widthM, depthM);
  return [0, 1, 2].map((column) => ({ x: m[column], y: m[3 + column], z: m[6 + column] }));
}

/** 0 when the sides are at right angles with a focal length. */
const rightAngle = ([a, b], focal) => a.x * b.x + a.y * b.y + focal * focal * a.z * b.z;

function disturbed(points) {
  return points.flatMap((_, index) =>
    ["x", "y"].map((axis) =>
      points.map((point, at) => (at === index ? { ...point, [axis]: point[axis] + POINT_ERROR } : point)),
    ),
  );
}

/** How many times too wide for the entered metres the rectangle is with a focal length. */
function proportion([a, b], focal) {
  const squared = ({ x, y, z }) => x * x + y * y + focal * focal * z * z;
  return Math.sqrt(squared(a) / squared(b));
}

/**
 * Lenses from wide angle to tele: focal length in pixels; `doubt`, how many standard errors of the points it is away from
 * right angles; `ratio`, how many times too wide for the entered metres it makes the rectangle, and the doubt in that.
 */
function lensesFor(points, widthM, depthM, size) {
  const columns = columnsOf(points, widthM, depthM, size);
  const others = disturbed(points).map((moved) => columnsOf(moved, widthM, depthM, size));
  const [longest, shortest] = [focalLength(NARROWEST_LENS, size), focalLength(WIDEST_LENS, size)];
  return Array.from({ length: LENSES }, (_, index) => {
    const focal = shortest * (longest / shortest) ** (index / (LENSES - 1));
    const doubtIn = (measure, least) => {
      const value = measure(columns);
      return Math.abs(value) / Math.hypot(least, ...others.map((other) => measure(other) - value));
    };
    return {
      focal,
      doubt: doubtIn((sides) => rightAngle(sides, focal), 0),
      ratio: proportion(columns, focal),
      ratioDoubt: doubtIn((sides) => Math.log(proportion(sides, focal)), MEASURING_ERROR),
    };
  });
}

/** The focal length in pixels that agrees best with the points, the metres and what is usual. */
export function likelyFocalLength(points, widthM, depthM, size) {
  const usual = focalLength(USUAL_LENS, size);
  const cost = ({ focal, doubt, ratioDoubt }) =>
    doubt ** 2 + ratioDoubt ** 2 + (Math.log(focal / usual) / USUAL_SPREAD) ** 2;
  const lenses = lensesFor(points, widthM, depthM, size);
  return lenses.reduce((best, lens) => (cost(lens) < cost(best) ? lens : best)).focal;
}

// ---- What cannot be calibrated, and what is probably wrong.

/** The program's test of a quad in its own precision. */
function passesDegeneracyTest(quad) {
  const r = Math.fround;
  const [a, b, c, d] = quad.map(({ x, y }) => ({ x: r(x), y: r(y) }));
  const value = r(r(r(a.x * r(b.y - d.y)) - r(b.x * r(a.y - d.y))) + r(c.x * r(a.y - b.y)));
  return Math.abs(value) >= r(0.0001);
}

/**
 * Why the program would refuse this calibration, or null. A refused one that is stored stops the program's next start.
 * @param {Point[]} points red, green, blue, yellow in whole pixels
 * @param {number | string} widthM
 * @param {number | string} depthM
 * @returns {?string}
 */
export function floorProblem(points, widthM, depthM) {
  const [width, depth] = [widthM, depthM].map((side) => Math.fround(Number(plainNumber(side))));
  if (!(width > 0 && depth > 0 && Number.isFinite(width) && Number.isFinite(depth))) {
    return limitProblem("widthM", widthM) ?? limitProblem("depthM", depthM);
  }
  const quad = around(points);
  const calculable = [rectangle(1, 1), rectangle(width, depth)].every((target) =>
    quadToQuad(quad, target, Math.fround).every(Number.isFinite),
  );
  if (calculable && passesDegeneracyTest(quad)) return null;
  return flatness(points) < 1 ? say("calibration.line") : say("calibration.exactly");
}

/** Floor points of the package, in pixels: nobody has placed these. */
export const PACKAGE_FLOOR = [
  { x: 479, y: 381 },
  { x: 665, y: 381 },
  { x: 679, y: 591 },
  { x: 385, y: 591 },
];
/** Pixels by which a floor point must have been moved to count as placed. */
const MOVED = 3;

/** Whether somebody has placed the floor points: one at least is not where the package puts it. */
export const isFloorPlaced = (points) =>
  points.some(({ x, y }, index) => Math.hypot(x - PACKAGE_FLOOR[index].x, y - PACKAGE_FLOOR[index].y) > MOVED);

const FLATTEST = 4;
/** Standard errors of the points from which on a lens is doubtful, and impossible. */
const DOUBTFUL = 2;
const IMPOSSIBLE = 4;
const LENS_PROBLEM = say("calibration.lens");

/**
 * Why floor points cannot be the corners of a rectangle on the floor, or null.
 * @param {Point[]} points red, green, blue, yellow in whole pixels
 * @param {Size} size
 * @returns {?string}
 */
export function floorPlacementProblem(points, size) {
  const outside = ({ x, y }) => x < 0 || y < 0 || x >= size.width || y >= size.height;
  if (points.some(outside)) return say("calibration.outside");
  if (sidesCross(points)) {
    return say("calibration.cross");
  }
  if (doubleArea(points) < 0) {
    return say("calibration.counter");
  }
  if (flatness(points) < FLATTEST) return say("calibration.flat");
  const convex = points.every((point, index) => cross(corner(points, index - 1), point, corner(points, index + 1)) > 0);
  return convex ? null : say("calibration.between");
}

/** The entered metres count as wrong when none of the possible lenses makes them right to within a third. */
function proportionsWarning(lenses, entered) {
  const closest = lenses
    .map(({ ratio }) => ratio)
    .reduce((best, ratio) => (Math.abs(Math.log(ratio)) < Math.abs(Math.log(best)) ? ratio : best));
  if (closest <= 4 / 3 && closest >= 3 / 4) return null;
  return say("calibration.proportions", { shown: numberText(entered * closest), entered: numberText(entered) });
}

/**
 * What is probably wrong with a calibration that the program takes, or null.
 * @param {Point[]} points red, green, blue, yellow in whole pixels
 * @param {number | string} widthM
 * @param {number | string} depthM
 * @param {Size} size
 * @returns {?string}
 */
export function floorWarning(points, widthM, depthM, size) {
  const placement = floorPlacementProblem(points, size);
  if (placement) return placement;
  const [width, depth] = [widthM, depthM].map((side) => Number(plainNumber(side)));
  const lenses = lensesFor(points, width, depth, size);
  const least = Math.min(...lenses.map(({ doubt }) => doubt));
  if (least > IMPOSSIBLE) return LENS_PROBLEM;
  const possible = lenses.filter(({ doubt }) => doubt <= Math.max(least, DOUBTFUL));
  return proportionsWarning(possible, width / depth);
}
