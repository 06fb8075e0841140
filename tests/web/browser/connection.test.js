import assert from "node:assert/strict";
import { after, afterEach, before, describe, test } from "node:test";
import {
  ACTIVE,
  KNOWN,
  axeViolations,
  drag,
  noComplaints,
  openBrowser,
  openPage,
  openSetup,
  pictureIsLive,
  save,
  whereabouts,
} from "../browser.js";
import { encodeSettings, parseSettings } from "../../../web/program/wire.js";
import { Gateway, demoCamera, demoParameters, startProgram } from "../program.js";

const SIZE = { width: 1280, height: 720 };
const FALL = "Fall Detected";
const BED = "Patient Out of Bed";
/** A change that nothing the program says later undoes. */
const FALLEN = { seq: 1e9, name: FALL, active: true };

let program;
let gateway;
let browser;
const pages = [];

before(async () => {
  program = await startProgram({ ...(await demoCamera()), parameters: await demoParameters() });
  gateway = new Gateway(Number(program.page.port));
  // The browser takes the gateway without knowing it.
  browser = await openBrowser([`--host-resolver-rules=MAP ${program.page.host} 127.0.0.1:${await gateway.plug()}`]);
});

afterEach(async () => {
  gateway.intercept = () => false;
  if (!gateway.server.listening) await gateway.plug();
  for (const page of pages.splice(0)) await page.context().close();
});

after(async () => {
  await browser?.close();
  await gateway?.cut();
  await program?.stop();
});

async function open(options) {
  const page = await openPage(browser, program.page, options);
  pages.push(page);
  await pictureIsLive(page, /Live picture of the room/);
  return page;
}

const chip = (page, text) => page.getByRole("banner").getByText(text);
const card = (page, name) => page.getByRole("article").filter({ has: page.getByRole("heading", { name }) });
const title = (page, pattern) =>
  page.waitForFunction(([source]) => new RegExp(source).test(document.title), [pattern.source]);
const until = async (condition) => {
  while (!(await condition())) await new Promise((resolve) => setTimeout(resolve, 100));
};
const isStatus = ({ url }) => /action=get_(status|execution)/.test(url);
const fallen = async (page) => {
  gateway.tell("change", { ...FALLEN, time: new Date().toISOString() });
  await title(page, /Fall detected/);
};

test("a lost connection is said at once, what was entered is kept, and all of it returns by itself", async () => {
  const page = await openSetup(browser, program.page);
  pages.push(page);
  await drag(page, "Bed area 1, corner 1", 0.3, 0.3);
  const entered = await whereabouts(page, "Bed area 1, corner 1");

  await gateway.cut();
  const banner = page.getByRole("alert").getByText("The camera does not answer");
  await banner.waitFor();
  await chip(page, /No connection since/).waitFor();
  await page.getByText(/^Not live: the picture of/).waitFor();
  await save(page, /Not saved/);
  assert.deepEqual(await whereabouts(page, "Bed area 1, corner 1"), entered);

  await gateway.plug();
  await banner.waitFor({ state: "detached" });
  await page.getByText(/^Not live: the picture of/).waitFor({ state: "detached" });
  assert.deepEqual(await whereabouts(page, "Bed area 1, corner 1"), entered);
  await save(page);
  await page.getByRole("link", { name: "Watch", exact: true }).click();
  await pictureIsLive(page, /Live picture of the room/);
  await page.getByRole("article").getByText(KNOWN).first().waitFor();
});

