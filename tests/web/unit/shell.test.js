// What the page says and keeps around the picture: times, the timeline, the checks before saving, the draft.
import assert from "node:assert/strict";
import { beforeEach, describe, test } from "node:test";
import { notLiveSince } from "../../../web/picture/picture.js";
import { SettingsDraft } from "../../../web/settings/draft.js";
import { reviewSettings } from "../../../web/settings/review.js";
import { activeTimes, unwatchedTimes } from "../../../web/watch/timeline.js";
import { watchedSize } from "../../../web/watch/room.js";
import { BED, FALL, OFF, SETTINGS, LANDSCAPE as SIZE, area, rectangle } from "./fixtures.js";

test("the stream watched: overlay, else the application's own, else the largest offered", () => {
  const watched = (change) => watchedSize({ ...SETTINGS, ...change });
  const sizes = ["640x360", "1920x1080", "1280x720"];
  const changes = [{}, { overlayOn: false }, { overlaySize: "<b>" }, { overlayOn: false, sizes }, { sizes: [] }];
  const found = changes.map(watched);
  assert.deepEqual(found, ["1280x720", "800x450", "800x450", "1920x1080", null]);
});

test("a picture is live while new ones come and what was found in them is new", () => {
  const since = (arrived, analysed) => notLiveSince(arrived, analysed, 9000);
  assert.deepEqual([since(null, null), since(2999, null), since(200, 2999)], [null, null, null]);
  assert.deepEqual([since(3001, 100), since(100, 4000)], [5999, 5000]);
});

describe("the timeline", () => {
  const at = (second) => new Date(second * 1000).toISOString();
  const change = (second, active, name = FALL, more = {}) => ({ name, active, time: at(second), ...more });
  const [began, ended] = [change(20, true), change(30, false)];

  test("pairs an event's changes and clips them to the hours shown", () => {
    const words = ({ from, to, known, restart }) =>
      `${known ? "" : "?"}${from / 1000}-${to && to / 1000}${restart ? "R" : ""}`;
    const seconds = (history, since) =>
      activeTimes(history, [{ name: FALL, active: since !== null, since }], FALL, 10e3, 100e3)
        .map(words)
        .join();
    const cases = [
      ["a pair", [began, ended], null, "20-30"],
      ["another event's", [change(20, true, BED), change(30, false, BED)], null, ""],
      ["an end whose beginning is forgotten", [ended], null, "?10-30"],
      ["still active", [began], at(20), "20-null"],
      ["active for longer than the history", [], at(2), "?10-null"],
      ["before the hours shown", [change(2, true), change(9, false)], null, ""],
      ["told twice", [began, change(22, true), ended, change(31, false)], null, "20-30"],
      ["ended by a restart", [began, { ...ended, closed_at_start: true }], null, "20-30R"],
    ];
    for (const [what, history, since, expected] of cases) assert.equal(seconds(history, since), expected, what);
    const explained = [
      { ...began, because: "she lies" },
      change(22, true),
      { ...ended, because: "she sits; now" },
      began,
    ];
    const active = [{ name: FALL, active: true, since: at(20), because: "she lies again" }];
    const reasons = (...facts) => activeTimes(...facts, FALL, 10e3, 100e3).map((time) => time.reasons.join(" "));
    const twice = ["Because she lies. Ended because she sits; now.", ""];
    assert.deepEqual([reasons(explained, active), reasons([], active)], [twice, ["Because she lies again."]]);
  });

  test("tells when nobody was watched", () => {
    const told = (...pairs) => pairs.map(([second, active]) => ({ time: at(second), active }));
    const times = (watching, silentSince = null, openedAt = null) =>
      unwatchedTimes({ watching, silentSince, openedAt }, 10e3, 100e3)
        .map(({ from, to, why }) => `${from / 1000}-${to / 1000} ${why}`)
        .join();
    const pairs = [
      [2, true],
      [30, false, "too-dark"],
      [40, false, "camera-away"],
      [50, true],
      [60, false, "unknown"],
    ];
    const blind = pairs.map(([second, active, why]) => ({ time: at(second), active, why }));
    const cases = [
      ["a camera that does not tell", times(null), ""],
      ["before the first start", times(told([40, true])), "10-40 not watching"],
      ["never started", times([]), "10-100 not watching"],
      ["a restart", times(told([2, true], [30, false], [50, true])), "30-50 not watching"],
      ["blind", times(blind), "30-40 not watching: too dark,40-50 not watching: no picture,60-100 not watching"],
      ["stopped twice over", times(told([2, true], [30, false], [40, false])), "30-100 not watching"],
      ["no word from it", times(told([2, true]), 60e3), "60-100 not known"],
      ["a page that was opened late", times(null, null, 70e3), "10-70 not known"],
    ];
    for (const [what, found, expected] of cases) assert.equal(found, expected, what);
  });
});

