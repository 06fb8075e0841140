/**
 * Whether somebody is being watched: one pure function from everything that is known to the state that the page shows.
 * Green needs every condition to be true; whatever is wrong, or not known, has a text and a place that mends it.
 */
import { BED, CODE, EVENT_NAMES, FALL, FRESH_MS, PLACES, TROUBLE, hrefOf } from "../base/facts.js";
import { decimal, limitProblem } from "../base/limits.js";
import {
  areaName,
  clockTime,
  durationInWords,
  eventName,
  numberText,
  programWords,
  say,
  troubleWords,
} from "../base/words.js";
import { floorPlacementProblem, floorProblem, floorWarning, isFloorPlaced } from "../geometry/calibration.js";
import { areaProblem, contains } from "../geometry/plane.js";

/** A camera without heartbeats is heard of by its status only, which may take a cycle and a time limit to answer. */
const STATUS_FRESH_MS = 6500;
/** How long first answers are awaited; an open feed without a heartbeat then is one of an older camera. */
const FIRST_ANSWERS_MS = 5000;

/** Scores between which people are found, and not everything is taken for one. */
const SENSIBLE = { min: 0.1, max: 0.9 };
const MOST_OF_PICTURE = 0.8;
const MOST_OF_BED = 0.5;
const HALF = 0.5;
/** Sides of a rectangle that somebody measures on a room's floor, in metres. */
const USUAL_SIDE = { min: 0.5, max: 8 };
/** How long a restart that ended an event is a reason to look into the room, in milliseconds. */
const DOUBT_MS = 600000;
const NEARLY_ALL = 0.9;
const THIRD = 1 / 3;

/**
 * @typedef {object} Gap something that keeps the page from being green
 * @property {string} text
 * @property {?{href: string, text: string}} link to the place that mends it
 * @property {string[]} stops names of the events that cannot begin because of it
 */
function gap(text, place = null, stops = []) {
  const link = place && { href: hrefOf(PLACES[place]), text: say("gap.link", { place: say(`place.${place}`) }) };
  return { text, link, stops };
}

// ---- The settings

/** Shares of the picture, on a grid of points in percent, that lie in one of the areas. */
const GRID = Array.from({ length: 50 * 50 }, (_, index) => ({
  x: 2 * (index % 50) + 1,
  y: 2 * Math.floor(index / 50) + 1,
}));

function shareCovered(points, areas) {
  if (!points.length) return 0;
  return points.filter((point) => areas.some(({ corners }) => contains(corners, point))).length / points.length;
}

const coverPicture = (...beds) => shareCovered(GRID, beds) > MOST_OF_PICTURE;

function bedProblem(bed, size) {
  const problem = areaProblem(bed, size);
  if (problem) return problem;
  if (coverPicture(bed)) {
    return say("gap.whole");
  }
  return null;
}

/** A bed counts before an exclusion area: who lies in it is seen, and who lies on the floor around it is not. */
function coveredBedGaps({ beds }, exclusions) {
  return beds.flatMap((bed, index) => {
    if (!bed.on) return [];
    const inside = GRID.filter((point) => contains(bed.corners, point));
    if (shareCovered(inside, exclusions) <= MOST_OF_BED) return [];
    return [gap(say("gap.covered", { number: index + 1 }), "exclusions")];
  });
}

function bedGaps({ beds, outOfBed }, size) {
  const active = beds.map((bed, index) => ({ bed, name: areaName("beds", index) })).filter(({ bed }) => bed.on);
  if (outOfBed && !active.length) return [gap(say("noBedArea"), "beds", [BED])];
  const bad = active
    .map(({ bed, name }) => ({ bed, name, problem: bedProblem(bed, size) }))
    .filter(({ problem }) => problem);
  const stops = bad.length === active.length ? [BED] : [];
  const hides = (bed) => (coverPicture(bed) ? [FALL] : []);
  if (!bad.length && coverPicture(...active.map(({ bed }) => bed))) {
    return [gap(say("gap.allBeds"), "beds", EVENT_NAMES)];
  }
  return [
    ...(outOfBed ? [] : [gap(say("gap.off", { event: eventName(BED) }), "events", [BED])]),
    ...bad.map(({ bed, name, problem }) => gap(say("gap.area", { name, problem }), "beds", [...stops, ...hides(bed)])),
  ];
}

