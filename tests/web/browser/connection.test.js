import assert from "node:assert/strict";
import { describe, test } from "node:test";
import * as ui from "../browser.js";
import { onTheDemo } from "../demo.js";
import { until } from "../program.js";

const { NAMES, alarmOf, axeViolations, lineOf, noComplaints, pictureIsLive, save, says, whereabouts } = ui;

const FALL = "Fall Detected";
const BED = "Patient Out of Bed";
const NOT_LIVE = /^Not live: the picture of \d/;

const demo = onTheDemo();

async function open() {
  const page = await demo.open();
  await pictureIsLive(page);
  return page;
}

const gone = (locator) => locator.waitFor({ state: "detached" });
const chip = (page, text) => page.getByRole("banner").getByText(text);
/** An event as it is told, whether it is active or not. */
const isTold = (page, name, text) => says(alarmOf(page, name).or(lineOf(page, name)), text);
/** The demo's own fall may be on at the time as well. */
const falls = (page) => alarmOf(page, NAMES.fall).first().waitFor();
const lost = (page) => page.getByRole("alert").getByText("The camera does not answer");
const title = (page, pattern) =>
  page.waitForFunction(([source]) => new RegExp(source).test(document.title), [pattern.source]);
/** A change that nothing the program says later undoes. */
const fallen = async (page) => {
  demo.gateway.tell("change", { seq: 1e9, name: FALL, active: true, time: new Date().toISOString() });
  await title(page, /Fall detected/);
};

test("a lost connection is said at once, what was entered is kept, and all of it returns by itself", async () => {
  const page = await demo.openSetup();
  await ui.drag(page, "Bed area 1, corner 1", 0.3, 0.3);
  const entered = await whereabouts(page, "Bed area 1, corner 1");

  await demo.gateway.cut();
  await lost(page).waitFor();
  await chip(page, /No connection since/).waitFor();
  await says(page, NOT_LIVE);
  await save(page, /Not saved/);
  assert.deepEqual(await whereabouts(page, "Bed area 1, corner 1"), entered);

  await demo.gateway.plug();
  await gone(lost(page));
  await gone(page.getByText(NOT_LIVE));
  assert.deepEqual(await whereabouts(page, "Bed area 1, corner 1"), entered);
  await save(page);
  await ui.toView(page, "Picture");
  await pictureIsLive(page);
  await isTold(page, NAMES.fall, /Not active|Nobody has answered/);
});

