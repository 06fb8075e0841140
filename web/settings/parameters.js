/** What was changed, in the words of the panels that set it. */
import { CALL_TIMES, decimal } from "../base/limits.js";
import { COLOUR_NAMES, areaName, numberText, onOrOff, programWords, say, settingName } from "../base/words.js";

/** The program's names of settings of one value. */
const SETTINGS = {
  Sensitivity: "sensitivity",
  DetectPatientOutOfBed: "outOfBed",
  DetectFallenPersons: "falls",
  ShowCalibrationMarkers: "stakes",
  DetectionOverlaysOn: "overlayOn",
  SelectedDetectionOverlay: "overlaySize",
  AnonOverlaysOn: "anonymisedOn",
  SelectedAnonOverlay: "anonymisedSize",
  WRectM: "widthM",
  HRectM: "depthM",
};

const AREAS = { Detection: "beds", Exclusion: "exclusions" };
const areaOf = (name, number) => areaName(AREAS[name], number - 1);
const cornerOf = (name, number, corner) =>
  say("wire.corner", { area: areaOf(name, number), number: Number(corner) + 1 });

/** A setting's value: the program writes numbers with six decimals. */
function inWords(value) {
  if (value === "true" || value === "false") return onOrOff(value === "true");
  return decimal(value) === null ? programWords(value) : numberText(decimal(value), 3);
}

/** Areas are drawn in percent; what is kept of them are pixels. */
const pixels = (value) => `${value} px`;
const millimetres = (microns) =>
  /^\d+$/.test(microns) ? numberText(Number(microns) / 1000, 3) : programWords(microns);

/** What the program's names look like, how each is called, and its values in words. */
const KINDS = [
  [/^(Detection|Exclusion)([1-3])Active$/, areaOf, inWords],
  [/^(Detection|Exclusion)([1-3])([0-3])([xy])$/, (...parts) => `${cornerOf(...parts)}: ${parts[3]}`, pixels],
  [
    /^FallCalibration([0-3])([xy])$/,
    (at, axis) => `${say("wire.point", { colour: COLOUR_NAMES[at] })}: ${axis}`,
    pixels,
  ],
  [/^camera\.source$/, () => say("camera.address"), programWords],
  [/^camera\.product_name$/, () => say("camera.model"), programWords],
  [/^camera\.view$/, () => say("sight.title"), programWords],
  [/^camera\.focal_length_um$/, () => settingName("focalLength"), millimetres],
  [/^people\.(.+)\.password$/, (name) => say("people.resetOf", { name }), programWords],
  [/^people\.(.+)$/, (name) => say("people.roleOf", { name }), programWords],
  [/^(\w+)$/, (key) => (Object.hasOwn(SETTINGS, key) ? settingName(SETTINGS[key]) : null), inWords],
];

/**
 * A setting's change as people read it.
 * @param {{key: string, from: string, to: string}} change as the program tells it
 * @returns {{name: ?string, from: string, to: string}} name: null of what no panel sets
 */
export function changeWords({ key, from, to }) {
  const found = KINDS.map(([form, name, value]) => ({ parts: form.exec(key), name, value })).find(({ parts }) => parts);
  const name = found?.name(...found.parts.slice(1)) ?? null;
  const words = name === null ? programWords : found.value;
  const shown = (value) => (typeof value === "string" ? value && words(value) : JSON.stringify(value));
  return { name, from: shown(from), to: shown(to) };
}

const hoursInWords = (hours) => hours.map(({ from, to }) => `${from}–${to}`).join(", ") || say("calls.noHours");

/** An alarm's times and hours: [path, name, words] of each. */
const timesOf = ([kind, event]) =>
  [...CALL_TIMES, "hours"]
    .filter((key) => key in event)
    .map((key) => [
      `calls.events.${kind}.${key}`,
      `${say(`event.${kind}`)}: ${say(`calls.${key}`)}`,
      key === "hours" ? hoursInWords(event.hours) : String(event[key]),
    ]);

/** Receivers as well, each with its level. */
const receiversOf = (level, index) =>
  level.flatMap(({ kind, name, url }) => {
    const words = say("calls.level", { number: index + 1 });
    if (kind === "people") return [["calls.levels.people", say("calls.people"), words]];
    const path = `calls.levels[${JSON.stringify(name)}]`;
    return [
      [path, name, words],
      [`${path}.url`, `${name}: ${say("calls.url")}`, url],
    ];
  });

/** A document of calls, field by field; nothing secret is among them. */
function callFields(text) {
  const { events, levels } = JSON.parse(text);
  const fields = [...Object.entries(events).flatMap(timesOf), ...levels.flatMap(receiversOf)];
  return new Map(fields.map(([path, name, words]) => [path, { name, words }]));
}

/** A change of the calls, a line for each field. */
function callLines({ key, from, to }) {
  try {
    const [before, after] = [callFields(from), callFields(to)];
    const lines = [...new Map([...before, ...after])].map(([path, { name }]) => ({
      ...{ key: path, name },
      from: before.get(path)?.words ?? "",
      to: after.get(path)?.words ?? "",
    }));
    const changed = lines.filter((line) => line.from !== line.to);
    return changed.length ? changed : [{ key, name: say("calls.title"), from: "", to: say("changes.unseen") }];
  } catch {
    return [{ key, name: say("calls.title"), from: "", to: say("unknown") }];
  }
}

/** A change as lines of what people read: {key, name, from, to} each, see changeWords. */
export const changeLines = (change) =>
  change.key === "calls" ? callLines(change) : [{ key: change.key, ...changeWords(change) }];
