// What the page says and keeps around the picture: times, the timeline, the checks before saving, the draft.
import assert from "node:assert/strict";
import { beforeEach, describe, test } from "node:test";
import { SettingsDraft } from "../../../web/settings/draft.js";
import { reviewSettings } from "../../../web/settings/review.js";
import { activeTimes, unwatchedTimes } from "../../../web/watch/timeline.js";
import { watchedSize } from "../../../web/watch/watch.js";
import { clockTime, durationInWords } from "../../../web/base/words.js";
import { notLiveSince } from "../../../web/picture/picture.js";
import { encodeSettings } from "../../../web/program/wire.js";

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

test("the stream watched: overlay, else the application's own, else the largest offered", () => {
  const sizes = ["640x360", "1920x1080", "1280x720"];
  assert.equal(watchedSize(SETTINGS), "1280x720");
  assert.equal(watchedSize({ ...SETTINGS, overlayOn: false }), "800x450");
  assert.equal(watchedSize({ ...SETTINGS, overlaySize: "<b>" }), "800x450");
  assert.equal(watchedSize({ ...SETTINGS, overlayOn: false, sizes }), "1920x1080");
  assert.equal(watchedSize({ ...SETTINGS, sizes: [] }), null);
});

test("a picture is live while new ones come and what was found in them is new", () => {
  assert.deepEqual(
    [notLiveSince(null, null, 9000), notLiveSince(2999, null, 9000), notLiveSince(200, 2999, 9000)],
    [null, null, null],
  );
  assert.deepEqual([notLiveSince(3001, 100, 9000), notLiveSince(100, 4000, 9000)], [5999, 5000]);
});

describe("the timeline", () => {
  const at = (second) => new Date(second * 1000).toISOString();
  const change = (second, active, name = FALL, more = {}) => ({ name, active, time: at(second), ...more });
  const seconds = (history, since, from, now) =>
    activeTimes(history, [{ name: FALL, active: since !== null, since }], FALL, from * 1000, now * 1000).map((time) => [
      time.from / 1000,
      time.to === null ? "now" : time.to / 1000,
      time.restart ? "restart" : time.known,
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
      [
        "ended by a restart",
        [change(20, true), change(30, false, FALL, { closed_at_start: true })],
        null,
        [[20, 30, "restart"]],
      ],
    ];
    for (const [what, history, since, expected] of cases) {
      assert.deepEqual(seconds(history, since, 10, 100), expected, what);
    }
  });

  test("tells when nobody was watched", () => {
    const told = (...pairs) => pairs.map(([second, active]) => ({ time: at(second), active }));
    const times = (watching, silent = null, opened = null) =>
      unwatchedTimes(
        { watching, silentSince: silent && silent * 1000, openedAt: opened && opened * 1000 },
        10e3,
        100e3,
      ).map(({ from, to, why }) => [from / 1000, to / 1000, why]);
    const cases = [
      ["a camera that does not tell", times(null), []],
      ["before the first start", times(told([40, true])), [[10, 40, "not watching"]]],
      ["never started", times([]), [[10, 100, "not watching"]]],
      ["watching since before", times(told([2, true])), []],
      ["a restart", times(told([2, true], [30, false], [50, true])), [[30, 50, "not watching"]]],
      ["stopped twice over", times(told([2, true], [30, false], [40, false])), [[30, 100, "not watching"]]],
      ["no word from it", times(told([2, true]), 60), [[60, 100, "not known"]]],
      ["a page that was opened late", times(null, null, 70), [[10, 70, "not known"]]],
    ];
    for (const [what, found, expected] of cases) assert.deepEqual(found, expected, what);
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
  beforeEach(() => {
    program = {
      held: SETTINGS,
      sent: 0,
      takes: true,
      settings: async () => program.held,
      async save(settings) {
        this.sent += 1;
        if (this.takes) this.held = settings;
      },
    };
    draft = new SettingsDraft(program, () => {});
    draft.take(program.held, SIZE);
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

  describe("when somebody else has saved meanwhile", () => {
    const theirs = (change) => (program.held = { ...SETTINGS, ...change });
    const told = () => draft.outcome.fields.map(({ name, both }) => `${name}${both ? ", both" : ""}`);

    test("without edits it is shown", () => {
      draft.take(theirs({ stakes: true }), SIZE);
      assert.deepEqual([draft.present.stakes, draft.dirty, draft.outcome], [true, false, null]);
    });

    test("nothing is sent until it is merged, whether or not the page has heard of it before", async () => {
      for (const heard of [true, false]) {
        enter({ falls: !draft.present.falls });
        const change = { sensitivity: heard ? "0.50" : "0.60" };
        theirs({ ...draft.saved, ...change });
        if (heard) draft.take(program.held, SIZE);
        await draft.save();
        assert.deepEqual([program.sent, told()], [0, ["Score that a person must reach"]]);
        draft.merge(new Set());
        assert.equal(draft.present.sensitivity, change.sensitivity);
      }
      await draft.save();
      assert.deepEqual([draft.outcome.kind, program.sent, program.held.sensitivity], ["saved", 1, "0.60"]);
    });

    test("each field is taken from one or the other", () => {
      const moved = (x) => area(true, [x, 10, 40, 10, 40, 60, 10, 60]);
      enter({ stakes: true, beds: [moved(20), area(true), area(false)], widthM: "2.00", depthM: "3.00", falls: false });
      draft.take(
        theirs({ overlayOn: false, beds: [moved(30), area(false), area(true)], widthM: "1.00", falls: false }),
        SIZE,
      );
      assert.deepEqual(told(), [
        "Fall Detected",
        "Overlay stream",
        "Bed area 1, outline, both",
        "Bed area 3",
        "Width of the floor rectangle, both",
      ]);
      draft.merge(new Set(["Width of the floor rectangle"]));
      const { stakes, overlayOn, beds, widthM, depthM } = draft.present;
      assert.deepEqual(
        { stakes, overlayOn, widthM, depthM },
        { stakes: true, overlayOn: false, widthM: "2.00", depthM: "3.00" },
      );
      assert.deepEqual(beds, [moved(30), area(true), area(true)]);
      draft.undo();
      assert.deepEqual(
        [draft.present, draft.dirty],
        [program.held, false],
        "undo never brings back what overwrites theirs",
      );
    });
  });

  test("settings that cannot be read are told, those read before stay", () => {
    draft.receive({ portrait: false, document: "<html>", error: null });
    assert.match(draft.loadError, /cannot be understood/);
    draft.receive({ portrait: null, document: null, error: "No answer." });
    assert.deepEqual([draft.loadError, draft.present], ["No answer.", SETTINGS]);
  });
});
