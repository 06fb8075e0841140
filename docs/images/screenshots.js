/**
 * Takes the documentation's pictures of the page from the real program on the demo, in about a minute and a half:
 * `npm --prefix tests/web run screenshots` writes docs/images/page-*.jpg.
 */
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import {
  NAMES,
  alarmOf,
  openBrowser,
  openPage,
  openSetup,
  pictureIsLive,
  save,
  toView,
} from "../../tests/web/browser.js";
import { demoCamera, demoParameters, startProgram } from "../../tests/web/program.js";

const IMAGES = fileURLToPath(new URL(".", import.meta.url));

const take = (page, name) =>
  page.screenshot({ path: join(IMAGES, `page-${name}.jpg`), type: "jpeg", quality: 82, animations: "disabled" });

/** Switches both chosen streams on, as an installer does. */
async function switchStreamsOn(page) {
  await toView(page, "Streams");
  for (const name of ["Overlay stream", "Anonymised stream"]) {
    const box = page.getByRole("switch", { name });
    if (!(await box.isChecked())) await box.click();
  }
  await save(page);
}

/** The page of a carer who has signed in on a telephone, and has let it sound. */
async function openTelephone(browser, address) {
  const page = await openPage(browser, address, { width: 360, height: 640, isMobile: true, hasTouch: true });
  const who = { people: true, name: "Ben", role: "carer", must_change: false };
  await page.route("**/platform/session", (route) => route.fulfill({ json: who }));
  await page.reload();
  await page.getByRole("button", { name: "Turn the sound on" }).click();
  return page;
}

/** One page in many shapes, and a carer's. */
async function whileFallen(page, telephone, program) {
  await page.setViewportSize({ width: 1440, height: 900 });
  await alarmOf(page, NAMES.fall).waitFor({ timeout: 120000 });
  await take(page, "wide");
  await page.setViewportSize({ width: 360, height: 780 });
  await take(page, "narrow");
  await alarmOf(telephone, NAMES.fall).waitFor();
  await take(telephone, "carer");
  await page.setViewportSize({ width: 1280, height: 860 });
  await page.emulateMedia({ colorScheme: "dark" });
  await take(page, "dark");
  await page.emulateMedia({ colorScheme: "light" });
  await program.ask("toggle_dev_mode");
  await page.waitForTimeout(1500);
  await take(page, "developer");
  await program.ask("toggle_dev_mode");
  await page.getByRole("switch", { name: "Anonymise" }).click();
  await pictureIsLive(page, "Live picture, anonymised");
  await page.waitForTimeout(1500);
  await take(page, "anonymised");
  await page.getByRole("switch", { name: "Anonymise" }).click();
}

async function floor(page) {
  await page.setViewportSize({ width: 1440, height: 1000 });
  await toView(page, /^Floor/);
  await pictureIsLive(page);
  await page.getByRole("button", { name: "Floor points" }).click();
  await page.waitForTimeout(1000);
  await take(page, "floor");
}

const program = await startProgram({ ...demoCamera(), parameters: demoParameters() });
const browser = await openBrowser();
try {
  const page = await openSetup(browser, program.page);
  await switchStreamsOn(page);
  await toView(page, "Picture");
  await pictureIsLive(page);
  await whileFallen(page, await openTelephone(browser, program.page), program);
  await floor(page);
} finally {
  await browser.close();
  await program.stop();
}
