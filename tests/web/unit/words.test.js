// The page's languages: both complete, with the same places; numbers and times in words.
import assert from "node:assert/strict";
import { readFile, readdir } from "node:fs/promises";
import { join } from "node:path";
import { describe, test } from "node:test";
import { fileURLToPath } from "node:url";
import { entered, limitProblem, plainNumber } from "../../../web/base/limits.js";
import { clockTime, durationInWords, eventName, failure, say, troubleWords } from "../../../web/base/words.js";
import de from "../../../web/base/words.de.js";
import en from "../../../web/base/words.en.js";
import { encodeSettings } from "../../../web/program/wire.js";
import { changeLines, changeWords } from "../../../web/settings/parameters.js";
import { LANDSCAPE, SETTINGS } from "./fixtures.js";

const WEB = fileURLToPath(new URL("../../../web", import.meta.url));

const textsOf = (entry) => (typeof entry === "string" ? [entry] : Object.values(entry));
const placesOf = (text) => [...text.matchAll(/\{(\w+)\}/g)].map(([, name]) => name);

/** All of the page's own scripts as one text. */
async function scripts() {
  const files = await readdir(WEB, { recursive: true });
  const own = files.filter((name) => name.endsWith(".js") && !/vendor|words\.\w\w\.js/.test(name));
  return (await Promise.all(own.map((name) => readFile(join(WEB, name), "utf8")))).join("\n");
}

