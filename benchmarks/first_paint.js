/**
 * How long the page takes to be useful on loopback, median of several first visits: node benchmarks/first_paint.js
 * Useful: the program's state in words and a live picture. Without alarms, and with ten thousand in the journal; before
 * that, how long a start takes until the page has an address and tells the alarms, networks and all.
 * VELMOR_PROGRAMS names a folder with the programs.
 */
import { mkdir, writeFile } from "node:fs/promises";
import { dirname } from "node:path";
import { openBrowser } from "../tests/web/browser.js";
import { alarmJournal, demoCamera, demoParameters, makeFolder, startIn } from "../tests/web/program.js";

const VISITS = 15;
const STARTS = 5;
const ALARMS = 10000;

/** What happened to an alarm that was answered and is over, as alarms.jsonl has it. */
function* journalLines() {
  const [run, t] = ["9f2c41d07b3e5a18", Math.floor(Date.now() / 1000) - 3600];
  const time = new Date(t * 1000).toISOString();
  const kinds = [
    { kind: "raised", event: "Fall Detected" },
    { kind: "called", level: 1, repeat: false },
    { kind: "answered", what: "resolved", by: "Anna", reason: "" },
    { kind: "ended", closed_at_start: false },
    { kind: "closed" },
  ];
  for (let seq = 1, n = 0; seq <= ALARMS; ++seq) {
    for (const { kind, ...details } of kinds) {
      yield JSON.stringify({ n: ++n, run, time, t, kind, alarm: `${run}-${seq}`, ...details });
    }
  }
}

async function folderWith(alarms) {
  const folder = await makeFolder({ ...demoCamera(), parameters: demoParameters() });
  if (alarms) {
    await mkdir(dirname(alarmJournal(folder)));
    await writeFile(alarmJournal(folder), [...journalLines(), ""].join("\n"));
  }
  return folder;
}

const toldBy = async (program) => (await fetch(new URL("/platform/alarms", program.page))).json();

/** The last of several starts, and how many milliseconds each took. */
async function start(withAlarms) {
  const took = [];
  for (;;) {
    const folder = await folderWith(withAlarms);
    const began = performance.now();
    const program = await startIn(folder, "127.0.0.1:0");
    const { alarms } = await toldBy(program);
    took.push(performance.now() - began);
    if (took.length === STARTS) return { program, alarms, took };
    await program.stop();
  }
}

/** Runs in the page from its first moment: notes the frame after which everything useful has been there. */
function watch() {
  const look = () => {
    const picture = document.querySelector(".picture-image")?.naturalWidth > 0;
    const state = /Watching|detected|out of bed/i.test(document.querySelector("header [role=status]")?.textContent);
    if (picture && state) requestAnimationFrame((now) => (window.usefulAt = now));
    else requestAnimationFrame(look);
  };
  requestAnimationFrame(look);
}

const median = (values) => values.sort((a, b) => a - b)[Math.floor(values.length / 2)];

async function measure(browser, withAlarms) {
  const { program, alarms, took } = await start(withAlarms);
  const visits = [];
  for (let visit = 0; visit < VISITS; ++visit) {
    const context = await browser.newContext({ viewport: { width: 1280, height: 900 } });
    const page = await context.newPage();
    await page.addInitScript(watch);
    await page.goto(program.page.href);
    await page.waitForFunction(() => window.usefulAt !== undefined);
    visits.push(
      await page.evaluate(() => ({
        paint: performance.getEntriesByName("first-contentful-paint")[0].startTime,
        useful: window.usefulAt,
      })),
    );
    await context.close();
  }
  await program.stop();
  for (const name of ["start", "paint", "useful"]) {
    const times = name === "start" ? took : visits.map((visit) => visit[name]);
    const told = `median ${median(times).toFixed(0)} ms, worst ${Math.max(...times).toFixed(0)} ms`;
    console.log(`${withAlarms ? ALARMS : "no"} alarms kept, ${alarms.length} told: ${name} ${told}`);
  }
}

const browser = await openBrowser();
for (const withAlarms of [false, true]) await measure(browser, withAlarms);
await browser.close();