/** Who falls in an exclusion area is not seen, so it must not lie over the floor on which somebody may fall. */
function exclusionGaps(exclusions, floor, size) {
  const broken = exclusions
    .map((area, index) => ({ problem: areaProblem(area, size), name: areaName("exclusions", index) }))
    .filter(({ problem }) => problem)
    .map(({ name, problem }) => gap(say("gap.area", { name, problem }), "exclusions"));
  const share = shareCovered(GRID, exclusions);
  if (share > NEARLY_ALL) {
    return [...broken, gap(say("gap.nobody"), "exclusions", EVENT_NAMES)];
  }
  const corners = floor.map(({ x, y }) => ({ x: (100 * x) / size.width, y: (100 * y) / size.height }));
  const measured = GRID.filter((point) => contains(corners, point));
  if (shareCovered(measured, exclusions) > HALF) {
    const text = say("gap.floorCovered");
    return [...broken, gap(text, "exclusions", [FALL])];
  }
  if (share <= THIRD) return broken;
  return [...broken, gap(say("gap.large"), "exclusions")];
}

function sensitivityGaps({ sensitivity }) {
  const value = decimal(sensitivity);
  const limit = limitProblem("sensitivity", sensitivity);
  if (limit) return [gap(limit, "sensitivity", EVENT_NAMES)];
  if (value >= 1) return [gap(say("gap.unreachable"), "sensitivity", EVENT_NAMES)];
  if (value <= 0) {
    return [gap(say("gap.anything"), "sensitivity", EVENT_NAMES)];
  }
  if (value >= SENSIBLE.min && value <= SENSIBLE.max) return [];
  const words = value < SENSIBLE.min ? say("gap.low") : say("gap.high");
  return [gap(say("gap.score", { words }), "sensitivity")];
}

function floorGaps({ falls, floor, widthM, depthM }, size) {
  if (!falls) return [gap(say("gap.off", { event: eventName(FALL) }), "events", [FALL])];
  const [width, depth] = [widthM, depthM].map(decimal);
  const problem = floorProblem(floor, widthM, depthM) ?? floorPlacementProblem(floor, size);
  if (problem) return [gap(problem, "floor", [FALL])];
  if (!isFloorPlaced(floor)) {
    return [gap(say("gap.package"), "floor", [FALL])];
  }
  if ([width, depth].some((side) => side < USUAL_SIDE.min || side > USUAL_SIDE.max)) {
    return [gap(say("gap.unusual", { width: numberText(width), depth: numberText(depth) }), "floor")];
  }
  const doubt = floorWarning(floor, widthM, depthM, size);
  return doubt ? [gap(doubt, "floor")] : [];
}

/**
 * What keeps these settings from raising both events.
 * @param {?import("../program/wire.js").Settings} settings null: not known
 * @param {import("../program/wire.js").Size} size
 * @returns {Gap[]}
 */
export function settingsGaps(settings, size) {
  if (!settings) return [gap(say("gap.settings"))];
  const exclusions = settings.exclusions.filter(({ on }) => on);
  return [
    ...floorGaps(settings, size),
    ...bedGaps(settings, size),
    ...coveredBedGaps(settings, exclusions),
    ...sensitivityGaps(settings),
    ...exclusionGaps(exclusions, settings.floor, size),
  ];
}

/** The same of the heartbeat, which tells less. */
function watchedGaps({ heartbeat }) {
  if (!heartbeat) return [];
  const { falls, exits, beds } = heartbeat.watched ?? {};
  if (typeof falls !== "boolean" || typeof exits !== "boolean") return [gap(say("gap.settings"))];
  return [
    ...(falls ? [] : [gap(say("gap.off", { event: eventName(FALL) }), null, [FALL])]),
    ...(exits ? [] : [gap(say("gap.off", { event: eventName(BED) }), null, [BED])]),
    ...(exits && beds === 0 ? [gap(say("noBedArea"), null, [BED])] : []),
  ];
}

// ---- The program

function codeGaps({ code, text }) {
  if ([CODE.watching, CODE.outOfBed, CODE.fall].includes(code)) return [];
  if (code === CODE.slow) return [gap(say("gap.slow"))];
  if (code === CODE.dataError) return [gap(say("gap.data"))];
  if (code === CODE.starting) return [gap(say("gap.starting"), null, EVENT_NAMES)];
  if (code === CODE.stopped) return [gap(say("gap.stopped"), null, EVENT_NAMES)];
  if (code === CODE.noAnalysis) return [gap(say("gap.noAnalysis", { code }), null, EVENT_NAMES)];
  return [gap(say("gap.reports", { text: text ? programWords(text) : say("gap.anError"), code }), null, EVENT_NAMES)];
}

