import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { axeViolations, noComplaints, openBrowser, openPage, pictureIsLive, save } from "../browser.js";
import { demoCamera, demoParameters, startProgram } from "../program.js";

let program;
let browser;

before(async () => {
  program = await startProgram({ ...(await demoCamera()), parameters: await demoParameters() });
  browser = await openBrowser();
});

after(async () => {
  await browser?.close();
  await program?.stop();
});

/** No sideways scrolling, and every control large enough to hit. */
async function fits(page) {
  const { wide, small } = await page.evaluate(() => {
    const targets = [...document.querySelectorAll("button, nav a, .button, select, summary, .handle-reach")];
    const sizes = targets.map((element) => ({
      name: element.textContent.trim(),
      box: element.getBoundingClientRect(),
    }));
    return {
      wide: document.documentElement.scrollWidth - document.documentElement.clientWidth,
      small: sizes.filter(({ box }) => box.width > 1 && (box.width < 24 || box.height < 23.5)).map(({ name }) => name),
    };
  });
  assert.equal(wide, 0, "the page scrolls sideways");
  assert.deepEqual(small, [], "controls that are too small");
}

for (const width of [360, 1920]) {
  for (const colorScheme of ["light", "dark"]) {
    test(`axe finds nothing in the guide and both views, ${width} wide, ${colorScheme}`, async () => {
      const page = await openPage(browser, program.page, { width, colorScheme });
      const check = async (what) => {
        assert.deepEqual(await axeViolations(page), [], what);
        await fits(page);
      };
      await pictureIsLive(page, /Live picture of the room/);
      await page.getByRole("article").first().waitFor();
      await check("Watch with the guide");
      await page.getByRole("button", { name: "Skip the guide" }).click();
      await page.getByRole("switch", { name: "Anonymise" }).check();
      await page.getByText("Nothing anonymised to show").waitFor();
      await page.getByText(/^As a list/).click();
      await check("Watch, anonymised, with the list");
      await page.getByRole("link", { name: /^Set up/ }).click();
      await pictureIsLive(page, "Live picture of the room");
      await check("Set up, an area");
      await page.getByRole("button", { name: "Floor points" }).click();
      await page.getByLabel("Red to green (width)").fill("0");
      await save(page, /Not saved/);
      await check("Set up, the floor, refused");
      noComplaints(page);
      await page.context().close();
    });
  }
}
