// What the page says and keeps around the picture: states, times, the timeline, the checks before saving, the draft.
import assert from "node:assert/strict";
import { beforeEach, describe, test } from "node:test";
import { SettingsDraft } from "../../../web/draft.js";
import { reviewSettings } from "../../../web/review.js";
import { activeTimes } from "../../../web/timeline.js";
import { watchedSize } from "../../../web/watch.js";
import { clockTime, describeState, durationInWords, whyNever } from "../../../web/words.js";
import { encodeSettings } from "../../../web/wire.js";

const SIZE = { width: 1280, height: 720 };
const FALL = "Fall Detected";
const BED = "Patient Out of Bed";
const AREA = [10, 10, 40, 10, 40, 60, 10, 60];
const area = (on, [...numbers] = AREA) => ({
  on,
  corners: [0, 2, 4, 6].map((index) => ({ x: numbers[index], y: numbers[index + 1] })),
});
const SETTINGS = {
  sensitivity: "0.38",
  outOfBed: true,
  falls: true,
  stakes: false,
  overlayOn: true,
  anonymisedOn: false,
  overlaySize: "1280x720",
  anonymisedSize: "640x360",
  sizes: ["640x360", "800x450", "1280x720", "1920x1080"],
  beds: [area(true), area(false), area(false)],
  exclusions: [area(false), area(false), area(false)],
  floor: [
    { x: 479, y: 381 },
    { x: 665, y: 381 },
    { x: 679, y: 591 },
    { x: 385, y: 591 },
  ],
  widthM: "1.50",
  depthM: "2.00",
  problems: [],
};

test("the state tells active events first, then what else is wrong", () => {
  const events = (...active) => [BED, FALL].map((name) => ({ name, active: active.includes(name) }));
  const cases = [
    [null, [], "idle", "Connecting"],
    [{ connected: false, code: 502 }, events(BED), "warn", "No connection"],
    [{ code: 100 }, events(), "idle", "Starting"],
    [{ code: 200 }, events(), "ok", "Watching"],
    [{ code: 200 }, events(FALL), "alarm", "Fall detected"],
    [{ code: 502 }, events(BED, FALL), "alarm", "Fall detected, patient out of bed"],
    [{ code: 502 }, events(), "alarm", "Patient out of bed"],
    [{ code: 503 }, [], "alarm", "Fall detected"],
    [{ code: 600 }, events(), "warn", "Slow"],
    [{ code: 600 }, events(FALL), "alarm", "Fall detected", /^Slow/],
    [{ code: 401, text: "AI error" }, events(), "alarm", "AI error", /Nobody is being watched/],
    [{ code: 400, text: "Data error" }, events(), "warn", "Data error"],
    [{ code: 50, text: "Unknown status" }, events(), "warn", "Unknown status"],
  ];
  for (const [status, known, tone, title, more = /^/] of cases) {
    const state = describeState(status && { connected: true, text: "", executionTime: 300, ...status }, known);
    assert.deepEqual([state.tone, state.title], [tone, title]);
    assert.match(state.more, more);
  }
});

test("durations are told in their two largest units, clock times with another day in front", () => {
  const cases = [
    [-5, "0 seconds"],
    [999, "0 seconds"],
    [1000, "1 second"],
    [125999, "2 minutes 5 seconds"],
    [120000, "2 minutes"],
    [3600000, "1 hour"],
    [3601000, "1 hour"],
    [4320000, "1 hour 12 minutes"],
    [90000000, "1 day 1 hour"],
  ];
  for (const [milliseconds, words] of cases) assert.equal(durationInWords(milliseconds), words);
  const noon = new Date(2026, 4, 7, 12, 3, 9);
  assert.equal(clockTime(noon, new Date(2026, 4, 7, 23, 0, 0)), "12:03:09");
  assert.equal(clockTime(noon, new Date(2026, 4, 8, 0, 0, 0)), "7 May 12:03:09");
});

