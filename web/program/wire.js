/**
 * The program's settings, to and from the wire. The program keeps pixels of the analysis picture; areas travel as whole
 * percent, floor points as fractions, both cut towards zero in each direction.
 */

import { COLOURS, sizeOf } from "../base/facts.js";
import { plainNumber } from "../base/limits.js";
import { COLOUR_NAMES, areaName, onOrOff, say, settingName, writtenNumber } from "../base/words.js";

/**
 * @typedef {{width: number, height: number}} Size the analysis picture in pixels
 * @typedef {{x: number, y: number}} Point
 * @typedef {{on: boolean, corners: Point[]}} Area four corners in whole percent of the analysis picture, as sent
 * @typedef {object} Settings never changed in place
 * @property {string} sensitivity
 * @property {boolean} outOfBed detects Patient Out of Bed
 * @property {boolean} falls detects Fall Detected
 * @property {boolean} stakes shows the calibration stakes
 * @property {boolean} overlayOn
 * @property {boolean} anonymisedOn
 * @property {string} overlaySize "1280x720"; free text, since the program takes any
 * @property {string} anonymisedSize
 * @property {string[]} sizes of the camera's streams
 * @property {Area[]} beds three
 * @property {Area[]} exclusions three
 * @property {Point[]} floor red, green, blue, yellow in whole pixels of the analysis picture
 * @property {string} widthM metres from the red to the green floor point
 * @property {string} depthM metres from the green to the blue floor point
 * @property {string[]} problems what was read and cannot be right
 */

const COLOUR_KEYS = COLOURS.map((colour) => colour[0].toUpperCase());
const AXES = ["x", "y"];
const THREE = [0, 1, 2];
const FOUR = [0, 1, 2, 3];

const lengthOf = (size, axis) => (axis === "x" ? size.width : size.height);
// + 0 turns -0 into 0.
const truncatedRatio = (value, factor, divisor) => Math.trunc((value * factor) / divisor) + 0;

/** The pixel that the program stores for a whole percent of a side of `length` pixels. */
export const percentToPixel = (percent, length) => truncatedRatio(percent, length, 100);

/** The whole percent that the program gives out for a pixel. */
export const pixelToPercent = (pixel, length) => truncatedRatio(pixel, 100, length);

const roundTrip = (percent, length) => pixelToPercent(percentToPixel(percent, length), length);

/**
 * The smallest whole percent whose round trip gives the value read, so that saving again stores the same pixel: 33 for
 * 32. Some values come from no percent (4, 9, 14 ... of 1280 pixels, read from pixels that a settings file has set);
 * these move once, to the next percent.
 */
export function smallestPercent(read, length) {
  if (read < 0) return -smallestPercent(-read, length);
  let percent = read;
  while (roundTrip(percent, length) < read) ++percent;
  return percent;
}

/**
 * Two percents can be stored apart and read back alike: 35 and 36 are both read as 35, and a later visitor sends 35. So
 * only the smaller one is ever used, and what was saved stays where it is: 35 for 36.
 */
const settledPercent = (percent, length) => smallestPercent(roundTrip(percent, length), length);

/** The settled percent nearest to a pixel, from 0 to 100. */
export function nearestPercent(pixel, length) {
  const exact = (pixel * 100) / length;
  let nearest = 0;
  for (let percent = 1; percent <= 100; ++percent) {
    const closer = Math.abs(percent - exact) < Math.abs(nearest - exact);
    if (closer && settledPercent(percent, length) === percent) nearest = percent;
  }
  return nearest;
}

/** `step` percent further, then on in that direction to the next settled percent; stays within 0 to 100. */
export function steppedPercent(percent, step, length) {
  if (step === 0) return percent;
  let next = Math.min(100, Math.max(0, percent + step));
  while (settledPercent(next, length) !== next) next += Math.sign(step);
  return next;
}

/** Numbers are given out with six decimals, then cut to four characters. */
const fourCharacters = (text) =>
  Math.fround(Number(plainNumber(text)))
    .toFixed(6)
    .slice(0, 4);