function statusGaps({ status, statusAge }) {
  if (status?.connected && statusAge <= STATUS_FRESH_MS) return codeGaps(status);
  if (statusAge === null) return [gap(say("gap.status"))];
  return [gap(say("gap.unanswered", { age: durationInWords(statusAge) }))];
}

/** Troubles by which nobody is watched at all; others, known or not, leave something to be watched. */
const BLIND = [
  TROUBLE.cameraAway,
  TROUBLE.standsStill,
  TROUBLE.pictureFrozen,
  TROUBLE.tooDark,
  TROUBLE.lensCovered,
  TROUBLE.outOfFocus,
  TROUBLE.cameraMoved,
];
/** Troubles that are mended in Set up, and where. */
const MENDED = { [TROUBLE.cameraMoved]: "floor" };

function heartbeatGaps({ heartbeat, beatAge }) {
  if (!Array.isArray(heartbeat.wrong)) return [gap(say("gap.tells"))];
  const has = (what) => heartbeat.wrong.some((entry) => entry.what === what);
  const gaps = heartbeat.wrong.map((trouble) =>
    gap(troubleWords(trouble), MENDED[trouble.what] ?? null, BLIND.includes(trouble.what) ? EVENT_NAMES : []),
  );
  const [cycle, picture] = [heartbeat.cycle_age_ms, heartbeat.picture_age_ms].map((age) => age + beatAge);
  if (!heartbeat.cycle) gaps.push(gap(say("gap.noPicture"), null, EVENT_NAMES));
  else if (!(cycle <= FRESH_MS) && !has(TROUBLE.standsStill)) {
    gaps.push(gap(say("gap.noCycle", { age: durationInWords(cycle) }), null, EVENT_NAMES));
  } else if (!(picture <= FRESH_MS)) gaps.push(gap(say("gap.old", { age: durationInWords(picture) })));
  if (heartbeat.ticks_left_out_last_minute > 0 && !has(TROUBLE.ticksLeftOut)) {
    gaps.push(gap(say("gap.left", { count: heartbeat.ticks_left_out_last_minute })));
  }
  return gaps;
}

/** Whether the program lives and tells of nothing that keeps it from seeing, however old its last picture is. */
export function isSeeing({ feed, heartbeat, beatAge }) {
  if (feed !== "open" || !heartbeat || !(beatAge <= FRESH_MS) || !Array.isArray(heartbeat.wrong)) return false;
  return heartbeat.cycle > 0 && !heartbeat.wrong.some(({ what }) => BLIND.includes(what));
}

/** Whether the program says that it analyses pictures of now. */
export function isAnalysing(news) {
  return isSeeing(news) && news.heartbeat.picture_age_ms + news.beatAge <= FRESH_MS;
}

const LIMITED = say("gap.limited");

function feedGaps(news) {
  if (news.feed === "lost" || news.feed === "opening") return [gap(LIMITED)];
  if (!news.heartbeat || news.feed === "absent") return [];
  return news.beatAge > FRESH_MS ? [gap(LIMITED)] : heartbeatGaps(news);
}

function eventGaps({ events }) {
  const unknown = EVENT_NAMES.filter(
    (name) => typeof events.find((event) => event.name === name)?.active !== "boolean",
  );
  return unknown.map((name) => gap(say("gap.event", { event: eventName(name) })));
}

/** An event that a restart ended may be going on. */
function restartGaps(past, now) {
  return EVENT_NAMES.flatMap((name) => {
    const last = past?.history?.findLast((change) => change.name === name);
    if (!last?.closed_at_start || now - Date.parse(last.time) > DOUBT_MS) return [];
    const at = clockTime(new Date(last.time), new Date(now));
    return [gap(say("gap.restart", { event: eventName(name), at }))];
  });
}

// ---- All of it

/** The hub's news with its ages as of now. */
export function agedNews(news, elapsed) {
  const older = (age) => (age === null ? null : age + elapsed);
  return {
    ...news,
    statusAge: older(news.statusAge),
    age: older(news.age),
    beatAge: older(news.beatAge),
    silence: older(news.silence),
  };
}

/** Whether the events are known through the status only, one at a time. */
export const isLimited = ({ feed, heartbeat, beatAge }) =>
  feed === "lost" || feed === "absent" || (heartbeat !== null && beatAge > FRESH_MS);

