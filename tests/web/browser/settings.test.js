import assert from "node:assert/strict";
import { after, afterEach, before, describe, test } from "node:test";
import { Control, saveAndCheck } from "../../../web/program/api.js";
import { encodeSettings, parseSettings } from "../../../web/program/wire.js";
import { axeViolations, drag, handle, noComplaints, openBrowser, openSetup, save, whereabouts } from "../browser.js";
import { demoCamera, demoParameters, startProgram } from "../program.js";

const SIZE = { width: 1280, height: 720 };

let program;
let browser;
let page;

before(async () => {
  program = await startProgram({ ...(await demoCamera()), parameters: await demoParameters() });
  browser = await openBrowser();
});

afterEach(async () => {
  await page?.context().close();
});

after(async () => {
  await browser?.close();
  await program?.stop();
});

const read = async () => parseSettings(await program.ask("get_all_parameters"), SIZE);
const store = (settings) => program.ask("set_all_parameters", encodeSettings(settings, SIZE).toString());

test("a hundred saves do not change what the program stores", async () => {
  page = await openSetup(browser, program.page);
  await save(page);
  noComplaints(page);
  await page.context().close();
  const first = await program.stored();
  // The rest by the page's own module, in visits of five saves: with a browser watching, each would take a cycle longer.
  const control = new Control(program.handler.href);
  for (let visit = 0; visit < 20; ++visit) {
    const settings = await control.settings(SIZE);
    for (let count = 1; count < 5; ++count) await control.save(settings, SIZE);
    assert.deepEqual((await saveAndCheck(control, settings, SIZE)).differences, []);
  }
  assert.equal(await program.stored(), first);
});

describe("what the page checks before it saves", () => {
  test("a floor that cannot be calibrated is refused with the reason, and what was entered is kept", async () => {
    const earlier = await read();
    const floor = [
      { x: 100, y: 100 },
      { x: 101, y: 100 },
      { x: 300, y: 300 },
      { x: 100, y: 300 },
    ];
    await store({ ...earlier, floor });
    page = await openSetup(browser, program.page);
    await page.getByRole("button", { name: "Floor points" }).click();
    await handle(page, "Green floor point").press("ArrowLeft");
    const stored = await program.stored();
    await save(page, /Not saved, nothing was sent/);
    await page
      .getByRole("region", { name: "Saving" })
      .getByText(/cannot be calibrated/)
      .waitFor();
    assert.equal(await program.stored(), stored);
    assert.deepEqual(await whereabouts(page, "Green floor point"), [100, 100]);
    await page.getByLabel("Red to green (width)").fill("0");
    await save(page, /Not saved, nothing was sent/);
    await page.getByRole("region", { name: "Saving" }).getByText(/width/).first().waitFor();
    assert.equal(await program.stored(), stored);
    await page.getByRole("button", { name: "Discard changes" }).click();
    assert.deepEqual(await whereabouts(page, "Green floor point"), [101, 100]);
    await store(earlier);
  });

  test("a crossed area and equal sizes are pointed out", async () => {
    page = await openSetup(browser, program.page);
    await page.getByRole("switch", { name: "Exclusion area 1 in use" }).check();
    await drag(page, "Exclusion area 1, corner 1", 0.9, 0.5);
    await page
      .getByText(/Exclusion area 1 will not work: two of its sides cross/)
      .first()
      .waitFor();
    await page.getByRole("switch", { name: "Overlay stream", exact: true }).check();
    await page.getByRole("switch", { name: "Anonymised stream", exact: true }).check();
    await page.getByLabel("Size of the overlay stream").selectOption("640x360");
    await page.getByLabel("Size of the anonymised stream").selectOption("640x360");
    await page
      .getByText(/same size as the overlay stream/)
      .first()
      .waitFor();
    await page.getByRole("button", { name: "Discard changes" }).click();
    await page.getByText("Everything is saved.").waitFor();
    noComplaints(page);
  });
});

