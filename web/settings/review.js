/** What the page looks at before it sends settings, since the program takes everything. */
import { APPLICATION_SIZE, areaName } from "../base/facts.js";
import { NO_BED_AREA } from "../base/words.js";
import { floorProblem, floorWarning } from "../geometry/calibration.js";
import { areaProblem } from "../geometry/plane.js";

const METRES = { min: 0.1, max: 100 };

/** Text of a decimal number as people write it, or null: no signs, exponents or other things that atof would take. */
export function decimal(text) {
  return /^\d{1,4}([.]\d*)?$|^[.]\d+$/.test(String(text).trim()) ? Number(text) : null;
}

function sensitivityProblem(text) {
  const value = decimal(text);
  return value === null || value > 1 ? "The sensitivity must be a number from 0 to 1." : null;
}

function metresProblem(text, what) {
  const value = decimal(text);
  if (value !== null && value >= METRES.min && value <= METRES.max) return null;
  return `The ${what} of the floor rectangle must be a number of metres from ${METRES.min} to ${METRES.max}.`;
}

/** Why the stream chosen for anonymising would show people all the same, or null. */
export function anonymisedProblem(settings) {
  if (!settings.anonymisedOn) return null;
  if (settings.anonymisedSize === APPLICATION_SIZE) {
    return `The anonymised stream cannot be ${APPLICATION_SIZE}: that is the application's own stream, and it shows people.`;
  }
  if (settings.overlayOn && settings.anonymisedSize === settings.overlaySize) {
    return `The anonymised stream has the same size as the overlay stream (${settings.overlaySize}), so it would show people. Choose two sizes.`;
  }
  return null;
}

function streamWarnings(settings) {
  const notOffered = (on, size, what) =>
    on && !settings.sizes.includes(size)
      ? `The camera does not offer the size chosen for the ${what} (${size}).`
      : null;
  return [
    anonymisedProblem(settings),
    notOffered(settings.overlayOn, settings.overlaySize, "overlay stream"),
    notOffered(settings.anonymisedOn, settings.anonymisedSize, "anonymised stream"),
  ];
}

/** Why an area that is switched on will not work, or null. */
export function areaWarning(settings, group, index, size) {
  const area = settings[group][index];
  const problem = area.on ? areaProblem(area, size) : null;
  return problem && `${areaName(group, index)} will not work: ${problem}`;
}

function detectionWarnings({ outOfBed, beds }) {
  if (!outOfBed || beds.some((bed) => bed.on)) return [];
  return [NO_BED_AREA];
}

/**
 * Looks at settings before they are sent.
 * @returns {{refusals: string[], warnings: string[]}} refusals keep them from being sent; warnings are only told
 */
export function reviewSettings(settings, size) {
  const { floor, widthM, depthM } = settings;
  const refusals = [
    sensitivityProblem(settings.sensitivity),
    metresProblem(widthM, "width"),
    metresProblem(depthM, "depth"),
  ].filter(Boolean);
  const floorRefusal = refusals.length ? null : floorProblem(floor, widthM, depthM);
  if (floorRefusal) refusals.push(floorRefusal);
  const warnings = [
    ...["beds", "exclusions"].flatMap((group) =>
      settings[group].map((_, index) => areaWarning(settings, group, index, size)),
    ),
    ...detectionWarnings(settings),
    refusals.length ? null : floorWarning(floor, widthM, depthM, size),
    ...streamWarnings(settings),
    ...(settings.problems ?? []),
  ].filter(Boolean);
  return { refusals, warnings: [...new Set(warnings)] };
}