describe("a fall stays in sight", () => {
  test("in red, with when it began and since when nothing is heard, when the cable is cut", async () => {
    const page = await open();
    await fallen(page);
    await demo.gateway.cut();
    const words = /Fall detected at .*, connection lost since \d/;
    await title(page, words);
    await chip(page, words).waitFor();
    await says(alarmOf(page, NAMES.fall), /connection lost since/);
    assert.equal(await page.locator(".chip.tone-alarm").count(), 1);
    assert.deepEqual(await axeViolations(page), []);
    await demo.gateway.plug();
    await gone(lost(page));
  });

  test("while the status is never answered: the feed lives, and says so", async () => {
    const page = await open();
    let unanswered = 0;
    demo.gateway.intercept = ({ url }) => /action=get_(status|execution)/.test(url) && ++unanswered > 0;
    await fallen(page);
    await says(page, /The program's status has not been answered for/);
    await until(() => unanswered > 2);
    assert.match(await page.title(), /Fall detected(, Patient out of bed)? ·/);
    assert.deepEqual([await lost(page).count(), demo.gateway.feeds.size], [0, 1]);
    await falls(page);
  });
});

test("a program that stands still is noticed, in words and over the picture, and its going on as well", async () => {
  const page = await open();
  try {
    await demo.program.signal("SIGSTOP");
    await chip(page, /no sign of life since \d/i).waitFor();
    await page.getByRole("heading", { name: NOT_LIVE }).waitFor();
    await says(page.locator(".picture"), NOT_LIVE);
    await isTold(page, NAMES.fall, /no sign of life since/i);
  } finally {
    await demo.program.signal("SIGCONT");
  }
  await gone(chip(page, /no sign of life|no connection|connection lost/i));
  await gone(page.getByText(NOT_LIVE).first());
});

test("ten tabs show the picture and a fall over few connections, and hidden ones take no pictures", async () => {
  const first = await open();
  const tabs = [first];
  while (tabs.length < 10) tabs.push(await first.context().newPage());
  await Promise.all(tabs.slice(1).map((tab) => tab.goto(demo.program.page.href)));
  for (const tab of tabs) await pictureIsLive(tab);
  await fallen(first);
  for (const tab of tabs) await title(tab, /Fall detected/);
  const { feeds, streams } = demo.gateway;
  assert.deepEqual([feeds.size, streams.size], [1, 1]);
  const show = (hidden) => {
    Object.defineProperty(document, "hidden", { value: hidden, configurable: true });
    document.dispatchEvent(new Event("visibilitychange"));
  };
  for (const tab of tabs) await tab.evaluate(show, true);
  await until(() => streams.size === 0);
  await tabs[9].evaluate(show, false);
  await until(() => streams.size === 1);
  await first.close();
  await tabs[9].reload();
  await pictureIsLive(tabs[9]);
  await title(tabs[9], /Fall detected|Partly|Watching|out of bed/);
  demo.pages.push(tabs[9]);
});

test("a browser without shared workers shows the same", async () => {
  const page = await ui.openPage(demo.browser, new URL("about:blank"));
  demo.pages.push(page);
  await page.addInitScript(() => delete window.SharedWorker);
  await page.goto(demo.program.page.href);
  await pictureIsLive(page);
  await fallen(page);
  noComplaints(page);
});

test("a camera without the feed of events tells them through its status, and the page says that", async () => {
  demo.gateway.intercept = ({ url }, response) => {
    if (/^\/platform\/(events|alarms)/.test(url)) return response.writeHead(404).end("none");
    return url.includes("action=get_status_code") && response.end("502");
  };
  const page = await open();
  await says(page, /known only through the program's status/);
  await alarmOf(page, NAMES.exit).waitFor();
  await isTold(page, NAMES.fall, "Not known");
  await says(page, "Hatched: not known.");
});

test("a camera with the basic addresses is not asked for others again and again", async () => {
  const asked = new Map();
  const count = (path) => asked.set(path, (asked.get(path) ?? 0) + 1);
  demo.gateway.intercept = ({ url }, response) => {
    const path = url.split("?")[0];
    if (path.startsWith("/platform/")) return count(path) && response.writeHead(404).end("none");
    if (url.includes("action=get_status_code")) count("status");
    return false;
  };
  const page = await open();
  await until(() => asked.get("status") > 20);
  // A feed does not tell why it does not open, so that is asked for by itself.
  const most = (path) => (/events|feed/.test(path) ? 2 : 1);
  const tooOften = [...asked].filter(([path, times]) => path !== "status" && times > most(path));
  assert.deepEqual(tooOften, []);
  noComplaints(page, ["/platform/session"]);
});

describe("a camera on which all is well", () => {
  const at = (minutes) => new Date(Date.now() - minutes * 60000).toISOString();
  const events = [FALL, BED].map((name) => ({ name, active: false, since: null }));
  const history = [1, 2].map((seq) => ({ seq, run: "x", name: FALL, active: seq === 1, time: at(120 - 20 * seq) }));
  history[1].closed_at_start = true;
  const watching = [120, 95, 80].map((minutes) => ({ active: minutes !== 95, time: at(minutes) }));

  const markup = "<b>person 3</b> has lain still";
  const camera = { explains: true, explained: [1], say: null, wrong: [] };

  function explain(response) {
    if (!camera.explains) return true;
    const because = (seq) => ({ run: "x", seq, name: FALL, active: true, because: `${markup} ${seq}` });
    const people = [{ id: 3, text: "<i>Person 3</i> lies." }];
    const document = { time: at(0), people, beds: [], events: camera.explained.map(because) };
    return response.end(JSON.stringify(document));
  }

  /** A feed that begins with a message and has a heartbeat each second. @returns {Function} says more on it */
  function feed(response, [type, data], heartbeat) {
    const say = (what, told) => response.write(`event: ${what}\ndata: ${JSON.stringify(told)}\n\n`);
    const beat = () => say("heartbeat", heartbeat());
    response.writeHead(200, { "Content-Type": "text/event-stream" });
    say(type, data);
    beat();
    const timer = setInterval(beat, 1000);
    response.on("close", () => clearInterval(timer));
    return say;
  }

  /** The real settings and pictures with the heartbeats of a quick machine, and no alarm that is open. */
  function healthy({ url }, response) {
    if (url.includes("action=get_status_code")) return response.end("200");
    if (url.startsWith("/platform/why")) return explain(response);
    if (url.startsWith("/platform/alarms")) return feed(response, ["alarms", { alarms: [], pause: null }], () => ({}));
    if (!url.startsWith("/platform/events")) return false;
    const beats = { run: "x", cycle: 9, cycle_age_ms: 200, picture_age_ms: 300 };
    camera.say = feed(response, ["state", { time: at(0), run: "x", seq: 2, events, history, watching }], () => ({
      ...beats,
      time: at(0),
      wrong: camera.wrong,
    }));
    return true;
  }

  test("is green with good settings only, links to what is missing, hatches what it missed, tells of a restart", async () => {
    demo.gateway.intercept = healthy;
    const page = await open();
    await page.getByRole("button", { name: "Skip the guide" }).click();
    await chip(page, "Watching").waitFor();
    const earlier = await demo.read();
    await demo.store({ ...earlier, outOfBed: false, falls: false });
    await chip(page, "Not watching").waitFor();
    await demo.store({ ...earlier, falls: false });
    await chip(page, "Partly watching").waitFor();
    await isTold(page, NAMES.fall, "Not watched for");
    await page.getByRole("link", { name: "Set up: events" }).click();
    await page.waitForFunction(() => document.activeElement.id === "detections-heading");
    await demo.store(earlier);
    await chip(page, "Watching").waitFor();

    await ui.toView(page, "Picture");
    await says(page, "Hatched: not watching.");
    const cards = page.getByRole("list", { name: "What happened" }).getByRole("listitem");
    await says(cards.filter({ hasText: NAMES.fall }), /ended by a restart at .*not known/);
    assert.equal(await cards.filter({ hasText: "Not watching" }).count(), 2);
    assert.equal(await page.locator(".lane .unwatched").count(), 4);
    await says(cards.filter({ hasText: NAMES.fall }), `Because ${markup} 1.`);
    noComplaints(page);
  });

  test("shows what it does not see beside what it saw, hides no alarm, and leads to the floor when it was moved", async () => {
    demo.gateway.intercept = healthy;
    const page = await open();
    const wrong = (what) => [{ what, since: at(1), text: `The text of ${what}.` }];
    const sight = page.getByRole("region", { name: "What the camera sees" });
    const arePictures = (count) =>
      page.waitForFunction((wanted) => {
        const images = [...document.querySelectorAll(".sight img")];
        return images.length === wanted && images.every(({ naturalWidth }) => naturalWidth === 640);
      }, count);
    camera.wrong = wrong("lens-covered");
    await chip(page, "Not watching").waitFor();
    await says(page.getByRole("region", { name: "State" }), "The text of lens-covered.");
    await arePictures(2);
    camera.say("watching", { seq: 3, run: "x", active: false, time: at(0.5), why: "lens-covered" });
    await says(page, /Hatched: .*not watching: the lens was covered/);
    camera.say("change", { seq: 4, run: "x", name: FALL, active: true, time: at(0) });
    await title(page, /Fall detected/);
    await falls(page);

    camera.wrong = wrong("camera-moved");
    await arePictures(1);
    assert.deepEqual(await axeViolations(page), []);
    await page.getByRole("switch", { name: "Anonymise" }).click();
    await says(sight, /may show people/);
    const picture = await sight.getByRole("img").getAttribute("src");
    assert.match(picture, /show=both&anonymised=1/);
    await sight.getByRole("button", { name: "The floor points are right" }).click();
    await says(sight, /counts from now on/);
    await sight.getByRole("link", { name: "Check the floor points" }).click();
    await page.waitForFunction(() => document.activeElement.id === "editor-floor");
    camera.wrong = [];
    noComplaints(page);
  });

  test("says because of what an alarm began, and what is seen now, and waits for neither", async () => {
    demo.gateway.intercept = healthy;
    const page = await open();
    const scene = page.getByRole("region", { name: "What is seen now" });
    const reason = alarmOf(page, NAMES.fall).getByText(/^Because/);
    await scene.getByText("What is seen now").click();
    await says(scene, "<i>Person 3</i> lies.");
    assert.deepEqual(await axeViolations(page), []);
    camera.explains = false;
    camera.say("change", { seq: 3, run: "x", name: FALL, active: true, time: at(0) });
    await title(page, /Fall detected/);
    await falls(page);
    await says(scene, /[0-9]+ seconds ago:/);
    assert.equal(await reason.count(), 0);
    Object.assign(camera, { explains: true, explained: [1, 3] });
    await says(alarmOf(page, NAMES.fall), `Because ${markup} 3.`);
    await says(scene, "<i>Person 3</i> lies.");
    assert.deepEqual(await axeViolations(page), []);
    noComplaints(page);
  });

  /** Alarms of the test's own: `say` tells of one, `answers` are what the page has answered. */
  function wardOf(...alarms) {
    const own = { answers: [], say: null };
    const take = (request, response) => {
      let body = "";
      request.on("data", (chunk) => (body += chunk));
      request.on("end", () => {
        const { id, what, reason } = Object.fromEntries(new URLSearchParams(body));
        own.answers.push([id, what, reason]);
        response.end(JSON.stringify({ ...alarms.find((alarm) => alarm.id === id), state: "closed" }));
      });
      return true;
    };
    own.intercept = (request, response) => {
      const { url, method } = request;
      if (!url.startsWith("/platform/alarms")) return healthy(request, response);
      if (method === "POST") return take(request, response);
      const [first] = alarms;
      own.say = feed(response, ["alarms", { alarms: [first], pause: null }], () => ({}));
      return true;
    };
    return own;
  }

  for (const [who, view] of [
    ["a carer", "#wall"],
    ["a nurse", "#watch"],
  ]) {
    test(`${who} who types a reason loses none of it to a fall, which is in sight and gets none of it`, async () => {
      const alarm = (id, event, kind) => ({
        id,
        event,
        kind,
        run: "y",
        seq: 1,
        began: at(1),
        ended: null,
        answers: [],
      });
      const [exit, fall] = [alarm("exit", BED, "exit"), alarm("fall", FALL, "fall")].map((one) => ({
        ...one,
        ...{ state: "calling", level: 1 },
      }));
      const ward = wardOf(exit, fall);
      demo.gateway.intercept = ward.intercept;
      const page = await demo.open({ width: 360, height: 640 });
      await page.getByRole("button", { name: "Skip the guide" }).click();
      const shows = (name) => page.evaluate((hash) => (location.hash = hash), name);
      const card = ({ id }) => page.locator(`[data-alarm="${id}"]`);
      const own = ({ id }) => card({ id }).getByLabel("What was it?");
      const first = (id) =>
        page.waitForFunction((top) => document.querySelector("[data-alarm]").dataset.alarm === top, id);
      await shows(view);
      await card(exit).getByRole("button", { name: "False alarm" }).click();
      await card(exit).getByLabel("Something else").check();
      await own(exit).fill("The visitor");
      await page.keyboard.type("'s c");

      await own(exit).evaluate((input) => input.scrollIntoView());
      ward.say("alarm", fall);
      await first(fall.id);
      const [{ y, height }, below] = [await card(fall).boundingBox(), await card(exit).boundingBox()];
      assert.ok(y >= 0 && y + height <= 640 && below.y >= y + height, `from ${y} to ${y + height}, then ${below.y}`);
      await page.keyboard.type("oat");
      await shows("#streams");
      await gone(card(exit));
      await shows(view);
      assert.equal(await own(exit).inputValue(), "The visitor's coat");

      await card(fall).getByRole("button", { name: "False alarm" }).click();
      await card(fall).getByLabel("It was a thing").check();
      await own(exit).focus();
      ward.say("alarm", { ...fall, kind: "exit", state: "coming" });
      await first(exit.id);
      await page.keyboard.type("s");
      await page.keyboard.press("Enter");
      await gone(card(exit));
      await card(fall).getByRole("group").waitFor();
      await card(fall).getByRole("button", { name: "False alarm" }).click();
      await gone(card(fall));
      assert.deepEqual(ward.answers, [
        [exit.id, "false_alarm", "The visitor's coats"],
        [fall.id, "false_alarm", "It was a thing"],
      ]);
      noComplaints(page);
    });
  }
});
