// When the page is green, and what it says instead.
import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { describe, test } from "node:test";
import { PACKAGE_FLOOR, agedNews, readiness } from "../../../web/watch/readiness.js";
import { nearestPercent } from "../../../web/program/wire.js";

const SIZE = { width: 1280, height: 720 };
const FALL = "Fall Detected";
const BED = "Patient Out of Bed";
const json = async (path) => JSON.parse(await readFile(new URL(`../../../${path}`, import.meta.url)));
const manifest = new Map(
  (await json("package/manifest.json")).parameters.map(({ name, default: value }) => [name, value]),
);
const demo = (await json("simulator/demo/demo.settings.json")).parameters;

/** Stored parameters as the page reads them. */
function settingsOf(parameters) {
  const value = (name) => parameters[name] ?? manifest.get(name);
  const area = (name) => ({
    on: value(`${name}Active`) === "true",
    corners: [0, 1, 2, 3].map((k) => ({
      x: nearestPercent(Number(value(`${name}${k}x`)), SIZE.width),
      y: nearestPercent(Number(value(`${name}${k}y`)), SIZE.height),
    })),
  });
  return {
    sensitivity: value("Sensitivity"),
    outOfBed: value("DetectPatientOutOfBed") === "true",
    falls: value("DetectFallenPersons") === "true",
    beds: [1, 2, 3].map((n) => area(`Detection${n}`)),
    exclusions: [1, 2, 3].map((n) => area(`Exclusion${n}`)),
    floor: [0, 1, 2, 3].map((k) => ({
      x: Number(value(`FallCalibration${k}x`)),
      y: Number(value(`FallCalibration${k}y`)),
    })),
    widthM: value("WRectM"),
    depthM: value("HRectM"),
  };
}

const SETTINGS = settingsOf({ ...demo, WRectM: "1.60", HRectM: "1.20" });
const BEAT = {
  cycle: 7,
  cycle_age_ms: 300,
  cycle_ms: 200,
  picture_age_ms: 500,
  period_ms: 500,
  ticks_left_out: 0,
  ticks_left_out_last_minute: 0,
  slowdown: 1,
  wrong: [],
};
const STATUS = { code: 200, text: "AI", executionTime: 200, connected: true };
const NOON = new Date(2026, 2, 1, 19, 25, 45).getTime();
const AT = new Date(2026, 2, 1, 19, 25, 19).toISOString();
const events = (fall, bed) => [
  { name: BED, active: bed, since: bed ? AT : null },
  { name: FALL, active: fall, since: fall ? AT : null },
];
const NEWS = {
  status: STATUS,
  statusAge: 500,
  feed: "open",
  heartbeat: BEAT,
  beatAge: 900,
  silence: 500,
  heardTime: NOON - 5000,
  age: 60000,
  events: events(false, false),
  offset: 0,
};
const state = (news = {}, settings = {}) =>
  readiness({
    news: news && { ...NEWS, ...news },
    settings: settings && { ...SETTINGS, ...settings },
    size: SIZE,
    now: NOON,
  });
test("an event that a restart has ended keeps the page from green for a while", () => {
  const after = (name, closed_at_start, now) =>
    readiness({
      news: NEWS,
      past: {
        history: [
          { name: FALL, active: true, time: AT },
          { name, active: false, time: AT, closed_at_start },
        ],
      },
      settings: SETTINGS,
      size: SIZE,
      now,
    });
  assert.equal(after(FALL, true, NOON).kind, "partly");
  assert.match(after(FALL, true, NOON).missing[0].text, /look into the room/);
  assert.equal(after(FALL, undefined, NOON).kind, "watching", "it ended by itself");
  assert.equal(after(FALL, true, NOON + 700000).kind, "watching", "watched for long enough");
});

const beat = (change) => ({ heartbeat: { ...BEAT, ...change } });
const wrong = (what) => beat({ wrong: [{ what, since: AT, text: `The text of ${what}.` }] });
const rectangle = (on, left, top, right, bottom) => ({
  on,
  corners: [
    [left, top],
    [right, top],
    [right, bottom],
    [left, bottom],
  ].map(([x, y]) => ({ x, y })),
});

test("an installer's demo is green: everything that must be true for it is", () => {
  const { kind, tone, title, missing } = state();
  assert.deepEqual([kind, tone, title, missing], ["watching", "ok", "Watching", []]);
  for (const news of [
    { feed: "absent", heartbeat: null, beatAge: null },
    { heartbeat: null, beatAge: null },
    { beatAge: 2400, silence: 2400 },
  ]) {
    assert.equal(state(news).kind, "watching", "a camera with less to tell, or a heartbeat of just now");
  }
});

test("the floor that counts as not placed is the package's", () => {
  assert.deepEqual(PACKAGE_FLOOR, settingsOf({}).floor);
  assert.equal(state({}, settingsOf({})).kind, "not-watching", "a camera that nobody has set up");
});

