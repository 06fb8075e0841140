// A device that calls: when it notifies and vibrates, and what it claims of a test alarm, whatever its browser lacks.
import assert from "node:assert/strict";
import { afterEach, beforeEach, describe, test } from "node:test";
import { Caller } from "../../../web/call/caller.js";
import { BED, FALL } from "./fixtures.js";

const settle = () => new Promise(setImmediate);

class FakeNotice {
  static requestPermission = async () => FakeNotice.permission;
  constructor(title, options) {
    FakeNotice.told.push(Object.assign(this, options, { title, closed: false }));
    queueMicrotask(() => this[FakeNotice.word]?.());
  }
  close = () => void (this.closed = true);
}

class FakeAudio {
  state = "suspended";
  resume = async () => void (this.state = "running");
  close() {}
}

/** A telephone's. */
const worker = {
  active: true,
  getRegistration: async () => worker,
  showNotification: async (title, options) => void new FakeNotice(title, options),
  getNotifications: async ({ tag } = {}) => FakeNotice.told.filter((notice) => !tag || notice.tag === tag),
};

const alarm = (kind, change = {}) => ({
  ...{ id: `a-${kind}`, event: kind === "fall" ? FALL : BED, kind, began: "2026-03-01T12:00:00Z", ended: null },
  ...{ state: "calling", level: 1, called: "2026-03-01T12:00:00Z", answers: [], ...change },
});

/** In the place of what a browser has. */
function has(parts) {
  for (const [name, value] of Object.entries(parts)) {
    Object.defineProperty(globalThis, name, { value, configurable: true, writable: true });
  }
}

describe("a device", () => {
  let caller, heard, tick, later, played, vibrations;

  beforeEach(() => {
    [heard, later, played, vibrations] = [{}, [], [], []];
    Object.assign(FakeNotice, { permission: "granted", told: [], word: "onshow" });
    const vibrate = (pattern) => vibrations.push(pattern) > 0;
    has({
      ...{ isSecureContext: true, Notification: FakeNotice, AudioContext: FakeAudio },
      document: { querySelector: () => ({ getAttribute() {}, setAttribute() {} }), addEventListener() {} },
      navigator: { vibrate, wakeLock: { request: async () => ({ released: false }) } },
      setInterval: (act) => void (tick = act),
      setTimeout: (act) => later.push(act),
    });
    caller = new Caller({ listen: (type, take) => (heard[type] = take), here() {} }, () => {});
    caller.sounder.play = ({ gain }) => played.push(gain);
    heard.voice({ on: true });
  });
  afterEach(() => caller.stop());

  test("notifies with each call, vibrates by the alarm's beat, and does neither without the voice or once answered", async () => {
    const again = alarm("fall", { called: "2026-03-01T12:01:00Z" });
    const coming = { ...again, state: "coming" };
    for (const [on, alarms, notices, beats] of [
      [false, [alarm("fall")], 0, 0],
      [true, [alarm("fall")], 1, 3],
      [true, [again], 2, 6],
      [true, [coming], 2, 6],
      [true, [coming, alarm("exit", { local: true, called: undefined })], 3, 7],
      [true, [again], 4, 10],
    ]) {
      heard.voice({ on });
      caller.take(alarms);
      for (let second = 1; second < 6; ++second) tick();
      await settle();
      assert.deepEqual([FakeNotice.told.length, vibrations.length], [notices, beats]);
    }
    const [first, second, ...others] = FakeNotice.told;
    assert.deepEqual([second.title, second.tag, second.renotify], ["Fall detected", first.tag, true]);
    assert.deepEqual([second.closed, ...others.map(({ closed }) => closed)], [true, true, false]);
  });

  test("takes those of a telephone's worker back, and one that comes after the answer", async () => {
    const desk = navigator;
    has({ navigator: { ...desk, serviceWorker: worker } });
    for (const alarms of [[alarm("fall"), alarm("exit")], [alarm("exit")]]) {
      caller.take(alarms);
      await settle();
    }
    has({ navigator: desk });
    caller.take([alarm("fall")]);
    caller.take([]);
    await settle();
    const told = FakeNotice.told.map(({ tag, closed }) => `${tag} ${closed}`);
    assert.deepEqual(told, ["a-fall true", "a-exit false", "a-fall true"]);
  });

  test("takes back what a page before it has left, once the camera has told which alarms call", async () => {
    has({ navigator: { serviceWorker: worker } });
    for (const tag of ["answered meanwhile", "a-fall"]) await worker.showNotification("Fall detected", { tag });
    heard.voice({ on: false });
    for (const [known, closed] of [
      [false, [false, false]],
      [true, [true, false]],
    ]) {
      caller.take(known ? [alarm("fall")] : [], known);
      await settle();
      assert.deepEqual(
        FakeNotice.told.map((notice) => notice.closed),
        closed,
      );
    }
  });

  const answers = async () => queueMicrotask(() => heard.tested({}));
  const refuses = () => Promise.reject(new Error("Refused."));
  const tried = async (send = answers) => {
    const results = caller.test(send);
    for (let wait = 0; wait < 4; ++wait) {
      await settle();
      for (const act of later.splice(0)) act();
    }
    return Object.fromEntries((await results).map(({ key, tone, words }) => [key, `${tone}: ${words}`]));
  };

  test("claims of a test only what it knows, and asks eyes, ears and hands for the rest", async () => {
    const { way, sound, vibration, notice, awake } = await tried();
    assert.deepEqual([way, awake], ["ok: works", "ok: works"]);
    assert.match(notice, /^ok: shown\. Where none is in sight/);
    assert.match(sound, /^idle: played\. Whoever heard nothing turns up/);
    assert.ok(played.at(-1) > 0.1, "aloud");
    assert.match(vibration, /^idle: tried\. Where nothing moved/);
    FakeNotice.word = null;
    assert.match((await tried()).notice, /^idle: sent\. Where none is in sight/, "a browser that says nothing of it");
    has({ navigator: { ...navigator, serviceWorker: worker } });
    assert.match((await tried()).notice, /^ok: shown/);
  });

  for (const [key, words, lack] of [
    ["sound", /gives no sound/, () => has({ AudioContext: undefined })],
    ["vibration", /does not let/, () => has({ navigator: { vibrate: () => false } })],
    ["awake", /does not keep/, () => has({ navigator: { wakeLock: { request: refuses } } })],
    ["awake", /needs https/, () => has({ isSecureContext: false, navigator: {} })],
    ["notice", /needs https/, () => has({ isSecureContext: false })],
    ["notice", /has none/, () => has({ Notification: undefined })],
    ["notice", /not allowed yet/, () => (FakeNotice.permission = "default")],
    ["notice", /forbidden/, () => (FakeNotice.permission = "denied")],
    ["notice", /did not show it/, () => (FakeNotice.word = "onerror")],
  ]) {
    test(`names what it was denied or does not have: ${key}, ${lack}`, async () => {
      lack();
      const { [key]: said } = await tried();
      assert.ok(said.startsWith("warn: ") && words.test(said), said);
    });
  }

  test("names why a test did not come back, and lets no click expire while it is being waited for", async () => {
    caller.test(() => new Promise(() => {}));
    await settle();
    assert.equal(caller.ready, true);
    assert.equal((await tried(refuses)).way, "warn: Refused.");
    assert.match((await tried(async () => {})).way, /^warn: the test did not come back/);
  });
});
