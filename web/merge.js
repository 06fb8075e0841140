/** Two people's settings made into one: what each has changed since both began with the same. */
import { expectedReadBack } from "./wire.js";

const COLOURS = ["red", "green", "blue", "yellow"];
const onOrOff = (on) => (on ? "on" : "off");
const pairs = (points, unit) => points.map(({ x, y }) => `${x}${unit}, ${y}${unit}`).join("; ");

const plain = (name, key, words = String) => ({
  name,
  words: (settings) => words(settings[key]),
  taken: (into, from) => ({ ...into, [key]: from[key] }),
});

/** One area's switch or its outline; corners of two people would make a third outline, so these go as one. */
function areaFields(group, kind) {
  return [0, 1, 2].flatMap((index) =>
    [
      ["on", `${kind} area ${index + 1}`, onOrOff],
      ["corners", `${kind} area ${index + 1}, outline`, (corners) => pairs(corners, " %")],
    ].map(([key, name, words]) => ({
      name,
      words: (settings) => words(settings[group][index][key]),
      taken: (into, from) => ({
        ...into,
        [group]: into[group].map((area, at) => (at === index ? { ...area, [key]: from[group][index][key] } : area)),
      }),
    })),
  );
}

/** What can be taken from one or the other: its name, its value in words, and settings with another's value. */
const FIELDS = [
  plain("Score that a person must reach", "sensitivity"),
  plain("Patient Out of Bed", "outOfBed", onOrOff),
  plain("Fall Detected", "falls", onOrOff),
  plain("Calibration stakes", "stakes", onOrOff),
  plain("Overlay stream", "overlayOn", onOrOff),
  plain("Size of the overlay stream", "overlaySize"),
  plain("Anonymised stream", "anonymisedOn", onOrOff),
  plain("Size of the anonymised stream", "anonymisedSize"),
  ...areaFields("beds", "Bed"),
  ...areaFields("exclusions", "Exclusion"),
  plain("Floor points", "floor", (floor) => floor.map(({ x, y }, index) => `${COLOURS[index]} ${x}, ${y}`).join("; ")),
  plain("Width of the floor rectangle", "widthM"),
  plain("Depth of the floor rectangle", "depthM"),
];

/**
 * What others have changed since the draft began.
 * @param {import("./wire.js").Settings} base what both began with
 * @param {import("./wire.js").Settings} mine
 * @param {import("./wire.js").Settings} theirs
 * @returns {{name: string, base: string, mine: string, theirs: string, both: boolean}[]} both: changed here as well, and
 *   otherwise
 */
export function changedByOthers(base, mine, theirs, size) {
  const [was, here, there] = [base, mine, theirs].map((settings) => expectedReadBack(settings, size));
  return FIELDS.map(({ name, words }) => ({ name, base: words(was), mine: words(here), theirs: words(there) }))
    .filter((field) => field.theirs !== field.base)
    .map((field) => ({ ...field, both: field.mine !== field.base && field.mine !== field.theirs }));
}

/**
 * Theirs with what was changed here; where both changed something, mine only for the names in `keepMine`.
 * @param {Set<string>} keepMine
 * @returns {import("./wire.js").Settings}
 */
export function merged(base, mine, theirs, size, keepMine) {
  const [was, here, there] = [base, mine, theirs].map((settings) => expectedReadBack(settings, size));
  const chosen = ({ name, words }) => words(here) !== words(was) && (words(there) === words(was) || keepMine.has(name));
  return FIELDS.filter(chosen).reduce((settings, field) => field.taken(settings, mine), theirs);
}
