import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { test } from "node:test";
import { Control, saveAndCheck } from "../../../web/program/api.js";
import { axeViolations, drag, handle, noComplaints, save, says, toView, whereabouts } from "../browser.js";
import { onTheDemo } from "../demo.js";
import { until } from "../program.js";
import { LANDSCAPE as SIZE, points } from "../unit/fixtures.js";

const demo = onTheDemo();

test("twenty saves do not change what the program stores", async () => {
  // By the page's own module: with a browser watching, each would take a cycle longer.
  const control = new Control(demo.program.handler.href);
  await control.save(await control.settings(SIZE), SIZE);
  const first = await demo.program.stored();
  for (let visit = 0; visit < 4; ++visit) {
    const settings = await control.settings(SIZE);
    for (let count = 1; count < 5; ++count) await control.save(settings, SIZE);
    assert.deepEqual((await saveAndCheck(control, settings, SIZE)).differences, []);
  }
  assert.equal(await demo.program.stored(), first);
});

test("what cannot work is refused with the reason and kept as entered; what will not work is pointed out", async () => {
  const earlier = await demo.read();
  const floor = points([100, 100], [101, 100], [300, 300], [100, 300]);
  await demo.store({ ...earlier, floor });
  const page = await demo.openSetup();
  await page.getByRole("button", { name: "Floor points" }).click();
  await handle(page, "Green floor point").press("ArrowLeft");
  const stored = await demo.program.stored();
  await save(page, /Not saved, nothing was sent/);
  await says(page.getByRole("region", { name: "Saving" }), /cannot be calibrated/);
  assert.equal(await demo.program.stored(), stored);
  assert.deepEqual(await whereabouts(page, "Green floor point"), [100, 100]);
  await page.getByRole("button", { name: "Discard changes" }).click();
  assert.deepEqual(await whereabouts(page, "Green floor point"), [101, 100]);

  await toView(page, "Streams");
  for (const stream of ["overlay", "anonymised"]) {
    await page.getByRole("switch", { name: new RegExp(`^${stream} stream$`, "i") }).check();
    await page.getByLabel(`Size of the ${stream} stream`).selectOption("640x360");
  }
  await says(page, /same size as the overlay stream/);
  noComplaints(page);
  await demo.store(earlier);
});

test("two installers: what the other has saved is not overwritten, and goes together with one's own", async () => {
  const earlier = await demo.read();
  const [page, other] = [await demo.openSetup(), await demo.openSetup()];
  await drag(page, "Bed area 1, corner 1", 0.3, 0.3);
  const mine = await whereabouts(page, "Bed area 1, corner 1");
  await page.getByLabel("Red to green (width)").fill("1,80");
  await other.getByLabel("Red to green (width)").fill("1.70");
  await other.getByRole("switch", { name: "Exclusion area 2 in use" }).check();
  await save(other);
  const stored = await demo.program.stored();

  await save(page, /Not saved: somebody else has changed settings/);
  assert.equal(await demo.program.stored(), stored, "nothing was sent");
  const merge = page.getByRole("region", { name: "Changed by somebody else" });
  await merge.getByRole("row", { name: /Exclusion area 2 off Theirs: on/ }).waitFor();
  assert.deepEqual(await axeViolations(page), []);
  await merge.getByRole("group", { name: "Width" }).getByLabel("Yours: 1.80").check();
  await page.getByRole("button", { name: "Merge with mine" }).click();
  await save(page);
  const now = await demo.read();
  const { x, y } = now.beds[0].corners[0];
  assert.deepEqual([x, y, now.exclusions[1].on, now.widthM], [...mine, true, "1.80"]);

  // Who looks on without edits of his own is shown what was saved.
  await other.waitForFunction(() => document.getElementById("editor-width").value === "1.80");
  await other.getByRole("button", { name: "Bed area 1" }).click();
  assert.deepEqual(await whereabouts(other, "Bed area 1, corner 1"), mine);
  noComplaints(page);
  await demo.store(earlier);
});

test("who writes decimals with a comma reads and types them so, and the program is told the same as ever", async () => {
  const earlier = await demo.read();
  await demo.store({ ...earlier, widthM: "1.65" });
  const page = await demo.open({ locale: "de-DE" });
  await page.getByRole("button", { name: "Anleitung überspringen" }).click();
  await page.evaluate(() => (location.hash = "#floor"));
  const [width, depth] = ["Rot bis Grün", "Grün bis Blau"].map((name) => page.getByLabel(name));
  const unsaved = page.getByText("Änderungen sind noch nicht gespeichert.");
  assert.equal(await width.inputValue(), "1,65");
  await width.press("End");
  await width.blur();
  await width.fill("1.65");
  await depth.focus();
  assert.deepEqual([await width.inputValue(), await unsaved.count()], ["1,65", 0]);

  await width.fill("");
  await width.pressSequentially("1.8");
  assert.equal(await width.inputValue(), "1.8", "not rewritten under who types");
  await depth.fill("1,0 m");
  assert.equal(await depth.getAttribute("aria-invalid"), "true");
  await page.getByRole("button", { name: "Rückgängig", exact: true }).click();
  assert.equal(await width.inputValue(), "1,8");
  await unsaved.waitFor();
  await page.getByRole("button", { name: "Speichern" }).click();
  await says(page, /Gespeichert und zurückgelesen/);
  const { widthM, depthM } = await demo.read();
  assert.deepEqual([widthM, depthM], ["1.80", earlier.depthM]);
  await page.evaluate(() => (location.hash = "#system"));
  const changes = page.getByRole("region", { name: "Wer was geändert hat" });
  await changes.getByRole("row", { name: "Breite des Bodenrechtecks in Metern WRectM 1,65 1,8" }).waitFor();
  noComplaints(page);
  await demo.store(earlier);
});

