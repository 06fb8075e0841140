/**
 * How soon an alarm is heard: node benchmarks/calls.js [loaded] [EVENTS] lets the demo's patient get up and fall again and
 * again, with 20 viewers of the anonymised picture, and prints how long after each event, and after the picture that it was
 * decided on, the page began to sound and the webhook was called; `loaded` keeps the processors busy besides. Some 25 s an
 * event (6). VELMOR_PROGRAMS names the folder of the programs.
 */
import { spawn } from "node:child_process";
import { readFile } from "node:fs/promises";
import { get } from "node:http";
import { availableParallelism } from "node:os";
import { setTimeout as sleep } from "node:timers/promises";
import { openBrowser } from "../tests/web/browser.js";
import { demoCamera, demoParameters, startProgram } from "../tests/web/program.js";
import { Receiver } from "../tests/web/receiver.js";

const VIEWERS = 20;
const EVENTS = Number(process.argv.at(-1)) || 6;
/** Of each 100 ms a busy process takes so many, beside what else there is to do. */
const BUSY_MS = 85;
const BUSY = `for (;;) { const end = Date.now() + ${BUSY_MS}; while (Date.now() < end); Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, ${100 - BUSY_MS}); }`;
const SECRET = "a benchmark's secret";

const sorted = (numbers) => [...numbers].sort((a, b) => a - b);
const line = (what, numbers) =>
  `${what}: median ${sorted(numbers)[Math.floor(numbers.length / 2)]} ms, worst ${Math.max(...numbers)} ms`;

/** Processor time of the machine: [not idle, all], in ticks. */
async function processorTime() {
  const [first] = (await readFile("/proc/stat", "utf8")).split("\n");
  const ticks = first.split(/\s+/).slice(1, 9).map(Number);
  const all = ticks.reduce((sum, each) => sum + each, 0);
  return [all - ticks[3] - ticks[4], all];
}

/**
 * Notes when the page begins a sound, in milliseconds since 1970, and each second how long the last picture took to be
 * decided on.
 */
function listen() {
  window.heard = [];
  window.beats = [];
  new EventSource("/platform/events").addEventListener("heartbeat", ({ data }) => {
    const { time, delay_ms: delay } = JSON.parse(data);
    window.beats.push({ at: Date.parse(time), delay });
  });
  const { start } = OscillatorNode.prototype;
  OscillatorNode.prototype.start = function note(...when) {
    window.heard.push(Date.now());
    return start.apply(this, when);
  };
}

const receiver = new Receiver(SECRET);
const calledAt = new Map();
const take = receiver.take.bind(receiver);
receiver.take = (headers, body) => {
  const { what, alarm } = JSON.parse(body);
  if (what === "called" && !calledAt.has(alarm.id)) calledAt.set(alarm.id, Date.now());
  return take(headers, body);
};

const program = await startProgram({ ...demoCamera(), parameters: demoParameters() });
const browser = await openBrowser();
const busy = [];
try {
  const post = (path, form) =>
    fetch(new URL(path, program.page), {
      method: "POST",
      headers: { "X-Requested-With": "benchmark" },
      body: new URLSearchParams(form),
    });
  const levels = [[{ kind: "people" }, { kind: "webhook", name: "ward", url: await receiver.begin(), secret: SECRET }]];
  const { ok } = await post("/platform/calls", { document: JSON.stringify({ levels }) });
  if (!ok) throw new Error("the calls were refused");
  const page = await browser.newPage();
  await page.addInitScript(listen);
  await page.goto(program.page.href);
  await page.getByRole("button", { name: "Turn the sound on" }).click();
  for (let viewer = 0; viewer < VIEWERS; ++viewer) {
    get(new URL("/platform/anonymised.mjpg", program.page), (answer) => answer.on("error", () => {}).resume()).on(
      "error",
      () => {},
    );
  }
  if (process.argv.includes("loaded")) {
    for (let one = 0; one < availableParallelism(); ++one) busy.push(spawn(process.execPath, ["-e", BUSY]));
  }
  const before = await processorTime();
  const sounds = [];
  const calls = [];
  const pictures = [];
  const cycles = [];
  for (const answered = new Set(); answered.size < EVENTS; await sleep(200)) {
    cycles.push(Number(await program.ask("get_execution_time")));
    const { alarms } = await (await fetch(new URL("/platform/alarms", program.page))).json();
    for (const { id, began } of alarms.filter(({ state }) => state === "calling")) {
      if (answered.has(id) || !calledAt.has(id)) continue;
      const heard = (await page.evaluate(() => window.heard)).find((time) => time >= Date.parse(began));
      const beat = (await page.evaluate(() => window.beats)).find(({ at }) => at >= Date.parse(began));
      if (heard === undefined || beat === undefined) continue;
      answered.add(id);
      pictures.push(beat.delay);
      sounds.push(heard - Date.parse(began));
      calls.push(calledAt.get(id) - Date.parse(began));
      await post("/platform/alarms", { action: "answer", id, what: "resolved" });
    }
  }
  const after = await processorTime();
  const load = (100 * (after[0] - before[0])) / (after[1] - before[1]);
  console.log(`${EVENTS} events, ${VIEWERS} viewers, processors busy ${load.toFixed(0)} %`);
  console.log(line("cycle", cycles));
  const whole = (parts) => parts.map((part, at) => part + pictures[at]);
  console.log(line("from the picture to the event", pictures));
  for (const [to, times] of [
    ["the page's sound", sounds],
    ["the webhook", calls],
  ]) {
    console.log(line(`from the event to ${to}`, times));
    console.log(line(`from the picture to ${to}`, whole(times)));
  }
} finally {
  busy.forEach((one) => one.kill());
  receiver.end();
  await browser.close();
  await program.stop();
}
