// The alarms on the page: none is late, lost, doubled or hidden, one tab calls for all, and what is said of them.
import assert from "node:assert/strict";
import { afterEach, beforeEach, describe, test } from "node:test";
import { answersFor } from "../../../web/call/alarm.js";
import * as calls from "../../../web/call/calls.js";
import { limitsOf } from "../../../web/call/device.js";
import { problemsOf, toSend } from "../../../web/call/receivers.js";
import { Sounder, tuneOf } from "../../../web/call/sound.js";
import { AlarmFeed } from "../../../web/hub/alarms.js";
import { Hub } from "../../../web/hub/hub.js";
import { BED, FALL, FakeSource } from "./fixtures.js";

const NOON = Date.parse("2026-03-01T12:00:00.000Z");
const at = (seconds) => new Date(NOON + seconds * 1000).toISOString();
const answered = (what, more = {}) => ({ what, by: "Anna", time: at(0), reason: "", stored: true, ...more });
let numbers = 0;
function alarm(kind, change = {}) {
  const seq = ++numbers;
  const event = kind === "fall" ? FALL : BED;
  const fresh = { id: `a-${seq}`, seq, run: "a", event, kind, began: at(seq), ended: null, state: "calling", level: 1 };
  return { ...fresh, answers: [], next: null, ...change };
}

describe("which alarm calls", () => {
  test("a fall before an exit, the highest level of the falls, and nothing once it was answered", () => {
    const [exit, fall] = [alarm("exit", { level: 3 }), alarm("fall")];
    const louder = alarm("fall", { level: 2 });
    const rings = (...alarms) => calls.ringing(alarms)?.id ?? null;
    assert.deepEqual([rings(exit), rings(exit, fall), rings(louder, exit, fall)], [exit.id, fall.id, louder.id]);
    const again = alarm("fall", { again: true });
    assert.equal(rings(fall, again), again.id);
    assert.deepEqual(
      [fall, again, louder].map((one) => calls.urgent([one]).loudness),
      [1, 2, 3],
      "each time a step, also at the only level",
    );
    for (const state of ["held", "coming", "seen", "closed"]) assert.equal(rings({ ...fall, state }), null, state);
    assert.equal(rings({ ...fall, state: "coming" }, exit), exit.id);
  });

  test("what ended by itself stays until somebody has seen it", () => {
    const ended = alarm("fall", { ended: at(9) });
    const open = (...alarms) => calls.openAlarms(alarms).map(({ id }) => id);
    assert.deepEqual(open(ended), [ended.id]);
    assert.deepEqual(open({ ...ended, state: "seen" }, { ...ended, state: "closed" }), []);
    assert.deepEqual(open({ ...ended, state: "seen", ended: null }).length, 1);
  });

  test("sounds of a fall and of an exit differ, and each level is louder and no rarer", () => {
    const [fall, exit, higher] = [tuneOf("fall", 1), tuneOf("exit", 1), tuneOf("fall", 2)];
    assert.notDeepEqual(fall.notes, exit.notes);
    assert.ok(fall.every < exit.every && higher.gain > fall.gain && higher.every <= fall.every && higher.gain <= 1);
    assert.deepEqual(tuneOf("another kind", 1), fall, "what the page does not know is no chime");
    assert.ok(tuneOf("fall", 99).gain <= 1 && tuneOf("fall", 99).every > 1.1, "it never runs into itself");
  });

  test("it is played at once, repeats by its own beat, and stops with the answer", () => {
    const sounder = new Sounder(() => {});
    const played = [];
    sounder.context = { state: "suspended", currentTime: 0 };
    sounder.play = ({ gain }) => played.push([sounder.context.currentTime, gain]);
    const [call, louder] = [1, 2].map((loudness) => ({ id: "x", kind: "fall", loudness }));
    sounder.ring(call);
    assert.deepEqual(played, [], "a browser that was not clicked plays nothing");
    sounder.context.state = "running";
    for (const [time, now] of [
      [0, call],
      [1, call],
      [2, call],
      [2.5, louder],
      [3, null],
      [4, null],
      [4.2, call],
    ]) {
      sounder.context.currentTime = time;
      sounder.ring(now);
    }
    assert.deepEqual(
      played.map(([time]) => time),
      [0, 2, 2.5, 4.2],
    );
    assert.ok(played[2][1] > played[1][1]);
  });
});

