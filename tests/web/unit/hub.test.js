// What all tabs share: the feed and the status beside each other, the streams, who is still there.
import assert from "node:assert/strict";
import { afterEach, beforeEach, describe, test } from "node:test";
import { Hub } from "../../../web/hub/hub.js";
import { readPictures } from "../../../web/hub/streams.js";
import { readiness } from "../../../web/watch/readiness.js";
import { BED, FALL, FakeSource, LANDSCAPE as SIZE } from "./fixtures.js";

const TIME = "2026-03-01T12:00:00.000Z";

class EventFeed extends FakeSource {
  state({ seq = 3, run = "a", fall = false, bed = false, ...more } = {}) {
    const event = (name, active) => ({ name, active, since: active ? TIME : null });
    this.say("state", { time: TIME, run, seq, events: [event(FALL, fall), event(BED, bed)], history: [], ...more });
    return this;
  }
  change(seq, name, active, { run = "a", ...more } = {}) {
    this.say("change", { seq, run, name, active, time: TIME, ...more });
  }
  beat(run = "a") {
    this.say("heartbeat", { time: TIME, run, cycle: 1, cycle_age_ms: 100, picture_age_ms: 100, wrong: [] });
  }
}

const TYPES = "hello answer picture failed settings past scene calls tested voice signed-out".split(" ");

/** A tab as the hub sees it. */
class Tab {
  got = Object.fromEntries(TYPES.map((type) => [type, []]));
  alive = true;
  postMessage({ type, ...message }) {
    if (type !== "news") return this.got[type].push(message);
    this.news = message;
    return this.alive && this.say({ type: "here" });
  }
  say(message) {
    this.onmessage({ data: message });
  }
  get active() {
    return this.news.events.filter((event) => event.active).map(({ name }) => name);
  }
}

let clock, code, camera, held, hub, tab, fetched, streams, why;
const native = { EventSource: globalThis.EventSource, fetch: globalThis.fetch };
const settle = async () => {
  for (let turn = 0; turn < 20; ++turn) await new Promise(setImmediate);
};
const seconds = async (count = 1) => {
  for (let passed = 0; passed < count; ++passed) {
    clock += 1000;
    hub.tick();
    await settle();
  }
};
const feed = () => EventFeed.newest;
const state = () => readiness({ news: tab.news, settings: null, size: SIZE });

/** A stream that the test writes to and that notices its end. */
function openStream(url, signal) {
  const stream = { url, signal };
  stream.body = new ReadableStream({ start: (controller) => (stream.controller = controller) });
  signal.addEventListener("abort", () => stream.controller.error(new Error("aborted")));
  stream.send = (text) =>
    stream.controller.enqueue(
      new TextEncoder().encode(`--b\r\nContent-Type: image/jpeg\r\nContent-Length: ${text.length}\r\n\r\n${text}\r\n`),
    );
  streams.push(stream);
  return { ok: true, status: 200, body: stream.body };
}

function answerOf(url) {
  const { searchParams, pathname } = new URL(url, "http://camera");
  fetched.push(searchParams.get("action") ?? pathname);
  if (camera === "away") throw new Error("gone");
  if (pathname === "/platform/events") return { ok: false, status: 404, statusText: "" };
  if (pathname === "/platform/why") return why;
  const texts = { get_all_parameters: held, get_is_portrait: "0", get_status_string: "AI" };
  const text = texts[searchParams.get("action")] ?? String(code);
  return { ok: true, text: async () => text };
}

const withText = (answer) => ({ text: async () => "", ...answer });

beforeEach(async () => {
  Object.assign(globalThis, {
    EventSource: EventFeed,
    fetch: async (url, { signal }) =>
      url.includes("video.cgi") ? openStream(url, signal) : withText(await answerOf(url)),
  });
  [clock, code, camera, held] = [1000, 200, "there", "<app>"];
  [fetched, streams] = [[], []];
  why = { ok: false, status: 404 };
  EventFeed.opened = 0;
  hub = new Hub(() => clock);
  hub.feed.open();
  tab = new Tab();
  hub.connect(tab);
  await settle();
});