describe("both languages", () => {
  test("have the same keys, the same places and the same plurals", () => {
    assert.deepEqual(Object.keys(de).sort(), Object.keys(en).sort());
    for (const [key, entry] of Object.entries(en)) {
      const [mine, theirs] = [entry, de[key]].map((one) => textsOf(one).map((text) => new Set(placesOf(text))));
      assert.equal(typeof de[key], typeof entry, key);
      const all = (sets) => [...new Set(sets.flatMap((set) => [...set]))].filter((name) => name !== "count").sort();
      assert.deepEqual(all(theirs), all(mine), key);
      for (const text of [...textsOf(entry), ...textsOf(de[key])]) assert.ok(text.trim(), key);
    }
  });

  test("have what the page says, and nothing that it does not", async () => {
    const text = await scripts();
    const said = [...text.matchAll(/\b(?:say|failure|told)\(\s*"([^"]+)"/g)].map(([, key]) => key);
    assert.deepEqual(
      said.filter((key) => !(key in en)),
      [],
    );
    const begun = [...text.matchAll(/`([a-z.A-Z]+\.)\$\{/g)].map(([, start]) => start);
    const used = (key) => text.includes(`"${key}"`) || begun.some((start) => key.startsWith(start));
    assert.deepEqual(
      Object.keys(en).filter((key) => !used(key)),
      [],
    );
  });

  test("say nothing in words of the program's own", () => {
    for (const text of [en, de].flatMap((table) => Object.values(table).flatMap(textsOf))) {
      assert.doesNotMatch(text, /coarsened|stake|\(200\)|no text|undefined/i);
    }
  });
});

test("places are filled, plurals chosen, unknown words never shown as a key", () => {
  assert.equal(say("area.beds", { number: 2 }), "Bed area 2");
  assert.deepEqual(
    [1, 2].map((count) => say("save.things", { count })),
    ["1 thing to look at", "2 things to look at"],
  );
  assert.throws(() => say("nothing.of.this"));
  assert.deepEqual([eventName("Fall Detected"), eventName("<new>")], ["Fall detected", "<new>"]);
  const error = failure("noNumber", { action: "get" }, { status: 7 });
  assert.deepEqual([say(error.said.key, error.said.values), error.status], [error.message, 7]);
});

/** The words as a browser has them that wants these languages. */
async function wordsFor(...languages) {
  const own = Object.getOwnPropertyDescriptor(globalThis, "navigator");
  Object.defineProperty(globalThis, "navigator", { value: { languages }, configurable: true });
  const words = await import(`../../../web/base/words.js?${languages}`);
  if (own) Object.defineProperty(globalThis, "navigator", own);
  else delete globalThis.navigator;
  return words;
}

test("what the program says of a trouble is led by the reader's language, where that is not its own", async () => {
  const since = "2026-05-07T12:03:09Z";
  assert.equal(troubleWords({ what: "camera-away", since, text: "Gone." }), "Gone.");
  assert.match(
    troubleWords({ what: "camera-away", since, text: "" }),
    /^Since .*:03:09.* the camera gives no picture\.$/,
  );
  const german = await wordsFor("de-AT");
  assert.match(
    german.troubleWords({ what: "camera-away", since, text: "Gone." }),
    /^Seit .*:03:09.* gibt die Kamera kein Bild\. \(.*: Gone\.\)$/,
  );
  const away = "The camera's lens is away; nobody is tracked";
  assert.equal(
    german.troubleWords({ what: "new-one", since, text: away }),
    "The camera's lens is away; niemand wird verfolgt",
  );
  assert.equal(
    german.becauseOf("the torso looks 1.50 times as long as the legs (less than 2.00 counts as lying)", true),
    "Zu Ende, weil: der Rumpf sieht 1,50-mal so lang aus wie die Beine (weniger als 2,00 gilt als Liegen).",
  );
  assert.equal(
    german.failure("refusedRequest.because", { status: 503, reason: "Service Unavailable" }).message,
    "Die Kamera hat die Anfrage abgelehnt: 503 (gerade nicht möglich).",
  );
  for (const trouble of [
    { what: "new-one", since, text: "New." },
    { what: "too-dark", since: "?", text: "New." },
  ]) {
    assert.equal(german.troubleWords(trouble), "New.");
  }
});

test("durations are told in their two largest units, clock times with another day in front", () => {
  const cases = { "-5": "0 seconds", 1999: "1 second", 125999: "2 minutes 5 seconds", 3601000: "1 hour" };
  Object.assign(cases, { 4320000: "1 hour 12 minutes", 90000000: "1 day 1 hour" });
  for (const [milliseconds, words] of Object.entries(cases)) assert.equal(durationInWords(Number(milliseconds)), words);
  const told = [23, 24].map((hour) => clockTime(new Date(2026, 4, 7, 12, 3, 9), new Date(2026, 4, 7, hour, 0, 0)));
  assert.match(told[0], /^12:03:09/);
  assert.match(told[1], /7.*12:03:09/);
});

test("a number has the mark that its reader writes, what is no number stays, and either mark is kept as the program's", async () => {
  const texts = ["1.60", ".5", "3.", "100", "1.2.3", "rtsp://10.0", "1280x720", ""];
  const german = await wordsFor("de-DE");
  const commas = ["1,60", ",5", "3,", "100", "1.2.3", "rtsp://10.0", "1280x720", ""];
  assert.deepEqual(texts.map(german.writtenNumber), commas);
  for (const other of ["en-GB", "ar-EG"]) {
    const { writtenNumber } = await wordsFor(other);
    assert.deepEqual(texts.map(writtenNumber), texts, other);
  }
  assert.deepEqual(commas.slice(0, 3).map(entered), texts.slice(0, 3));
  for (const text of ["1,5,0", " 1,2,", "1.000,5", "", "x"]) assert.equal(entered(text), text);
});

describe("what was changed", () => {
  test("has the panels' name for each parameter that a panel sets, another for each", async () => {
    const { parameters } = JSON.parse(await readFile(join(WEB, "../package/manifest.json"), "utf8"));
    const named = parameters.map(({ name: key, default: from }) => ({
      key,
      from,
      ...changeWords({ key, from, to: "" }),
    }));
    const bare = named.filter(({ name }) => name === null).map(({ key }) => key);
    assert.deepEqual(
      bare.filter((key) => !/^(mobilenet|Landscape|Portrait)Model/.test(key)),
      ["MaxDisappeared", "LarodChipType", "FeetOnFloor"],
    );
    const names = named.map(({ name }) => name).filter(Boolean);
    assert.equal(new Set(names).size, names.length);
    const inPixels = named.filter(({ from }) => / px$/.test(from));
    assert.equal(inPixels.length, 2 * 3 * 8 + 8);
  });

  test("is said as the panels say it, in part where only a part is known, and never less than was told", () => {
    const cases = [
      ["DetectFallenPersons", "true", "false", "Fall detected: on, off"],
      ["AnonOverlaysOn", "maybe", "", "Anonymised stream: maybe, "],
      ["Detection2Active", "false", "true", "Bed area 2: off, on"],
      ["Exclusion13y", "480", "31", "Exclusion area 1, corner 4: y: 480 px, 31 px"],
      ["FallCalibration3x", "385", "9", "Floor point yellow: x: 385 px, 9 px"],
      ["WRectM", "1.600000", "<b>", "Width of the floor rectangle in metres: 1.6, <b>"],
      ["camera.focal_length_um", "3700", "4100", "Focal length in millimetres: 3.7, 4.1"],
      ["camera.focal_length_um", "999000", "4,1", "Focal length in millimetres: 999, 4,1"],
      ["camera.view", "", "accepted", "What the camera sees: , accepted"],
      ["people.Ben.Bo", "", "carer", "Role of Ben.Bo: , carer"],
      ["people.Ben.password", "", "reset", "New password for Ben: , reset"],
      ["token.wall", "nurse", "", "null: nurse, "],
      ["constructor", "true", "1", "null: true, 1"],
      ["Detection40x", "4", { a: 1 }, 'null: 4, {"a":1}'],
    ];
    for (const [key, from, to, expected] of cases) {
      const said = changeWords({ key, from, to });
      assert.equal(`${said.name}: ${said.from}, ${said.to}`, expected);
    }
  });
});

test("who is called is told as a line for each field that differs, never as a document, and without secrets", () => {
  const times = { delay_s: 0, hours: [{ from: "22:00", to: "06:00" }], repeat_s: 60 };
  const phone = (change) => ({ kind: "webhook", name: "phone", url: "https://a/1", secret_set: true, ...change });
  const people = { kind: "people" };
  const told = (fall, ...levels) => JSON.stringify({ events: { fall: { ...times, ...fall }, exit: times }, levels });
  const before = told({}, [people], [phone()]);
  const url = 'calls.levels["phone"].url, phone: Address that is called (webhook)';
  const hours = "calls.events.fall.hours, Fall detected: Hours of the day in which it calls";
  const repeat = "calls.events.fall.repeat_s, Fall detected: Seconds between two calls";
  const whole = "calls, Whom the alarms call";
  for (const [to, ...expected] of [
    [told({ repeat_s: 90 }, [people], [phone()]), `${repeat}: 60 > 90`],
    [told({ hours: [] }, [people], [phone()]), `${hours}: 22:00–06:00 > At no hour: this event never calls.`],
    [
      told({}, [people, phone({ url: "b" })]),
      'calls.levels["phone"], phone: Level 2 > Level 1',
      `${url}: https://a/1 > b`,
    ],
    [told({}, [people], [phone({ secret: "fresh" })]), `${whole}:  > nothing that is shown: a secret never is`],
    ['{"levels": []}', `${whole}:  > not known`],
  ]) {
    const lines = changeLines({ key: "calls", from: before, to });
    assert.deepEqual(
      lines.map((line) => `${line.key}, ${line.name}: ${line.from} > ${line.to}`),
      expected,
    );
  }
});

test("what is entered may have a comma; each limit is told with its ends", () => {
  assert.equal(plainNumber(" 1,60 "), "1.60");
  assert.equal(encodeSettings({ ...SETTINGS, widthM: "1,60" }, LANDSCAPE).get("XM"), "1.60", "as the program reads it");
  for (const text of ["0,1", "100", "1.5"]) assert.equal(limitProblem("widthM", text), null, text);
  assert.equal(limitProblem("focalLength", "2,8"), null);
  assert.match(limitProblem("focalLength", "2800"), /^Focal length in millimetres: a number from 0.1 to 999\.$/);
  for (const text of ["", "0,05", "100,1", "1,5,0", "-1", "1e1"]) {
    assert.match(limitProblem("widthM", text), /^Width .*: a number from 0.1 to 100\.$/, text);
  }
});