function between(text, opening, closing) {
  const from = text.indexOf(opening);
  const to = text.indexOf(closing, from + opening.length);
  if (from < 0 || to < 0) throw new Error(say("wire.missing", { what: opening }));
  return text.slice(from + opening.length, to);
}

/**
 * The two resolutions are free text, which may hold tags as well. The elements before the first and after the last tag
 * around them are the program's own.
 */
function splitDocument(text) {
  const opening = "<SelectedDetectionOverlay>";
  const middle = "</SelectedDetectionOverlay><SelectedAnonOverlay>";
  const closing = "</SelectedAnonOverlay><CamsResAsCsv>";
  const first = text.indexOf(opening);
  const second = text.indexOf(middle, first);
  const last = text.lastIndexOf(closing);
  if (first < 0 || second < 0 || last < second + middle.length - 1) {
    throw new Error(say("wire.unclear"));
  }
  return {
    own: text.slice(0, first) + text.slice(last + "</SelectedAnonOverlay>".length),
    overlaySize: text.slice(first + opening.length, second),
    anonymisedSize: text.slice(second + middle.length, last),
  };
}

function readNumber(own, name) {
  const text = between(own, `<${name}>`, `</${name}>`);
  if (!/^-?\d+(\.\d*)?$/.test(text)) throw new Error(say("wire.noNumber", { name }));
  return Number(text);
}

const readFlag = (own, name) => between(own, `<${name}>`, `</${name}>`) === "1";

function readArea(own, name, size) {
  const coordinate = (index, axis) =>
    smallestPercent(readNumber(own, `${name}_${2 * index + AXES.indexOf(axis)}`), lengthOf(size, axis));
  return {
    on: readFlag(own, `${name}_Active`),
    corners: FOUR.map((index) => ({ x: coordinate(index, "x"), y: coordinate(index, "y") })),
  };
}

function readFloor(own, size) {
  const coordinate = (index, axis) =>
    Math.round(readNumber(own, `FallCalibration_${2 * index + AXES.indexOf(axis)}`) * lengthOf(size, axis)) + 0;
  return FOUR.map((index) => ({ x: coordinate(index, "x"), y: coordinate(index, "y") }));
}

function sizeProblem(text, what) {
  if (sizeOf(text)) return null;
  const shown = text.length > 40 ? `${text.slice(0, 40)}…` : text;
  return say("wire.noSize", { what, shown });
}

/**
 * @param {string} text the settings document
 * @param {Size} size
 * @returns {Settings}
 * @throws when the text is no settings document
 */
export function parseSettings(text, size) {
  const { own, overlaySize, anonymisedSize } = splitDocument(text);
  const areas = (name) => THREE.map((index) => readArea(own, `${name}${index + 1}`, size));
  const number = (name) => between(own, `<${name}>`, `</${name}>`);
  const problems = [
    sizeProblem(overlaySize, settingName("overlayOn")),
    sizeProblem(anonymisedSize, settingName("anonymisedOn")),
  ];
  return {
    sensitivity: number("Sensitivity"),
    outOfBed: readFlag(own, "PatientOutOfBed_Active"),
    falls: readFlag(own, "FallenPersons_Active"),
    stakes: readFlag(own, "ShowCalibrationMarkers"),
    overlayOn: readFlag(own, "DetectionOverlaysOn"),
    anonymisedOn: readFlag(own, "AnonOverlaysOn"),
    overlaySize,
    anonymisedSize,
    sizes: between(own, "<CamsResAsCsv>", "</CamsResAsCsv>").split(",").filter(sizeOf),
    beds: areas("Detection"),
    exclusions: areas("Exclusion"),
    floor: readFloor(own, size),
    widthM: number("WRectM"),
    depthM: number("HRectM"),
    problems: problems.filter(Boolean),
  };
}

const flag = (on) => (on ? "1" : "0");

/** The settings document passes a formatter, which makes one percent sign of two. */
const freeText = (text) => text.replaceAll("%", "%%");

function appendAreas(query, prefix, areas, size) {
  areas.forEach(({ on, corners }, area) => {
    corners.forEach(({ x, y }, index) => {
      query.append(`${prefix}${area + 1}_X${index + 1}`, String(settledPercent(x, size.width)));
      query.append(`${prefix}${area + 1}_Y${index + 1}`, String(settledPercent(y, size.height)));
    });
    query.append(`${prefix}${area + 1}_ON`, flag(on));
  });
}

