// Editing on the picture: points and areas that move, the figure, steps back, what a pointer takes.
import assert from "node:assert/strict";
import { describe, test } from "node:test";
import { PACKAGE_FLOOR, floorProblem, floorWarning } from "../../../web/geometry/calibration.js";
import { areaProblem, contains, distanceToSegment, nearest } from "../../../web/geometry/plane.js";
import { createHistory } from "../../../web/settings/history.js";
import { figureAt, figureMovedTo, figureStepped, figureWords, floorTrouble } from "../../../web/setup/floor.js";
import { proposalOf, withProposal } from "../../../web/setup/mattress.js";
import { pointWords } from "../../../web/setup/stage.js";
import * as tools from "../../../web/setup/tools.js";
import { LANDSCAPE, PORTRAIT, SETTINGS, area, frozen, points, rectangle } from "./fixtures.js";

const { FLOOR, TOOLS, movePoint, shiftArea, switchArea } = tools;
const [BED_1, BED_2] = TOOLS;
const drawn = (on) => area(on, [10, 20], [40, 20], [45, 60], [5, 60]);
const settings = frozen({ ...SETTINGS, beds: [drawn(true), drawn(false), drawn(false)] });

test("history goes back and forth step by step; edits in a row with one label are one step", () => {
  const told = ({ present, canUndo, canRedo }) => [present, canUndo, canRedo];
  const start = createHistory("a");
  for (const same of [start, start.undo(), start.redo()]) assert.deepEqual(told(same), ["a", false, false]);
  const edited = start.push("b").push("c");
  const back = edited.undo().undo();
  assert.deepEqual([...told(back), back.redo().redo().present], ["a", false, true, "c"]);
  const other = edited.undo().push("d");
  assert.deepEqual([...told(other), other.undo().present], ["d", true, false, "b"], "what was undone is forgotten");

  const typed = createHistory("").push("1", "width").push("1.6", "width");
  assert.deepEqual([typed.undo().present, typed.push("x", "depth").undo().present], ["", "1.6"]);
  const afterUndo = typed.push("x").undo().push("2", "width");
  assert.equal(afterUndo.undo().present, "1.6", "a label from before an undo takes nothing in");
  assert.equal(typed.push("1.6", "other"), typed, "no change is no step");
});

describe("moving points", () => {
  test("they go to the nearest that can be stored and stay in the picture", () => {
    const moves = [
      [BED_1, { x: 12.7 * 12.8, y: 0.4 * 7.2 }, { x: 13, y: 0 }],
      [BED_1, { x: -50, y: 9999 }, { x: 0, y: 100 }],
      [FLOOR, { x: 99.5, y: 10.4 }, { x: 100, y: 10 }],
      [FLOOR, { x: 1280, y: -3 }, { x: 1279, y: 0 }],
    ];
    for (const [tool, to, expected] of moves) {
      const moved = movePoint(settings, tool, 1, to, LANDSCAPE);
      const [before, after] = [settings, moved].map((from) => (tool === FLOOR ? from.floor : from.beds[0].corners));
      assert.deepEqual(after, [before[0], expected, before[2], before[3]]);
      assert.equal(movePoint(moved, tool, 1, to, LANDSCAPE), moved, "no change is no edit");
    }
  });

  test("an area that is shifted against the edges keeps its shape", () => {
    const shifted = (x, y) => shiftArea(settings, BED_1, { x, y }, LANDSCAPE).beds[0].corners;
    assert.deepEqual(shifted(-9999, 9999), points([5, 60], [35, 60], [40, 100], [0, 100]));
    assert.deepEqual(shifted(25.6, -7.2)[0], { x: 12, y: 19 });
    // 16, 46, 51 and 11 would be read back as these.
    assert.deepEqual(shifted(76.8, 0), points([15, 20], [45, 20], [50, 60], [10, 60]));
    assert.equal(shiftArea(settings, BED_1, { x: 3, y: 3 }, LANDSCAPE), settings);
  });
});

describe("a mattress", () => {
  const [MATTRESS] = tools.MATTRESSES;
  const marked = (from, metres) => tools.withArea(from, MATTRESS, { ...tools.areaOf(from, MATTRESS), ...metres });

  test("begins as the bed's area, is marked more finely, and leads to the area only when the proposal is taken", () => {
    const moved = movePoint(settings, MATTRESS, 0, { x: 330.5, y: 190.1 }, LANDSCAPE);
    const corners = [{ x: 25.8, y: 26.4 }, ...settings.beds[0].corners.slice(1)];
    assert.deepEqual(tools.areaOf(moved, MATTRESS).corners, corners);
    assert.equal(moved.beds, settings.beds);
    assert.deepEqual(tools.areaOf(tools.stepPoint(moved, MATTRESS, 0, 1, -1, LANDSCAPE), MATTRESS).corners[0], {
      x: 26,
      y: 26.2,
    });
    const taken = withProposal(moved, MATTRESS, LANDSCAPE);
    const { points: proposed } = proposalOf(moved, MATTRESS, LANDSCAPE);
    proposed.forEach(({ x, y }, index) => {
      const corner = taken.beds[0].corners[index];
      assert.ok(Math.abs(corner.x - x / 12.8) <= 1 && Math.abs(corner.y - y / 7.2) <= 1, JSON.stringify(corner));
    });
    assert.deepEqual(proposalOf(taken, MATTRESS, LANDSCAPE).points, proposed, "the area taken is not marked again");
  });

  test("says why there is no proposal", () => {
    const cases = [
      [{ ...settings, floor: PACKAGE_FLOOR }, /^Calibrate the floor first: nobody/],
      [{ ...settings, widthM: "0" }, /^Calibrate the floor first: .*metres/],
      [{ ...settings, depthM: "9" }, /^Calibrate the floor first: .*wide/],
      [marked(settings, { height: "high" }), /^Mattress above the floor: a number from 0.1 to 1.5/],
      [marked(settings, { air: "2" }), /^Air above the mattress: /],
      [marked(settings, { corners: rectangle(true, 10, 20, 40, 20).corners }), /corners/],
    ];
    for (const [from, problem] of cases) {
      assert.match(proposalOf(from, MATTRESS, LANDSCAPE).problem, problem);
      assert.equal(withProposal(from, MATTRESS, LANDSCAPE), from);
    }
  });
});

