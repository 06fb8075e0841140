// A ward as it is set up and lives: https, an installer, carers on telephones, a receiver; and what goes wrong there.
import assert from "node:assert/strict";
import { execFile } from "node:child_process";
import { mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, afterEach, before, test } from "node:test";
import { promisify } from "node:util";
import { NAMES, axeViolations, openBrowser, openPage, pictureIsLive, says, toView } from "../browser.js";
import { followGuide } from "../guide.js";
import { demoCamera, makeFolder, runFor, startIn, until } from "../program.js";
import { Receiver } from "../receiver.js";

const run = promisify(execFile);
const TELEPHONE = { width: 360, height: 640, hasTouch: true, isMobile: true };
const SECRET = "a secret of the ward's";
const FALL_MS = 150000;

const ward = { pages: [], receiver: new Receiver(SECRET), people: {} };

/** A browser that was given the ward's authority, as docs/people.md says, and finds the machine by its name. */
async function believingBrowser(authority, page) {
  ward.home = await mkdtemp(join(tmpdir(), "velmor-home-"));
  const database = ["-d", `sql:${join(ward.home, ".pki/nssdb")}`];
  await run("mkdir", ["-p", join(ward.home, ".pki/nssdb")]);
  await run("certutil", [...database, "-N", "--empty-password"]);
  await run("certutil", [...database, "-A", "-n", "ward", "-t", "C,,", "-i", authority]);
  return openBrowser([`--host-resolver-rules=MAP ${page.hostname} 127.0.0.1`], ward.home);
}

before(async () => {
  const folder = await makeFolder(demoCamera());
  const { stdout } = await runFor(folder, "tls");
  ward.program = await startIn(folder, "0.0.0.0:0", true);
  ward.browser = await believingBrowser(/^Authority: (.*)$/m.exec(stdout)[1], ward.program.page);
  ward.address = await ward.receiver.begin();
});
afterEach(async () => {
  for (const page of ward.pages.splice(0)) await page.context().close();
});
after(async () => {
  await ward.browser?.close();
  await ward.program?.stop();
  ward.receiver.end();
  if (ward.home) await rm(ward.home, { recursive: true, force: true });
});

/** Counts the sounds that a page begins. */
const listen = (page) =>
  page.addInitScript(() => {
    window.sounds = 0;
    const { start } = OscillatorNode.prototype;
    OscillatorNode.prototype.start = function count(...when) {
      window.sounds += 1;
      return start.apply(this, when);
    };
  });
const sounds = (page) => page.evaluate(() => window.sounds);
const moreSounds = (page, than) => page.waitForFunction((count) => window.sounds > count, than);

async function open(options) {
  const page = await openPage(ward.browser, new URL("about:blank"), options);
  ward.pages.push(page);
  await listen(page);
  await page.goto(ward.program.page.href);
  return page;
}

async function signIn(page, name, password = ward.people[name]) {
  await page.getByLabel("Name", { exact: true }).fill(name);
  await page.getByLabel("Password", { exact: true }).fill(password);
  await page.getByRole("button", { name: "Sign in" }).click();
}

/** A carer's telephone, with what it was asked for allowed. */
async function telephone(name) {
  const page = await open({ ...TELEPHONE, permissions: ["notifications"] });
  await signIn(page, name);
  await page.getByRole("button", { name: "Turn the sound on" }).click();
  await pictureIsLive(page, "Live picture, anonymised");
  return page;
}

const alarmsOf = (page) => page.evaluate(async () => (await (await fetch("/platform/alarms")).json()).alarms);

/** What a page's own requests are answered with. */
const asks = (page, requests) =>
  page.evaluate(
    (all) =>
      Promise.all(
        all.map(async ([address, form]) => {
          const stop = new AbortController();
          const request = form === undefined ? {} : { method: "POST", body: new URLSearchParams(form) };
          const headers = { "X-Requested-With": "test" };
          const { status } = await fetch(address, { ...request, headers, signal: stop.signal });
          stop.abort();
          return status;
        }),
      ),
    requests,
  );