describe("whatever is missing is told, with the place that mends it, and nothing is green", () => {
  const off = rectangle(false, 0, 0, 1, 1);
  const bed = SETTINGS.beds[0];
  const crossed = { on: true, corners: [0, 2, 1, 3].map((index) => bed.corners[index]) };
  const bedOnly = { falls: false };
  const cases = [
    ["falls off", {}, { falls: false }, "partly", "detections-heading"],
    ["out of bed off", {}, { outOfBed: false }, "partly", "detections-heading"],
    ["both off", {}, { falls: false, outOfBed: false }, "not-watching", "detections-heading"],
    ["no bed", {}, { beds: [off, off, off] }, "partly", "editor-beds"],
    ["no bed, and no falls either", {}, { ...bedOnly, beds: [off, off, off] }, "not-watching", "editor-beds"],
    ["a bed of which two sides cross", {}, { beds: [crossed, off, off] }, "partly", "editor-beds"],
    [
      "a bed over the whole picture",
      {},
      { beds: [rectangle(true, 0, 0, 100, 100), off, off] },
      "not-watching",
      "editor-beds",
    ],
    [
      "a bed over the whole picture, and no event of it",
      {},
      { outOfBed: false, beds: [rectangle(true, 0, 0, 100, 100), off, off] },
      "not-watching",
      "editor-beds",
    ],
    [
      "a second bed over the whole picture",
      {},
      { beds: [bed, rectangle(true, 2, 2, 98, 98), off] },
      "partly",
      "editor-beds",
    ],
    [
      "an exclusion over the bed",
      {},
      { exclusions: [{ on: true, corners: bed.corners }, off, off] },
      "partly",
      "editor-exclusions",
    ],
    [
      "two exclusions that cover the bed",
      {},
      { exclusions: [rectangle(true, 0, 0, 24, 100), rectangle(true, 24, 0, 45, 60), off] },
      "partly",
      "editor-exclusions",
    ],
    [
      "an exclusion over everything",
      {},
      { exclusions: [rectangle(true, 0, 0, 100, 100), off, off] },
      "not-watching",
      "editor-exclusions",
    ],
    [
      "an exclusion over the floor beside the bed",
      {},
      { exclusions: [rectangle(true, 38, 0, 86, 100), off, off] },
      "partly",
      "editor-exclusions",
    ],
    ["an exclusion of which two sides cross", {}, { exclusions: [crossed, off, off] }, "partly", "editor-exclusions"],
    [
      "two beds that cover the picture together",
      {},
      { beds: [rectangle(true, 0, 0, 50, 100), rectangle(true, 50, 0, 100, 100), off] },
      "not-watching",
      "editor-beds",
    ],
    ["metres of another unit", {}, { widthM: "16", depthM: "12" }, "partly", "editor-floor"],
    ["metres that do not fit the picture", {}, { widthM: "1.6", depthM: "7" }, "partly", "editor-floor"],
    [
      "the package's floor, one point moved by a pixel",
      {},
      { floor: PACKAGE_FLOOR.map((point, index) => (index ? point : { ...point, x: point.x + 1 })) },
      "partly",
      "editor-floor",
    ],
    ["sensitivity 0", {}, { sensitivity: "0.00" }, "not-watching", "sensitivity-heading"],
    ["sensitivity 1", {}, { sensitivity: "1.00" }, "not-watching", "sensitivity-heading"],
    ["sensitivity -1", {}, { sensitivity: "-1.0" }, "not-watching", "sensitivity-heading"],
    ["sensitivity hardly sensible", {}, { sensitivity: "0.95" }, "partly", "sensitivity-heading"],
    ["the package's floor", {}, { floor: PACKAGE_FLOOR }, "partly", "editor-floor"],
    ["metres of 0", {}, { widthM: "0.00" }, "partly", "editor-floor"],
    ["a floor the wrong way round", {}, { floor: [...SETTINGS.floor].reverse() }, "partly", "editor-floor"],
    ["settings unknown", {}, null, "partly"],
    ...[100, 300, 401, 407, 50, 999, 201].map((code) => [
      `status ${code}`,
      { status: { ...STATUS, code } },
      {},
      "not-watching",
    ]),
    ...[400, 600].map((code) => [`status ${code}`, { status: { ...STATUS, code } }, {}, "partly"]),
    ["no status for a while", { status: { ...STATUS, connected: false }, statusAge: 9000 }, {}, "partly"],
    ["no status ever", { status: null, statusAge: null }, {}, "partly"],
    ["a status of long ago", { statusAge: 7000 }, {}, "partly"],
    ["an event of which nothing is told", { events: events(false, false).slice(0, 1) }, {}, "partly"],
    ["an event that is not known", { events: events(false, null) }, {}, "partly"],
    ["a feed that does not open", { feed: "opening", heartbeat: null, beatAge: null }, {}, "partly"],
    ["a heartbeat that does not tell what is wrong", beat({ wrong: undefined }), {}, "partly"],
    ["an old picture", beat({ picture_age_ms: 2200 }), {}, "partly"],
    ["the feed away", { feed: "lost", beatAge: 9000 }, {}, "partly"],
    ["no heartbeat although the status answers", { beatAge: 3001 }, {}, "partly"],
    ["no cycle yet", beat({ cycle: 0, cycle_age_ms: null, picture_age_ms: null }), {}, "not-watching"],
    ["an old cycle", beat({ cycle_age_ms: 2200 }), {}, "not-watching"],
    ["a heartbeat without a cycle's age", beat({ cycle_age_ms: undefined }), {}, "not-watching"],
    ["ticks left out", beat({ ticks_left_out_last_minute: 1 }), {}, "partly"],
    ...["camera-away", "analysis-stands-still"].map((what) => [what, wrong(what), {}, "not-watching"]),
    ...["alarms-not-recorded", "ticks-left-out", "lens-away", "something-new"].map((what) => [
      what,
      wrong(what),
      {},
      "partly",
    ]),
  ];
  for (const [what, news, settings, kind, place] of cases) {
    test(what, () => {
      const { kind: found, tone, missing } = state(news, settings);
      assert.equal(found, kind);
      assert.equal(tone, kind === "partly" ? "warn" : "off");
      assert.ok(missing.length > 0 && missing.every(({ text }) => /\w.*\.$/.test(text)), JSON.stringify(missing));
      assert.ok(
        missing.some(({ link }) => link?.href === (place && `#setup/${place}`)),
        JSON.stringify(missing),
      );
      const fallen = state({ ...news, events: events(true, false) }, settings);
      assert.deepEqual(
        [fallen.kind, fallen.tone, fallen.title],
        ["alarm", "alarm", "Fall detected"],
        "an alarm stays foremost",
      );
    });
  }

  test("every trouble of the camera's is told in its own words", () => {
    assert.match(state(wrong("alarms-not-recorded")).missing[0].text, /The text of alarms-not-recorded/);
  });
});