afterEach(() => {
  hub.forget(tab);
  hub.feed.close();
  Object.assign(globalThis, native);
});

describe("of feed and status the worse news wins", () => {
  test("either says fall, and a fall that was known stays when nothing answers", async () => {
    feed().state().beat();
    code = 503;
    await seconds();
    assert.deepEqual(tab.active, [FALL], "the status alone");
    code = 200;
    await seconds();
    assert.deepEqual(tab.active, []);
    feed().state({ seq: 5, fall: true });
    await seconds();
    assert.deepEqual(tab.active, [FALL], "the feed alone");
    camera = "away";
    feed().dispatchEvent(new Event("error"));
    await seconds(5);
    assert.deepEqual(tab.active, [FALL]);
    assert.match(state().title, /^Fall detected at .*, connection lost since /);
  });

  test("without its feed the status tells what it does not hide, and the feed is believed once it is back", async () => {
    feed().state();
    feed().dispatchEvent(new Event("error"));
    const known = [];
    for (code of [503, 600, 200, 502]) {
      await seconds();
      known.push(...[FALL, BED].map((name) => tab.news.events.find((event) => event.name === name).active));
    }
    assert.deepEqual(known, [true, false, true, null, false, false, null, true], "what is hidden is not known");
    assert.equal(tab.news.feed, "lost");
    code = 200;
    feed().state({ seq: 9, bed: true });
    await seconds();
    assert.deepEqual([tab.active, tab.news.feed], [[BED], "open"]);
    feed().change(9, BED, false);
    assert.deepEqual(tab.active, [BED], "a change that the state knew already");
  });
});

describe("the feed", () => {
  test("one that falls silent is opened anew, and another run begins with its state", async () => {
    feed().state().beat();
    const after = (milliseconds) => {
      clock += milliseconds;
      hub.tellNews();
      return state().silentSince !== null;
    };
    assert.deepEqual([after(3000), after(1)], [false, true]);
    await seconds(11);
    assert.equal(EventFeed.opened, 2);
    feed().state({ seq: 50 });
    feed().change(1, FALL, true, { run: "b" });
    assert.equal(EventFeed.opened, 3, "numbers of another run mean nothing");
    feed().state({ seq: 0, run: "b" });
    feed().change(1, FALL, true, { run: "b", closed_at_start: true });
    for (const active of [true, true, false]) feed().say("watching", { seq: 2, run: "b", active, time: TIME });
    assert.deepEqual(tab.active, [FALL]);
    const { history, watching } = tab.got.past.at(-1);
    assert.deepEqual([history.length, history[0].closed_at_start], [1, true]);
    assert.equal(watching.map(({ active }) => active).join(), "true,false");
  });

  test("an error of the status alone is no lost connection, two are, and the first answer brings it back", async () => {
    const connected = [];
    for (camera of ["there", "away", "there", "away", "away", "there"]) {
      await seconds();
      connected.push(tab.news.status.connected);
    }
    assert.deepEqual(connected, [true, true, true, true, false, true]);
    assert.deepEqual(tab.news.status, { code: 200, text: "AI", executionTime: 200, connected: true });
  });
});