const card = (page, { id }) => page.locator(`[data-alarm="${id}"]`);
const press = (place, name) => place.getByRole("button", { name }).click();

/** How many cycles the camera has made from one heartbeat to the next but one. */
const cyclesNow = (page) =>
  page.evaluate(
    () =>
      new Promise((resolve) => {
        const feed = new EventSource("/platform/events");
        const seen = [];
        feed.addEventListener("heartbeat", ({ data }) => {
          if (seen.push(JSON.parse(data).cycle) < 3) return;
          feed.close();
          resolve(seen[2] - seen[0]);
        });
      }),
  );

/** Waits until the camera has gone on while one and the same call hung at the receiver. */
const goesOnWhileHanging = (page) =>
  until(async () => {
    const [held] = ward.receiver.held;
    return held && (await cyclesNow(page)) >= 2 && ward.receiver.held.has(held);
  });

/** Answers what earlier tests have left open. */
async function resolveAll(page) {
  const left = (await alarmsOf(page)).filter(({ state }) => state !== "closed");
  await asks(
    page,
    left.map(({ id }) => ["/platform/alarms", { action: "answer", id, what: "resolved" }]),
  );
}

/** Waits for a fall that nobody has answered. */
async function fallOn(page) {
  const calling = page.locator("article.tone-alarm").filter({ hasText: NAMES.fall });
  await calling.first().waitFor({ timeout: FALL_MS });
  return { id: await calling.first().getAttribute("data-alarm") };
}

/** Killed, and started again at the same address. */
async function killAndStart() {
  const { folder, page } = ward.program;
  await ward.program.kill();
  ward.program = await startIn(folder, `0.0.0.0:${page.port}`);
}

/** That nothing is missing in what the receiver has got, and nothing twice. */
function gotEachNumber() {
  const { calls, unsigned } = ward.receiver;
  assert.equal(unsigned, 0);
  assert.deepEqual(
    calls.map(({ previous }) => previous),
    [0, ...calls.map(({ number }) => number)].slice(0, -1),
  );
}

/** Adds two people; the second name is typed before the list comes that the first one made longer. */
async function addInAHurry(page, first, second) {
  const name = page.getByLabel("Name of a new person");
  const add = async (carer) => {
    await press(page, "Add");
    ward.people[carer] = await page.getByRole("alert").locator("code").textContent();
    await press(page, "Noted");
  };
  await name.waitFor(); // the view's own list has come: what is held back below is asked for by an addition
  let goOn;
  const typed = new Promise((resolve) => {
    goOn = resolve;
  });
  await page.route("**/platform/people", async (route) => {
    if (route.request().method() === "GET") await typed;
    await route.continue();
  });
  await name.fill(first);
  await add(first);
  await name.fill(second);
  goOn();
  await page.getByText(first, { exact: true }).waitFor();
  assert.equal(await name.inputValue(), second);
  await add(second);
  await page.waitForFunction((input) => input.value === "", await name.elementHandle());
}

test("the installer signs in with the password that the first start shows once, follows the guide, sets up people and calls", async () => {
  const [, name, password] = /name +(\S+)\s+password +(\S+)/.exec(ward.program.output);
  ward.installer = name;
  ward.people[name] = password;
  const page = await open();
  assert.ok(await page.evaluate(() => isSecureContext));
  await signIn(page, name);
  await says(page, "The first password was shown to somebody else");
  await page.getByLabel("Old password").fill(password);
  ward.people[name] = "the installer's own";
  await page.getByLabel("New password").fill(ward.people[name]);
  await press(page, "Change it");
  await page.getByLabel("Old password").waitFor({ state: "detached" });
  await followGuide(page);
  await toView(page, "People");
  await addInAHurry(page, "Ben", "Cleo");
  await toView(page, "Alarms");
  const level = page.getByRole("region", { name: "Level 1" });
  await press(level, "Add an address");
  await level.getByLabel("Name").fill("ward phone");
  await level.getByLabel("Address that is called").fill(ward.address);
  await level.getByLabel("Secret").fill(SECRET);
  await press(page, "Save the calls");
  await says(page, "Saved.");
  await toView(page, "System");
  await says(page, /people\.carer\.Cleo|Cleo/);
});