describe("the checks before saving", () => {
  const check = (change) => reviewSettings({ ...SETTINGS, ...change }, SIZE);
  const crossed = area(true, [10, 10], [40, 60], [40, 10], [10, 60]);

  test("what would stop the next start, or is no number to the program, is refused", () => {
    for (const sensitivity of ["", "abc", "nan", "-0.1", "1.01", "1e-1", "0x1", "0,4,1"]) {
      assert.equal(check({ sensitivity }).refusals.length, 1, sensitivity);
    }
    for (const metres of ["", "0", "-1", "inf", "0.05", "100.1", "1e1", "1,5,0"]) {
      assert.match(check({ widthM: metres }).refusals.join(), /Width/, metres);
      assert.match(check({ depthM: metres }).refusals.join(), /Depth/, metres);
    }
    assert.equal(check({ floor: SETTINGS.floor.map(() => ({ x: 9, y: 9 })) }).refusals.length, 1);
    for (const sensitivity of ["0", "1.00", ".5", " 0.4 ", "0,4"])
      assert.deepEqual(check({ sensitivity }).refusals, []);
  });

  test("what will not work is told, for what is switched on only", () => {
    const cases = [
      [{ beds: [crossed, OFF, OFF] }, /^Bed area 1 will not work/],
      [{ exclusions: [OFF, OFF, crossed] }, /^Exclusion area 3 will not work/],
      [{ beds: [OFF, OFF, OFF] }, /No bed area/],
      [{ anonymisedOn: true, anonymisedSize: "1280x720" }, /same size/],
      [{ anonymisedOn: true, anonymisedSize: "800x450" }, /800x450/],
      [{ anonymisedOn: true, anonymisedSize: "1x1" }, /not offer.*Anonymised/],
      [{ overlaySize: "" }, /not offer.*Overlay/],
    ];
    for (const [change, words] of cases) {
      const { refusals, warnings } = check(change);
      assert.deepEqual([refusals.length, warnings.length], [0, 1], JSON.stringify(change));
      assert.match(warnings[0], words);
    }
    const unused = {
      exclusions: [{ ...crossed, on: false }],
      anonymisedSize: "800x450",
      overlayOn: false,
      overlaySize: "",
    };
    const commas = { sensitivity: "0,38", widthM: "1,60", depthM: "1,2" };
    const alone = { overlayOn: false, anonymisedOn: true, anonymisedSize: "1280x720" };
    for (const change of [{}, unused, alone, commas]) assert.deepEqual(check(change), { refusals: [], warnings: [] });
  });
});

describe("the draft", () => {
  let program, draft;
  beforeEach(() => {
    program = { held: SETTINGS, sent: 0, takes: true, settings: async () => program.held };
    program.save = async (settings) => {
      program.sent += 1;
      if (program.takes) program.held = settings;
    };
    draft = new SettingsDraft(program, () => {});
    draft.take(program.held, SIZE);
  });
  const enter = (change, label) => draft.edit({ ...draft.present, ...change }, label);

  test("a save that reads back alike is saved, with its warnings; what cannot work is not sent", async () => {
    enter({ falls: false, beds: [OFF, OFF, OFF] });
    assert.equal(draft.dirty, true);
    await draft.save();
    assert.deepEqual([draft.outcome.kind, draft.outcome.warnings.length, draft.dirty], ["saved", 1, false]);
    assert.equal(program.held.falls, false);
    enter({ sensitivity: "much" });
    await draft.save();
    assert.deepEqual([draft.outcome.kind, program.sent, draft.busy], ["refused", 1, false]);
    assert.equal(draft.present.sensitivity, "much");
  });

  test("what the program holds otherwise is told, what was entered is kept", async () => {
    program.takes = false;
    enter({ falls: false });
    await draft.save();
    assert.deepEqual(draft.outcome.differences, [{ what: "Fall detected", wanted: "off", found: "on" }]);
    assert.deepEqual([draft.present.falls, draft.saved.falls, draft.dirty], [false, true, true]);
    draft.discard();
    assert.deepEqual([draft.present.falls, draft.dirty, draft.outcome], [true, false, null]);
    draft.undo();
    assert.equal(draft.present.falls, false);
  });

  test("a save that was refused or not answered keeps what was entered", async () => {
    const refuse = () => Promise.reject(new Error("Refused."));
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

    test("without edits it is shown, with them nothing is sent until it is merged, heard of before or not", async () => {
      draft.take(theirs({ stakes: true }), SIZE);
      assert.deepEqual([draft.present.stakes, draft.dirty, draft.outcome], [true, false, null]);
      for (const sensitivity of ["0.50", "0.60"]) {
        enter({ falls: !draft.present.falls });
        theirs({ ...draft.saved, sensitivity });
        if (sensitivity === "0.50") draft.take(program.held, SIZE);
        await draft.save();
        assert.deepEqual([program.sent, told()], [0, ["Score that a person must reach"]]);
        draft.merge(new Set());
        assert.equal(draft.present.sensitivity, sensitivity);
      }
      await draft.save();
      assert.deepEqual([draft.outcome.kind, program.sent, program.held.sensitivity], ["saved", 1, "0.60"]);
    });

    test("each field is taken from one or the other", () => {
      const [on, mine, other] = [10, 20, 30].map((left) => rectangle(true, left, 10, 40, 60));
      enter({ stakes: true, beds: [mine, on, OFF], widthM: "2.00", depthM: "3.00", falls: false });
      const meanwhile = { overlayOn: false, beds: [other, OFF, on], widthM: "1.00", falls: false };
      draft.take(theirs(meanwhile), SIZE);
      const bed3 = ["Bed area 3", "Bed area 3, outline"];
      const width = "Width of the floor rectangle in metres";
      assert.deepEqual(told(), [
        "Fall detected",
        "Overlay stream",
        "Bed area 1, outline, both",
        ...bed3,
        `${width}, both`,
      ]);
      draft.merge(new Set([width]));
      const { stakes, overlayOn, beds, widthM, depthM } = draft.present;
      assert.deepEqual([stakes, overlayOn, widthM, depthM, beds], [true, false, "2.00", "3.00", [other, on, on]]);
      draft.undo();
      // Nothing older than theirs comes back.
      assert.deepEqual([draft.present, draft.dirty], [program.held, false]);
    });
  });

  test("settings that cannot be read are told, those read before stay", () => {
    draft.receive({ portrait: false, document: "<html>", error: null });
    assert.match(draft.loadError, /cannot be understood/);
    draft.receive({ portrait: null, document: null, error: "No answer." });
    assert.deepEqual([draft.loadError, draft.present], ["No answer.", SETTINGS]);
  });
});
