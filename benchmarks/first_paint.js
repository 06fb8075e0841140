/**
 * How long the page takes to be useful on loopback, median of several first visits: node benchmarks/first_paint.js
 * Useful: the program's state in words and a live picture. VELMOR_PROGRAMS names a folder with the programs.
 */
import { openBrowser } from "../tests/web/browser.js";
import { demoCamera, demoParameters, startProgram } from "../tests/web/program.js";

const VISITS = 15;

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

const program = await startProgram({ ...demoCamera(), parameters: demoParameters() });
const browser = await openBrowser();
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
await browser.close();
await program.stop();
const [paint, useful] = ["paint", "useful"].map((name) => visits.map((visit) => visit[name]));
console.log(`first contentful paint: median ${median(paint).toFixed(0)} ms, worst ${Math.max(...paint).toFixed(0)} ms`);
console.log(
  `state and live picture: median ${median(useful).toFixed(0)} ms, worst ${Math.max(...useful).toFixed(0)} ms`,
);
