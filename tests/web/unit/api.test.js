import assert from "node:assert/strict";
import { createServer } from "node:http";
import { after, before, describe, test } from "node:test";
import { Control, EventFeed, Program, cameraAppearance, saveAndCheck } from "../../../web/api.js";
import { parseSettings } from "../../../web/wire.js";
import { StoredSettings } from "./stored.js";

/** Node 18 has none. */
globalThis.CustomEvent ??= class extends Event {
  constructor(type, { detail }) {
    super(type);
    this.detail = detail;
  }
};

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
    ["taken and answered", 200, true, { saved: true, differences: 0, error: null }],
    ["taken, but the answer was an error", 503, true, { saved: true, differences: 0, error: null }],
    ["answered, but not taken", 200, false, { saved: false, differences: 1, error: null }],
    [
      "refused",
      413,
      false,
      { saved: false, differences: 1, error: "The camera refused the request: 413 (Payload Too Large)." },
    ],
  ];
  for (const [what, status, taken, expected] of cases) {
    test(what, async () => {
      const stored = new StoredSettings(SIZE);
      answer = ({ searchParams }) => {
        if (searchParams.get("action") === "get_all_parameters") return stored.document();
        searchParams.delete("action");
        if (taken) stored.take(searchParams);
        return status === 200 ? "" : status;
      };
      const { differences, ...result } = await saveAndCheck(new Control(base), { ...wanted, stakes: true }, SIZE);
      assert.deepEqual({ ...result, differences: differences.length }, expected);
    });
  }

  test("a camera that has gone away leaves it open, with the reason", async () => {
    const result = await saveAndCheck(new Control("http://127.0.0.1:1/"), wanted, SIZE);
    assert.deepEqual(result, { saved: false, differences: [], error: "The camera does not answer." });
  });
});

test("one failure is no lost connection, two are, and the first answer brings it back", async () => {
  const program = new Program(new Control(base));
  const told = [];
  for (const type of ["status", "lost", "back"]) {
    program.addEventListener(type, ({ detail }) => told.push(`${type} ${detail.connected} ${detail.code}`));
  }
  for (const works of [true, false, true, false, false, false, true]) {
    answer = ({ searchParams }) => (works ? ({ get_status_string: "AI" }[searchParams.get("action")] ?? "200") : 500);
    await program.poll();
    program.stop();
  }
  // The first answer is told as soon as there is a code, and again with the rest.
  const [fine, gone] = ["status true 200", "status false 200"];
  assert.deepEqual(told, [fine, fine, fine, gone, "lost false 200", gone, fine, "back true 200"]);
  assert.deepEqual(program.status, { code: 200, text: "AI", executionTime: 200, connected: true });
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

describe("the feed of the events", () => {
  class FakeSource extends EventTarget {
    static CLOSED = 2;
    readyState = 0; // a browser's while it connects again by itself
    constructor() {
      super();
      FakeSource.newest = this;
    }
    close() {}
    say(type, data) {
      this.dispatchEvent(Object.assign(new Event(type), { data: JSON.stringify(data) }));
    }
  }
  const calm = ["Fall Detected", "Patient Out of Bed"].map((name) => ({ name, active: false, since: null }));
  const state = (seq, events = calm) => ({ time: "2026-03-01T12:00:00.000Z", seq, events, history: [] });

  test("the status tells while the feed is away, and the feed is believed once it is back", (t) => {
    const native = globalThis.EventSource;
    globalThis.EventSource = FakeSource;
    t.after(() => (globalThis.EventSource = native));
    const program = Object.assign(new EventTarget(), { status: { code: 200, connected: true } });
    const feed = new EventFeed(program);
    const active = () => feed.detail.events.filter((event) => event.active).map((event) => event.name);
    const status = (code) => program.dispatchEvent(new CustomEvent("status", { detail: { code, connected: true } }));
    feed.start();
    FakeSource.newest.say("state", state(3));
    status(503);
    assert.deepEqual([active(), feed.detail.limited], [[], false], "the feed alone is believed while it is there");
    FakeSource.newest.dispatchEvent(new Event("error"));
    status(503);
    assert.deepEqual([active(), feed.detail.limited], [["Fall Detected"], true]);
    status(600);
    assert.deepEqual(active(), ["Fall Detected"], "600 hides whether it has ended");
    FakeSource.newest.say("state", state(5));
    assert.deepEqual([active(), feed.detail.limited], [[], false]);
    FakeSource.newest.say("change", { seq: 5, name: "Fall Detected", active: true, time: "2026-03-01T12:00:01.000Z" });
    assert.deepEqual(active(), [], "a change that the state knew already");
  });
});
