/** Debian's Chromium on the program's page, found by roles and names as a user of it would. */
import { readFile } from "node:fs/promises";
import { createRequire } from "node:module";
import assert from "node:assert/strict";
import { chromium } from "playwright-core";

/** The events as the page names them. */
export const NAMES = { fall: "Fall detected", exit: "Patient out of bed" };

/** An alarm with its answers, and the line of an event of which there is none. */
export const alarmOf = (page, name) =>
  page.getByRole("article").filter({ has: page.getByRole("heading", { name, exact: true }) });
export const lineOf = (page, name) =>
  page.getByRole("region", { name: "Events", exact: true }).getByRole("listitem").filter({ hasText: name });

/** The picture with what the program found, in both views. */
const LIVE = /Live picture of the room/;

/** For what a loaded machine with sanitizers takes; no test passes sooner by a smaller one. */
const PATIENCE_MS = 60000;

const QUIET = ["background-networking", "component-update", "sync"].map((what) => `--disable-${what}`);
const FLAGS = ["--no-sandbox", "--no-proxy-server", "--disable-gpu", "--disable-quic", "--no-first-run", ...QUIET];

/** @param {string} [home] a home directory of its own, with the authorities that it trusts */
export function openBrowser(flags = [], home = process.env.HOME) {
  const executablePath = process.env.CHROMIUM ?? "/usr/bin/chromium";
  return chromium.launch({ executablePath, args: [...FLAGS, ...flags], env: { ...process.env, HOME: home } });
}

/**
 * A page of a user who has never been here. `page.complaints` gathers what the browser complains about: exceptions,
 * broken rules of the content security policy, missing files with their addresses.
 */
export async function openPage(browser, address, { width = 1280, height = 900, ...options } = {}) {
  const context = await browser.newContext({ viewport: { width, height }, ...options });
  context.setDefaultTimeout(PATIENCE_MS);
  const page = await context.newPage();
  page.complaints = [];
  page.on("pageerror", (error) => page.complaints.push(String(error)));
  page.on("console", (message) => message.type() === "error" && page.complaints.push(complaintOf(message)));
  page.on("dialog", (dialog) => {
    page.complaints.push(`dialog: ${dialog.message()}`);
    dialog.dismiss();
  });
  await page.goto(address.href, { waitUntil: "domcontentloaded" });
  return page;
}

/** The same for somebody who knows the page: where the floor and the areas are drawn, without the guide. */
export async function openSetup(browser, address, options) {
  const page = await openPage(browser, address, options);
  await page.getByRole("button", { name: "Skip the guide" }).click();
  await toView(page, /^Floor/);
  await pictureIsLive(page);
  return page;
}

export const toView = (page, name) =>
  page.getByRole("navigation", { name: "Views" }).getByRole("link", { name }).click();

/** "/platform/session: … status of 404 (Not Found)". */
function complaintOf(message) {
  const { url } = message.location();
  return url ? `${new URL(url).pathname}: ${message.text()}` : message.text();
}

/** @param {string[]} absent addresses that this camera does not have: each may have been asked for once, to learn that */
export function noComplaints(page, absent = []) {
  const allowed = new Set(absent);
  const isAllowed = (complaint) => / 404 /.test(complaint) && allowed.delete(complaint.split(":")[0]);
  assert.deepEqual(
    page.complaints.filter((complaint) => !isAllowed(complaint)),
    [],
  );
}

/** Waits until the page's live picture shows a picture. */
export async function pictureIsLive(page, name = LIVE) {
  const picture = page.getByRole("img", { name });
  await picture.waitFor();
  await page.waitForFunction((image) => image.naturalWidth > 0, await picture.elementHandle());
  await page.getByText("Waiting for the camera's picture.").waitFor({ state: "detached" });
  return picture;
}

/** Waits until a part of the page shows a text. */
export const says = (place, text) => place.getByText(text).first().waitFor();

/** Saves and waits for what the page says about it. */
export async function save(page, expected = /Saved and read back at/) {
  await page.getByRole("button", { name: "Save" }).click();
  await says(page.getByRole("region", { name: "Saving" }), expected);
}

/** The handle of a corner, a floor point or the figure. */
export const handle = (page, name) => page.getByRole("slider", { name, exact: true });

/** Drags a handle to a point of the analysis picture, in shares of its width and height. */
export async function drag(page, name, x, y) {
  const picture = await page.getByRole("img", { name: LIVE }).boundingBox();
  const from = await handle(page, name).boundingBox();
  await page.mouse.move(from.x + from.width / 2, from.y + from.height / 2);
  await page.mouse.down();
  await page.mouse.move(picture.x + x * picture.width, picture.y + y * picture.height, { steps: 4 });
  await page.mouse.up();
}

/** Where a handle says that it is: [across, down]. */
export async function whereabouts(page, name) {
  return (await handle(page, name).getAttribute("aria-valuetext")).match(/\d+/g).map(Number);
}

const axeSource = readFile(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");

/** What axe finds wrong with the page as it is now. */
export async function axeViolations(page) {
  await page.evaluate(await axeSource);
  const { violations } = await page.evaluate(() => window.axe.run(document, { resultTypes: ["violations"] }));
  return violations.flatMap(({ id, nodes }) => nodes.map((node) => `${id}: ${node.target} ${node.failureSummary}`));
}
