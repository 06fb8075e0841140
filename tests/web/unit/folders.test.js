// The page's files: folders point down, no file leads back to itself, and the browser is told of all it will need.
import assert from "node:assert/strict";
import { readFile, readdir } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";
import { gzipSync } from "node:zlib";
import { fileURLToPath } from "node:url";

const WEB = fileURLToPath(new URL("../../../web", import.meta.url));
const VIEW = ["picture", "settings", "geometry", "program"];
const SHELL = ["camera", "people", "setup", "watch", "call", "settings", "geometry", "hub", "program"];
/** What each folder may use beside itself, vendor and base. */
const ARROWS = {
  hub: ["program"],
  geometry: ["program"],
  settings: VIEW.slice(2),
  call: ["program"],
  camera: ["program"],
  people: ["program"],
  watch: ["call", ...VIEW],
  setup: VIEW,
  shell: SHELL,
};

/** The files that a file leads to, all of which are gathered in `found`; `way` are those that led to it. */
async function follow(file, found, way = []) {
  assert.ok(!way.includes(file), `a circle: ${[...way, file].join(" ")}`);
  if (found.has(file)) return;
  found.add(file);
  const [folder] = file.split("/");
  const allowed = [folder, ...(ARROWS[folder] ?? []), "base", "vendor"];
  const text = await readFile(join(WEB, file), "utf8");
  for (const [, path] of text.matchAll(/^(?:import|export) [^;]*?from "(\..*?)";$/gm)) {
    const used = join(file, "..", path);
    assert.ok(allowed.includes(used.split("/")[0]), `${file} may not use ${used}`);
    await follow(used, found, [...way, file]);
  }
}

test("folders point down, in no circle, and all that the page needs is asked for at once", async () => {
  const found = new Set();
  await follow("shell/app.js", found);
  const html = await readFile(join(WEB, "index.html"), "utf8");
  const preloaded = [...html.matchAll(/"modulepreload" href="(.*?)"/g)].map(([, path]) => path);
  assert.deepEqual(preloaded.sort(), [...found].sort());
  await follow("hub/worker.js", found);
});

test("the icons for telephones are there, each as large as it is said to be", async () => {
  const { icons } = JSON.parse(await readFile(join(WEB, "page.webmanifest"), "utf8"));
  const html = await readFile(join(WEB, "index.html"), "utf8");
  const [, touch] = /"apple-touch-icon" href="(.*?)"/.exec(html);
  const drawn = [...icons.filter(({ type }) => type === "image/png"), { src: touch, sizes: "180x180" }];
  assert.deepEqual(
    await Promise.all(
      drawn.map(async ({ src }) => {
        const bytes = await readFile(join(WEB, src));
        assert.equal(bytes.toString("latin1", 1, 4), "PNG", src);
        return `${bytes.readUInt32BE(16)}x${bytes.readUInt32BE(20)}`;
      }),
    ),
    drawn.map(({ sizes }) => sizes),
  );
  assert.equal(drawn.length, 3);
});

test("a first visit takes less than 300 KB, as the server sends it", async () => {
  const names = (await readdir(WEB, { recursive: true })).filter((name) =>
    /\.(js|css|html|svg|png|webmanifest)$/.test(name),
  );
  const files = await Promise.all(names.map((name) => readFile(join(WEB, name))));
  const sent = files.reduce((sum, file) => sum + gzipSync(file).length, 0);
  assert.ok(names.length > 50 && sent < 300 * 1024, `${sent} bytes`);
});