describe("reasons", () => {
  const explain = (events, scene = { time: TIME, people: [], beds: [] }) =>
    (why = { ok: true, text: async () => JSON.stringify({ ...scene, events }) });
  const reason = (seq, because, { run = "a", name = FALL, active = true } = {}) => ({
    seq,
    run,
    name,
    active,
    because,
  });
  const told = (name = FALL) => tab.news.events.find((event) => event.name === name).because;
  const inPast = () => tab.got.past.at(-1).history.map(({ because }) => because);
  const asked = () => fetched.filter((path) => path === "/platform/why").length;

  test("come after the alarm, each to its own change, and are not asked for again", async () => {
    const others = [reason(4, "another run", { run: "b" }), reason(5, "another event", { name: BED })];
    explain(others);
    const earlier = { run: "b", seq: 5, name: FALL, active: false, time: TIME };
    feed().state({ history: [earlier] });
    feed().change(5, FALL, true);
    assert.deepEqual([tab.active, told()], [[FALL], undefined]);
    await seconds(2);
    assert.deepEqual([told(), inPast()], [undefined, [undefined, undefined]]);
    explain([...others, reason(5, "person 3 lies")]);
    await seconds();
    assert.deepEqual([told(), inPast(), tab.news.explains], ["person 3 lies", [undefined, "person 3 lies"], true]);
    fetched = [];
    await seconds(5);
    assert.equal(asked(), 0);
    explain([reason(6, "person 3 has got up", { active: false })]);
    feed().change(6, FALL, false);
    code = 503;
    await seconds();
    assert.deepEqual([tab.active, told()], [[FALL], undefined], "what the status alone tells has none");
    assert.deepEqual(inPast().slice(1), ["person 3 lies", "person 3 has got up"], "the first is kept");
    feed().state({ seq: 6, history: [], events: [{ name: FALL, active: true, since: TIME, seq: 5 }] });
    await seconds();
    assert.equal(told(), "person 3 lies", "of a state");
  });

  test("that cannot be had keep no alarm waiting, and are not asked for for ever", async () => {
    const text = (body) => ({ ok: true, text: async () => body });
    const none = [{ ok: false, status: 503 }, text("<html>"), text("null"), text('{"people": 3}')];
    const shapes = [reason(9, 7), { seq: 9 }, null];
    const cases = [[{ ok: false, status: 404 }, 0], [new Promise(() => {}), 1], ...none.map((answer) => [answer, 10])];
    for (const shape of shapes) cases.push([text(`{"people":[],"beds":[],"events":[${JSON.stringify(shape)}]}`), 10]);
    for (const [index, [answer, times]] of cases.entries()) {
      [hub.explanation.asking, why, fetched] = [false, answer, []];
      feed().state({ run: `${index}`, seq: 8 });
      await settle();
      fetched = [];
      feed().change(9, FALL, true, { run: `${index}` });
      assert.deepEqual([tab.active, told()], [[FALL], undefined], index);
      await seconds(15);
      assert.deepEqual([tab.active, told(), tab.got.scene.length], [[FALL], undefined, 0], index);
      assert.ok(asked() <= times && tab.news.status.connected && tab.news.statusAge <= 1000, `${index}: ${fetched}`);
    }
  });

  test("of what is seen now are asked for while somebody looks, once for all who do", async () => {
    const [second, idle] = [new Tab(), new Tab()];
    [second, idle].forEach((viewer) => hub.connect(viewer));
    const people = [{ id: 3, text: "Person 3 <b>sits</b>." }, { id: 4 }];
    explain([], { time: TIME, people, beds: [{ area: 1, text: "Bed 1 is empty." }] });
    feed().state().beat();
    await settle();
    fetched = [];
    [tab, second].forEach((viewer) => viewer.say({ type: "look", on: true }));
    const seconds10 = async () => {
      for (let passed = 0; passed < 10; ++passed, await seconds()) feed().beat();
      return asked();
    };
    const first = await seconds10();
    assert.ok(first >= 5 && first <= 6, `${first}`);
    assert.deepEqual(
      [tab, second, idle].map(({ got }) => got.scene.length > 4),
      [true, true, false],
    );
    assert.deepEqual(tab.got.scene.at(-1), {
      time: TIME,
      people: ["Person 3 <b>sits</b>."],
      beds: ["Bed 1 is empty."],
    });
    fetched = [];
    tab.say({ type: "look", on: false });
    second.say({ type: "bye" });
    assert.equal(await seconds10(), 0);
    idle.say({ type: "look", on: true });
    assert.equal(asked(), 1, "at once");
    feed().dispatchEvent(new Event("error"));
    fetched = [];
    assert.equal(await seconds10(), 0, "a program that is away");
    idle.say({ type: "bye" });
  });
});

