/**
 * Takes the documentation's pictures of the page from the real program on the demo, in about a minute and a half:
 * `npm run screenshots` writes docs/images/page-*.jpg.
 */
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import { ACTIVE, openBrowser, openSetup, pictureIsLive, save } from "./browser.js";
import { demoCamera, demoParameters, startProgram } from "./program.js";

const IMAGES = fileURLToPath(new URL("../../docs/images", import.meta.url));
const LIVE = "Live picture of the room";

const take = (page, name) =>
  page.screenshot({ path: join(IMAGES, `page-${name}.jpg`), type: "jpeg", quality: 82, animations: "disabled" });

/** A page in the Watch view that shows its picture. */
async function openWatch(browser, address, options) {
  const page = await openSetup(browser, address, options);
  await page.getByRole("link", { name: "Watch" }).click();
  await pictureIsLive(page, LIVE);
  return page;
}

/** Switches both chosen streams on, as an installer does. */
async function switchStreamsOn(page) {
  for (const name of ["Overlay stream", "Anonymised stream"]) {
    const box = page.getByRole("switch", { name });
    if (!(await box.isChecked())) await box.click();
  }
  await save(page);
}

async function whileFallen(browser, program) {
  const wide = await openWatch(browser, program.page, { width: 1440, height: 900 });
  const narrow = await openWatch(browser, program.page, { width: 360, height: 780 });
  const dark = await openWatch(browser, program.page, { width: 1280, height: 860, colorScheme: "dark" });
  const anonymised = await openWatch(browser, program.page, { width: 1280, height: 860 });
  await anonymised.getByRole("switch", { name: "Anonymise" }).click();
  const fall = wide.getByRole("article").filter({ hasText: "Fall Detected" });
  await fall.getByText(ACTIVE).waitFor({ timeout: 120000 });
  await take(wide, "wide");
  await take(narrow, "narrow");
  await take(dark, "dark");
  await take(anonymised, "anonymised");
  await program.ask("toggle_dev_mode");
  await wide.waitForTimeout(2000);
  await take(wide, "developer");
  await program.ask("toggle_dev_mode");
}

async function floor(browser, program) {
  const page = await openSetup(browser, program.page, { width: 1440, height: 1000 });
  await page.getByRole("button", { name: /^Floor/ }).click();
  await page.waitForTimeout(1000);
  await take(page, "floor");
}

const program = await startProgram({ ...(await demoCamera()), parameters: await demoParameters() });
const browser = await openBrowser();
try {
  const setup = await openSetup(browser, program.page);
  await switchStreamsOn(setup);
  await whileFallen(browser, program);
  await floor(browser, program);
} finally {
  await browser.close();
  await program.stop();
}