describe("what is said of an alarm", () => {
  const now = NOON + 60000;

  test("only answers on disk count, and why nobody is called is told", () => {
    const words = (change) => calls.callWords(alarm("fall", change), now);
    assert.match(words({}), /Nobody has answered yet\.$/);
    assert.match(words({ level: 2 }), /level 2/);
    assert.match(words({ again: true }), /calls again/);
    for (const [why, expected] of [
      ["pause", /paused/],
      ["hours", /time of the day/],
      ["news", /not now/],
    ]) {
      assert.match(words({ state: "held", held_why: why }), expected);
    }
    const waiting = { answers: [answered("coming", { stored: false })] };
    assert.match(words(waiting), /Nobody has answered/);
    assert.equal(calls.isUnstored(alarm("fall", waiting)), true);
    assert.match(words({ state: "coming", answers: [answered("coming")] }), /^Anna is on the way since /);
    assert.match(words({ again: true, answers: [answered("coming")] }), /^Anna was on the way .* since\.$/);
    const wrong = answered("false_alarm", { by: "", reason: "a <b>cat</b>" });
    assert.match(words({ answers: [answered("coming"), wrong] }), /^False alarm, says somebody .*<b>cat<\/b>/);
  });

  test("which answers are left", () => {
    assert.deepEqual(answersFor(alarm("fall"))[0], "coming");
    const coming = alarm("fall", { state: "coming", answers: [answered("coming")] });
    assert.deepEqual(answersFor(coming), ["resolved", "false_alarm"]);
    for (const state of ["calling", "held"])
      assert.equal(answersFor({ ...coming, state })[0], "coming", "who has not come");
    const unstored = alarm("fall", { answers: [answered("coming", { stored: false })] });
    assert.equal(answersFor(unstored)[0], "coming", "it may be given again");
    assert.deepEqual(answersFor(alarm("fall", { local: true })), ["seen"]);
  });

  test("the page is never green with one that is open, nor while calls are paused", () => {
    const green = { kind: "watching", tone: "ok", sign: "✓", title: "Watching", silentWords: "" };
    const state = (alarms, pause = null, from = green) => calls.stateWithCalls(from, { alarms, pause }, now);
    assert.equal(state([alarm("fall", { state: "closed" })]), green);
    const over = state([alarm("exit", { ended: at(9) })]);
    assert.deepEqual([over.kind, over.tone], ["alarm", "exit"]);
    assert.match(over.title, /^Patient out of bed, over since .*not seen yet/);
    assert.match(state([alarm("fall"), alarm("exit")]).title, /^Fall detected at /);
    const goesOn = { ...green, kind: "alarm", tone: "alarm", title: "Patient out of bed" };
    const both = state([alarm("fall", { ended: at(9) }), alarm("exit")], null, goesOn);
    assert.match(both.title, /^Fall detected, over since .*, Patient out of bed$/, "none hides behind what goes on");
    assert.equal(both.tone, "alarm");
    assert.equal(state([alarm("exit")], null, goesOn).title, "Patient out of bed");
    const cut = { ...green, kind: "silent", tone: "off", title: "?", silentWords: "connection lost since 12:00" };
    assert.match(state([alarm("fall")], null, cut).title, /, connection lost since 12:00$/);
    const paused = state([], { until: at(600), by: "Anna" });
    assert.deepEqual([paused.kind, paused.tone], ["partly", "warn"]);
    const lost = { ...green, kind: "not-watching", tone: "off" };
    assert.equal(state([], { until: at(600) }, lost), lost, "a pause hides nothing worse");
  });

  test("what a device cannot do is told before anyone relies on it", () => {
    const good = { secure: true, notifications: "default", vibrates: true, wakes: true };
    assert.deepEqual(limitsOf(good), []);
    assert.match(limitsOf({ ...good, secure: false, notifications: "absent" }).join(), /http.*https/);
    assert.equal(limitsOf({ ...good, notifications: "denied", vibrates: false, wakes: false }).length, 3);
  });

  test("whom to call is sent as numbers, without secrets that were not entered and levels that are empty", () => {
    const event = { delay_s: "0", repeat_s: "15", escalate_s: "x", hours: [] };
    const address = { kind: "webhook", name: "Station", url: "http://a", secret_set: true, secret: "" };
    const sent = toSend({ events: { fall: event, exit: event }, levels: [[{ kind: "people" }], [], [address]] });
    assert.deepEqual(sent.events.fall, { delay_s: 0, repeat_s: 15, escalate_s: "x", hours: [] });
    const { name, url } = address;
    const levels = [[{ kind: "people" }], [{ kind: "webhook", name, url }]];
    assert.deepEqual(JSON.parse(JSON.stringify(sent.levels)), levels);
  });

  test("seconds that the camera would refuse are told with their event and their ends, before they are sent", () => {
    const times = { delay_s: "0", repeat_s: " 15,0 ", escalate_s: "3600", coming_s: 0 };
    const found = (change) => problemsOf({ events: { fall: times, exit: { ...times, ...change } } }).join();
    assert.equal(found({ repeat_s: 10 }), "");
    for (const key of Object.keys(times)) {
      const least = /repeat|escalate/.test(key) ? 10 : 0;
      const ends = new RegExp(`^Patient out of bed: Seconds [^,]*: a whole number from ${least} to 3600\\.$`);
      for (const text of [String(least - 1), "3601", "10,5", "", "x"]) assert.match(found({ [key]: text }), ends, key);
    }
    assert.equal(problemsOf(null).length, 0, "a camera that calls nobody");
  });
});

