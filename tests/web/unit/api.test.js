// Requests to the program, and what becomes of a save, over a real connection.
import assert from "node:assert/strict";
import { createServer } from "node:http";
import { after, before, test } from "node:test";
import { Control, cameraAppearance, saveAndCheck } from "../../../web/program/api.js";
import { parseSettings } from "../../../web/program/wire.js";
import { LANDSCAPE as SIZE } from "./fixtures.js";
import { StoredSettings } from "./stored.js";

const NOBODY = "http://127.0.0.1:1/";

let server, base, answer; // the answer is text for 200, a number for another status
let [running, most] = [0, 0];

before(async () => {
  server = createServer((request, response) => {
    most = Math.max(most, ++running);
    setImmediate(() => {
      --running;
      const given = answer(new URL(request.url, "http://camera"), request.headers);
      response.writeHead(typeof given === "number" ? given : 200).end(typeof given === "number" ? "" : given);
    });
  });
  await new Promise((resolve) => server.listen(0, "127.0.0.1", resolve));
  base = `http://127.0.0.1:${server.address().port}/control.cgi`;
});

after(() => server.close());

test("requests carry the header that other sites cannot send, wait for each other, and fail with a sentence", async () => {
  answer = (url, headers) =>
    headers["x-requested-with"] && url.searchParams.get("action") === "get_status_code" ? "200" : 403;
  const control = new Control(base);
  assert.deepEqual(await Promise.all([1, 2, 3].map(() => control.statusCode())), [200, 200, 200]);
  assert.equal(most, 1);
  answer = () => 503;
  await assert.rejects(control.statusText(), /^Error: The camera refused the request: 503.*\.$/);
  answer = () => "<html>";
  await assert.rejects(control.statusCode(), /^Error: The camera's answer to get_status_code is no number\.$/);
  await assert.rejects(new Control(NOBODY).statusCode(), /^Error: The camera does not answer\.$/);
  answer = () => "1";
  assert.equal(await control.isPortrait(), true);
});

test("a save is judged by what is read back, and doubts of the program are told", async () => {
  const wanted = { ...parseSettings(new StoredSettings(SIZE).document(), SIZE), stakes: true };
  /** Saves while the program answers with a status, takes it or not, and then has a status code of its own. */
  async function save(status, takes, code) {
    const stored = new StoredSettings(SIZE);
    answer = ({ searchParams }) => {
      if (searchParams.get("action") === "get_all_parameters") return stored.document();
      if (searchParams.get("action") === "get_status_code") return String(code);
      searchParams.delete("action");
      if (takes) stored.take(searchParams);
      return status === 200 ? "" : status;
    };
    const { saved, differences, error, warnings } = await saveAndCheck(new Control(base), wanted, SIZE);
    return [saved ? "saved" : `${differences.length} not`, error, warnings.join()].filter(Boolean).join(": ");
  }
  assert.equal(await save(200, true, 200), "saved");
  assert.equal(await save(503, true, 200), "saved", "only the answer was an error");
  assert.match(await save(500, true, 200), /^saved: .*could not store/);
  assert.match(await save(200, true, 400), /^saved: .*data error/);
  assert.equal(await save(200, false, 200), "1 not");
  assert.equal(await save(413, false, 200), "1 not: The camera refused the request: 413 (Payload Too Large).");
  const gone = { saved: false, differences: [], error: "The camera does not answer.", warnings: [] };
  assert.deepEqual(await saveAndCheck(new Control(NOBODY), wanted, SIZE), gone);
});

test("how the camera turns its streams, or nothing about it", async () => {
  const group = "root.Image.I0.Appearance";
  const real = globalThis.fetch;
  globalThis.fetch = (path, options) => real(new URL(path, base), options);
  const cases = [
    [`${group}.Rotation=90\r\n${group}.MirrorEnabled=yes\r\n`, { rotation: 90, mirrored: true }],
    [404, { rotation: 0, mirrored: false }],
  ];
  for (const [text, expected] of cases) {
    answer = () => text;
    assert.deepEqual(await cameraAppearance(), expected);
  }
  globalThis.fetch = real;
});
