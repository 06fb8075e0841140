/**
 * Whether somebody is being watched: one pure function from everything that is known to the state that the page shows.
 * Green needs every condition to be true; whatever is wrong, or not known, has a text and a place that mends it.
 */
import { BED, CODE, EVENT_NAMES, FALL, FRESH_MS, PLACES, TROUBLE, VIEW, areaName } from "../base/facts.js";
import { NO_BED_AREA, clockTime, durationInWords } from "../base/words.js";
import { floorPlacementProblem, floorProblem, floorWarning, isFloorPlaced } from "../geometry/calibration.js";
import { areaProblem, contains } from "../geometry/plane.js";
import { decimal } from "../settings/review.js";

/** A camera without heartbeats is heard of by its status only, which may take a cycle and a time limit to answer. */
const STATUS_FRESH_MS = 6500;
/** How long first answers are awaited; an open feed without a heartbeat then is one of an older camera. */
const FIRST_ANSWERS_MS = 5000;

const ALARMS = { [FALL]: "Fall detected", [BED]: "Patient out of bed" };

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
  const link = place && { href: `${VIEW.setup}/${PLACES[place].id}`, text: `Set up: ${PLACES[place].name}` };
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
    return "it covers nearly the whole picture, so whoever is in the room counts as being in bed, also on the floor.";
  }
  return null;
}

/** A bed counts before an exclusion area: who lies in it is seen, and who lies on the floor around it is not. */
function coveredBedGaps({ beds }, exclusions) {
  return beds.flatMap((bed, index) => {
    if (!bed.on) return [];
    const inside = GRID.filter((point) => contains(bed.corners, point));
    if (shareCovered(inside, exclusions) <= MOST_OF_BED) return [];
    return [gap(`Exclusion areas cover bed area ${index + 1}: a fall at that bed is not seen.`, "exclusions")];
  });
}

function bedGaps({ beds, outOfBed }, size) {
  const active = beds.map((bed, index) => ({ bed, name: areaName("beds", index) })).filter(({ bed }) => bed.on);
  if (outOfBed && !active.length) return [gap(NO_BED_AREA, "beds", [BED])];
  const bad = active
    .map(({ bed, name }) => ({ bed, name, problem: bedProblem(bed, size) }))
    .filter(({ problem }) => problem);
  const stops = bad.length === active.length ? [BED] : [];
  const hides = (bed) => (coverPicture(bed) ? [FALL] : []);
  if (!bad.length && coverPicture(...active.map(({ bed }) => bed))) {
    return [
      gap("The bed areas cover nearly the whole picture: who lies on the floor counts as in bed.", "beds", EVENT_NAMES),
    ];
  }
  return [
    ...(outOfBed ? [] : [gap(`“${BED}” is switched off.`, "events", [BED])]),
    ...bad.map(({ bed, name, problem }) => gap(`${name} does not work: ${problem}`, "beds", [...stops, ...hides(bed)])),
  ];
}

/** Who falls in an exclusion area is not seen, so it must not lie over the floor on which somebody may fall. */
function exclusionGaps(exclusions, floor, size) {
  const broken = exclusions
    .map((area, index) => ({ problem: areaProblem(area, size), name: areaName("exclusions", index) }))
    .filter(({ problem }) => problem)
    .map(({ name, problem }) => gap(`${name} does not work: ${problem}`, "exclusions"));
  const share = shareCovered(GRID, exclusions);
  if (share > NEARLY_ALL) {
    return [...broken, gap("Exclusion areas cover the picture: nobody is seen.", "exclusions", EVENT_NAMES)];
  }
  const corners = floor.map(({ x, y }) => ({ x: (100 * x) / size.width, y: (100 * y) / size.height }));
  const measured = GRID.filter((point) => contains(corners, point));
  if (shareCovered(measured, exclusions) > HALF) {
    const text = "Exclusion areas cover most of the measured floor: a fall there is not seen.";
    return [...broken, gap(text, "exclusions", [FALL])];
  }
  if (share <= THIRD) return broken;
  return [...broken, gap("Exclusion areas cover a large part of the picture: nobody is seen there.", "exclusions")];
}

function sensitivityGaps({ sensitivity }) {
  const value = decimal(sensitivity);
  if (value === null) return [gap("The score that a person must reach is no number.", "sensitivity", EVENT_NAMES)];
  if (value >= 1)
    return [gap("No person can reach the score that is set, so nobody is seen.", "sensitivity", EVENT_NAMES)];
  if (value <= 0) {
    return [gap("The score that a person must reach is 0: anything counts as a person.", "sensitivity", EVENT_NAMES)];
  }
  if (value >= SENSIBLE.min && value <= SENSIBLE.max) return [];
  const words = value < SENSIBLE.min ? "low: other things may count as people" : "high: people may not be seen";
  return [gap(`The score that a person must reach is very ${words}.`, "sensitivity")];
}

