// When the page is green, and what it says instead.
import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { describe, test } from "node:test";
import { PLACES } from "../../../web/base/facts.js";
import { PACKAGE_FLOOR } from "../../../web/geometry/calibration.js";
import { agedNews, readiness } from "../../../web/watch/readiness.js";
import { ageWords, sceneNow } from "../../../web/watch/scene.js";
import { BED, FALL, OFF, LANDSCAPE as SIZE, SETTINGS, rectangle } from "./fixtures.js";

const BEAT = { cycle: 7, cycle_age_ms: 300, picture_age_ms: 500, ticks_left_out_last_minute: 0, wrong: [] };
const STATUS = { code: 200, text: "AI", executionTime: 200, connected: true };
const NOON = new Date(2026, 2, 1, 19, 25, 45).getTime();
const AT = new Date(2026, 2, 1, 19, 25, 19).toISOString();
/** Where the headings are under which something is mended. */
const VIEWS = Object.fromEntries(Object.values(PLACES).map(({ view, id }) => [id, view]));
const event = (name, active) => ({ name, active, since: active ? AT : null });
const events = (fall, bed) => [event(BED, bed), event(FALL, fall)];
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
const state = (news = {}, settings = {}, past = null, now = NOON) =>
  readiness({
    news: news && { ...NEWS, ...news },
    past,
    settings: settings && { ...SETTINGS, ...settings },
    size: SIZE,
    now,
  });
const beat = (change) => ({ heartbeat: { ...BEAT, ...change } });
const wrong = (what) => beat({ wrong: [{ what, since: AT, text: `The text of ${what}.` }] });
const code = (number) => ({ status: { ...STATUS, code: number } });
/** A camera with less to tell. */
const NINE = { feed: "absent", heartbeat: null, beatAge: null };

test("an installer's demo is green: everything that must be true for it is", () => {
  const { kind, tone, title, missing } = state();
  assert.deepEqual([kind, tone, title, missing], ["watching", "ok", "Watching", []]);
  for (const news of [NINE, { ...NINE, feed: "open" }, { beatAge: 2400, silence: 2400 }]) {
    assert.equal(state(news).kind, "watching", "a camera with less to tell, or a heartbeat of just now");
  }
});

test("the floor that counts as not placed is the package's", async () => {
  const { parameters } = JSON.parse(await readFile(new URL("../../../package/manifest.json", import.meta.url)));
  const value = (name) => Number(parameters.find((parameter) => parameter.name === name).default);
  const floor = [0, 1, 2, 3].map((k) => ({ x: value(`FallCalibration${k}x`), y: value(`FallCalibration${k}y`) }));
  assert.deepEqual(PACKAGE_FLOOR, floor);
});

