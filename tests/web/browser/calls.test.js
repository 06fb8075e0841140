// An alarm from its call to its end: an installer lets a carer in, who hears it on a telephone and answers.
import assert from "node:assert/strict";
import { describe, test } from "node:test";
import { NAMES, alarmOf, axeViolations, noComplaints, openPage, pictureIsLive, says, toView } from "../browser.js";
import { onTheDemo } from "../demo.js";

const TELEPHONE = { width: 360, height: 640, hasTouch: true, isMobile: true };
const BEN = { name: "Ben" };

const demo = onTheDemo();

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
  const page = await openPage(demo.browser, new URL("about:blank"), options);
  demo.pages.push(page);
  await listen(page);
  await page.goto(demo.program.page.href);
  return page;
}

async function signIn(page, { name, password }) {
  await page.getByLabel("Name", { exact: true }).fill(name);
  await page.getByLabel("Password", { exact: true }).fill(password);
  await page.getByRole("button", { name: "Sign in" }).click();
}

/** Adds a person in the installer's list. @returns {Promise<string>} the password that is shown once */
async function add(page, name, role) {
  await page.getByLabel("Name of a new person").fill(name);
  await page.getByLabel("Role", { exact: true }).first().selectOption(role);
  await page.getByRole("button", { name: "Add", exact: true }).click();
  const shown = page.getByRole("alert").filter({ hasText: `Password of ${name}:` });
  const password = await shown.locator("code").textContent();
  await shown.getByRole("button", { name: "Noted" }).click();
  return password;
}

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

describe("from the first person to an alarm that is resolved", () => {
  const installer = { name: "Anna" };

  test("the installer adds herself and a carer; from then on nobody sees anything without signing in", async () => {
    const page = await open();
    await page.getByRole("button", { name: "Skip the guide" }).click();
    await toView(page, "People");
    installer.password = await add(page, installer.name, "installer");
    await says(page, "Anna");
    BEN.password = await add(page, BEN.name, "carer");
    const other = await open();
    await other.getByRole("heading", { name: "Sign in" }).waitFor();
    await says(other, /tells of no alarm/);
    assert.deepEqual(await axeViolations(other), []);
    assert.deepEqual(await asks(other, [["/platform/events"], ["/platform/alarms/feed"]]), [401, 401]);
    await signIn(other, { ...BEN, password: "a wrong one" });
    await other.getByRole("alert").filter({ hasText: /wrong/ }).waitFor();
    assert.equal(await other.getByRole("img", { name: /Live picture/ }).count(), 0);
  });

  test("a carer hears the fall on a telephone, answers and resolves it, and every page of everybody knows", async () => {
    const page = await open(TELEPHONE);
    await signIn(page, BEN);
    const later = page.getByRole("button", { name: "Later" });
    await later
      .or(page.getByRole("button", { name: "Turn the sound on" }))
      .first()
      .waitFor();
    if (await later.count()) await later.click();
    const second = await page.context().newPage();
    await listen(second);
    await second.goto(demo.program.page.href);
    const watching = await open();
    await signIn(watching, installer);
    await says(page, "No sound from this device yet.");
    await page.getByRole("button", { name: "Turn the sound on" }).click();
    await page.getByText("No sound from this device yet.").waitFor({ state: "detached" });
    await pictureIsLive(page, "Live picture, anonymised");

    const fall = alarmOf(page, NAMES.fall);
    await fall.waitFor({ timeout: 150000 });
    const before = await sounds(page);
    await moreSounds(page, before);
    await moreSounds(page, before + 4);
    assert.equal(await sounds(second), 0, "one tab sounds for all");
    assert.match(await page.title(), /^▲ .*Fall detected/);
    assert.equal(await page.locator('link[rel="icon"]').getAttribute("href"), "icon-fall.svg");
    assert.deepEqual(await axeViolations(page), []);
    const { wide, high } = await page.evaluate(() => ({
      wide: document.documentElement.scrollWidth - innerWidth,
      high: document.querySelector("[data-alarm]").getBoundingClientRect().bottom - innerHeight,
    }));
    assert.deepEqual([wide, high <= 0], [0, true], "the answer is in sight without scrolling");

    await fall.getByRole("button", { name: "I'm on my way" }).click();
    await says(fall, /^Ben is on the way since/);
    await says(alarmOf(second, NAMES.fall), /^Ben is on the way since/);
    await says(alarmOf(watching, NAMES.fall), /^Ben is on the way since/);
    await fall.getByRole("button", { name: "Resolved" }).click();
    await fall.waitFor({ state: "detached" });
    await alarmOf(watching, NAMES.fall).waitFor({ state: "detached" });
    await says(watching.getByRole("list", { name: "What happened" }), /^Resolved by Ben/);
    noComplaints(page);
  });

  test("a carer's limit: neither the room nor the settings, however they are asked for", async () => {
    const page = await open(TELEPHONE);
    await signIn(page, BEN);
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
});
