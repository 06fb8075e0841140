/**
 * What rooms on one machine cost, and whether a long watch stays flat: so many programs at once, each on the demo again and again.
 *   node benchmarks/rooms.js [--minutes M] [--lines N] [--viewers V] ROOMS...
 * For each number of rooms a table of N lines (1), each about M minutes (3): medians over the rooms, the worst beside them.
 * V viewers of each room (0) read its picture. Two hours of one room: --minutes 10 --lines 12 --viewers 5 1
 * VELMOR_PROGRAMS names the folder of the programs.
 */
import { readFile, readdir } from "node:fs/promises";
import { get } from "node:http";
import { setTimeout as sleep } from "node:timers/promises";
import { parseArgs } from "node:util";
import { demoCamera, demoParameters, startProgram } from "../tests/web/program.js";

const OPTIONS = { minutes: { type: "string" }, lines: { type: "string" }, viewers: { type: "string" } };
const { values, positionals } = parseArgs({ options: OPTIONS, allowPositionals: true });
const [MINUTES, LINES, VIEWERS] = [values.minutes ?? 3, values.lines ?? 1, values.viewers ?? 0].map(Number);
const SETTLES_MS = 10000;
const SAMPLE_MS = 5000;
/** Of the kernel's processor times. */
const TICKS_A_SECOND = 100;

const sorted = (numbers) => [...numbers].sort((a, b) => a - b);
const middle = (numbers) => sorted(numbers)[Math.floor(numbers.length / 2)];
const worst = (numbers) => Math.max(...numbers);

/** Follows the feed: `beat` is the last heartbeat, `events` what has begun and ended. */
function follow(room) {
  let text = "";
  const take = (message) => {
    const [, event, data] = /^event: (\w+)\ndata: (.*)$/m.exec(message) ?? [];
    if (event === "heartbeat") room.beat = JSON.parse(data);
    if (event === "change") {
      const { name, active } = JSON.parse(data);
      room.events.push(`${name} ${active ? "begins" : "ends"}`);
    }
  };
  get(new URL("/platform/events", room.program.page), (answer) => {
    answer.setEncoding("utf8").on("data", (chunk) => {
      text += chunk;
      for (let end = text.indexOf("\n\n"); end >= 0; end = text.indexOf("\n\n")) {
        take(text.slice(0, end));
        text = text.slice(end + 2);
      }
    });
    answer.on("error", () => {});
  }).on("error", () => {});
}

const view = ({ program }) =>
  get(new URL("/axis-cgi/mjpg/video.cgi?resolution=1280x720", program.page), (answer) => {
    answer.on("error", () => {}).resume();
  }).on("error", () => {});

/** The program's process: seconds of processor time, megabytes now and at most, open descriptors. */
async function costOf({ process }) {
  const [stat, status, descriptors] = await Promise.all([
    readFile(`/proc/${process}/stat`, "utf8"),
    readFile(`/proc/${process}/status`, "utf8"),
    readdir(`/proc/${process}/fd`),
  ]);
  const fields = stat.slice(stat.lastIndexOf(")") + 2).split(" ");
  const megabytes = (name) => Number(new RegExp(`^${name}:\\s+(\\d+)`, "m").exec(status)[1]) / 1024;
  return {
    seconds: (Number(fields[11]) + Number(fields[12])) / TICKS_A_SECOND,
    memory: megabytes("VmRSS"),
    peak: megabytes("VmHWM"),
    descriptors: descriptors.length,
  };
}

/** What a room does until the time is up. */
async function measure(room) {
  const [before, first] = [await costOf(room), room.beat];
  const times = [];
  for (const end = Date.now() + MINUTES * 60000; Date.now() < end; await sleep(SAMPLE_MS))
    times.push(room.beat.cycle_ms);
  const after = await costOf(room);
  return {
    ...after,
    cycle: middle(times),
    longest: worst(times),
    processor: ((after.seconds - before.seconds) * 1000) / (room.beat.cycle - first.cycle),
    leftOut: (room.beat.ticks_left_out - first.ticks_left_out) / MINUTES,
  };
}

const both = (all, name, digits = 0) =>
  [middle, worst].map((of) => of(all.map((one) => one[name])).toFixed(digits)).join(" / ");

/** Whether each room has told the same events, as far as all have come. */
function areAlike(rooms) {
  const length = Math.min(...rooms.map(({ events }) => events.length));
  const told = new Set(rooms.map(({ events }) => events.slice(0, length).join(", ")));
  return told.size === 1 ? `the same ${length}` : `not the same: ${[...told].join(" | ")}`;
}

console.log(
  "| rooms | minute | cycle, ms | longest | processor time a cycle, ms | left out a minute of 120 | memory, MB | peak | descriptors | events |",
);
console.log("|---|---|---|---|---|---|---|---|---|---|");
for (const count of positionals.map(Number)) {
  const starts = Array.from({ length: count }, () => startProgram({ ...demoCamera(), parameters: demoParameters() }));
  const rooms = (await Promise.all(starts)).map((program) => ({ program, events: [] }));
  for (const room of rooms) {
    room.process = await room.program.process();
    follow(room);
    for (let viewer = 0; viewer < VIEWERS; ++viewer) view(room);
  }
  await sleep(SETTLES_MS);
  for (let line = 1; line <= LINES; ++line) {
    const all = await Promise.all(rooms.map(measure));
    const columns = ["cycle", "longest", "processor", "leftOut", "memory", "peak", "descriptors"];
    const cells = [count, line * MINUTES, ...columns.map((name) => both(all, name)), areAlike(rooms)];
    console.log(`| ${cells.join(" | ")} |`);
  }
  for (const { program } of rooms) await program.stop();
}
