import assert from "node:assert/strict";
import { test } from "node:test";
import { axeViolations, noComplaints, pictureIsLive, save, says, toView } from "../browser.js";
import { onTheDemo } from "../demo.js";

const demo = onTheDemo();

/** No sideways scrolling, and every control large enough to hit. */
async function fits(page) {
  const { wide, small } = await page.evaluate(() => {
    const targets = [...document.querySelectorAll("button, nav a, .button, select, summary, .handle-reach")];
    const tooSmall = ({ width, height }) => width > 1 && (width < 24 || height < 23.5);
    return {
      wide: document.documentElement.scrollWidth - document.documentElement.clientWidth,
      small: targets.filter((target) => tooSmall(target.getBoundingClientRect())).map((target) => target.textContent),
    };
  });
  assert.equal(wide, 0, "the page scrolls sideways");
  assert.deepEqual(small, [], "controls that are too small");
}

for (const width of [360, 1920]) {
  for (const colorScheme of ["light", "dark"]) {
    test(`axe finds nothing in the guide and both views, ${width} wide, ${colorScheme}`, async () => {
      const page = await demo.open({ width, colorScheme });
      const check = async (what) => {
        assert.deepEqual(await axeViolations(page), [], what);
        await fits(page);
      };
      await pictureIsLive(page);
      await page.getByRole("article").first().waitFor();
      await check("Watch with the guide");
      await page.getByRole("button", { name: "Skip the guide" }).click();
      await page.getByRole("switch", { name: "Anonymise" }).check();
      await says(page, "Nothing anonymised to show");
      await page.getByText(/^As a list/).click();
      await check("Watch, anonymised, with the list");
      await toView(page, /^Set up/);
      await pictureIsLive(page);
      await check("Set up, an area");
      await page.getByRole("button", { name: "Floor points" }).click();
      await page.getByLabel("Red to green (width)").fill("0");
      await save(page, /Not saved/);
      await check("Set up, the floor, refused");
      noComplaints(page);
    });
  }
}