test("settings as a file: what was exported is in use again after an import, in the program and on the page", async () => {
  await demo.store(await demo.read()); // areas on whole percents
  const earlier = await demo.read();
  const page = await demo.openSetup();
  await toView(page, "System");
  const place = page.getByRole("region", { name: "Settings as a file" });
  const showsWidth = (metres) =>
    until(async () => (await page.getByLabel("Red to green (width)").inputValue()) === metres);
  const [download] = await Promise.all([
    page.waitForEvent("download"),
    place.getByRole("button", { name: "Export" }).click(),
  ]);
  const kept = await download.path();
  const [bed] = earlier.beds;
  const corners = bed.corners.map(({ x, y }) => ({ x: x + 3, y }));
  const exclusions = earlier.exclusions.map((area) => ({ ...area, on: !area.on }));
  const changes = { widthM: "1.90", falls: !earlier.falls, sensitivity: "0.51", exclusions };
  await demo.store({ ...earlier, ...changes, beds: [{ ...bed, corners }, ...earlier.beds.slice(1)] });
  await toView(page, /^Floor/);
  await showsWidth("1.90");

  await toView(page, "System");
  const back = { name: "ours.json", mimeType: "application/json", buffer: await readFile(kept) };
  await place.getByLabel("File with settings").setInputFiles(back);
  await says(place, "ours.json is in use now.");
  assert.deepEqual(await demo.read(), earlier);
  await toView(page, /^Floor/);
  await showsWidth(earlier.widthM);

  await toView(page, "System");
  const stored = await demo.program.stored();
  await place.getByLabel("File with settings").setInputFiles({ ...back, buffer: Buffer.from('{"WRectM": "wide"}') });
  await says(place, /^Not imported: .*WRectM/);
  assert.equal(await demo.program.stored(), stored);
  page.complaints = page.complaints.filter((text) => !/status of 400/.test(text)); // the file that is none
  noComplaints(page);
});

test("markup that somebody stored does not run, and the page goes on working", async () => {
  const earlier = await demo.read();
  const image = "<img src=x onerror=\"document.title='ran'\">";
  const hostile = {
    overlaySize: `</SelectedDetectionOverlay><script>document.title="ran"</script>${image}%s%n%d`,
    anonymisedSize: `"><svg onload="document.title='ran'">]]>&lt;b&gt;${image}`,
  };
  await demo.store({ ...earlier, ...hostile, overlayOn: true, anonymisedOn: true });
  const page = await demo.openSetup();
  await page.getByText("things to look at").click();
  await says(page, /no size such as 1280x720/);
  await toView(page, "Streams");
  await page.getByLabel("Size of the anonymised stream").waitFor();
  assert.doesNotMatch(await page.title(), /ran/);
  assert.equal(await page.locator("main script, main img[src=x], main svg[onload]").count(), 0);
  await save(page);
  const { overlaySize, anonymisedSize } = await demo.read();
  assert.deepEqual({ overlaySize, anonymisedSize }, hostile);
  noComplaints(page);
  await demo.store(earlier);
});

/** Presses Tab until the focus is on the control with this name. */
async function tabTo(page, name) {
  for (let presses = 0; presses < 120; ++presses) {
    await page.keyboard.press("Tab");
    const focused = await page.evaluate(() => {
      const element = document.activeElement;
      return element.getAttribute("aria-label") ?? element.labels?.[0]?.textContent ?? element.textContent;
    });
    if (focused.trim().startsWith(name)) return;
  }
  assert.fail(`Tab does not reach ${name}`);
}

test("keyboard only: a corner is moved, undone, moved again and saved", async () => {
  const earlier = await demo.read();
  const page = await demo.openSetup();
  await tabTo(page, "Bed area 1, corner 2");
  const corner = () => whereabouts(page, "Bed area 1, corner 2");
  const [across, down] = await corner();
  await page.keyboard.press("ArrowRight");
  await page.keyboard.press("Shift+ArrowDown");
  const moved = await corner();
  assert.ok(moved[0] > across && moved[1] >= down + 5, `${across}, ${down} to ${moved}`);
  await page.keyboard.press("Control+z");
  const back = `${across} percent across, ${down} percent`;
  await page.waitForFunction((words) => document.activeElement.ariaValueText?.startsWith(words), back);
  await page.keyboard.press("Control+Shift+z");
  assert.deepEqual(await corner(), moved);
  await tabTo(page, "Save");
  await page.keyboard.press("Enter");
  await says(page, /Saved and read back at/);
  const { x, y } = (await demo.read()).beds[0].corners[1];
  assert.deepEqual([x, y], moved);
  noComplaints(page);
  await demo.store(earlier);
});