test("a pause that one telephone begins is counted down on another, which ends it for both", async () => {
  const pages = [await telephone("Ben"), await telephone("Cleo")];
  const [ben] = pages;
  const [pause, other] = pages.map((page) => page.getByRole("region", { name: "Pause of the calls" }));
  await resolveAll(ben);
  await ben.getByText("Carer in the room: pause the calls").click();
  await ben.getByLabel("For how long").selectOption("5 minutes");
  await press(ben, "Pause");
  for (const place of [pause, other]) await says(place, /^Calls are paused until .*, by Ben\.$/);
  const left = async () => {
    const words = await other.getByText(/ left$/).textContent();
    const [, minutes = 0, seconds = 0] = /^(?:(\d+) minutes?)? ?(?:(\d+) seconds?)? left$/.exec(words);
    return 60 * minutes + Number(seconds);
  };
  const first = await left();
  assert.ok(first <= 300, `${first} s of five minutes`);
  await until(async () => (await left()) < first);
  await press(other, "End the pause");
  for (const place of [pause, other]) await place.waitFor({ state: "detached" });
  const { pause: now } = await ben.evaluate(async () => (await fetch("/platform/alarms")).json());
  assert.equal(now, null);
});

test("the page can be installed and shown on the whole screen; signed out it shows nothing", async () => {
  const page = await open();
  await signIn(page, ward.installer);
  await press(page, "Skip the guide");
  await pictureIsLive(page);
  await page.evaluate(() => navigator.serviceWorker.ready);
  const browser = await page.context().newCDPSession(page);
  const { url, errors } = await browser.send("Page.getAppManifest");
  assert.deepEqual([url.split("/").pop(), errors], ["page.webmanifest", []]);
  const { installabilityErrors } = await browser.send("Page.getInstallabilityErrors");
  const reasons = installabilityErrors.map(({ errorId }) => errorId);
  assert.deepEqual(reasons, ["in-incognito"], "nothing but how the browser was opened here");

  await toView(page, "Alarms");
  await press(page, "Full screen");
  await page.waitForFunction(() => document.fullscreenElement === document.documentElement);
  await press(page, "Full screen");
  await page.waitForFunction(() => document.fullscreenElement === null);

  await toView(page, "Picture");
  await pictureIsLive(page);
  await page.getByText(ward.installer, { exact: true }).click();
  await press(page, "Sign out");
  await page.getByLabel("Name", { exact: true }).waitFor();
  assert.equal(await page.getByRole("img", { name: /Live picture/ }).count(), 0);
  assert.deepEqual(await asks(page, [["/axis-cgi/jpg/image.cgi"], ["/platform/alarms"]]), [401, 401]);
});

test("without signing in nobody sees anything, and a page says so", async () => {
  const page = await open();
  await page.getByRole("heading", { name: "Sign in" }).waitFor();
  await says(page, /tells of no alarm/);
  assert.deepEqual(await axeViolations(page), []);
  assert.deepEqual(await asks(page, [["/platform/events"], ["/platform/alarms/feed"]]), [401, 401]);
  await signIn(page, "Ben", "a wrong one");
  await page.getByRole("alert").filter({ hasText: /wrong/ }).waitFor();
  assert.equal(await page.getByRole("img", { name: /Live picture/ }).count(), 0);
});

test("a telephone tries the whole way and says what works", async () => {
  await killAndStart();
  const page = await telephone("Ben");
  await resolveAll(page);
  await page.getByText("This device", { exact: true }).first().click();
  await press(page, "Test alarm");
  for (const came of ["To the camera and back: works", "Sound: played", "Notification: shown"]) await says(page, came);
  await until(() => ward.receiver.calls.some(({ what, test: tried }) => what === "test" && tried));
});

