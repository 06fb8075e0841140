/**
 * How the program keeps up with viewers: `node benchmarks/viewers.js` opens 20 streams of 1280x720, watches for a minute, and prints
 * the frames a viewer got, the cycles' times and every status seen. VELMOR_PROGRAMS names the folder of the programs.
 */
import { get } from "node:http";
import { setTimeout as sleep } from "node:timers/promises";
import { demoCamera, demoParameters, startProgram } from "../tests/web/program.js";

const VIEWERS = 20;
const WATCHED_MS = 60000;
const BOUNDARY = "--velmor-picture";

/** Reads a stream as fast as it comes; `frames` grows. */
function watch(address) {
  const viewer = { frames: 0, bytes: 0 };
  viewer.request = get(new URL("/axis-cgi/mjpg/video.cgi?resolution=1280x720", address), (answer) => {
    answer.on("data", (chunk) => {
      viewer.bytes += chunk.length;
      for (let at = chunk.indexOf(BOUNDARY); at >= 0; at = chunk.indexOf(BOUNDARY, at + 1)) viewer.frames += 1;
    });
    answer.on("error", () => {});
  });
  viewer.request.on("error", () => {});
  return viewer;
}

const sorted = (numbers) => [...numbers].sort((a, b) => a - b);
const middle = (numbers) => sorted(numbers)[Math.floor(numbers.length / 2)];

/** Status codes and cycle times for a while, without and with viewers. */
async function follow(program, forMs) {
  const seen = { statuses: {}, times: [] };
  for (const end = Date.now() + forMs; Date.now() < end; await sleep(250)) {
    const status = await program.ask("get_status_code");
    seen.statuses[status] = (seen.statuses[status] ?? 0) + 1;
    seen.times.push(Number(await program.ask("get_execution_time")));
  }
  return seen;
}

const line = ({ statuses, times }) =>
  `cycle: median ${middle(times)} ms, longest ${Math.max(...times)} ms; status seen: ${JSON.stringify(statuses)}`;

const parameters = { ...demoParameters(), DetectionOverlaysOn: "true", SelectedDetectionOverlay: "1280x720" };
const program = await startProgram({ ...demoCamera(), parameters });
try {
  await sleep(2000);
  console.log(`nobody watching: ${line(await follow(program, WATCHED_MS / 3))}`);
  const viewers = Array.from({ length: VIEWERS }, () => watch(program.page));
  console.log(`${VIEWERS} watching: ${line(await follow(program, WATCHED_MS))}`);
  const rates = viewers.map(({ frames }) => (frames * 1000) / WATCHED_MS);
  console.log(`frames a second: median ${middle(rates).toFixed(1)}, slowest viewer ${sorted(rates)[0].toFixed(1)}`);
  viewers.forEach(({ request }) => request.destroy());
} finally {
  await program.stop();
}
