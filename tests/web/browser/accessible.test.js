import assert from "node:assert/strict";
import { test } from "node:test";
import { axeViolations, noComplaints, pictureIsLive, save, toView } from "../browser.js";
import { onTheDemo } from "../demo.js";

const demo = onTheDemo();
const CARERS_PICTURE = /Live picture, anonymised|live und anonymisiert/;

const began = new Date().toISOString();
const fall = { id: "x-1", seq: 1, run: "x", event: "Fall Detected", kind: "fall", began, ended: null };
const calling = { ...fall, state: "calling", level: 1, answers: [], next: null };

const EVENTS = ["Fall Detected", "Patient Out of Bed"].map((name) => ({ name, active: false, since: null }));

/** A feed that says the same each second. */
function repeat(response, type, data) {
  response.writeHead(200, { "Content-Type": "text/event-stream" });
  const say = () => response.write(`event: ${type}\ndata: ${JSON.stringify(data())}\n\n`);
  const timer = setInterval(say, 1000);
  response.on("close", () => clearInterval(timer));
  say();
  return true;
}

/** From now on the page is one of somebody with this role, null: of nobody; with `alarms` in the place of the camera's. */
function looksOn(role, { alarms, must_change = false } = {}) {
  const who = JSON.stringify({ people: true, name: "Ben", role, must_change });
  const calm = () => ({ time: new Date().toISOString(), run: "x", seq: 2, events: EVENTS, history: [], watching: [] });
  demo.gateway.intercept = ({ url }, response) => {
    if (url.startsWith("/platform/session")) return response.end(who);
    if (!alarms) return false;
    if (url.includes("action=get_status_code")) return response.end("200");
    if (url.startsWith("/platform/events")) return repeat(response, "state", calm);
    return url.startsWith("/platform/alarms/feed") && repeat(response, "alarms", () => ({ alarms, pause: null }));
  };
}

/** No sideways scrolling, and every control large enough to hit. */
async function fits(page, what) {
  const { wide, small } = await page.evaluate(() => {
    const targets = [...document.querySelectorAll("button, nav a, .button, select, summary, .handle-reach")];
    const tooSmall = ({ width, height }) => width > 1 && (width < 24 || height < 23.5);
    return {
      wide: document.documentElement.scrollWidth - document.documentElement.clientWidth,
      small: targets.filter((target) => tooSmall(target.getBoundingClientRect())).map((target) => target.textContent),
    };
  });
  assert.equal(wide, 0, `${what} scrolls sideways`);
  assert.deepEqual(small, [], `${what}: controls that are too small`);
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

/** Handles are drawn anew a moment after their picture has got another size. */
const drawn = (page) =>
  page.evaluate(
    () => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(() => requestAnimationFrame(done)))),
  );

/** What a carer and a nurse see, and who has to sign in first. */
async function othersViews(page, check) {
  const again = (role, more) => {
    looksOn(role, more);
    return page.evaluate(() => (location.hash = "#watch")).then(() => page.reload());
  };
  await page.getByRole("button", { name: "Discard changes" }).click();
  await again("carer", { must_change: true, alarms: [] });
  await page.getByLabel("New password").waitFor();
  await pictureIsLive(page, CARERS_PICTURE);
  await check("a carer's, with a password to choose");
  await page.getByRole("button", { name: "Later" }).click();
  await page.getByLabel("New password").waitFor({ state: "detached" });
  await again("nurse", { alarms: [calling] });
  await pictureIsLive(page);
  await page.getByRole("button", { name: "I'm on my way" }).waitFor();
  await page.getByText("What is seen now").click();
  await check("a nurse's, with an alarm");
  await page.getByRole("button", { name: "False alarm" }).click();
  await check("why it was a false alarm");
  await again(null);
  await page.getByRole("heading", { name: "Sign in" }).waitFor();
  await check("the form to sign in");
}

const BETWEEN = [480, 640, 769, 1088, 1280];
const LOOKS = [{ colorScheme: "light" }, { colorScheme: "dark" }, { forcedColors: "active" }];
for (const width of [360, 1920]) {
  for (const look of LOOKS) {
    test(`axe finds nothing in any view, ${width} wide, ${Object.values(look)}`, async () => {
      const page = await demo.open({ width, ...look });
      const { height } = page.viewportSize();
      const check = async (what) => {
        assert.deepEqual(await axeViolations(page), [], what);
        await fits(page, what);
        if (width !== 1920 || look.colorScheme !== "light") return;
        for (const other of [...BETWEEN, width]) {
          await page.setViewportSize({ width: other, height });
          await drawn(page);
          await fits(page, `${what}, ${other} wide`);
        }
      };
      await everyView(page, check);
      await othersViews(page, check);
      noComplaints(page);
    });
  }
}

