/**
 * What can be edited on the picture and how edits change the settings: areas in whole percent of the analysis picture,
 * mattresses in tenths of one, floor points in its whole pixels. A scene is {settings, figure}; figure is where the upright figure stands, in metres
 * from the red floor point, or null for the rectangle's middle. Scenes are never changed, edits make new ones.
 */
import { COLOURS } from "../base/facts.js";
import { COLOUR_NAMES, areaName, capitalised, say, settingName } from "../base/words.js";
import { clamp } from "../geometry/plane.js";
import { nearestPercent, steppedPercent } from "../program/wire.js";

/**
 * @typedef {object} Tool
 * @property {string} id
 * @property {string} name
 * @property {string} short the name where there is little room
 * @property {"beds" | "exclusions" | "floor" | "mattresses"} group
 * @property {number} index which one of its group
 */

const areaTools = (group) =>
  [0, 1, 2].map((index) => ({
    id: `${group}${index + 1}`,
    name: areaName(group, index),
    short: say(`short.${group}`, { number: index + 1 }),
    group,
    index,
  }));

/** The floor points have one tool, since they mean something together only. */
export const FLOOR = { id: "floor", name: settingName("floor"), short: say("edit.floor"), group: "floor", index: 0 };

/** Three bed areas, three exclusion areas, the floor points. @type {Tool[]} */
export const TOOLS = [...areaTools("beds"), ...areaTools("exclusions"), FLOOR];

/**
 * The mattress of each bed area: it is marked for a proposal (see mattress.js), and the draft keeps the mark so that undo
 * brings it back; the program is never told of it. @type {Tool[]}
 */
export const MATTRESSES = [1, 2, 3].map((number, index) => ({
  id: `mattress${number}`,
  name: say("tool.mattress", { number }),
  short: say("tool.mattressShort", { number }),
  group: "mattresses",
  index,
}));

/** Names of the floor points, "Red" first. */
export const FLOOR_NAMES = COLOUR_NAMES.map(capitalised);

/** Their signs on the picture, as short as tells them apart. */
export const FLOOR_SIGNS = COLOURS.map((colour) => say(`sign.${colour}`));

/** Stands for the figure where the index of a point is expected. */
export const FIGURE = 4;

/** The package's first corners of every area but the first, in pixels: nobody has drawn these. */
const FIRST_CORNERS = [
  { x: 160, y: 160 },
  { x: 480, y: 160 },
  { x: 480, y: 480 },
  { x: 160, y: 480 },
];

const same = (a, b) => a.x === b.x && a.y === b.y;
const replaced = (list, index, value) => list.map((old, at) => (at === index ? value : old));

/** A corner in percent as a point of the analysis picture, and back to the nearest percent that can be stored. */
export const cornerToPoint = ({ x, y }, size) => ({ x: (x * size.width) / 100, y: (y * size.height) / 100 });
const pointToCorner = ({ x, y }, size) => ({ x: nearestPercent(x, size.width), y: nearestPercent(y, size.height) });

/** A mark stays in the page, so it may be finer: its errors grow on the way to the proposal. */
const isMark = ({ group }) => group === "mattresses";
const MARK_STEP = 0.2;
const tenths = (percent) => clamp(Math.round(percent * 10) / 10, 0, 100);
const markCorner = ({ x, y }, size) => ({ x: tenths((100 * x) / size.width), y: tenths((100 * y) / size.height) });

const NOT_MARKED = [null, null, null];
/** How high a mattress usually is, and shoulders of who sits up above it, in metres. */
const USUAL_BED = { height: "0.5", air: "0.5" };

/** A mattress that nobody has marked begins as what is drawn of its bed. */
const markOf = (settings, { index }) =>
  settings.mattresses?.[index] ?? { ...USUAL_BED, on: true, corners: settings.beds[index].corners };

/** The area of a bed's or an exclusion's tool; a mattress' mark, which has `height` and `air` as entered as well. */
export const areaOf = (settings, tool) => (isMark(tool) ? markOf(settings, tool) : settings[tool.group][tool.index]);

/** The four points of a tool in the analysis picture. */
export function pointsOf(settings, tool, size) {
  if (tool === FLOOR) return settings.floor;
  return areaOf(settings, tool).corners.map((corner) => cornerToPoint(corner, size));
}

/** Settings with another area, or mark. */
export function withArea(settings, tool, area) {
  return { ...settings, [tool.group]: replaced(settings[tool.group] ?? NOT_MARKED, tool.index, area) };
}

/** Settings with an area's corners at the points of the analysis picture, or as near as can be stored. */
export function withPoints(settings, tool, points, size) {
  const corners = points.map((point) => pointToCorner(point, size));
  return withArea(settings, tool, { ...areaOf(settings, tool), corners });
}