function isSilent({ silence, heartbeat, status, feed }) {
  const lost = status?.connected === false;
  if (silence === null || !heartbeat || feed === "absent") return lost || silence > STATUS_FRESH_MS;
  return silence > FRESH_MS || (lost && feed !== "open");
}

/** While first answers are awaited nothing is claimed. */
function isConnecting({ statusAge, feed, heartbeat, age }, settings) {
  if (age > FIRST_ANSWERS_MS) return false;
  return settings === null || statusAge === null || feed === "opening" || (feed === "open" && !heartbeat);
}

/** "Fall detected, patient out of bed"; without a connection when each began, too. */
function alarmTitle(active, silent, now) {
  const words = active.map(({ name, since }) => {
    if (!silent || !since) return eventName(name);
    return say("state.at", { event: eventName(name), at: clockTime(new Date(since), new Date(now)) });
  });
  return words.join(", ");
}

/** "The last picture took 312 milliseconds." */
function ownWords(status) {
  if (!status?.connected || !Number.isFinite(status.executionTime)) return "";
  return say("state.took", { time: numberText(status.executionTime) });
}

/** What nobody hears of the program means, since when, in words. */
function silenceOf(news, now) {
  const since = news.heardTime;
  const lost = news.status?.connected === false;
  const what = lost ? "lost" : "mute";
  const told = (key) => {
    if (since === null) return say(key);
    return say("state.since", { what: say(key), at: clockTime(new Date(since), new Date(now)) });
  };
  return { since, title: told(`state.${what}`), clause: told(`state.${what}Clause`) };
}

const LOOKS = {
  alarm: { tone: "alarm", sign: "▲" },
  connecting: { tone: "idle", sign: "◌", title: say("state.connecting") },
  silent: { tone: "off", sign: "?" },
  "not-watching": { tone: "off", sign: "✕", title: say("state.notWatching") },
  partly: { tone: "warn", sign: "◐", title: say("state.partly") },
  watching: { tone: "ok", sign: "✓", title: say("state.watching") },
};

function kindOf({ active, silent, connecting, missing }) {
  if (active) return "alarm";
  if (silent) return "silent";
  if (connecting) return "connecting";
  const stopped = EVENT_NAMES.filter((name) => missing.some(({ stops }) => stops.includes(name)));
  if (stopped.length === EVENT_NAMES.length) return "not-watching";
  return missing.length ? "partly" : "watching";
}

/**
 * @param {object} facts
 * @param {?object} facts.news of the hub, with ages as of now; null before the first
 * @param {?object} [facts.past] of the hub: the history of changes
 * @param {?import("../program/wire.js").Settings} [facts.settings] as the program holds them; null: not known yet;
 *   undefined: who looks on may not read them, then the heartbeat tells what is watched for
 * @param {import("../program/wire.js").Size} facts.size
 * @param {number} [facts.now] milliseconds since 1970 by the camera's clock
 * @returns {{kind: "alarm"|"silent"|"connecting"|"not-watching"|"partly"|"watching", tone: string, sign: string,
 *   title: string, program: string, missing: Gap[], silentSince: ?number, silentWords: string}} an active
 *   event comes first whatever else is wrong; silentSince: since when nothing has been heard, null while it is
 */
export function readiness({ news, past = null, settings, size, now = Date.now() }) {
  const none = { program: "", missing: [], silentSince: null, silentWords: "" };
  if (!news) return { kind: "connecting", ...LOOKS.connecting, ...none };
  const silent = isSilent(news) ? silenceOf(news, now) : null;
  const active = EVENT_NAMES.map((name) => news.events.find((event) => event.name === name)).filter(
    (event) => event?.active,
  );
  const missing = silent
    ? []
    : [
        ...statusGaps(news),
        ...feedGaps(news),
        ...eventGaps(news),
        ...restartGaps(past, now),
        ...(settings === undefined ? watchedGaps(news) : settingsGaps(settings, size)),
      ];
  const kind = kindOf({ active: active.length > 0, silent, connecting: isConnecting(news, settings), missing });
  const state = {
    ...none,
    kind,
    ...LOOKS[kind],
    missing: kind === "connecting" ? [] : missing,
    program: silent ? "" : ownWords(news.status),
    silentSince: silent && (silent.since ?? now),
    silentWords: silent?.clause ?? "",
  };
  if (kind === "alarm") state.title = alarmTitle(active, silent, now) + (silent ? `, ${silent.clause}` : "");
  if (kind === "silent") state.title = silent.title;
  return state;
}
