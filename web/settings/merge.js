/** Two people's settings made into one: what each has changed since both began with the same. */
import { COLOUR_NAMES, areaName, onOrOff, say, settingName } from "../base/words.js";
import { SIDES, SINGLES, expectedReadBack, inWords } from "../program/wire.js";

const pairs = (points, unit) => points.map(({ x, y }) => `${x}${unit}, ${y}${unit}`).join("; ");
const colouredPairs = (points) => points.map(({ x, y }, index) => `${COLOUR_NAMES[index]} ${x}, ${y}`).join("; ");

const plain = (key, words = inWords) => ({
  name: settingName(key),
  words: (settings) => words(settings[key]),
  taken: (into, from) => ({ ...into, [key]: from[key] }),
});

/** One area's switch or its outline; corners of two people would make a third outline, so these go as one. */
function areaFields(group) {
  return [0, 1, 2].flatMap((index) =>
    [
      ["on", areaName(group, index), onOrOff],
      ["corners", say("area.outline", { area: areaName(group, index) }), (corners) => pairs(corners, " %")],
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
  ...SINGLES.map((key) => plain(key)),
  ...areaFields("beds"),
  ...areaFields("exclusions"),
  plain("floor", colouredPairs),
  ...SIDES.map((key) => plain(key)),
];

/**
 * What others have changed since the draft began.
 * @param {import("../program/wire.js").Settings} base what both began with
 * @param {import("../program/wire.js").Settings} mine
 * @param {import("../program/wire.js").Settings} theirs
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
 * @returns {import("../program/wire.js").Settings}
 */
export function merged(base, mine, theirs, size, keepMine) {
  const [was, here, there] = [base, mine, theirs].map((settings) => expectedReadBack(settings, size));
  const chosen = ({ name, words }) => words(here) !== words(was) && (words(there) === words(was) || keepMine.has(name));
  return FIELDS.filter(chosen).reduce((settings, field) => field.taken(settings, mine), theirs);
}