describe("the figure", () => {
  const scene = frozen({ settings, figure: null });

  test("stands in the rectangle's middle, walks by keys, and its feet follow the pointer", () => {
    assert.match(figureWords(scene), /^0[.]8 .* 0[.]6 /);
    const walked = { ...scene, figure: figureStepped(scene, 1, -1, true) };
    assert.match(figureWords(walked), /^1[.]3 .* 0[.]1 /);
    const to = { x: 700, y: 520 };
    const { foot, head } = figureAt({ ...scene, figure: figureMovedTo(scene, to, LANDSCAPE) }, LANDSCAPE);
    assert.ok(Math.hypot(foot.x - to.x, foot.y - to.y) < 0.5);
    assert.ok(head.y < foot.y - 100);
  });

  test("stays near the rectangle, and is nowhere when the floor cannot be calibrated", () => {
    const { x } = figureMovedTo(scene, { x: 1279, y: 300 }, LANDSCAPE);
    assert.ok(x > 1.6 && x <= 6.6, `${x}`);
    assert.deepEqual(figureStepped({ ...scene, figure: { x: -5, y: 0 } }, -1, 0, true), { x: -5, y: 0 });
    assert.deepEqual(floorTrouble(settings, LANDSCAPE), { refused: [], warned: [] });
    for (const change of [{ widthM: "0" }, { depthM: "-1" }, { widthM: "two" }, { depthM: "" }]) {
      const wrong = { ...settings, ...change };
      assert.equal(floorTrouble(wrong, LANDSCAPE).refused.length, 1, JSON.stringify(change));
      assert.equal(figureAt({ settings: wrong, figure: null }, LANDSCAPE), null);
    }
  });
});

test("places are told as the viewer sees them", () => {
  const across = [false, true].map((mirrored) => pointWords(settings, BED_1, 1, LANDSCAPE, mirrored).slice(0, 17));
  assert.deepEqual(across, ["40 percent across", "60 percent across"]);
  assert.match(pointWords(settings, FLOOR, 0, LANDSCAPE, true), /^706 pixels across, 362 /);
});

describe("switching on", () => {
  for (const size of [LANDSCAPE, PORTRAIT]) {
    test(`what nobody has drawn begins in the middle and can be used, ${size.width} wide`, () => {
      const first = size === LANDSCAPE ? rectangle(false, 13, 23, 38, 67) : rectangle(false, 23, 13, 67, 38);
      let next = frozen({ ...settings, beds: [first, rectangle(false, 0, 0, 0, 0), rectangle(false, 9, 9, 70, 10)] });
      for (const tool of TOOLS.slice(0, 3)) next = switchArea(next, tool, true, size);
      for (const bed of next.beds) {
        assert.ok(bed.on && contains(bed.corners, { x: 50, y: 50 }));
        assert.equal(areaProblem(bed, size), null);
      }
      assert.equal(new Set(next.beds.map((bed) => bed.corners[0].x)).size, 3, "none hides another");
      assert.deepEqual(switchArea({ beds: [first] }, BED_1, false, size).beds[0], first);
      const { floor } = tools.placeFloorInMiddle(settings, size);
      assert.equal(floorProblem(floor, 1.5, 1.5), null);
      assert.doesNotMatch(floorWarning(floor, 1.5, 1.5, size) ?? "", /cross|clockwise|outside|line/);
    });
  }

  test("what somebody has drawn stays as it is", () => {
    const on = switchArea(settings, BED_2, true, LANDSCAPE);
    assert.deepEqual(on.beds[1], drawn(true));
    assert.deepEqual(switchArea(on, BED_2, false, LANDSCAPE), settings);
    assert.ok(!tools.isUndrawn(area(false, [13, 23], [38, 23], [38, 67], [10, 67]), LANDSCAPE), "one corner was moved");
  });
});

test("a pointer takes the nearest handle within its reach, and knows inside from beside", () => {
  const handles = points([0, 0], [10, 0], [100, 0]);
  const taken = points([6, 0], [4, 3], [10, 20], [10, 20.1]).map((at) => nearest(handles, at, 20));
  assert.deepEqual(taken, [1, 0, 1, -1]);
  const arrow = points([0, 0], [10, 5], [0, 10], [5, 5]);
  const inside = points([7, 5], [2, 5], [11, 5]).map((at) => contains(arrow, at));
  assert.deepEqual(inside, [true, false, false], "in the notch, and beside");
  const [a, b, ...places] = points([0, 0], [0, 10], [3, 5], [3, -4], [0, 12]);
  const away = places.map((at) => distanceToSegment(at, a, b));
  assert.deepEqual(away, [3, 5, 2]);
  assert.equal(distanceToSegment({ x: 3, y: 4 }, a, a), 5);
});