/** The middle of the pixel as a fraction: cutting gives the pixel again, however the fraction was rounded. */
const pixelToFraction = (pixel, length) => ((pixel + (pixel < 0 ? -0.5 : 0.5)) / length).toFixed(6);

/**
 * @param {Settings} settings
 * @param {Size} size
 * @returns {URLSearchParams} every key that the program asks for
 */
export function encodeSettings(settings, size) {
  const query = new URLSearchParams({
    SN: plainNumber(settings.sensitivity),
    POB_ON: flag(settings.outOfBed),
    FP_ON: flag(settings.falls),
    DO: flag(settings.overlayOn),
    AO: flag(settings.anonymisedOn),
    SDO: freeText(settings.overlaySize),
    SAO: freeText(settings.anonymisedSize),
    SCM: flag(settings.stakes),
  });
  appendAreas(query, "AOI", settings.beds, size);
  appendAreas(query, "EX", settings.exclusions, size);
  settings.floor.forEach((point, index) => {
    query.append(`X${COLOUR_KEYS[index]}`, pixelToFraction(point.x, size.width));
    query.append(`Y${COLOUR_KEYS[index]}`, pixelToFraction(point.y, size.height));
  });
  query.append("XM", plainNumber(settings.widthM));
  query.append("YM", plainNumber(settings.depthM));
  return query;
}

/**
 * What parseSettings gives after the program has taken these settings: a corner of 36 percent comes back as 35, a width
 * of 12.34 m as 12.3.
 * @param {Settings} settings
 * @param {Size} size
 * @returns {Settings}
 */
export function expectedReadBack(settings, size) {
  const area = ({ on, corners }) => ({
    on,
    corners: corners.map(({ x, y }) => ({ x: settledPercent(x, size.width), y: settledPercent(y, size.height) })),
  });
  return {
    ...settings,
    sensitivity: fourCharacters(settings.sensitivity),
    beds: settings.beds.map(area),
    exclusions: settings.exclusions.map(area),
    widthM: fourCharacters(settings.widthM),
    depthM: fourCharacters(settings.depthM),
  };
}

/** Settings of one value, as they are told before and after the areas and the floor points. */
export const SINGLES = [
  "sensitivity",
  "outOfBed",
  "falls",
  "stakes",
  "overlayOn",
  "overlaySize",
  "anonymisedOn",
  "anonymisedSize",
];
export const SIDES = ["widthM", "depthM"];

/** A setting of one value in words. */
export const inWords = (value) => (typeof value === "boolean" ? onOrOff(value) : writtenNumber(value));

const percentPair = ({ x, y }) => `${x} %, ${y} %`;
const pixelPair = ({ x, y }) => `${x}, ${y}`;

function areaEntries(settings, group) {
  return settings[group].flatMap(({ on, corners }, area) => [
    [areaName(group, area), onOrOff(on)],
    ...corners.map((corner, index) => [
      say("wire.corner", { area: areaName(group, area), number: index + 1 }),
      percentPair(corner),
    ]),
  ]);
}

/** Every setting as a name and a text. */
function entries(settings) {
  const single = (key) => [settingName(key), inWords(settings[key])];
  return [
    ...SINGLES.map(single),
    ...areaEntries(settings, "beds"),
    ...areaEntries(settings, "exclusions"),
    ...settings.floor.map((point, index) => [say("wire.point", { colour: COLOUR_NAMES[index] }), pixelPair(point)]),
    ...SIDES.map(single),
  ];
}

/**
 * What the program holds otherwise than was wanted, after all that its way of storing changes.
 * @param {Settings} wanted
 * @param {Settings} read
 * @param {Size} size
 * @returns {{what: string, wanted: string, found: string}[]}
 */
export function differences(wanted, read, size) {
  const found = entries(expectedReadBack(read, size));
  return entries(expectedReadBack(wanted, size))
    .map(([what, text], index) => ({ what, wanted: text, found: found[index][1] }))
    .filter((difference) => difference.wanted !== difference.found);
}