describe("whatever is missing is told, with the place that mends it, and nothing is green", () => {
  const bed = SETTINGS.beds[0];
  const crossed = { on: true, corners: [0, 2, 1, 3].map((index) => bed.corners[index]) };
  const everywhere = rectangle(true, 0, 0, 100, 100);
  const beds = (...areas) => ({ beds: [...areas, OFF, OFF].slice(0, 3) });
  const exclusions = (...areas) => ({ exclusions: [...areas, OFF, OFF].slice(0, 3) });
  const nudged = PACKAGE_FLOOR.map((point, index) => (index ? point : { ...point, x: point.x + 1 }));

  /** At `place` it is mended; null: nowhere. */
  function check(what, news, settings, kind, place = null) {
    const { kind: found, tone, missing } = state(news, settings);
    assert.deepEqual([found, tone], [kind, kind === "partly" ? "warn" : "off"], what);
    assert.ok(missing.length > 0 && missing.every(({ text }) => /\w.*\.$/.test(text)), what);
    const led = missing.some(({ link }) => (link?.href ?? null) === (place && `${VIEWS[place]}/${place}`));
    assert.ok(led, `${what}: ${JSON.stringify(missing)}`);
    const fallen = state({ ...news, events: events(true, false) }, settings);
    assert.deepEqual([fallen.kind, fallen.tone, fallen.title], ["alarm", "alarm", "Fall detected"], what);
  }

  const settings = {
    "detections-heading": [
      ["falls off", { falls: false }],
      ["out of bed off", { outOfBed: false }],
      ["both off", { falls: false, outOfBed: false }, "not-watching"],
    ],
    "editor-beds": [
      ["no bed", beds()],
      ["no bed, and no falls either", { falls: false, ...beds() }, "not-watching"],
      ["a bed of which two sides cross", beds(crossed)],
      ["a bed over the whole picture", beds(everywhere), "not-watching"],
      ["a bed over the whole picture, and no event of it", { outOfBed: false, ...beds(everywhere) }, "not-watching"],
      ["a second bed over the whole picture", beds(bed, rectangle(true, 2, 2, 98, 98))],
      ["two that cover it", beds(rectangle(true, 0, 0, 50, 100), rectangle(true, 50, 0, 100, 100)), "not-watching"],
    ],
    "editor-exclusions": [
      ["one over the bed", exclusions(bed)],
      ["two that cover the bed", exclusions(rectangle(true, 0, 0, 24, 100), rectangle(true, 24, 0, 45, 60))],
      ["one over everything", exclusions(everywhere), "not-watching"],
      ["one over the floor beside the bed", exclusions(rectangle(true, 38, 0, 86, 100))],
      ["two elsewhere", exclusions(rectangle(true, 72, 0, 100, 100), rectangle(true, 0, 60, 38, 100))],
      ["one of which two sides cross", exclusions(crossed)],
    ],
    "editor-floor": [
      ["the package's floor", { floor: PACKAGE_FLOOR }],
      ["the package's floor, one point moved by a pixel", { floor: nudged }],
      ["the wrong way round", { floor: [...SETTINGS.floor].reverse() }],
      ["metres of 0", { widthM: "0.00" }],
      ["metres of another unit", { widthM: "16", depthM: "12" }],
      ["metres that do not fit the picture", { widthM: "1.6", depthM: "7" }],
    ],
    "sensitivity-heading": [
      ...["0.00", "1.00", "-1.0"].map((sensitivity) => [sensitivity, { sensitivity }, "not-watching"]),
      ...["0.05", "0.95"].map((sensitivity) => [sensitivity, { sensitivity }]),
    ],
  };
  for (const [place, rows] of Object.entries(settings)) {
    test(`settings: ${place}`, () => {
      for (const [what, change, kind = "partly"] of rows) check(what, {}, change, kind, place);
    });
  }

  test("the program", () => {
    for (const number of [100, 300, 401, 50, 999, 201]) check(`status ${number}`, code(number), {}, "not-watching");
    for (const number of [400, 600]) check(`status ${number}`, code(number), {}, "partly");
    const cases = [
      ["settings unknown", {}, null],
      ["no status for a while", { status: { ...STATUS, connected: false }, statusAge: 9000 }],
      ["no status ever", { status: null, statusAge: null }],
      ["a status of long ago", { statusAge: 7000 }],
      ["an event of which nothing is told", { events: events(false, false).slice(0, 1) }],
      ["an event that is not known", { events: events(false, null) }],
      ["a feed that does not open", { ...NINE, feed: "opening" }],
      ["the feed away", { feed: "lost", beatAge: 9000 }],
      ["no heartbeat although the status answers", { beatAge: 3001 }],
    ];
    for (const [what, news, change = {}] of cases) check(what, news, change, "partly");
  });

  test("its heartbeat", () => {
    check("does not tell what is wrong", beat({ wrong: undefined }), {}, "partly");
    check("an old picture", beat({ picture_age_ms: 2200 }), {}, "partly");
    check("ticks left out", beat({ ticks_left_out_last_minute: 1 }), {}, "partly");
    check("no cycle yet", beat({ cycle: 0, cycle_age_ms: null, picture_age_ms: null }), {}, "not-watching");
    check("an old cycle", beat({ cycle_age_ms: 2200 }), {}, "not-watching");
    check("no cycle's age", beat({ cycle_age_ms: undefined }), {}, "not-watching");
    const blind = ["picture-frozen", "too-dark", "lens-covered", "out-of-focus"];
    for (const what of ["camera-away", "analysis-stands-still", ...blind]) {
      check(what, wrong(what), {}, "not-watching");
    }
    check("camera-moved", wrong("camera-moved"), {}, "not-watching", "editor-floor");
    for (const what of ["alarms-not-recorded", "something-new"]) check(what, wrong(what), {}, "partly");
    assert.match(state(wrong("lens-away")).missing[0].text, /The text of lens-away/);
  });

  test("an event that a restart has ended, for a while", () => {
    const after = (closed_at_start, now) =>
      state({}, {}, { history: [event(FALL, true), { ...event(FALL, false), time: AT, closed_at_start }] }, now);
    assert.equal(after(true, NOON).kind, "partly");
    assert.match(after(true, NOON).missing[0].text, /look into the room/);
    assert.equal(after(undefined, NOON).kind, "watching", "it ended by itself");
    assert.equal(after(true, NOON + 700000).kind, "watching", "watched for long enough");
  });
});