test("a carer's and a nurse's telephone on its side, or page at 200 %, leave two thirds of the height to the picture", async () => {
  for (const role of ["carer", "nurse"]) {
    looksOn(role, { alarms: [] });
    const page = await demo.open({ width: 640, height: 360, isMobile: true, hasTouch: true });
    await pictureIsLive(page, role === "carer" ? CARERS_PICTURE : undefined);
    await page.getByRole("button", { name: "Turn the sound on" }).click();
    await page.getByRole("button", { name: "Turn the sound on" }).waitFor({ state: "detached" });
    for (const height of [360, 400, 450]) {
      await page.setViewportSize({ width: 640, height });
      const { y, height: high } = await page.locator(".picture").boundingBox();
      const seen = (Math.min(height, y + high) - Math.max(0, y)) / height;
      assert.ok(seen >= 0.65, `${role}, ${height} high: ${seen}`);
      await fits(page, role);
    }
  }
});

test("a carer's telephone shows alarm, picture and answers, or state, picture and events, without scrolling", async () => {
  for (const locale of ["en", "de"]) {
    looksOn("carer");
    const page = await demo.open({ width: 360, height: 640, isMobile: true, hasTouch: true, locale });
    for (const alarms of [[calling], []]) {
      looksOn("carer", { alarms });
      await page.reload();
      await pictureIsLive(page, CARERS_PICTURE);
      await page.locator(alarms.length ? ".alarm-answers" : ".quiet-events").waitFor();
      const ends = await page.evaluate(() =>
        [...document.querySelectorAll(".carer > .alarm, .carer .picture, .quiet-events")].map(
          (part) => part.getBoundingClientRect().bottom,
        ),
      );
      assert.ok(ends.length === 2 && Math.max(...ends) <= 640, `${locale}, ${alarms.length} alarms: ${ends}`);
      await fits(page, locale);
    }
  }
});

/** What somebody sees of a box's edge and of what is chosen where the colours are the system's. */
const edgeOf = (locator) =>
  locator.evaluate((box) => {
    const { borderTopStyle: style, borderTopWidth: width, borderTopColor: colour } = getComputedStyle(box);
    return { style, width: parseFloat(width), colour, ground: getComputedStyle(document.body).backgroundColor };
  });
const thumbOf = (locator) =>
  locator.evaluate((input) => {
    const { transform, backgroundColor: colour } = getComputedStyle(input, "::before");
    return { transform, colour, track: getComputedStyle(input).backgroundColor };
  });

test("in forced colours an alarm has an edge, a fall's another than an exit's, and a switch shows where it stands", async () => {
  const exit = { ...calling, id: "x-2", seq: 2, event: "Patient Out of Bed", kind: "exit" };
  looksOn("carer", { alarms: [calling, exit] });
  const page = await demo.open({ width: 360, forcedColors: "active", reducedMotion: "reduce" }); // a thumb is there at once
  const edges = [];
  for (const { id } of [calling, exit]) edges.push(await edgeOf(page.locator(`[data-alarm="${id}"]`)));
  for (const { style, width, colour, ground } of edges)
    assert.ok(style !== "none" && width >= 2 && colour !== ground, `${width} ${style} ${colour} on ${ground}`);
  assert.notEqual(edges[0].style, edges[1].style);

  looksOn("installer");
  await page.reload();
  await page.getByRole("button", { name: "Skip the guide" }).click();
  await toView(page, "Alarms");
  const falls = page.getByRole("switch", { name: "Fall detected" });
  const thumbs = [];
  for (const on of [true, false]) {
    await falls.setChecked(on);
    thumbs.push(await thumbOf(falls));
  }
  for (const { colour, track } of thumbs) assert.notEqual(colour, track);
  assert.notEqual(thumbs[0].transform, thumbs[1].transform);
});

test("on an upright telephone the picture stays in sight down to the editor's last field, and has a loupe", async () => {
  const page = await demo.openSetup({ width: 360, height: 740, isMobile: true, hasTouch: true });
  await page.getByRole("button", { name: "Propose from the mattress" }).click();
  const fields = page.locator(".editor-list").locator("input:visible, button:visible");
  const onTop = (box, [x, y]) =>
    page.evaluate(([name, ...at]) => Boolean(document.elementFromPoint(...at)?.closest(name)), [box, x, y]);
  for (const field of [page.getByLabel("Mattress above the floor"), fields.last()]) {
    await field.scrollIntoViewIfNeeded();
    await drawn(page);
    const [picture, box] = [await page.locator(".picture").boundingBox(), await field.boundingBox()];
    const bottom = picture.y + picture.height;
    assert.ok(await onTop(".picture", [picture.x + picture.width / 2, bottom - 3]), `ends at ${bottom}`);
    assert.ok(box.y >= bottom, `a field at ${box.y} under a picture that ends at ${bottom}`);
  }
  assert.equal(await page.locator(".loupe").count(), 0);
  await page.getByRole("slider", { name: /corner 1$/ }).focus();
  const loupe = await page.locator(".loupe canvas").boundingBox();
  assert.ok((await onTop(".picture", [loupe.x + loupe.width / 2, loupe.y + loupe.height / 2])) && loupe.y >= 0);
});

test("a telephone on its side, and a page at 200 %, leave half of the height to the picture of an installer", async () => {
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