test("two installers: what the other has saved is not overwritten, and goes together with one's own", async () => {
  const earlier = await read();
  page = await openSetup(browser, program.page);
  const other = await openSetup(browser, program.page);
  await drag(page, "Bed area 1, corner 1", 0.3, 0.3);
  const mine = await whereabouts(page, "Bed area 1, corner 1");
  await page.getByLabel("Red to green (width)").fill("1.80");
  await other.getByLabel("Red to green (width)").fill("1.70");
  await other.getByRole("switch", { name: "Exclusion area 2 in use" }).check();
  await save(other);
  const stored = await program.stored();

  await save(page, /Not saved: somebody else has changed settings/);
  assert.equal(await program.stored(), stored, "nothing was sent");
  const merge = page.getByRole("region", { name: "Changed by somebody else" });
  await merge.getByRole("row", { name: /Exclusion area 2 off Theirs: on/ }).waitFor();
  assert.deepEqual(await axeViolations(page), []);
  await merge.getByRole("group", { name: "Width" }).getByLabel("Yours: 1.80").check();
  await page.getByRole("button", { name: "Merge with mine" }).click();
  await save(page);
  const now = await read();
  const { x, y } = now.beds[0].corners[0];
  assert.deepEqual([x, y, now.exclusions[1].on, now.widthM], [...mine, true, "1.80"]);

  // Who looks on without edits of his own is shown what was saved.
  await other.waitForFunction(() => document.getElementById("editor-width").value === "1.80");
  await other.getByRole("button", { name: "Bed area 1" }).click();
  assert.deepEqual(await whereabouts(other, "Bed area 1, corner 1"), mine);
  await other.context().close();
  noComplaints(page);
  await store(earlier);
});

test("markup that somebody stored does not run, and the page goes on working", async () => {
  const earlier = await read();
  const image = "<img src=x onerror=\"document.title='ran'\">";
  const hostile = {
    overlaySize: `</SelectedDetectionOverlay><script>document.title="ran"</script>${image}%s%n%d`,
    anonymisedSize: `"><svg onload="document.title='ran'">]]>&lt;b&gt;${image}`,
  };
  await store({ ...earlier, ...hostile, overlayOn: true, anonymisedOn: true });
  page = await openSetup(browser, program.page);
  await page.getByLabel("Size of the overlay stream").waitFor();
  await page.getByText("things to look at").click();
  await page
    .getByText(/no size such as 1280x720/)
    .first()
    .waitFor();
  await page.getByRole("link", { name: "Watch", exact: true }).click();
  await page.getByRole("switch", { name: "Anonymise" }).check();
  await page.getByText("Nothing anonymised to show").waitFor();
  await page.getByRole("link", { name: /^Set up/ }).click();
  assert.doesNotMatch(await page.title(), /ran/);
  assert.equal(await page.locator("main script, main img[src=x], main svg[onload]").count(), 0);
  await save(page);
  const { overlaySize, anonymisedSize } = await read();
  assert.deepEqual({ overlaySize, anonymisedSize }, hostile);
  await page.getByLabel("Size of the overlay stream").selectOption("1280x720");
  await page.getByLabel("Size of the anonymised stream").selectOption("640x360");
  await save(page);
  assert.equal((await read()).overlaySize, "1280x720");
  noComplaints(page);
  await store(earlier);
});

/** Presses Tab until the focus is on the control with this name. */
async function tabTo(name) {
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
  const earlier = await read();
  page = await openSetup(browser, program.page);
  await page.getByRole("link", { name: "Watch", exact: true }).click();
  await page.reload();
  await page
    .getByRole("banner")
    .getByText(/Watching|Partly armed|detected|out of bed/i)
    .waitFor();

  await tabTo("Set up");
  await page.keyboard.press("Enter");
  await handle(page, "Bed area 1, corner 2").waitFor();
  await tabTo("Bed area 1, corner 2");
  const corner = () => whereabouts(page, "Bed area 1, corner 2");
  const [across, down] = await corner();
  await page.keyboard.press("ArrowRight");
  await page.keyboard.press("Shift+ArrowDown");
  const moved = await corner();
  assert.ok(moved[0] > across && moved[1] >= down + 5, `${across}, ${down} to ${moved}`);
  await page.keyboard.press("Control+z");
  await page.waitForFunction(
    ([x, y]) => document.activeElement.getAttribute("aria-valuetext")?.startsWith(`${x} percent across, ${y} percent`),
    [across, down],
  );
  await page.keyboard.press("Control+Shift+z");
  assert.deepEqual(await corner(), moved);
  await tabTo("Save");
  await page.keyboard.press("Enter");
  await page.getByText(/Saved and read back at/).waitFor();
  const { x, y } = (await read()).beds[0].corners[1];
  assert.deepEqual([x, y], moved);
  noComplaints(page);
  await store(earlier);
});