test("an event that cannot begin says why", () => {
  assert.equal(whyNever(BED, SETTINGS), null);
  assert.match(whyNever(BED, { ...SETTINGS, beds: [area(false)] }), /No bed area/);
  assert.match(whyNever(BED, { ...SETTINGS, outOfBed: false }), /Switched off/);
  assert.match(whyNever(FALL, { ...SETTINGS, falls: false }), /Switched off/);
});

test("the stream watched: overlay, else the application's own, else the largest offered", () => {
  const sizes = ["640x360", "1920x1080", "1280x720"];
  assert.equal(watchedSize(SETTINGS), "1280x720");
  assert.equal(watchedSize({ ...SETTINGS, overlayOn: false }), "800x450");
  assert.equal(watchedSize({ ...SETTINGS, overlaySize: "<b>" }), "800x450");
  assert.equal(watchedSize({ ...SETTINGS, overlayOn: false, sizes }), "1920x1080");
  assert.equal(watchedSize({ ...SETTINGS, sizes: [] }), null);
});

describe("the timeline", () => {
  const at = (second) => new Date(second * 1000).toISOString();
  const change = (second, active, name = FALL) => ({ name, active, time: at(second) });
  const seconds = (history, since, from, now) =>
    activeTimes(history, [{ name: FALL, active: since !== null, since }], FALL, from * 1000, now * 1000).map((time) => [
      time.from / 1000,
      time.to === null ? "now" : time.to / 1000,
      time.known,
    ]);

  test("pairs an event's changes and clips them to the hours shown", () => {
    const cases = [
      ["nothing", [], null, []],
      ["a pair", [change(20, true), change(30, false)], null, [[20, 30, true]]],
      ["another event's", [change(20, true, BED), change(30, false, BED)], null, []],
      ["an end whose beginning is forgotten", [change(30, false)], null, [[10, 30, false]]],
      ["still active", [change(20, true)], at(20), [[20, "now", true]]],
      ["active for longer than the history", [], at(2), [[10, "now", false]]],
      ["before the hours shown", [change(2, true), change(9, false)], null, []],
      ["into the hours shown", [change(2, true), change(15, false)], null, [[10, 15, false]]],
      [
        "told twice",
        [change(20, true), change(22, true), change(30, false), change(31, false)],
        null,
        [[20, 30, true]],
      ],
    ];
    for (const [what, history, since, expected] of cases) {
      assert.deepEqual(seconds(history, since, 10, 100), expected, what);
    }
  });
});

describe("the checks before saving", () => {
  const check = (change) => reviewSettings({ ...SETTINGS, ...change }, SIZE);
  const crossed = area(true, [10, 10, 40, 60, 40, 10, 10, 60]);

  test("nothing is said of good settings", () => {
    assert.deepEqual(check({}), { refusals: [], warnings: [] });
  });

  test("what would stop the next start, or is no number to the program, is refused", () => {
    for (const sensitivity of ["", "abc", "nan", "inf", "-0.1", "1.01", "1e-1", "0x1", "0,4"]) {
      assert.equal(check({ sensitivity }).refusals.length, 1, sensitivity);
    }
    for (const metres of ["", "0", "-1", "nan", "inf", "0.05", "100.1", "1e1", "1,5"]) {
      assert.match(check({ widthM: metres }).refusals.join(), /width/, metres);
      assert.match(check({ depthM: metres }).refusals.join(), /depth/, metres);
    }
    assert.equal(check({ floor: SETTINGS.floor.map(() => ({ x: 9, y: 9 })) }).refusals.length, 1);
    for (const sensitivity of ["0", "1", "1.00", ".5", " 0.4 "]) assert.deepEqual(check({ sensitivity }).refusals, []);
  });

  test("what will not work is told, for what is switched on only", () => {
    const cases = [
      [{ beds: [crossed, area(false), area(false)] }, /^Bed area 1 will not work/],
      [{ exclusions: [area(false), area(false), crossed] }, /^Exclusion area 3 will not work/],
      [{ beds: [area(false), area(false), area(false)] }, /No bed area/],
      [{ anonymisedOn: true, anonymisedSize: "1280x720" }, /same size/],
      [{ anonymisedOn: true, anonymisedSize: "800x450" }, /800x450/],
      [{ anonymisedOn: true, anonymisedSize: "1x1" }, /not offer.*anonymised/],
      [{ overlaySize: "" }, /not offer.*overlay/],
    ];
    for (const [change, words] of cases) {
      const { refusals, warnings } = check(change);
      assert.deepEqual([refusals.length, warnings.length], [0, 1], JSON.stringify(change));
      assert.match(warnings[0], words);
    }
    const off = { ...crossed, on: false };
    const unused = { exclusions: [off, off, off], anonymisedSize: "800x450", overlayOn: false, overlaySize: "" };
    assert.deepEqual(check(unused).warnings, []);
    assert.deepEqual(check({ overlayOn: false, anonymisedOn: true, anonymisedSize: "1280x720" }).warnings, []);
  });
});

