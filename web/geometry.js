/**
 * The page's own calculation of what a floor calibration means: the floor in the picture, and an upright body on it.
 * Pictures have x to the right and y down. The floor has its origin at the red point, x towards green (the width) and y
 * towards yellow (the depth), in metres; heights are metres above it.
 */
import { percentToPixel } from "./wire.js";

/**
 * @typedef {import("./wire.js").Point} Point
 * @typedef {import("./wire.js").Size} Size
 * @typedef {[Point, Point]} Segment
 * @typedef {number[]} Matrix 3 x 3, row by row
 * @typedef {{x: number, y: number, z: number}} Vector of the camera: x right, y down, z forward
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

const rectangle = (width, depth) => [
  { x: 0, y: 0 },
  { x: 0, y: depth },
  { x: width, y: depth },
  { x: width, y: 0 },
];

function apply(matrix, { x, y }) {
  const [u, v, w] = product(matrix, [x, y, 1], asItIs);
  return { x: u / w, y: v / w };
}

/** Floor to picture; the last element is 1, and the third row is positive in front of the camera. */
function floorToPicture(points, widthM, depthM) {
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

// ---- What cannot be calibrated, and what is probably wrong.

const cross = (o, a, b) => (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
const corner = (points, index) => points[(index + 4) % 4];
const distance = (a, b) => Math.hypot(a.x - b.x, a.y - b.y);

/** Twice the enclosed area, positive when the points go clockwise as one sees them. */
const doubleArea = (points) =>
  points.reduce((sum, { x, y }, index) => sum + x * corner(points, index + 1).y - corner(points, index + 1).x * y, 0);

const segmentsCross = (a, b, c, d) => cross(a, b, c) * cross(a, b, d) < 0 && cross(c, d, a) * cross(c, d, b) < 0;

const sidesCross = ([a, b, c, d]) => segmentsCross(a, b, c, d) || segmentsCross(b, c, d, a);

/** The least distance in pixels of a point from the line through its neighbours' far ends: 0 for three in a line. */
function flatness(points) {
  return Math.min(
    ...points.map((point, index) => {
      const [before, after] = [corner(points, index - 1), corner(points, index + 1)];
      const longest = Math.max(distance(before, after), distance(point, before), distance(point, after));
      return longest === 0 ? 0 : Math.abs(cross(before, point, after)) / longest;
    }),
  );
}

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
  const [width, depth] = [Math.fround(Number(widthM)), Math.fround(Number(depthM))];
  if (!(width > 0 && depth > 0 && Number.isFinite(width) && Number.isFinite(depth))) {
    return "The floor rectangle's width and depth must be more than 0 metres.";
  }
  const quad = around(points);
  const calculable = [rectangle(1, 1), rectangle(width, depth)].every((target) =>
    quadToQuad(quad, target, Math.fround).every(Number.isFinite),
  );
  if (calculable && passesDegeneracyTest(quad)) return null;
  return flatness(points) < 1
    ? "The floor points cannot be calibrated: two of them are in one place, or three in a line. Move them apart."
    : "The program cannot calculate with exactly these floor points and metres. Move one point by a pixel or two.";
}

const FLATTEST = 4;
/** Standard errors of the points from which on a lens is doubtful, and impossible. */
const DOUBTFUL = 2;
const IMPOSSIBLE = 4;
const LENS_PROBLEM =
  "No lens shows a rectangle like that. Check that each floor point is exactly on its corner, and that the corners make a rectangle on the floor.";

/**
 * Why floor points cannot be the corners of a rectangle on the floor, or null.
 * @param {Point[]} points red, green, blue, yellow in whole pixels
 * @param {Size} size
 * @returns {?string}
 */
export function floorPlacementProblem(points, size) {
  const outside = ({ x, y }) => x < 0 || y < 0 || x >= size.width || y >= size.height;
  if (points.some(outside)) return "A floor point lies outside the picture.";
  if (sidesCross(points)) {
    return "The floor rectangle's sides cross. Go around it clockwise: red, green, blue, yellow.";
  }
  if (doubleArea(points) < 0) {
    return "The floor points go around counterclockwise, so bodies would stand upside down. Go clockwise: red, green, blue, yellow.";
  }
  if (flatness(points) < FLATTEST) return "Three of the floor points lie almost in a line. Choose a wider rectangle.";
  const convex = points.every((point, index) => cross(corner(points, index - 1), point, corner(points, index + 1)) > 0);
  return convex ? null : "One floor point lies between the others, so they cannot be the corners of a rectangle.";
}

/** The entered metres count as wrong when none of the possible lenses makes them right to within a third. */
function proportionsWarning(lenses, entered) {
  const closest = lenses
    .map(({ ratio }) => ratio)
    .reduce((best, ratio) => (Math.abs(Math.log(ratio)) < Math.abs(Math.log(best)) ? ratio : best));
  if (closest <= 4 / 3 && closest >= 3 / 4) return null;
  const shown = (entered * closest).toFixed(1);
  return `In the picture the floor rectangle seems ${shown} times as wide (red to green) as deep (green to blue), as entered it is ${entered.toFixed(1)} times. Measure again.`;
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
  const lenses = lensesFor(points, widthM, depthM, size);
  const least = Math.min(...lenses.map(({ doubt }) => doubt));
  if (least > IMPOSSIBLE) return LENS_PROBLEM;
  const possible = lenses.filter(({ doubt }) => doubt <= Math.max(least, DOUBTFUL));
  return proportionsWarning(possible, Number(widthM) / Number(depthM));
}

/**
 * Why an area will not work, or null: a clause about "it".
 * @param {import("./wire.js").Area} area
 * @param {Size} size
 * @returns {?string}
 */
export function areaProblem({ corners }, size) {
  if (corners.some(({ x, y }) => x < 0 || y < 0 || x > 100 || y > 100)) return "a corner lies outside the picture.";
  const pixels = corners.map(({ x, y }) => ({ x: percentToPixel(x, size.width), y: percentToPixel(y, size.height) }));
  if (sidesCross(pixels)) return "two of its sides cross.";
  const smallest = (size.width * size.height) / 10000;
  return Math.abs(doubleArea(pixels)) / 2 < smallest ? "it is empty: its corners enclose nothing." : null;
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
function columnsOf(points, widthM, depthM, size) {
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

/** The lens that agrees best with the points, the metres and what is usual. */
function likelyFocalLength(points, widthM, depthM, size) {
  const usual = focalLength(USUAL_LENS, size);
  const cost = ({ focal, doubt, ratioDoubt }) =>
    doubt ** 2 + ratioDoubt ** 2 + (Math.log(focal / usual) / USUAL_SPREAD) ** 2;
  const lenses = lensesFor(points, widthM, depthM, size);
  return lenses.reduce((best, lens) => (cost(lens) < cost(best) ? lens : best)).focal;
}

const plus = (...vectors) => ({
  x: vectors.reduce((sum, { x }) => sum + x, 0),
  y: vectors.reduce((sum, { y }) => sum + y, 0),
  z: vectors.reduce((sum, { z }) => sum + z, 0),
});
const times = ({ x, y, z }, factor) => ({ x: x * factor, y: y * factor, z: z * factor });
const vectorProduct = (a, b) => ({ x: a.y * b.z - a.z * b.y, y: a.z * b.x - a.x * b.z, z: a.x * b.y - a.y * b.x });
const unit = (vector) => times(vector, 1 / Math.hypot(vector.x, vector.y, vector.z));

/** Nothing nearer than this is drawn, in metres before the camera. */
const NEAREST = 0.05;

/** The floor as the camera sees it: {place(x, y) -> Vector in metres, up, project(Vector) -> Point or null}. */
function cameraOver(points, widthM, depthM, size) {
  const focal = likelyFocalLength(points, widthM, depthM, size);
  const rays = columnsOf(points, widthM, depthM, size).map(({ x, y, z }) => ({ x: x / focal, y: y / focal, z }));
  const metre = Math.sqrt(Math.hypot(rays[0].x, rays[0].y, rays[0].z) * Math.hypot(rays[1].x, rays[1].y, rays[1].z));
  const [across, down, origin] = rays.map((ray) => times(ray, 1 / metre));
  return {
    across,
    up: unit(vectorProduct(down, across)),
    place: (x, y) => plus(times(across, x), times(down, y), origin),
    project: ({ x, y, z }) =>
      z > NEAREST ? { x: (focal * x) / z + size.width / 2, y: (focal * y) / z + size.height / 2 } : null,
  };
}

// ---- What is drawn.

const STEP = 0.5;
const MARGIN = 3;
const MOST_LINES = 80;
const STAKE = 1;

/** The part of a line on the floor that is in front of the camera and in the picture, or null. */
function visiblePart(matrix, from, to, size) {
  const ends = [from, to].map(({ x, y }) => product(matrix, [x, y, 1], asItIs));
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

// ---- The streams.

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
