import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import {
  ACTIVE,
  drag,
  handle,
  noComplaints,
  openBrowser,
  openPage,
  pictureIsLive,
  save,
  whereabouts,
} from "../browser.js";
import { parseSettings } from "../../../web/program/wire.js";
import { demoCamera, startProgram } from "../program.js";

const BED = [
  [357, 149],
  [515, 158],
  [365, 394],
  [124, 371],
];
const FLOOR = { Red: [573, 362], Green: [868, 388], Blue: [898, 580], Yellow: [516, 537] };
const EVENTS = ["Patient Out of Bed", "Fall Detected"];

let program;
let browser;

before(async () => {
  program = await startProgram(await demoCamera());
  browser = await openBrowser();
});

after(async () => {
  await browser?.close();
  await program?.stop();
});

/** Brings a floor point to its pixel by arrow keys, as one does with the loupe. */
async function pressTo(page, name, target) {
  const keys = [
    ["ArrowLeft", "ArrowRight"],
    ["ArrowUp", "ArrowDown"],
  ];
  await handle(page, name).focus();
  for (const axis of [0, 1]) {
    const away = target[axis] - (await whereabouts(page, name))[axis];
    for (let step = 0; step < Math.abs(away); ++step) await page.keyboard.press(keys[axis][away > 0 ? 1 : 0]);
  }
  assert.deepEqual(await whereabouts(page, name), target);
}

test("an installer with no manual follows the guide on an empty camera and sees both events", async () => {
  const page = await openPage(browser, program.page);
  const guide = page.getByRole("region", { name: /^Guide, step/ });
  const next = () => guide.getByRole("button", { name: "Next" }).click();

  await guide.getByRole("heading", { name: /See the picture/ }).waitFor();
  await pictureIsLive(page, /Live picture of the room/);
  await guide.getByText("The camera answers.").waitFor();
  await next();

  await guide.getByRole("heading", { name: /Draw the bed/ }).waitFor();
  await pictureIsLive(page, "Live picture of the room");
  await page.getByRole("switch", { name: "Bed area 1 in use" }).check();
  for (const [index, [x, y]] of BED.entries()) {
    await drag(page, `Bed area 1, corner ${index + 1}`, x / 1280, y / 720);
    const [across, down] = await whereabouts(page, `Bed area 1, corner ${index + 1}`);
    assert.ok(Math.abs(across - x / 12.8) <= 1.5 && Math.abs(down - y / 7.2) <= 1.5, `${across}, ${down}`);
  }
  await guide.getByText("A bed area is switched on.").waitFor();
  await next();

  await guide.getByRole("heading", { name: /Place the floor points/ }).waitFor();
  await page.getByRole("button", { name: "Floor points" }).click();
  for (const [colour, [x, y]] of Object.entries(FLOOR)) {
    await drag(page, `${colour} floor point`, x / 1280, y / 720);
    await pressTo(page, `${colour} floor point`, [x, y]);
  }
  await page.getByLabel("Red to green (width)").fill("1.60");
  await page.getByLabel("Green to blue (depth)").fill("1.20");
  await handle(page, "Figure").waitFor();
  await save(page);
  await guide.getByText("Everything is saved.").waitFor();
  const stored = parseSettings(await program.ask("get_all_parameters"), { width: 1280, height: 720 });
  const points = Object.values(FLOOR).map(([x, y]) => ({ x, y }));
  assert.deepEqual([stored.floor, stored.widthM, stored.depthM], [points, "1.60", "1.20"]);
  assert.deepEqual([stored.beds[0].on, stored.outOfBed, stored.falls], [true, true, true]);
  await next();

  await guide.getByRole("heading", { name: /Watch an event/ }).waitFor();
  const state = (name) => page.getByRole("article").filter({ has: page.getByRole("heading", { name }) });
  for (const name of EVENTS) {
    await state(name).getByText(ACTIVE).waitFor({ timeout: 150000 });
    await state(name)
      .getByText(/Since .*, for\s+\d+ second/)
      .waitFor();
  }
  await guide.getByText(/Seen: /).waitFor();
  await page.getByRole("banner").getByText("Fall detected, patient out of bed").waitFor();
  await guide.getByRole("button", { name: "Finish" }).click();
  await guide.waitFor({ state: "detached" });
  await page.getByText(/^As a list/).click();
  const list = page.getByRole("region", { name: "Events as a list" });
  for (const name of EVENTS) {
    await list.getByRole("row", { name: new RegExp(`^${name}.*still active`) }).waitFor();
  }

  await page.reload();
  await page.getByText(/^As a list/).click();
  for (const name of EVENTS)
    await list
      .getByRole("row", { name: new RegExp(`^${name}`) })
      .first()
      .waitFor();
  assert.equal(await guide.count(), 0, "the guide does not come back by itself");
  noComplaints(page);
});

test("another visitor finds what was saved", async () => {
  const page = await openPage(browser, program.page);
  await page.getByRole("button", { name: "Skip the guide" }).click();
  await page.getByRole("link", { name: /^Set up/ }).click();
  await page.getByRole("button", { name: "Floor points" }).click();
  for (const [colour, target] of Object.entries(FLOOR)) {
    assert.deepEqual(await whereabouts(page, `${colour} floor point`), target);
  }
  noComplaints(page);
});