describe("the draft", () => {
  let program, draft;
  beforeEach(async () => {
    program = {
      held: SETTINGS,
      sent: 0,
      takes: true,
      isPortrait: async () => false,
      settings: async () => program.held,
      async save(settings) {
        this.sent += 1;
        if (this.takes) this.held = settings;
      },
    };
    draft = new SettingsDraft(program, () => {});
    await draft.load();
  });
  const enter = (change, label) => draft.edit({ ...draft.present, ...change }, label);

  test("a save that reads back alike is saved; its warnings go with it", async () => {
    enter({ falls: false, beds: [area(false), area(false), area(false)] });
    assert.equal(draft.dirty, true);
    await draft.save();
    assert.deepEqual([draft.outcome.kind, draft.outcome.warnings.length, draft.dirty], ["saved", 1, false]);
    assert.equal(encodeSettings(program.held, SIZE).get("FP_ON"), "0");
  });

  test("what cannot work is refused before anything is sent", async () => {
    enter({ sensitivity: "much" });
    await draft.save();
    assert.deepEqual([draft.outcome.kind, program.sent, draft.busy], ["refused", 0, false]);
    assert.equal(draft.present.sensitivity, "much");
  });

  test("what the program holds otherwise is told, what was entered is kept", async () => {
    program.takes = false;
    enter({ falls: false });
    await draft.save();
    assert.deepEqual(draft.outcome.differences, [{ what: FALL, wanted: "off", found: "on" }]);
    assert.deepEqual([draft.present.falls, draft.saved.falls, draft.dirty], [false, true, true]);
    draft.discard();
    assert.deepEqual([draft.present.falls, draft.dirty, draft.outcome], [true, false, null]);
    draft.undo();
    assert.equal(draft.present.falls, false);
  });

  test("a save that was refused or not answered keeps what was entered", async () => {
    const refuse = async () => {
      throw new Error("Refused.");
    };
    for (const change of [{ save: refuse }, { settings: refuse }]) {
      enter({ falls: !draft.present.falls });
      Object.assign(program, { takes: false }, change);
      const { falls } = draft.present;
      await draft.save();
      assert.deepEqual(draft.outcome, { kind: "failed", error: "Refused." });
      assert.deepEqual([draft.present.falls, draft.busy], [falls, false]);
    }
  });

  test("reading again shows what others saved, but keeps edits and says so", async () => {
    program.held = { ...SETTINGS, stakes: true };
    await draft.load();
    assert.deepEqual([draft.present.stakes, draft.dirty, draft.outcome], [true, false, null]);
    enter({ falls: false });
    await draft.load();
    assert.deepEqual([draft.present.falls, draft.outcome], [false, null]);
    program.held = { ...SETTINGS, sensitivity: "0.50" };
    await draft.load();
    assert.deepEqual([draft.present.falls, draft.saved.sensitivity, draft.outcome.kind], [false, "0.50", "kept"]);
  });
});
