// What a floor calibration means, against cameras that are known exactly.
import assert from "node:assert/strict";
import { test } from "node:test";
import { floorProblem, floorTransform, floorWarning } from "../../../web/geometry/calibration.js";
import { floorGrid, stakesOf, uprightFigure } from "../../../web/geometry/figures.js";
import { areaProblem, contains, streamMapping } from "../../../web/geometry/plane.js";
import { mattressProblem, volumeOutline } from "../../../web/geometry/volume.js";
import { LANDSCAPE, PORTRAIT, SETTINGS, area, points } from "./fixtures.js";

const [WIDTH, DEPTH, DEMO] = [1.6, 1.2, SETTINGS.floor];
const CROSSED = [DEMO[0], DEMO[2], DEMO[1], DEMO[3]];
const BACKWARDS = [...DEMO].reverse();
const rad = (degrees) => (degrees * Math.PI) / 180;
const distance = (a, b) => Math.hypot(a.x - b.x, a.y - b.y);
const assertNear = (found, wanted, limit, what) =>
  assert.ok(distance(found, wanted) <= limit, `${what}: ${JSON.stringify(found)}, not ${JSON.stringify(wanted)}`);

/**
 * A camera 2.4 m above the floor that looks down at `tilt` onto the middle of a rectangle turned by `turn`. Its
 * `project` takes metres along the rectangle's width and depth from the red point, and above the floor.
 */
function knownCamera({ lens, tilt, turn, size }) {
  const focal = Math.max(size.width, size.height) / 2 / Math.tan(rad(lens) / 2);
  const [sin, cos] = [Math.sin(rad(tilt)), Math.cos(rad(tilt))];
  const project = (across, down, up) => {
    const [u, v] = [across - WIDTH / 2, DEPTH / 2 - down];
    const x = u * Math.cos(rad(turn)) - v * Math.sin(rad(turn));
    const y = u * Math.sin(rad(turn)) + v * Math.cos(rad(turn)) + (2.4 * cos) / sin;
    const forward = y * cos - (up - 2.4) * sin;
    const below = -y * sin - (up - 2.4) * cos;
    return { x: (focal * x) / forward + size.width / 2, y: (focal * below) / forward + size.height / 2, forward };
  };
  const corners = points([0, 0], [WIDTH, 0], [WIDTH, DEPTH], [0, DEPTH]);
  return { project, corners, floor: corners.map(({ x, y }) => project(x, y, 0)).map(({ x, y }) => ({ x, y })) };
}

/** Floor, stakes, figure and grid as a known camera shows them. */
function checkCamera(camera) {
  const { size } = camera;
  const { project, corners, floor } = knownCamera(camera);
  const calibration = [floor, WIDTH, DEPTH];
  const { toFloor, toPicture } = floorTransform(...calibration);
  for (const { x, y } of points([0.3, 0.2], [-1, 0.5], [2, 1.5], [0.8, -2])) {
    assertNear(toFloor(project(x, y, 0)), { x, y }, 1e-6, "to the floor");
    assertNear(toPicture({ x, y }), project(x, y, 0), 1e-6, "to the picture");
  }
  const standing = (foot, top, { x, y }, height) => {
    const [exactFoot, exactTop] = [project(x, y, 0), project(x, y, height)];
    assertNear(foot, exactFoot, 1e-6, "foot");
    assertNear(top, exactTop, 0.05 * distance(exactFoot, exactTop), "top");
  };
  stakesOf(...calibration, size).forEach(([foot, top], index) => standing(foot, top, corners[index], 1));
  const { foot, head } = uprightFigure(...calibration, size, { x: 0.3, y: 0.4 });
  standing(foot, head, { x: 0.3, y: 0.4 }, 1.7);
  for (const end of floorGrid(...calibration, size).flat()) {
    assert.ok(end.x >= -0.01 && end.y >= -0.01 && end.x <= size.width + 0.01 && end.y <= size.height + 0.01);
    const { x, y } = toFloor(end);
    assert.ok(project(x, y, 0).forward > 0, "behind the camera");
    const onLine = [x, y].some((metres) => Math.abs(metres * 2 - Math.round(metres * 2)) < 1e-4);
    assert.ok(onLine, `${x}, ${y} is on no line`);
  }
  assert.equal(floorProblem(...calibration), null);
  const inside = floor.every(({ x, y }) => x >= 0 && y >= 0 && x < size.width && y < size.height);
  if (inside) assert.equal(floorWarning(...calibration, size), null);
}