function floorGaps({ falls, floor, widthM, depthM }, size) {
  if (!falls) return [gap(`“${FALL}” is switched off.`, "events", [FALL])];
  const [width, depth] = [widthM, depthM].map(decimal);
  if (!(width > 0 && depth > 0)) return [gap("The floor rectangle's metres must be above 0.", "floor", [FALL])];
  const problem = floorProblem(floor, widthM, depthM) ?? floorPlacementProblem(floor, size);
  if (problem) return [gap(problem, "floor", [FALL])];
  if (!isFloorPlaced(floor)) {
    return [gap("The floor points are still where the package puts them: nobody has placed them.", "floor", [FALL])];
  }
  if ([width, depth].some((side) => side < USUAL_SIDE.min || side > USUAL_SIDE.max)) {
    return [gap(`A floor rectangle of ${width} by ${depth} metres is unusual: measure again.`, "floor")];
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
  if (!settings) return [gap("The settings are not known, so it is not known what is watched for.")];
  const exclusions = settings.exclusions.filter(({ on }) => on);
  return [
    ...floorGaps(settings, size),
    ...bedGaps(settings, size),
    ...coveredBedGaps(settings, exclusions),
    ...sensitivityGaps(settings),
    ...exclusionGaps(exclusions, settings.floor, size),
  ];
}

// ---- The program

function codeGaps({ code, text }) {
  if ([CODE.watching, CODE.outOfBed, CODE.fall].includes(code)) return [];
  if (code === CODE.slow) return [gap("Slow: pictures take longer than they should, events may come late.")];
  if (code === CODE.dataError) return [gap("Settings were refused in part (data error).")];
  if (code === CODE.starting) return [gap("The program is starting.", null, EVENT_NAMES)];
  if (code === CODE.stopped) return [gap("The program has stopped.", null, EVENT_NAMES)];
  return [gap(`The program reports “${text || "an error"}” (${code}).`, null, EVENT_NAMES)];
}

function statusGaps({ status, statusAge }) {
  if (status?.connected && statusAge <= STATUS_FRESH_MS) return codeGaps(status);
  if (statusAge === null) return [gap("The program's status is not known.")];
  return [gap(`The program's status has not been answered for ${durationInWords(statusAge)}.`)];
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
  if (!Array.isArray(heartbeat.wrong)) return [gap("The camera does not tell what is wrong.")];
  const has = (what) => heartbeat.wrong.some((entry) => entry.what === what);
  const gaps = heartbeat.wrong.map(({ what, text }) =>
    gap(text || what, MENDED[what] ?? null, BLIND.includes(what) ? EVENT_NAMES : []),
  );
  const [cycle, picture] = [heartbeat.cycle_age_ms, heartbeat.picture_age_ms].map((age) => age + beatAge);
  if (!heartbeat.cycle) gaps.push(gap("No picture has been analysed yet.", null, EVENT_NAMES));
  else if (!(cycle <= FRESH_MS) && !has(TROUBLE.standsStill)) {
    gaps.push(gap(`No picture has been analysed for ${durationInWords(cycle)}.`, null, EVENT_NAMES));
  } else if (!(picture <= FRESH_MS)) gaps.push(gap(`The picture analysed last is ${durationInWords(picture)} old.`));
  if (heartbeat.ticks_left_out_last_minute > 0 && !has(TROUBLE.ticksLeftOut)) {
    gaps.push(gap(`${heartbeat.ticks_left_out_last_minute} pictures of the last minute were left out.`));
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

const LIMITED = "The feed of events is away: they are known only through the status, which shows one at a time.";

function feedGaps(news) {
  if (news.feed === "lost" || news.feed === "opening") return [gap(LIMITED)];
  if (!news.heartbeat || news.feed === "absent") return [];
  return news.beatAge > FRESH_MS ? [gap(LIMITED)] : heartbeatGaps(news);
}

function eventGaps({ events }) {
  const unknown = EVENT_NAMES.filter(
    (name) => typeof events.find((event) => event.name === name)?.active !== "boolean",
  );
  return unknown.map((name) => gap(`Whether “${name}” is active is not known.`));
}

/** An event that a restart ended may be going on. */
function restartGaps(past, now) {
  return EVENT_NAMES.flatMap((name) => {
    const last = past?.history?.findLast((change) => change.name === name);
    if (!last?.closed_at_start || now - Date.parse(last.time) > DOUBT_MS) return [];
    const at = clockTime(new Date(last.time), new Date(now));
    return [
      gap(`“${name}” was active when the program stopped, and again it watches since ${at}: look into the room.`),
    ];
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
  return !settings || statusAge === null || feed === "opening" || (feed === "open" && !heartbeat);
}

/** "Fall detected, patient out of bed"; without a connection when each began, too. */
function alarmTitle(active, silent, now) {
  const words = active.map(({ name, since }) => {
    const began = silent && since ? ` at ${clockTime(new Date(since), new Date(now))}` : "";
    return `${ALARMS[name] ?? name}${began}`;
  });
  return words.map((text, index) => (index ? text[0].toLowerCase() + text.slice(1) : text)).join(", ");
}

/** "Program: AI (200), 312 ms a picture": the program's own words and its last cycle's time. */
function ownWords(status) {
  if (!status?.connected) return "";
  const { code, text, executionTime } = status;
  const time = Number.isFinite(executionTime) ? `, ${executionTime} ms for the last picture` : "";
  return `Program: “${text || "no text"}” (${code})${time}`;
}

/** What nobody hears of the program means, since when, in words. */
function silenceOf(news, now) {
  const since = news.heardTime;
  const lost = news.status?.connected === false;
  const at = since === null ? "" : ` since ${clockTime(new Date(since), new Date(now))}`;
  const [title, clause] = lost ? ["No connection", "connection lost"] : ["No sign of life", "no sign of life"];
  return { since, title: title + at, clause: clause + at };
}

const LOOKS = {
  alarm: { tone: "alarm", sign: "▲" },
  connecting: { tone: "idle", sign: "◌", title: "Connecting" },
  silent: { tone: "off", sign: "?" },
  "not-watching": { tone: "off", sign: "✕", title: "Not watching" },
  partly: { tone: "warn", sign: "◐", title: "Partly armed" },
  watching: { tone: "ok", sign: "✓", title: "Watching" },
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
 * @param {?import("../program/wire.js").Settings} facts.settings as the program holds them; null: not known
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
        ...settingsGaps(settings, size),
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
