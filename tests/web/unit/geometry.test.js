import assert from "node:assert/strict";
import { describe, test } from "node:test";
import { floorProblem, floorTransform, floorWarning } from "../../../web/geometry/calibration.js";
import { floorGrid, stakesOf, uprightFigure } from "../../../web/geometry/figures.js";
import { areaProblem, streamMapping } from "../../../web/geometry/plane.js";

const LANDSCAPE = { width: 1280, height: 720 };
const PORTRAIT = { width: 720, height: 1280 };
const WIDTH = 1.6;
const DEPTH = 1.2;
const DEMO = [
  { x: 573, y: 362 },
  { x: 868, y: 388 },
  { x: 898, y: 580 },
  { x: 516, y: 537 },
];
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
  const points = [project(0, 0, 0), project(WIDTH, 0, 0), project(WIDTH, DEPTH, 0), project(0, DEPTH, 0)];
  return { project, points: points.map(({ x, y }) => ({ x, y })) };
}

describe("a known camera", () => {
  const cameras = [];
  for (const size of [LANDSCAPE, PORTRAIT]) {
    for (const lens of [50, 60, 81])
      for (const tilt of [20, 35, 50]) for (const turn of [0, 20, -45]) cameras.push({ lens, tilt, turn, size });
  }
  cameras.push({ lens: 100, tilt: 35, turn: -20, size: LANDSCAPE });

  for (const camera of cameras) {
    const { lens, tilt, turn, size } = camera;
    const { project, points } = knownCamera(camera);
    const inside = points.every(({ x, y }) => x >= 0 && y >= 0 && x < size.width && y < size.height);
    const floor = [points, WIDTH, DEPTH];

    test(`of ${lens} degrees, tilted ${tilt}, turned ${turn}, ${size.width} wide: floor, stakes, figure, grid`, () => {
      const { toFloor, toPicture } = floorTransform(...floor);
      for (const [x, y] of [
        [0.3, 0.2],
        [-1, 0.5],
        [2, 1.5],
        [0.8, -2],
      ]) {
        assertNear(toFloor(project(x, y, 0)), { x, y }, 1e-6, "to the floor");
        assertNear(toPicture({ x, y }), project(x, y, 0), 1e-6, "to the picture");
      }
      const corners = [
        [0, 0],
        [WIDTH, 0],
        [WIDTH, DEPTH],
        [0, DEPTH],
      ];
      stakesOf(...floor, size).forEach(([foot, top], index) => {
        const [exactFoot, exactTop] = [0, 1].map((height) => project(...corners[index], height));
        assertNear(foot, exactFoot, 1e-6, "foot of a stake");
        assertNear(top, exactTop, 0.05 * distance(exactFoot, exactTop), "top of a stake");
      });
      const figure = uprightFigure(...floor, size, { x: 0.3, y: 0.4 });
      const [foot, head] = [0, 1.7].map((height) => project(0.3, 0.4, height));
      assertNear(figure.foot, foot, 1e-6, "feet");
      assertNear(figure.head, head, 0.05 * distance(foot, head), "head");
      for (const end of floorGrid(...floor, size).flat()) {
        assert.ok(end.x >= -0.01 && end.y >= -0.01 && end.x <= size.width + 0.01 && end.y <= size.height + 0.01);
        const { x, y } = toFloor(end);
        assert.ok(project(x, y, 0).forward > 0, "behind the camera");
        const onLine = [x, y].some((metres) => Math.abs(metres * 2 - Math.round(metres * 2)) < 1e-4);
        assert.ok(onLine, `${x}, ${y} is on no line`);
      }
      assert.equal(floorProblem(...floor), null);
      if (inside) assert.equal(floorWarning(...floor, size), null);
    });
  }

  test("the figure is nobody where the camera does not look", () => {
    const { points } = knownCamera({ lens: 60, tilt: 35, turn: 0, size: LANDSCAPE });
    assert.equal(uprightFigure(points, WIDTH, DEPTH, LANDSCAPE, { x: 0.8, y: 6 }), null);
  });

  test("the grid covers what is seen of 3 m around the rectangle, and stays a grid on a hall's floor", () => {
    const { points } = knownCamera({ lens: 60, tilt: 50, turn: 0, size: LANDSCAPE });
    // 8 m x 7 m in steps of half a metre, less the lines behind the camera and beside the picture.
    const lines = floorGrid(points, WIDTH, DEPTH, LANDSCAPE);
    assert.ok(lines.length > 12 && lines.length <= 16 + 15, `${lines.length} lines`);
    assert.ok(floorGrid(points, 90, 70, LANDSCAPE).length <= 160);
  });
});