test("who may not read the settings is told by the heartbeat what is watched for", () => {
  const told = (watched) => readiness({ news: { ...NEWS, ...beat({ watched }) }, size: SIZE, now: NOON });
  const all = { falls: true, exits: true, beds: 1 };
  assert.deepEqual([told(all).kind, told(all).missing], ["watching", []]);
  const cases = [
    [{ ...all, falls: false }, "partly", /Fall detected/],
    [{ ...all, beds: 0 }, "partly", /No bed area/],
    [{ falls: false, exits: false, beds: 1 }, "not-watching", /Fall detected/],
    [{ falls: null, exits: null, beds: null }, "partly", /not known/],
    [undefined, "partly", /not known/],
  ];
  for (const [watched, kind, words] of cases) {
    const { kind: found, missing } = told(watched);
    assert.equal(found, kind, JSON.stringify(watched));
    assert.match(missing[0].text, words);
  }
});

describe("what was known stays when nothing is heard any more", () => {
  const away = { ...STATUS, connected: false };
  const cut = { status: away, statusAge: 5000, feed: "lost", beatAge: 5000, silence: 5000 };
  const frozen = { statusAge: 5000, beatAge: 5000, silence: 5000 };
  const told = (...facts) => {
    const { kind, title } = state(...facts);
    return `${kind}: ${title}`;
  };

  test("an alarm in red, with when it began and since when nothing is heard", () => {
    const both = "alarm: Fall detected at 19:25:19, Patient out of bed at 19:25:19, connection lost since 19:25:40";
    assert.equal(told({ ...cut, events: events(true, true) }), both);
    const stopped = "alarm: Fall detected at 19:25:19, no sign of life since 19:25:40";
    assert.equal(told({ ...frozen, events: events(true, false) }), stopped);
  });

  test("without an alarm it says so, and a newer heartbeat ends it", () => {
    assert.equal(told(cut), "silent: No connection since 19:25:40");
    assert.equal(told(frozen), "silent: No sign of life since 19:25:40");
    assert.equal(state({ ...frozen, beatAge: 0, silence: 0 }).kind, "watching", "the status may be late");
    assert.equal(state({ status: away, statusAge: 9000 }).silentSince, null, "the feed lives");
    assert.equal(state(agedNews(NEWS, 2600)).kind, "silent", "the tab hears nothing from its hub");
    assert.equal(state({ ...NINE, silence: 5000, statusAge: 5000 }).kind, "watching");
    assert.equal(state({ ...NINE, silence: 7000, statusAge: 7000 }).kind, "silent");
  });

  test("nothing is claimed before first answers, but an alarm is told at once", () => {
    const first = { ...NINE, age: 300, feed: "opening", statusAge: 100 };
    const never = { ...NINE, silence: null, status: null, statusAge: null };
    assert.equal(state(null).kind, "connecting");
    assert.equal(state({ ...first, ...never, feed: "opening" }).kind, "connecting");
    assert.equal(state(first).kind, "connecting");
    assert.equal(state({ age: 300 }, null).kind, "connecting");
    assert.equal(state({ ...first, events: events(true, null) }).kind, "alarm");
    const refused = { ...never, feed: "lost", heardTime: null, status: { ...away, code: null } };
    assert.equal(told(refused), "silent: No connection");
  });
});

test("what was seen counts as seen now only while pictures are analysed and the sentences are of just now", () => {
  const at = (age) => ({ time: age === null ? null : new Date(NOON - age).toISOString(), people: [], beds: [] });
  const shown = (news, age = 1000) => sceneNow(at(age), news && { ...NEWS, ...news }, NOON) !== null;
  assert.deepEqual(
    [0, 14900, 15100, null].map((age) => shown({}, age)),
    [true, true, false, false],
  );
  assert.deepEqual(
    [3900, 4100].map((age) => ageWords(at(age).time, NOON)),
    ["", "4 seconds ago:"],
  );
  assert.deepEqual([sceneNow(null, NEWS, NOON), shown(wrong("lens-away"))], [null, true]);
  assert.equal(shown(beat({ picture_age_ms: 9000 }), 9000), true, "a slow machine");
  const blind = [wrong("camera-away"), wrong("analysis-stands-still"), beat({ cycle: 0, picture_age_ms: null })];
  const old = [{ beatAge: 3100 }, { feed: "lost" }, NINE, beat({ wrong: undefined }), null];
  for (const news of [...blind, ...old]) assert.equal(shown(news), false, JSON.stringify(news));
});
