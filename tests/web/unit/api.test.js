import assert from "node:assert/strict";
import { createServer } from "node:http";
import { after, before, describe, test } from "node:test";
import { Control, cameraAppearance, saveAndCheck } from "../../../web/program/api.js";
import { parseSettings } from "../../../web/program/wire.js";
import { StoredSettings } from "./stored.js";

const SIZE = { width: 1280, height: 720 };

let server;
let base;
let answer;
let running = 0;
let most = 0;

/** `answer` decides: text for 200, a number for another status. */
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

describe("requests to the program", () => {
  test("carry the header that other sites cannot send, and wait for each other", async () => {
    answer = (url, headers) =>
      headers["x-requested-with"] && url.searchParams.get("action") === "get_status_code" ? "200" : 403;
    most = 0;
    const control = new Control(base);
    assert.deepEqual(await Promise.all([1, 2, 3].map(() => control.statusCode())), [200, 200, 200]);
    assert.equal(most, 1);
  });

  test("fail with a sentence, and the next one goes on", async () => {
    const control = new Control(base);
    answer = () => 503;
    await assert.rejects(control.statusText(), /^Error: The camera refused the request: 503.*\.$/);
    answer = () => "<html>";
    await assert.rejects(control.statusCode(), /^Error: The camera's answer to get_status_code is no number\.$/);
    await assert.rejects(control.settings(SIZE), /^Error: The camera's settings cannot be understood\.$/);
    await assert.rejects(new Control("http://127.0.0.1:1/").statusCode(), /^Error: The camera does not answer\.$/);
    answer = () => "1";
    assert.equal(await control.isPortrait(), true);
  });
});

describe("a save is judged by what is read back", () => {
  const wanted = parseSettings(new StoredSettings(SIZE).document(), SIZE);
  const cases = [
    ["taken and answered", 200, true, 200, { saved: true, differences: 0, error: null, warning: undefined }],
    [
      "taken, but the answer was an error",
      503,
      true,
      200,
      { saved: true, differences: 0, error: null, warning: undefined },
    ],
    [
      "in use, but not stored",
      500,
      true,
      200,
      { saved: true, differences: 0, error: null, warning: "could not store" },
    ],
    ["stored, but not calibrated", 200, true, 400, { saved: true, differences: 0, error: null, warning: "data error" }],
    ["answered, but not taken", 200, false, 200, { saved: false, differences: 1, error: null, warning: undefined }],
    [
      "refused",
      413,
      false,
      200,
      {
        saved: false,
        differences: 1,
        error: "The camera refused the request: 413 (Payload Too Large).",
        warning: undefined,
      },
    ],
  ];
  for (const [what, status, taken, code, expected] of cases) {
    test(what, async () => {
      const stored = new StoredSettings(SIZE);
      answer = ({ searchParams }) => {
        if (searchParams.get("action") === "get_all_parameters") return stored.document();
        if (searchParams.get("action") === "get_status_code") return String(code);
        searchParams.delete("action");
        if (taken) stored.take(searchParams);
        return status === 200 ? "" : status;
      };
      const result = await saveAndCheck(new Control(base), { ...wanted, stakes: true }, SIZE);
      const warning = result.warnings[0]?.match(/could not store|data error/)[0];
      const { saved, differences, error } = result;
      assert.deepEqual({ saved, differences: differences.length, error, warning }, expected);
    });
  }

  test("a camera that has gone away leaves it open, with the reason", async () => {
    const result = await saveAndCheck(new Control("http://127.0.0.1:1/"), wanted, SIZE);
    assert.deepEqual(result, { saved: false, differences: [], error: "The camera does not answer.", warnings: [] });
  });
});

test("how the camera turns its streams, or nothing about it", async () => {
  const group = "root.Image.I0.Appearance";
  const real = globalThis.fetch;
  globalThis.fetch = (path, options) => real(new URL(path, base), options);
  const cases = [
    [`${group}.Rotation=90\r\n${group}.MirrorEnabled=yes\r\n`, { rotation: 90, mirrored: true }],
    [`${group}.Rotation=0\n${group}.MirrorEnabled=no`, { rotation: 0, mirrored: false }],
    ["# Error", { rotation: 0, mirrored: false }],
    [404, { rotation: 0, mirrored: false }],
  ];
  for (const [text, expected] of cases) {
    answer = () => text;
    assert.deepEqual(await cameraAppearance(), expected);
  }
  globalThis.fetch = real;
});