const native = { EventSource: globalThis.EventSource, fetch: globalThis.fetch };
const settle = () => new Promise(setImmediate);

describe("the feed of alarms", () => {
  let clock, feed, told, status;
  const active = (name, more = {}) => ({ name, active: true, since: at(0), run: "a", seq: 7, ...more });
  const open = () => feed.told().alarms.filter(calls.isOpen);
  const passes = (seconds, ...events) => {
    clock += seconds * 1000;
    feed.tick(events);
  };

  beforeEach(() => {
    [clock, told, status] = [0, 0, 404];
    globalThis.EventSource = FakeSource;
    globalThis.fetch = async () => ({ ok: false, status, statusText: "", text: async () => "" });
    FakeSource.opened = 0;
    feed = new AlarmFeed({ told: () => ++told, tested: () => {} }, () => clock);
    feed.open();
  });
  afterEach(() => {
    feed.close();
    Object.assign(globalThis, native);
  });

  test("an alarm that is told again takes the place of itself, whoever told it", () => {
    const [fall, exit] = [alarm("fall"), alarm("exit")];
    FakeSource.newest.say("alarms", { alarms: [exit, fall], pause: { until: at(60) } });
    FakeSource.newest.say("alarm", { ...fall, state: "coming" });
    feed.take({ ...exit, state: "seen" });
    FakeSource.newest.say("pause", null);
    const { alarms, pause, state } = feed.told();
    assert.deepEqual([alarms.map((one) => one.state), pause, state], [["seen", "coming"], null, "open"]);
    FakeSource.newest.say("receivers", [{ name: "ward phone", state: "reached" }]);
    assert.equal(feed.told().receivers[0].state, "reached");
  });

  test("one that falls silent is opened anew, and what was known stays", () => {
    FakeSource.newest.say("alarms", { alarms: [alarm("fall")] });
    passes(13);
    assert.deepEqual([FakeSource.opened, feed.told().state, open().length], [2, "lost", 1]);
  });

  test("what is quiet here while the camera is away hides no other alarm, and sounds when the camera is back", () => {
    const [fall, exit] = [alarm("fall", { seq: 7 }), alarm("exit")];
    const rings = () => calls.ringing(feed.told().alarms)?.id ?? null;
    const isAsked = () => feed.told().alarms.map((one) => calls.mayHush(one, feed.told().state));
    FakeSource.newest.say("alarms", { alarms: [fall] });
    feed.hush(fall.id);
    assert.deepEqual([rings(), isAsked()], [fall.id, [false]], "who can answer is not offered less");
    feed.lost();
    assert.deepEqual(isAsked(), [true]);
    feed.hush(fall.id);
    passes(1, active(FALL));
    assert.deepEqual([rings(), isAsked(), open().length], [null, [false], 1], "quiet, and still in sight");
    assert.equal(calls.urgent(feed.told().alarms).id, fall.id, "title and icon tell it");

    passes(1, active(FALL, { seq: 9 }));
    const [made] = open();
    assert.deepEqual([rings(), made.local, isAsked()[0]], [made.id, true, false], "another fall, known by its event");
    feed.see(made.id);
    feed.take(exit);
    assert.equal(rings(), exit.id);
    FakeSource.newest.say("alarms", { alarms: [fall, { ...exit, state: "seen" }] });
    assert.equal(rings(), fall.id, "the camera is back and nobody has answered");
  });

  test("a fall that begins anew is heard, also where only the status tells it as the one that is quiet", () => {
    const fall = alarm("fall", { seq: 7 });
    const byStatus = (on) => active(FALL, { active: on, run: undefined, seq: undefined });
    FakeSource.newest.say("alarms", { alarms: [fall] });
    feed.lost();
    feed.hush(fall.id);
    for (const [on, expected] of [
      [true, null],
      [null, null],
      [false, null],
      [true, fall.id],
    ]) {
      passes(1, byStatus(on));
      assert.equal(calls.ringing(feed.told().alarms)?.id ?? null, expected, String(on));
    }
  });

  test("a camera without alarms: an event calls all the same, and stays until it was seen here", async () => {
    FakeSource.newest.close();
    FakeSource.newest.dispatchEvent(new Event("error"));
    await settle();
    await settle();
    assert.equal(feed.told().state, "absent");
    passes(1, active(FALL));
    passes(1, active(FALL));
    assert.deepEqual(
      open().map((one) => [one.local, one.kind, one.state]),
      [[true, "fall", "calling"]],
    );
    passes(1, { ...active(FALL), active: false });
    assert.equal(open().length, 1);
    assert.ok(open()[0].ended);
    passes(1, active(FALL, { seq: 8, since: at(4) }));
    assert.equal(open().length, 2, "another fall is another alarm");
    for (const { id } of open()) feed.see(id);
    passes(1, active(FALL, { seq: 8, since: at(4) }));
    assert.deepEqual(open(), [], "seen, although it goes on");
  });

  test("no event is told twice, and none that its alarm does not tell is left out", () => {
    const fall = alarm("fall", { run: "a", seq: 7 });
    FakeSource.newest.say("alarms", { alarms: [fall] });
    passes(5, active(FALL));
    assert.equal(open().length, 1, "its own alarm");
    FakeSource.newest.say("alarm", { ...fall, state: "closed" });
    passes(5, active(FALL));
    assert.deepEqual(open(), [], "answered, although it goes on");
    passes(1, active(FALL, { run: undefined, seq: undefined }));
    assert.deepEqual(open(), [], "known by the status alone");
    passes(1, active(FALL, { seq: 9 }));
    assert.deepEqual(open(), [], "the alarm may come a moment later");
    passes(4, active(FALL, { seq: 9 }));
    assert.deepEqual(
      open().map((one) => one.local),
      [true],
    );
    FakeSource.newest.say("alarm", alarm("fall", { run: "a", seq: 9 }));
    passes(1, active(FALL, { seq: 9 }));
    assert.deepEqual(
      open().map((one) => one.local),
      [undefined],
    );
  });

  test("a status that is late makes no second alarm of one that is over and waits for its answer", () => {
    const over = alarm("fall", { began: at(1), ended: at(20) });
    const byStatus = (second) => active(FALL, { run: undefined, seq: undefined, since: at(second) });
    FakeSource.newest.say("alarms", { alarms: [over] });
    passes(1, byStatus(21));
    passes(5, byStatus(21));
    assert.equal(open().length, 1);
    passes(1, byStatus(60));
    passes(5, byStatus(60));
    assert.equal(open().length, 2, "another fall");
    feed.see(open()[0].id);
    FakeSource.newest.say("alarm", { ...over, state: "closed" });
    passes(1, active(FALL, { active: false }));
    passes(1, byStatus(21));
    passes(5, byStatus(21));
    assert.equal(open().length, 1, "answered: whatever is told may be new");
  });

  test("an alarm that the camera tells when all is over takes the place of the one made here", () => {
    FakeSource.newest.say("alarms", { alarms: [] });
    const over = { active: false, seq: 8 };
    for (const known of [{}, { run: undefined, seq: undefined }]) {
      passes(1, active(FALL, known));
      passes(4, active(FALL, known));
      passes(1, active(FALL, { ...known, ...over }));
      assert.deepEqual(
        open().map((one) => one.local),
        [true],
        "over, and not seen yet",
      );
      FakeSource.newest.say("alarm", alarm("fall", { run: "b", seq: 7, began: at(1) }));
      assert.equal(open().length, 2, "another fall is another alarm");
      FakeSource.newest.say("alarms", { alarms: [alarm("fall", { run: "a", seq: 7, began: at(0), ended: at(9) })] });
      assert.deepEqual(
        open().map((one) => one.local),
        [undefined],
      );
      FakeSource.newest.say("alarms", { alarms: [] });
    }
  });
});

describe("the voice", () => {
  let clock, hub;
  const tab = (sounds, visible = false) => {
    const port = { on: null };
    port.postMessage = ({ type, on }) => type === "voice" && (port.on = on);
    hub.tabOf(port);
    port.says = (ready) => hub.take(port, { type: "here", sounds: ready, visible });
    port.says(sounds);
    return port;
  };
  const all = (...tabs) => tabs.map(({ on }) => on === true).join();

  beforeEach(() => {
    clock = 0;
    hub = new Hub(() => clock);
  });

  test("one tab calls for all: one that can be heard, and another when that one goes or falls silent", () => {
    const mute = tab(false, true);
    hub.giveVoice();
    assert.equal(all(mute), "true", "a mute one still notifies");
    const [first, second] = [tab(true), tab(true, true)];
    assert.equal(all(mute, first, second), "false,true,false", "not the next one that could");
    clock = 4000;
    second.says(true);
    hub.giveVoice();
    assert.equal(all(mute, first, second), "false,false,true", "a frozen tab is deaf");
    first.says(true);
    hub.take(second, { type: "bye" });
    assert.equal(first.on, true);
  });
});