for (const size of [LANDSCAPE, PORTRAIT]) {
  for (const lens of [50, 60, 81, 100]) {
    test(`a known camera of ${lens} degrees, ${size.width} wide: floor, stakes, figure, grid`, () => {
      const tilts = lens === 100 ? [35] : [20, 35, 50];
      for (const tilt of tilts) for (const turn of [0, 20, -45]) checkCamera({ lens, tilt, turn, size });
    });
  }
}

test("the figure is nobody where the camera does not look, and on its head on a floor that goes backwards", () => {
  const { floor } = knownCamera({ lens: 60, tilt: 35, turn: 0, size: LANDSCAPE });
  assert.equal(uprightFigure(floor, WIDTH, DEPTH, LANDSCAPE, { x: 0.8, y: 6 }), null);
  const backwards = [DEMO[1], DEMO[0], DEMO[3], DEMO[2]];
  const { foot, head } = uprightFigure(backwards, WIDTH, DEPTH, LANDSCAPE, { x: 0.8, y: 0.6 });
  assert.ok(head.y > foot.y);
});

test("the grid covers what is seen of 3 m around the rectangle, and stays a grid on a hall's floor", () => {
  const { floor } = knownCamera({ lens: 60, tilt: 50, turn: 0, size: LANDSCAPE });
  // 8 m x 7 m in steps of half a metre, less the lines behind the camera and beside the picture.
  const lines = floorGrid(floor, WIDTH, DEPTH, LANDSCAPE);
  assert.ok(lines.length > 12 && lines.length <= 16 + 15, `${lines.length} lines`);
  assert.ok(floorGrid(floor, 90, 70, LANDSCAPE).length <= 160);
});

test("what the program would refuse is told, and nothing else", () => {
  const refused = {
    "two points in one place": [points([100, 100], [100, 100], [300, 300], [100, 300]), 1, 1],
    "sound points for which its formula vanishes": [points([0, 0], [100, 0], [100, 100], [0, 0]), 1, 1],
    "no width": [DEMO, "0", "1"],
    "a negative depth": [DEMO, "1", "-1"],
    "metres beyond all numbers": [DEMO, "1e40", "1"],
    "metres too small to calculate with": [DEMO, "1e-30", "1e-30"],
  };
  for (const [what, floor] of Object.entries(refused)) assert.match(floorProblem(...floor) ?? "", /\.$/, what);
  const nearlyInLine = points([100, 100], [300, 301], [500, 500], [100, 500]);
  const taken = { DEMO, CROSSED, BACKWARDS, nearlyInLine };
  for (const [what, floor] of Object.entries(taken)) assert.equal(floorProblem(floor, "0.001", "0.001"), null, what);
});

test("what is probably wrong with a floor is said, and only that", () => {
  const moved = (index, x, y) => DEMO.map((point, at) => (at === index ? { x, y } : point));
  const cases = [
    [DEMO, 1.6, 1.6, /null/],
    [DEMO, 1.2, 1.6, /as wide/],
    [DEMO, 1.6, 0.6, /as wide/],
    [moved(1, 1280, 388), 1.6, 1.2, /outside the picture/],
    [CROSSED, 1.6, 1.2, /cross/],
    [BACKWARDS, 1.6, 1.2, /counterclockwise/],
    [moved(3, 735, 471), 1.6, 1.2, /in a line/],
    [moved(3, 780, 440), 1.6, 1.2, /between/],
    [moved(3, 705, 472), 1.6, 1.2, /lens/],
  ];
  for (const [floor, ...metres] of cases) {
    const expected = metres.pop();
    assert.match(String(floorWarning(floor, ...metres, LANDSCAPE)), expected);
  }
});

test("a bed's volume from its mattress is the one that the simulator draws of the same bed", () => {
  const beds = [
    // floor points, their metres, mattress, the simulator's area
    [
      points([545, 500], [849, 515], [885, 681], [504, 657]),
      [1.3, 0.8],
      points([232, 364], [326, 265], [726, 278], [730, 383]),
      points([62, 363], [293, 186], [752, 198], [779, 392]),
    ],
    [
      points([358, 428], [675, 376], [760, 575], [337, 669]),
      [1.7, 1.3],
      points([722, 167], [854, 152], [1057, 331], [873, 362]),
      points([668, 104], [865, 86], [1197, 323], [874, 379]),
    ],
  ];
  for (const [floor, metres, mattress, simulated] of beds) {
    const outline = (marked, height, air) => volumeOutline(marked, [floor, ...metres], { height, air }, LANDSCAPE);
    const proposed = outline(mattress, 0.55, 0.4);
    proposed.forEach((corner, index) => assertNear(corner, simulated[index], 7, `corner ${index + 1}`));
    const [, second, third, fourth] = mattress;
    outline([third, second, mattress[0], fourth], 0.55, 0.4).forEach((corner) =>
      assert.ok(proposed.some((other) => distance(corner, other) < 1e-6)),
    );
    const higher = outline(mattress, 0.55, 0.8);
    assert.ok(Math.min(...higher.map(({ y }) => y)) < Math.min(...proposed.map(({ y }) => y)) - 30);
  }
});

