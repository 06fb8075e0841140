/** What an installer with no manual does in the guide, on the demo's room with nothing set. */
import assert from "node:assert/strict";
import { LANDSCAPE as SIZE } from "../../web/base/facts.js";
import { parseSettings } from "../../web/program/wire.js";
import {
  NAMES,
  alarmOf,
  axeViolations,
  drag,
  handle,
  noComplaints,
  pictureIsLive,
  save,
  says,
  whereabouts,
} from "./browser.js";
import { points } from "./unit/fixtures.js";

const MATTRESS = points([357, 156], [503, 164], [364, 376], [150, 357]);
/** What covers it and the air above it. */
const BED = points([338, 73], [562, 83], [365, 394], [68, 271]);
const FLOOR = { Red: [573, 362], Green: [868, 388], Blue: [898, 580], Yellow: [516, 537] };
const EVENTS = [NAMES.exit, NAMES.fall];
const KEYS = [
  ["ArrowLeft", "ArrowRight"],
  ["ArrowUp", "ArrowDown"],
];

const guideOn = (page) => page.getByRole("region", { name: /^Guide, step/ });
const isAt = (page, name) => guideOn(page).getByRole("heading", { name }).waitFor();
const next = (page) => guideOn(page).getByRole("button", { name: "Next" }).click();
/** How many steps are ticked; not the last one, whose event comes when the recording has it. */
const ticked = (page) => guideOn(page).locator(".guide-steps li:not(:last-child)").getByText("✓").count();

/** The stored settings, asked for by whoever is signed in on the page. */
async function settings(page) {
  const text = await page.evaluate(async () => (await fetch("control.cgi?action=get_all_parameters")).text());
  return parseSettings(text, SIZE);
}

/** Brings a floor point to its pixel by arrow keys, as one does with the loupe. */
async function pressTo(page, name, target) {
  await handle(page, name).focus();
  for (const axis of [0, 1]) {
    const away = target[axis] - (await whereabouts(page, name))[axis];
    for (let step = 0; step < Math.abs(away); ++step) await page.keyboard.press(KEYS[axis][away > 0 ? 1 : 0]);
  }
  assert.deepEqual(await whereabouts(page, name), target);
}

async function calibrate(page) {
  await isAt(page, /Place the floor points/);
  await pictureIsLive(page);
  await says(guideOn(page), /still where the package puts them/);
  assert.equal(await ticked(page), 1, "only what is done is ticked");
  for (const [colour, [x, y]] of Object.entries(FLOOR)) {
    await drag(page, `${colour} floor point`, x / 1280, y / 720);
    await pressTo(page, `${colour} floor point`, [x, y]);
  }
  await page.getByLabel("Red to green (width)").fill("1,60");
  await page.getByLabel("Green to blue (depth)").fill("1.20");
  await handle(page, "Figure").waitFor();
  await save(page);
  await says(guideOn(page), "Everything is saved.");
  assert.equal(await ticked(page), 2);
  const { floor, widthM, depthM } = await settings(page);
  assert.deepEqual([floor, widthM, depthM], [points(...Object.values(FLOOR)), "1.60", "1.20"]);
}

async function drawBed(page) {
  await isAt(page, /Draw the bed/);
  await page.getByRole("switch", { name: "Bed area 1 in use" }).check();
  await page.getByRole("button", { name: "Propose from the mattress" }).click();
  const mattress = (index) => `Mattress of bed 1, corner ${index + 1}`;
  for (const [index, { x, y }] of MATTRESS.entries()) await drag(page, mattress(index), x / 1280, y / 720);
  await page.getByLabel("Mattress above the floor").fill("nothing");
  await says(page.getByRole("region", { name: "Bed areas" }), /from 0.1 to 1.5/);
  assert.ok(await page.getByRole("button", { name: "Take the proposal" }).isDisabled());
  await page.getByLabel("Mattress above the floor").fill("0.55");
  assert.deepEqual(await axeViolations(page), []);
  await page.getByRole("button", { name: "Take the proposal" }).click();
  await page.getByRole("button", { name: "Propose from the mattress", expanded: false }).waitFor();
  await page.keyboard.press("Control+z");
  await says(page, "Undone");
  await page.keyboard.press("Control+y");
  await says(page, "Done again");
  for (const [index, { x, y }] of BED.entries()) {
    const [across, down] = await whereabouts(page, `Bed area 1, corner ${index + 1}`);
    assert.ok(Math.abs(across - x / 12.8) <= 2 && Math.abs(down - y / 7.2) <= 2, `${across}, ${down}`);
  }
  await save(page);
  await says(guideOn(page), "A bed area is switched on and saved.");
  const stored = await settings(page);
  assert.deepEqual([stored.beds[0].on, stored.outOfBed, stored.falls], [true, true, true]);
}

/** Waits for both events, as cards, in the guide, in the banner and among what happened. */
async function seeEvents(page) {
  await isAt(page, /Watch an event/);
  for (const name of EVENTS) {
    const card = alarmOf(page, name);
    await card.waitFor({ timeout: 150000 });
    await says(card, /Since .*, for\s+\d+ second/);
    await says(card, /^Because .*\w.*\.$/);
  }
  await says(guideOn(page), /Seen: /);
  await says(page.getByRole("banner"), "Fall detected, Patient out of bed");
  await guideOn(page).getByRole("button", { name: "Finish" }).click();
  await guideOn(page).waitFor({ state: "detached" });
  const cards = page.getByRole("list", { name: "What happened" }).getByRole("listitem");
  for (const name of EVENTS)
    await says(cards.filter({ hasText: name }).filter({ hasText: "still active" }), /^Because/);
  await page.reload();
  for (const name of EVENTS) await cards.filter({ hasText: name }).first().waitFor();
  assert.equal(await guideOn(page).count(), 0, "the guide does not come back by itself");
}

/** From the guide's first step to its end; both events have been seen then. */
export async function followGuide(page) {
  await isAt(page, /See the picture/);
  await pictureIsLive(page);
  await says(guideOn(page), "The camera answers.");
  await next(page);
  await calibrate(page);
  await next(page);
  await drawBed(page);
  await next(page);
  await seeEvents(page);
  noComplaints(page);
}
