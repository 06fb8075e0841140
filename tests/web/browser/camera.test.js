import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import {
  axeViolations,
  noComplaints,
  openBrowser,
  openPage,
  openSetup,
  pictureIsLive,
  says,
  toView,
} from "../browser.js";
import { demoCamera, demoParameters, startProgram } from "../program.js";
import { startCamera } from "../rtsp.js";

const [BRIGHT, DARK] = [220, 40];
const world = {};

before(async () => {
  world.old = await startCamera(BRIGHT);
  world.next = await startCamera(DARK, "ward:s3cret pass");
  const camera = { ...demoCamera(), source: world.old.uri, loop: false, product_name: "AXIS X1" };
  world.program = await startProgram({ ...camera, parameters: demoParameters() });
  world.browser = await openBrowser();
});
after(async () => {
  await world.browser?.close();
  await world.program?.stop();
  world.old?.stop();
  world.next?.stop();
});

/** Waits until the middle of the live picture is of a brightness between the two. */
async function showsBetween(page, least, most) {
  await toView(page, /^Floor/);
  const picture = await pictureIsLive(page);
  const isBetween = ([image, low, high]) => {
    const canvas = Object.assign(document.createElement("canvas"), { width: 1, height: 1 });
    const context = canvas.getContext("2d");
    context.drawImage(image, image.naturalWidth / 2, image.naturalHeight / 2, 1, 1, 0, 0, 1, 1);
    const [red] = context.getImageData(0, 0, 1, 1).data;
    return red >= low && red <= high;
  };
  await page.waitForFunction(isBetween, [await picture.elementHandle(), least, most]);
  await toView(page, "System");
}

test("an installer tries a wrong password, then the right one, and lets the program watch the camera", async () => {
  const page = await openSetup(world.browser, world.program.page);
  await showsBetween(page, 150, 255);
  const section = page.getByRole("region", { name: "Camera", exact: true });
  await says(section, `Watched now: ${world.old.uri}`);
  const tryIt = section.getByRole("button", { name: "Try this camera" });

  await section.getByLabel("Camera's address").fill("/dev/video0");
  await tryIt.click();
  await says(section, /begins with rtsp/);

  await section.getByLabel("Camera's address").fill(world.next.uri);
  await section.getByLabel("User name").fill("ward");
  await section.getByLabel("Password").fill("wrong pass");
  await tryIt.click();
  await says(section, /refuses this user name or this password/);
  assert.equal(await section.getByRole("img").count(), 0);
  assert.equal(await section.getByRole("button", { name: "Watch this camera" }).count(), 0);
  assert.deepEqual(await axeViolations(page), []);

  await section.getByLabel("Password").fill("s3cret pass");
  await section.getByLabel("Password").press("Enter");
  await says(section, /: can be watched/);
  await says(section, /640x368, 10 pictures a second told/);
  const shown = section.getByRole("img", { name: "What this camera shows" });
  await page.waitForFunction((image) => image.naturalWidth === 1280, await shown.elementHandle());
  for (const [width, colorScheme] of [
    [360, "dark"],
    [1920, "light"],
  ]) {
    await page.setViewportSize({ width, height: 900 });
    await page.emulateMedia({ colorScheme, reducedMotion: "reduce" }); // colours change at once
    await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    assert.deepEqual(await axeViolations(page), []);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth - innerWidth), 0, `${width} wide`);
  }
  await showsBetween(page, 150, 255);

  await section.getByRole("button", { name: "Watch this camera" }).click();
  await says(section, /check the floor points and the bed areas/);
  await says(section, `Watched now: ${world.next.uri}`);
  await showsBetween(page, 0, 100);
  world.old.stop();
  await page.reload();
  await showsBetween(page, 0, 100);
  await says(section, /is watched now, also after a restart/);
  await says(page.getByRole("row", { name: /camera\.source/ }), world.next.uri);
  page.complaints = page.complaints.filter((text) => !/status of 400/.test(text)); // the address that is none
  noComplaints(page);
});

test("a sensor that is not known is told, and another with its lens is kept for the next start", async () => {
  const page = await openSetup(world.browser, world.program.page);
  await toView(page, "System");
  const section = page.getByRole("region", { name: "Camera", exact: true });
  await says(section, /The sensor of AXIS X1 is not known, and 6\.2 × 3\.5 mm stand for it/);
  const model = section.getByLabel("Camera model");
  const focal = section.getByLabel("Focal length");
  assert.deepEqual([await model.inputValue(), await focal.inputValue()], ["AXIS X1", "3.7"]);
  const keep = section.getByRole("button", { name: "Keep for the next start" });
  await keep.click();
  await says(section, /the same as now/);
  await model.selectOption({ label: "AXIS P3265-LV (6.34 × 4.51 mm)" });
  await focal.fill("4,1 m");
  await keep.click();
  await says(section, /a number from 0\.1 to 999/);
  await focal.fill("4,1");
  await keep.click();
  await says(section, /Kept: AXIS P3265-LV, 4\.1 mm\. It counts from the program's next start on/);
  assert.deepEqual(await axeViolations(page), []);
  await page.reload();
  await toView(page, "System");
  await says(section, /with now: AXIS X1, 3\.7 mm/);
  await says(section, /Kept: AXIS P3265-LV, 4\.1 mm/);
  assert.deepEqual([await model.inputValue(), await focal.inputValue()], ["AXIS P3265-LV", "4.1"]);
  await says(page.getByRole("row", { name: "Focal length in millimetres camera.focal_length_um" }), "4.1");
  noComplaints(page);
});

test("with the first person everybody has to sign in, and whoever adds it is that person", async () => {
  const page = await openSetup(world.browser, world.program.page);
  await toView(page, "People");
  await page.getByLabel("Name of a new person").fill("Anna");
  await page.getByRole("button", { name: "Add", exact: true }).click();
  await says(page, "Password of Anna:");
  await says(page.getByRole("banner"), "Anna");
  const other = await openPage(world.browser, world.program.page);
  await other.getByRole("heading", { name: "Sign in" }).waitFor();
});
