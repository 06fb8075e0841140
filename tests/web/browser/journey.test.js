import assert from "node:assert/strict";
import { test } from "node:test";
import { ACTIVE, drag, handle, noComplaints, pictureIsLive, save, says, whereabouts } from "../browser.js";
import { onTheDemo } from "../demo.js";
import { points } from "../unit/fixtures.js";

const BED = points([357, 149], [515, 158], [365, 394], [124, 371]);
const FLOOR = { Red: [573, 362], Green: [868, 388], Blue: [898, 580], Yellow: [516, 537] };
const EVENTS = ["Patient Out of Bed", "Fall Detected"];
const KEYS = [
  ["ArrowLeft", "ArrowRight"],
  ["ArrowUp", "ArrowDown"],
];

const demo = onTheDemo(() => undefined);

/** Brings a floor point to its pixel by arrow keys, as one does with the loupe. */
async function pressTo(page, name, target) {
  await handle(page, name).focus();
  for (const axis of [0, 1]) {
    const away = target[axis] - (await whereabouts(page, name))[axis];
    for (let step = 0; step < Math.abs(away); ++step) await page.keyboard.press(KEYS[axis][away > 0 ? 1 : 0]);
  }
  assert.deepEqual(await whereabouts(page, name), target);
}

test("an installer with no manual follows the guide on an empty camera and sees both events", async () => {
  const page = await demo.open();
  const guide = page.getByRole("region", { name: /^Guide, step/ });
  const step = (name) => guide.getByRole("heading", { name }).waitFor();
  const next = () => guide.getByRole("button", { name: "Next" }).click();

  await step(/See the picture/);
  await pictureIsLive(page);
  await says(guide, "The camera answers.");
  await next();

  await step(/Draw the bed/);
  await pictureIsLive(page);
  await page.getByRole("switch", { name: "Bed area 1 in use" }).check();
  for (const [index, { x, y }] of BED.entries()) {
    await drag(page, `Bed area 1, corner ${index + 1}`, x / 1280, y / 720);
    const [across, down] = await whereabouts(page, `Bed area 1, corner ${index + 1}`);
    assert.ok(Math.abs(across - x / 12.8) <= 1.5 && Math.abs(down - y / 7.2) <= 1.5, `${across}, ${down}`);
  }
  await says(guide, "A bed area is switched on.");
  await next();

  await step(/Place the floor points/);
  await page.getByRole("button", { name: "Floor points" }).click();
  for (const [colour, [x, y]] of Object.entries(FLOOR)) {
    await drag(page, `${colour} floor point`, x / 1280, y / 720);
    await pressTo(page, `${colour} floor point`, [x, y]);
  }
  await page.getByLabel("Red to green (width)").fill("1.60");
  await page.getByLabel("Green to blue (depth)").fill("1.20");
  await handle(page, "Figure").waitFor();
  await save(page);
  await says(guide, "Everything is saved.");
  const stored = await demo.read();
  assert.deepEqual([stored.floor, stored.widthM, stored.depthM], [points(...Object.values(FLOOR)), "1.60", "1.20"]);
  assert.deepEqual([stored.beds[0].on, stored.outOfBed, stored.falls], [true, true, true]);
  await next();

  await step(/Watch an event/);
  for (const name of EVENTS) {
    const card = page.getByRole("article").filter({ has: page.getByRole("heading", { name }) });
    await card.getByText(ACTIVE).waitFor({ timeout: 150000 });
    await says(card, /Since .*, for\s+\d+ second/);
    await says(card, /^Because .*\w.*\.$/);
  }
  await says(guide, /Seen: /);
  await says(page.getByRole("banner"), "Fall detected, patient out of bed");
  await guide.getByRole("button", { name: "Finish" }).click();
  await guide.waitFor({ state: "detached" });
  const list = page.getByRole("region", { name: "Events as a list" });
  await page.getByText(/^As a list/).click();
  for (const name of EVENTS)
    await list.getByRole("row", { name: new RegExp(`^${name}.*still active.*Because`) }).waitFor();

  await page.reload();
  await page.getByText(/^As a list/).click();
  for (const name of EVENTS) await says(list, name);
  assert.equal(await guide.count(), 0, "the guide does not come back by itself");
  noComplaints(page);
});