describe("what the program refuses", () => {
  const at = (...numbers) => [0, 1, 2, 3].map((k) => ({ x: numbers[2 * k], y: numbers[2 * k + 1] }));
  const refused = {
    "all points in one place": [at(5, 5, 5, 5, 5, 5, 5, 5), 1, 1],
    "two points in one place": [at(100, 100, 100, 100, 300, 300, 100, 300), 1, 1],
    "three points in a line": [at(100, 100, 300, 300, 500, 500, 100, 500), 1, 1],
    "points in a row": [at(100, 400, 300, 400, 500, 400, 700, 400), 1, 1],
    "sound points for which its formula vanishes": [at(0, 0, 100, 0, 100, 100, 0, 0), 1, 1],
    "no width": [DEMO, "0", "1"],
    "a negative depth": [DEMO, "1", "-1"],
    "a width that is no number": [DEMO, "", "1"],
    "metres beyond all numbers": [DEMO, "1e40", "1"],
    "metres too small to calculate with": [DEMO, "1e-30", "1e-30"],
  };
  for (const [what, floor] of Object.entries(refused)) {
    test(what, () => assert.match(floorProblem(...floor), /\.$/));
  }

  const taken = {
    "the demo's floor": [DEMO, "1.60", "1.20"],
    "a crossed quad": [[DEMO[0], DEMO[2], DEMO[1], DEMO[3]], 1, 1],
    "a quad that goes around counterclockwise": [[...DEMO].reverse(), 1, 1],
    "points almost in a line": [at(100, 100, 300, 301, 500, 500, 100, 500), 1, 1],
    "very small metres": [DEMO, "0.001", "0.001"],
  };
  for (const [what, floor] of Object.entries(taken)) {
    test(`not ${what}`, () => assert.equal(floorProblem(...floor), null));
  }
});

test("what is probably wrong with a floor is said, and only that", () => {
  const moved = (index, x, y) => DEMO.map((point, at) => (at === index ? { x, y } : point));
  const cases = [
    [DEMO, 1.6, 1.2, null],
    [DEMO, 1.6, 1.6, null],
    [DEMO, 1.2, 1.6, /as wide/],
    [DEMO, 1.6, 0.6, /as wide/],
    [moved(1, 1280, 388), 1.6, 1.2, /outside the picture/],
    [[DEMO[0], DEMO[2], DEMO[1], DEMO[3]], 1.6, 1.2, /cross/],
    [[...DEMO].reverse(), 1.6, 1.2, /counterclockwise/],
    [moved(3, 735, 471), 1.6, 1.2, /in a line/],
    [moved(3, 780, 440), 1.6, 1.2, /between/],
    [moved(3, 705, 472), 1.6, 1.2, /lens/],
  ];
  for (const [points, width, depth, expected] of cases) {
    const found = floorWarning(points, width, depth, LANDSCAPE);
    if (expected) assert.match(found, expected);
    else assert.equal(found, null);
  }
});

test("a floor that goes around counterclockwise puts the figure on its head, for all to see", () => {
  const { foot, head } = uprightFigure([DEMO[1], DEMO[0], DEMO[3], DEMO[2]], WIDTH, DEPTH, LANDSCAPE, {
    x: 0.8,
    y: 0.6,
  });
  assert.ok(head.y > foot.y);
});

test("areas that will not work", () => {
  const area = (...numbers) => ({
    on: true,
    corners: [0, 1, 2, 3].map((k) => ({ x: numbers[2 * k], y: numbers[2 * k + 1] })),
  });
  const cases = [
    [area(10, 10, 40, 10, 40, 40, 10, 40), null],
    [area(10, 10, 10, 40, 40, 40, 40, 10), null],
    [area(0, 0, 100, 0, 100, 100, 0, 100), null],
    [area(10, 10, 40, 10, 20, 20, 10, 40), null],
    [area(10, 10, 40, 40, 40, 10, 10, 40), /cross/],
    [area(10, 10, 10, 10, 10, 10, 10, 10), /empty/],
    [area(10, 10, 40, 10, 40, 10, 10, 10), /empty/],
    [area(10, 10, 101, 10, 40, 40, 10, 40), /outside/],
    [area(-1, 10, 40, 10, 40, 40, 10, 40), /outside/],
  ];
  for (const [found, expected] of cases) {
    for (const size of [LANDSCAPE, PORTRAIT]) {
      if (expected) assert.match(areaProblem(found, size), expected);
      else assert.equal(areaProblem(found, size), null);
    }
  }
});

describe("where the program draws on a stream", () => {
  const cases = [
    // stream, analysis picture, mirrored, a point of the analysis picture, where it is on the stream
    [1280, 720, LANDSCAPE, false, { x: 640, y: 360 }, { x: 640, y: 360 }],
    [1280, 720, LANDSCAPE, true, { x: 0, y: 719 }, { x: 1279, y: 719 }],
    [1920, 1080, LANDSCAPE, false, { x: 639.5, y: 719 }, { x: 959.5, y: 1079 }],
    [800, 450, LANDSCAPE, true, { x: 639.5, y: 0 }, { x: 399.5, y: 0 }],
    // 4:3 shows the middle of the picture: 959 of 1279 pixels.
    [640, 480, LANDSCAPE, false, { x: 639.5 - 319.5 * (719 / 479), y: 0 }, { x: 0, y: 0 }],
    [450, 800, PORTRAIT, true, { x: 359.5, y: 1279 }, { x: 224.5, y: 799 }],
  ];
  for (const [streamWidth, streamHeight, size, mirrored, point, expected] of cases) {
    test(`${streamWidth}x${streamHeight}${mirrored ? ", mirrored" : ""}`, () => {
      const { toView, toAnalysis } = streamMapping({ streamWidth, streamHeight, size, mirrored });
      assertNear(toView(point), expected, 1e-6, "on the stream");
      for (const other of [point, { x: 3, y: 77 }, { x: 600.5, y: 700 }]) {
        assertNear(toAnalysis(toView(other)), other, 1e-6, "and back");
      }
    });
  }
});
