// What the page and the program each have to know for themselves is the same.
import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { test } from "node:test";
import { SENSORS, UNKNOWN_SENSOR } from "../../../web/base/facts.js";

test("the sensors are those that the program calculates with", async () => {
  const program = await readFile(new URL("../../../geometry/distance_controller.cpp", import.meta.url), "utf8");
  const pairs = program.matchAll(/\{"([^"]+)",\s*\{([\d.]+)F, ([\d.]+)F\}\}/g);
  assert.deepEqual(SENSORS, Object.fromEntries([...pairs].map(([, model, ...sides]) => [model, sides.map(Number)])));
  const [, ...unknown] = /sensor\{([\d.]+)F, ([\d.]+)F\}/.exec(program);
  assert.deepEqual(UNKNOWN_SENSOR, unknown.map(Number));
});