describe("what was known stays when nothing is heard any more", () => {
  const cut = { status: { ...STATUS, connected: false }, statusAge: 5000, feed: "lost", beatAge: 5000, silence: 5000 };
  const frozen = { statusAge: 5000, beatAge: 5000, silence: 5000 };

  test("an alarm in red, with when it began and since when nothing is heard", () => {
    const both = state({ ...cut, events: events(true, true) });
    assert.deepEqual(
      [both.tone, both.title],
      ["alarm", "Fall detected at 19:25:19, patient out of bed at 19:25:19, connection lost since 19:25:40"],
    );
    const stopped = state({ ...frozen, events: events(true, false) });
    assert.deepEqual(
      [stopped.tone, stopped.title],
      ["alarm", "Fall detected at 19:25:19, no sign of life since 19:25:40"],
    );
  });

  test("without an alarm it says so, and a newer heartbeat ends it", () => {
    assert.deepEqual([state(cut).kind, state(cut).title], ["silent", "No connection since 19:25:40"]);
    assert.deepEqual([state(frozen).kind, state(frozen).title], ["silent", "No sign of life since 19:25:40"]);
    assert.equal(state({ ...frozen, beatAge: 0, silence: 0 }).kind, "watching", "the status may be late");
    assert.equal(
      state({ status: { ...STATUS, connected: false }, statusAge: 9000 }).silentSince,
      null,
      "the feed lives",
    );
    assert.equal(state(agedNews(NEWS, 2600)).kind, "silent", "the tab hears nothing from its hub");
    const nine = { feed: "absent", heartbeat: null, beatAge: null };
    assert.equal(state({ ...nine, silence: 5000, statusAge: 5000 }).kind, "watching");
    assert.equal(state({ ...nine, silence: 7000, statusAge: 7000 }).kind, "silent");
  });

  test("nothing is claimed before first answers, but an alarm is told at once", () => {
    const first = { age: 300, feed: "opening", heartbeat: null, beatAge: null, statusAge: 100 };
    assert.equal(state(null).kind, "connecting");
    assert.equal(state({ ...first, silence: null, status: null, statusAge: null }).kind, "connecting");
    assert.equal(state(first).kind, "connecting");
    assert.equal(state({ age: 300 }, null).kind, "connecting");
    assert.equal(state({ ...first, events: events(true, null) }).kind, "alarm");
    const never = {
      status: { ...STATUS, code: null, connected: false },
      statusAge: null,
      silence: null,
      heardTime: null,
      feed: "lost",
    };
    assert.deepEqual(
      [state({ ...never, heartbeat: null }).kind, state({ ...never, heartbeat: null }).title],
      ["silent", "No connection"],
    );
  });
});
