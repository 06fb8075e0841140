import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { KNOWN, drag, openBrowser, openPage, openSetup, pictureIsLive, save, whereabouts } from "../browser.js";
import { Cable, demoCamera, demoParameters, startProgram } from "../program.js";

let program;
let cable;
let browser;

before(async () => {
  program = await startProgram({ ...(await demoCamera()), parameters: await demoParameters() });
  cable = new Cable(Number(program.page.port));
  // The browser takes the cable without knowing it.
  browser = await openBrowser([`--host-resolver-rules=MAP ${program.page.host} 127.0.0.1:${await cable.plug()}`]);
});

after(async () => {
  await browser?.close();
  await cable?.cut();
  await program?.stop();
});

test("a lost connection is said at once, what was entered is kept, and all of it returns by itself", async () => {
  const page = await openSetup(browser, program.page);
  await drag(page, "Bed area 1, corner 1", 0.3, 0.3);
  const entered = await whereabouts(page, "Bed area 1, corner 1");

  await cable.cut();
  const banner = page.getByRole("alert").getByText("The camera does not answer");
  await banner.waitFor();
  await page.getByRole("banner").getByText("No connection").waitFor();
  await save(page, /Not saved/);
  assert.deepEqual(await whereabouts(page, "Bed area 1, corner 1"), entered);

  await cable.plug();
  await banner.waitFor({ state: "detached" });
  await pictureIsLive(page, "Live picture of the room");
  assert.deepEqual(await whereabouts(page, "Bed area 1, corner 1"), entered);
  await save(page);
  await page.getByRole("link", { name: "Watch", exact: true }).click();
  await pictureIsLive(page, /Live picture of the room/);
  await page.getByRole("article").getByText(KNOWN).first().waitFor();
  await page.context().close();
});

test("a camera without the feed of events tells them through its status, and the page says that", async () => {
  const page = await openPage(browser, new URL("about:blank"));
  await page.route("**/platform/events", (route) => route.fulfill({ status: 404, body: "no such address" }));
  await page.goto(program.page.href);
  await page.getByText(/tells the events only through its status/).waitFor();
  const card = page.getByRole("article").filter({ has: page.getByRole("heading", { name: "Patient Out of Bed" }) });
  await card.getByText(KNOWN).waitFor();
  await page.context().close();
});