test("a fall calls on through a receiver that hangs, a kill, a full disk and two who answer at once, who misses nothing", async () => {
  const [ben, cleo] = [await telephone("Ben"), await telephone("Cleo")];
  const second = await ben.context().newPage();
  await listen(second);
  await second.goto(ward.program.page.href);
  ward.receiver.hangs = true;
  await resolveAll(ben);
  await asks(ben, [["/platform/alarms", { action: "test" }]]);
  const fall = await fallOn(ben);
  await says(card(cleo, fall), /Nobody has answered/);
  await goesOnWhileHanging(ben);
  await moreSounds(ben, await sounds(ben));
  assert.equal(await sounds(second), 0, "one tab sounds for all");
  await second.close();
  assert.match(await ben.title(), /^▲ .*Fall detected/);
  assert.equal(await ben.locator('link[rel="icon"]').getAttribute("href"), "icon-fall.svg");

  Object.assign(ward.receiver, { hangs: false, fails: true });
  await killAndStart();
  await says(card(ben, fall), NAMES.fall);
  await until(async () =>
    (await alarmsOf(ben).catch(() => [])).some(({ id, state }) => id === fall.id && state === "calling"),
  );

  const camera = String(await ward.program.process());
  await run("prlimit", ["--pid", camera, "--fsize=1"]);
  await press(card(ben, fall), "I'm on my way");
  await says(card(ben, fall), "Your answer is not stored yet");
  await says(card(cleo, fall), /Nobody has answered/);
  await killAndStart();
  await until(async () => (await alarmsOf(cleo).catch(() => [])).some(({ id }) => id === fall.id));
  const kept = (await alarmsOf(cleo)).find(({ id }) => id === fall.id);
  assert.deepEqual([kept.state, kept.answers], ["calling", []]);
  assert.ok(ward.receiver.failed > 0);
  ward.receiver.fails = false;

  const coming = (page) => press(card(page, fall), "I'm on my way");
  await Promise.all([coming(ben), coming(cleo)]);
  const words = /^(Ben|Cleo) is on the way since/;
  await Promise.all([says(card(ben, fall), words), says(card(cleo, fall), words)]);
  const told = async (page) => (await card(page, fall).getByText(words).textContent()).split(" ")[0];
  await until(async () => (await told(ben)) === (await told(cleo))); // each is told of their own answer first
  const { answers } = (await alarmsOf(ben)).find(({ id }) => id === fall.id);
  assert.deepEqual(answers.map(({ by }) => by).sort(), ["Ben", "Cleo"]);
  await press(card(cleo, fall), "Resolved");
  await card(ben, fall).waitFor({ state: "detached" });

  const isClosed = ({ what, alarm }) => what === "closed" && alarm?.id === fall.id;
  await until(() => ward.receiver.calls.some(isClosed));
  gotEachNumber();
});

test("a carer's limit: neither the room nor the settings, however they are asked for", async () => {
  const page = await open(TELEPHONE);
  await signIn(page, "Ben");
  await pictureIsLive(page, "Live picture, anonymised");
  assert.equal(await page.getByRole("navigation").count(), 0);
  const program = "/local/velmor_care/control.cgi";
  const requests = [
    [`${program}?action=get_status_code`],
    ["/platform/anonymised.jpg"],
    ["/platform/alarms"],
    [`${program}?action=get_all_parameters`],
    [`${program}?action=get_status_code`, { action: "get_all_parameters" }],
    [`${program}?action=get_status_code&action=set_all_parameters`],
    ["/axis-cgi/jpg/image.cgi?resolution=800x450"],
    ["/axis-cgi/mjpg/video.cgi?resolution=800x450&anonymised=1"],
    ["/platform/people"],
    ["/platform/settings"],
    ["/platform/calls", { document: "{}" }],
    ["/platform/camera"],
  ];
  assert.deepEqual(await asks(page, requests), [200, 200, 200, ...Array(9).fill(403)]);
});