/**
 * Settings with one of the tool's four points moved to a point of the analysis picture, or as near as it may go. The
 * same settings when that changes nothing, so that a touch without a move is no step to undo.
 */
export function movePoint(settings, tool, index, point, size) {
  if (tool === FLOOR) {
    const moved = {
      x: clamp(Math.round(point.x), 0, size.width - 1),
      y: clamp(Math.round(point.y), 0, size.height - 1),
    };
    if (same(moved, settings.floor[index])) return settings;
    return { ...settings, floor: replaced(settings.floor, index, moved) };
  }
  const area = areaOf(settings, tool);
  const corner = (isMark(tool) ? markCorner : pointToCorner)(point, size);
  if (same(corner, area.corners[index])) return settings;
  return withArea(settings, tool, { ...area, corners: replaced(area.corners, index, corner) });
}

/**
 * Settings with one of the tool's points moved by steps: percent of the picture for areas, fifths of one for a mattress,
 * pixels for floor points.
 */
export function stepPoint(settings, tool, index, dx, dy, size) {
  if (tool === FLOOR) {
    const { x, y } = settings.floor[index];
    return movePoint(settings, tool, index, { x: x + dx, y: y + dy }, size);
  }
  const { x, y } = areaOf(settings, tool).corners[index];
  if (isMark(tool)) {
    const finer = cornerToPoint({ x: x + MARK_STEP * dx, y: y + MARK_STEP * dy }, size);
    return movePoint(settings, tool, index, finer, size);
  }
  const corner = { x: steppedPercent(x, dx, size.width), y: steppedPercent(y, dy, size.height) };
  return movePoint(settings, tool, index, cornerToPoint(corner, size), size);
}

/**
 * Settings with a whole area shifted by a distance in analysis pixels. It stops at the edges and keeps its shape, to
 * within the percents that can be stored.
 */
export function shiftArea(settings, tool, distance, size) {
  const area = areaOf(settings, tool);
  const allowed = (percent, axis) => {
    const values = area.corners.map((corner) => corner[axis]);
    return clamp(Math.round(percent), -Math.min(...values), 100 - Math.max(...values));
  };
  const dx = allowed((distance.x * 100) / size.width, "x");
  const dy = allowed((distance.y * 100) / size.height, "y");
  if (dx === 0 && dy === 0) return settings;
  // A quarter less decides between two percents that are as near: the lower one is what the other is read back as.
  const stored = ({ x, y }) => pointToCorner(cornerToPoint({ x: x + dx - 0.25, y: y + dy - 0.25 }, size), size);
  const finer = ({ x, y }) => ({ x: tenths(x + dx), y: tenths(y + dy) });
  const shifted = isMark(tool) ? finer : stored;
  return withArea(settings, tool, { ...area, corners: area.corners.map(shifted) });
}

/** True for corners that show nothing or that the package came with. */
export function isUndrawn(area, size) {
  const span = (axis) => {
    const values = area.corners.map((corner) => corner[axis]);
    return Math.max(...values) - Math.min(...values);
  };
  if (span("x") < 2 || span("y") < 2) return true;
  const near = (percent, pixel, length) => Math.abs(percent - (pixel * 100) / length) <= 1;
  return area.corners.every(
    ({ x, y }, index) => near(x, FIRST_CORNERS[index].x, size.width) && near(y, FIRST_CORNERS[index].y, size.height),
  );
}

/** Settings with an area switched on or off. One that nobody has drawn yet begins as a rectangle in the middle. */
export function switchArea(settings, tool, on, size) {
  const area = areaOf(settings, tool);
  const corners = on && isUndrawn(area, size) ? middleRectangle(tool) : area.corners;
  return withArea(settings, tool, { ...area, on, corners });
}

/** Three areas that are switched on one after the other do not hide each other. */
function middleRectangle({ index }) {
  const [left, top, right, bottom] = [30 + 5 * index, 35 + 5 * index, 60 + 5 * index, 65 + 5 * index];
  return [
    { x: left, y: top },
    { x: right, y: top },
    { x: right, y: bottom },
    { x: left, y: bottom },
  ];
}

/** Settings with the floor points as a rectangle on the floor in front of a camera that looks down a little. */
export function placeFloorInMiddle(settings, size) {
  const at = (x, y) => ({ x: Math.round(x * size.width), y: Math.round(y * size.height) });
  return { ...settings, floor: [at(0.4, 0.55), at(0.6, 0.55), at(0.66, 0.8), at(0.34, 0.8)] };
}