describe("tabs", () => {
  const other = (next = new Tab()) => {
    hub.connect(next);
    return next;
  };
  const watch = (viewer, size = "800x450", anonymised = false, id = 1) =>
    viewer.say({ type: "watch", id, size, anonymised });

  test("ten have one feed, one poll, one reading of the settings and one stream between them", async () => {
    const tabs = Array.from({ length: 10 }, () => other());
    tabs.forEach((viewer) => watch(viewer));
    await settle();
    for (const text of ["one", "two", "three"]) streams[0].send(text);
    await settle();
    for (const { got } of tabs) assert.deepEqual([got.picture.length, got.settings.length], [1, 1]);
    assert.equal(await tabs[9].got.picture[0].picture.text(), "one");
    tabs[9].say({ type: "took", id: 1 });
    assert.equal(await tabs[9].got.picture[1].picture.text(), "three", "the newest, once the one before was taken");
    fetched = [];
    await seconds();
    assert.deepEqual(fetched, ["get_status_code", "get_execution_time"]);
    assert.deepEqual([streams.length, EventFeed.opened], [1, 1]);
  });

  test("a stream ends with the last who looks: hidden, closed, or gone without a word", async () => {
    const [closed, gone] = [other(), other()];
    [tab, closed, gone].forEach((viewer) => watch(viewer));
    await settle();
    tab.say({ type: "leave", id: 1 });
    closed.say({ type: "bye" });
    assert.equal(streams[0].signal.aborted, false);
    gone.alive = false;
    await seconds(11);
    assert.deepEqual([streams[0].signal.aborted, hub.tabs.has(gone)], [true, false]);
    gone.say({ type: "here" });
    assert.deepEqual([hub.tabs.has(gone), gone.got.hello.length], [true, 2], "a frozen tab that wakes is welcome");
  });

  test("a stream that falls silent is opened anew; one that is refused says why", async () => {
    watch(tab);
    await settle();
    await seconds(11);
    assert.equal(streams[0].signal.aborted, true);
    assert.deepEqual(tab.got.failed, [{ id: 1, status: null }]);
    globalThis.fetch = async (url) => ({ ok: false, status: url.includes("anonymised=1") ? 409 : 503 });
    watch(tab, "640x360", true, 2);
    await settle();
    assert.deepEqual(tab.got.failed.at(-1), { id: 2, status: 409 });
    tab.say({ type: "bye" });
  });

  test("a carer's hub never asks for the settings, and whoever is signed out is told in every tab", async () => {
    hub = new Hub(() => clock, "carer");
    const [first, second] = [other(), other()];
    fetched = [];
    await seconds(12);
    assert.ok(fetched.includes("get_status_code") && !fetched.includes("get_all_parameters"), String(fetched));
    assert.equal(first.got["signed-out"].length, 0);
    globalThis.fetch = async () => withText({ ok: false, status: 401, statusText: "" });
    await seconds();
    for (const { got } of [first, second]) assert.ok(got["signed-out"].length > 0);
    [first, second].forEach((viewer) => viewer.say({ type: "bye" }));
  });

  test("what one saves all the others are shown at once", async () => {
    held = "<another>";
    tab.say({ type: "ask", id: 7, url: "http://camera/control.cgi?action=set_all_parameters" });
    await settle();
    assert.deepEqual([tab.got.answer[0].id, tab.got.settings.at(-1).document], [7, held]);
  });
});

test("a stream of pictures is taken apart by lengths, however it arrives; one that makes no sense is given up", async () => {
  const read = async (text, step) => {
    const pictures = [];
    const chunks = text.match(new RegExp(`[^]{1,${step}}`, "g")).map((chunk) => new TextEncoder().encode(chunk));
    const reader = { read: async () => ({ done: !chunks.length, value: chunks.shift() }) };
    const onPicture = (jpeg) => pictures.push(new TextDecoder().decode(jpeg));
    await readPictures(reader, { onBytes: () => {}, onPicture });
    return pictures;
  };
  const first = "--b\r\nContent-Type: image/jpeg\r\nContent-Length: 7\r\n\r\nab\r\n\r\nc";
  const parts = `${first}\r\n--b\r\ncontent-length: 2\r\n\r\nde\r\n--b\r\n`;
  for (const step of [1, 2, 5, 1000]) assert.deepEqual(await read(parts, step), ["ab\r\n\r\nc", "de"]);
  for (const header of ["Content-Type: image/jpeg", "Content-Length: 99999999", "x".repeat(5000)]) {
    await assert.rejects(read(`--b\r\n${header}\r\n\r\n`, 1000), Error, header);
  }
});
