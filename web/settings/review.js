/** What the page looks at before it sends settings, since the program takes everything. */
import { APPLICATION_SIZE } from "../base/facts.js";
import { limitProblem } from "../base/limits.js";
import { areaName, say, settingName } from "../base/words.js";
import { floorProblem, floorWarning } from "../geometry/calibration.js";
import { areaProblem } from "../geometry/plane.js";

/** What is entered as numbers. */
const ENTERED = ["sensitivity", "widthM", "depthM"];

/** Why the stream chosen for anonymising would show people all the same, or null. */
export function anonymisedProblem(settings) {
  if (!settings.anonymisedOn) return null;
  if (settings.anonymisedSize === APPLICATION_SIZE) {
    return say("review.application", { size: APPLICATION_SIZE });
  }
  if (settings.overlayOn && settings.anonymisedSize === settings.overlaySize) {
    return say("review.same", { size: settings.overlaySize });
  }
  return null;
}

function streamWarnings(settings) {
  const notOffered = (on, size, what) =>
    on && !settings.sizes.includes(size) ? say("review.notOffered", { what, size }) : null;
  return [
    anonymisedProblem(settings),
    notOffered(settings.overlayOn, settings.overlaySize, settingName("overlayOn")),
    notOffered(settings.anonymisedOn, settings.anonymisedSize, settingName("anonymisedOn")),
  ];
}

/** Why an area that is switched on will not work, or null. */
export function areaWarning(settings, group, index, size) {
  const area = settings[group][index];
  const problem = area.on ? areaProblem(area, size) : null;
  return problem && say("review.notWorking", { area: areaName(group, index), problem });
}

function detectionWarnings({ outOfBed, beds }) {
  if (!outOfBed || beds.some((bed) => bed.on)) return [];
  return [say("noBedArea")];
}

/**
 * Looks at settings before they are sent.
 * @returns {{refusals: string[], warnings: string[]}} refusals keep them from being sent; warnings are only told
 */
export function reviewSettings(settings, size) {
  const { floor, widthM, depthM } = settings;
  const refusals = ENTERED.map((key) => limitProblem(key, settings[key])).filter(Boolean);
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