describe("a fall stays in sight", () => {
  test("in red, with when it began and since when nothing is heard, when the cable is cut", async () => {
    const page = await open();
    await fallen(page);
    await gateway.cut();
    const words = /Fall detected at .*, connection lost since \d/;
    await title(page, words);
    await chip(page, words).waitFor();
    await page.getByRole("region", { name: "State" }).getByText(words).waitFor();
    await card(page, FALL).getByText(ACTIVE).waitFor();
    await card(page, FALL)
      .getByText(/Connection lost since/)
      .waitFor();
    assert.equal(await page.locator(".chip.tone-alarm").count(), 1);
    assert.deepEqual(await axeViolations(page), []);
    await gateway.plug();
    await page.getByRole("alert").getByText("The camera does not answer").waitFor({ state: "detached" });
  });

  test("while the status is never answered: the feed lives, and says so", async () => {
    const page = await open();
    let unanswered = 0;
    gateway.intercept = (request) => isStatus(request) && ++unanswered > 0;
    await fallen(page);
    await page.getByText(/The program's status has not been answered for/).waitFor();
    await until(() => unanswered > 2);
    assert.match(await page.title(), /Fall detected ·/);
    assert.equal(await page.getByRole("alert").getByText("The camera does not answer").count(), 0);
    assert.equal(gateway.feeds.size, 1);
    await card(page, FALL).getByText(ACTIVE).waitFor();
  });
});

test("a program that stands still is noticed, in words and over the picture, and its going on as well", async () => {
  const page = await open();
  try {
    await program.signal("SIGSTOP");
    await chip(page, /no sign of life since \d/i).waitFor();
    await page.getByRole("heading", { name: /^Not live: the picture of \d/ }).waitFor();
    await page
      .locator(".picture")
      .getByText(/^Not live: the picture of \d/)
      .waitFor();
    await card(page, FALL)
      .getByText(/No sign of life since/)
      .waitFor();
  } finally {
    await program.signal("SIGCONT");
  }
  await chip(page, /no sign of life|no connection|connection lost/i).waitFor({ state: "detached" });
  await page
    .getByText(/^Not live: the picture of/)
    .first()
    .waitFor({ state: "detached" });
});

test("ten tabs show the picture and a fall over few connections, and hidden ones take no pictures", async () => {
  const first = await open();
  const tabs = [first];
  while (tabs.length < 10) tabs.push(await first.context().newPage());
  await Promise.all(tabs.slice(1).map((tab) => tab.goto(program.page.href)));
  for (const tab of tabs) await pictureIsLive(tab, /Live picture of the room/);
  await fallen(first);
  for (const tab of tabs) await title(tab, /Fall detected/);
  assert.deepEqual([gateway.feeds.size, gateway.streams.size], [1, 1]);
  const show = (hidden) => {
    Object.defineProperty(document, "hidden", { value: hidden, configurable: true });
    document.dispatchEvent(new Event("visibilitychange"));
  };
  for (const tab of tabs) await tab.evaluate(show, true);
  await until(() => gateway.streams.size === 0);
  await tabs[9].evaluate(show, false);
  await until(() => gateway.streams.size === 1);
  await first.close();
  await tabs[9].reload();
  await pictureIsLive(tabs[9], /Live picture of the room/);
  await title(tabs[9], /Fall detected|Partly|Watching|out of bed/);
});

test("a browser without shared workers shows the same", async () => {
  const page = await openPage(browser, new URL("about:blank"));
  pages.push(page);
  await page.addInitScript(() => delete window.SharedWorker);
  await page.goto(program.page.href);
  await pictureIsLive(page, /Live picture of the room/);
  await fallen(page);
  noComplaints(page);
});

test("a camera without the feed of events tells them through its status, and the page says that", async () => {
  gateway.intercept = ({ url }, response) => {
    if (url.startsWith("/platform/events")) return response.writeHead(404).end("none");
    return url.includes("action=get_status_code") && response.end("502");
  };
  const page = await open();
  await page.getByText(/known only through the program's status/).waitFor();
  await card(page, BED).getByText(ACTIVE).waitFor();
  await card(page, FALL).getByText("Not known").waitFor();
  await page.getByText("Hatched: not known.").waitFor();
});

describe("a camera on which all is well", () => {
  const at = (minutes) => new Date(Date.now() - minutes * 60000).toISOString();
  const events = [FALL, BED].map((name) => ({ name, active: false, since: null }));
  const history = [
    { seq: 1, name: FALL, active: true, time: at(100) },
    { seq: 2, name: FALL, active: false, time: at(80), closed_at_start: true },
  ];
  const watching = [
    { active: true, time: at(120) },
    { active: false, time: at(95) },
    { active: true, time: at(80) },
  ];

  /** The real settings and pictures with the heartbeats of a quick machine. */
  function healthy({ url }, response) {
    if (url.includes("action=get_status_code")) return response.end("200");
    if (!url.startsWith("/platform/events")) return false;
    const say = (type, data) => response.write(`event: ${type}\ndata: ${JSON.stringify(data)}\n\n`);
    const beat = () =>
      say("heartbeat", { time: at(0), run: "x", cycle: 9, cycle_age_ms: 200, picture_age_ms: 300, wrong: [] });
    response.writeHead(200, { "Content-Type": "text/event-stream" });
    say("state", { time: at(0), run: "x", seq: 2, events, history, watching });
    beat();
    const timer = setInterval(beat, 1000);
    response.on("close", () => clearInterval(timer));
    return true;
  }

  test("is green with good settings only, and a link leads to what is missing", async () => {
    gateway.intercept = healthy;
    const page = await open();
    await page.getByRole("button", { name: "Skip the guide" }).click();
    await chip(page, "Watching").waitFor();
    const earlier = parseSettings(await program.ask("get_all_parameters"), SIZE);
    const store = (change) =>
      program.ask("set_all_parameters", encodeSettings({ ...earlier, ...change }, SIZE).toString());
    await store({ outOfBed: false, falls: false });
    await chip(page, "Not watching").waitFor();
    await store({ falls: false });
    await chip(page, "Partly armed").waitFor();
    await card(page, FALL).getByText("Not watched for").waitFor();
    await page.getByRole("link", { name: "Set up: events" }).click();
    await page.waitForFunction(() => document.activeElement.id === "detections-heading");
    await store({});
    await chip(page, "Watching").waitFor();
    noComplaints(page);
  });

  test("hatches the time in which it did not watch, and tells what a restart ended", async () => {
    gateway.intercept = healthy;
    const page = await open();
    await page.getByText("Hatched: not watching.").waitFor();
    await page.getByText(/^As a list/).click();
    const rows = page.getByRole("region", { name: "Events as a list" }).getByRole("row");
    await rows
      .filter({ hasText: "Fall Detected" })
      .getByText(/ended by a restart at .*not known/)
      .waitFor();
    assert.equal(await rows.filter({ hasText: "Not watching" }).count(), 2);
    assert.equal(await page.locator(".lane .unwatched").count(), 4);
  });
});