test("a bed's volume covers it for known cameras, also where the picture ends", () => {
  for (const [tilt, across, size] of [
    [50, -0.8, LANDSCAPE],
    [35, 0.4, LANDSCAPE],
    [35, 1.6, LANDSCAPE],
    [40, -0.9, PORTRAIT],
    [70, -0.2, LANDSCAPE],
  ]) {
    const { project, floor } = knownCamera({ lens: 70, tilt, turn: 20, size });
    const at = (along, side, up) => project(across + 0.9 * side, -0.6 + 2 * along, up);
    const mattress = [at(0, 0, 0.5), at(0, 1, 0.5), at(1, 1, 0.5), at(1, 0, 0.5)];
    const outline = volumeOutline(mattress, [floor, WIDTH, DEPTH], { height: 0.5, air: 0.4 }, size);
    const inPicture = ({ x, y }) => x >= 0 && y >= 0 && x <= size.width - 1 && y <= size.height - 1;
    assert.ok(outline.every(inPicture), JSON.stringify(outline));
    const drawn = { corners: outline.map(({ x, y }) => ({ x: (100 * x) / size.width, y: (100 * y) / size.height })) };
    assert.equal(areaProblem(drawn, size), null);
    const tenths = Array.from({ length: 11 }, (_, index) => index / 10);
    const places = tenths.flatMap((along) => tenths.flatMap((side) => [0.5, 0.9].map((up) => at(along, side, up))));
    const seen = places.filter(inPicture);
    const covered = seen.filter((place) => contains(outline, place));
    assert.ok(covered.length > 0.92 * seen.length, `${tilt} degrees: ${covered.length} of ${seen.length}`);
    const around = outline.filter((place) => seen.every((other) => distance(place, other) > 200));
    assert.equal(around.length, 0, `${tilt} degrees: ${JSON.stringify(around)} is far from the bed`);
  }
});

test("no bed is proposed for corners that no mattress has", () => {
  assert.match(mattressProblem(points([100, 100], [300, 100], [200, 150], [200, 400])), /between/);
  assert.match(mattressProblem(points([100, 100], [300, 101], [500, 99], [300, 97])), /line/);
  assert.equal(mattressProblem(points([100, 100], [300, 120], [300, 300], [100, 300])), null);
  const aboveTheHorizon = points([300, -900], [500, -900], [500, 300], [300, 300]);
  assert.equal(volumeOutline(aboveTheHorizon, [DEMO, WIDTH, DEPTH], { height: 0.5, air: 0.4 }, LANDSCAPE), null);
});

test("areas that will not work", () => {
  const cases = [
    [area(true, [0, 0], [0, 100], [100, 100], [100, 0]), /null/],
    [area(true, [10, 10], [40, 10], [20, 20], [10, 40]), /null/],
    [area(true, [10, 10], [40, 40], [40, 10], [10, 40]), /cross/],
    [area(true, [10, 10], [40, 10], [40, 10], [10, 10]), /empty/],
    [area(true, [10, 10], [101, 10], [40, 40], [10, 40]), /outside/],
    [area(true, [10, -1], [40, 10], [40, 40], [10, 40]), /outside/],
  ];
  for (const [found, expected] of cases) assert.match(String(areaProblem(found, LANDSCAPE)), expected);
});

test("where the program draws on a stream, and back", () => {
  const cases = [
    // stream, analysis picture, mirrored, a point of the analysis picture, where it is on the stream
    [1280, 720, LANDSCAPE, true, [0, 719], [1279, 719]],
    [1920, 1080, LANDSCAPE, false, [639.5, 719], [959.5, 1079]],
    // 4:3 shows the middle of the picture: 959 of 1279 pixels.
    [640, 480, LANDSCAPE, false, [639.5 - 319.5 * (719 / 479), 0], [0, 0]],
    [450, 800, PORTRAIT, true, [359.5, 1279], [224.5, 799]],
  ];
  for (const [streamWidth, streamHeight, size, mirrored, ...both] of cases) {
    const [point, expected] = points(...both);
    const { toView, toAnalysis } = streamMapping({ streamWidth, streamHeight, size, mirrored });
    assertNear(toView(point), expected, 1e-6, `on ${streamWidth}x${streamHeight}`);
    for (const other of [point, ...points([3, 77], [600.5, 700])]) {
      assertNear(toAnalysis(toView(other)), other, 1e-6, "and back");
    }
  }
});
