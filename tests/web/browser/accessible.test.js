import assert from "node:assert/strict";
import { test } from "node:test";
import { axeViolations, noComplaints, pictureIsLive, save, toView } from "../browser.js";
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

/** Every view of an installer, and the wall's. */
async function everyView(page, check) {
  await pictureIsLive(page);
  await page.getByRole("region", { name: "Events", exact: true }).waitFor({ state: "attached" });
  await check("Picture with the guide");
  await page.getByRole("button", { name: "Skip the guide" }).click();
  await page.getByText("Menu", { exact: true }).click();
  await check("Picture, the menu");
  await page.keyboard.press("Escape");
  await toView(page, /^Floor/);
  await pictureIsLive(page);
  await check("Floor, an area");
  await page.getByRole("button", { name: "Floor points" }).click();
  await page.getByLabel("Red to green (width)").fill("0");
  await save(page, /Not saved/);
  await check("Floor, refused");
  for (const name of ["Alarms", "Streams", "People", "System"]) {
    await toView(page, name);
    await page.getByRole("heading", { name, level: 1 }).waitFor();
    await check(name);
  }
  await page.evaluate(() => (location.hash = "#wall"));
  await page.getByRole("navigation").waitFor({ state: "detached" });
  await check("the wall");
}

const LOOKS = [{ colorScheme: "light" }, { colorScheme: "dark" }, { forcedColors: "active" }];
for (const width of [360, 1920]) {
  for (const look of LOOKS) {
    test(`axe finds nothing in any view, ${width} wide, ${Object.values(look)}`, async () => {
      const page = await demo.open({ width, ...look });
      await everyView(page, async (what) => {
        assert.deepEqual(await axeViolations(page), [], what);
        await fits(page);
      });
      noComplaints(page);
    });
  }
}

test("a telephone on its side, and a page at 200 %, leave most of the height to the picture", async () => {
  const page = await demo.open({ width: 740, height: 360 });
  await page.getByRole("button", { name: "Skip the guide" }).click();
  await toView(page, /^Floor/);
  const picture = await pictureIsLive(page);
  await picture.evaluate((image) => image.scrollIntoView({ block: "start" }));
  const seen = async (element) => {
    const { y, height } = await element.boundingBox();
    return Math.min(360, y + height) - Math.max(0, y);
  };
  assert.ok((await seen(picture)) > 180, `${await seen(picture)} of 360 pixels`);
  for (const part of ["banner", "region"]) {
    const bars = await page
      .getByRole(part, part === "region" ? { name: "Saving" } : {})
      .evaluate((one) => getComputedStyle(one).position);
    assert.notEqual(bars, "sticky", part);
  }
});
