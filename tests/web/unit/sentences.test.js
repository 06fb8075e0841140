// The program's sentences in German: none of its sources has one that is missing, and nothing that it says is lost.
import assert from "node:assert/strict";
import { describe, test } from "node:test";
import sentences, { PARTS } from "../../../web/base/sentences.de.js";
import { Translator } from "../../../web/base/sentences.js";
import { sourcesBelow, textsIn } from "./sources.js";

const translator = new Translator(sentences, PARTS, (value, digits) => value.toFixed(digits).replace(".", ","));
const german = (text) => translator.translate(text);

/** Where what people read on the page is written: folders below platform/workstation, and files. */
const SPEAKERS = [
  /^(alarms|outside|requests|web|web\/access|web\/alarms)\/\w+\.cpp$/,
  /^system\/(health|durable_file)\.cpp$|^sight\/sight_watch\.cpp$|^events\/event_(recorder|journal)\.cpp$/,
  /^trace\/(explanation|left_out|trace_story|live_explanation)\.cpp$|^people\/(people|secrets)\.cpp$/,
  /^decoding\/(live_camera|video_pipeline|source\/stream_watch|source\/certificate_check)\.cpp$/,
  /^camera\/(takeover|taken_camera|chosen_optics)\.cpp$|^camera_check\/(trial|trial_words|reachability)\.cpp$/,
  /^parameters\/(parameter_rules|settings_document)\.cpp$/,
];
const speaks = (name) => SPEAKERS.some((one) => one.test(name));

/** The calls by which a source speaks to the page at once. */
const TELLS = /\b(reportTrouble|answerLine|Refusal\{|PeopleRefusal)\b\W/;

const WORKSTATION = "platform/workstation";
const own = await sourcesBelow(WORKSTATION);
const sources = own.map(([name, source]) => [name.slice(WORKSTATION.length + 1), source]);

/** Statements in which those speak to the log, the terminal or a library. */
const NOT_THE_PAGE = /syslog\(|printf\(|\b(say|gst_parse_launch|soup_message_headers_replace)\(/;

/** What they say to no page: names of rules, what a start, a log or the terminal tells. */
const ELSEWHERE = [
  /^(near edge|pose score|no place|too small|upside down at the top|no top)$/,
  /seen by the run|^scores? together|people may have been mixed|count as confirmed|^the run at |^ (at \(|degrees)/,
  /^, inside bed |^Missing decoder: $|^GStreamer cannot be initialised|^the system has no random|no yescrypt$/,
  /counts no more|on the page(, | in place of )|--reset camera ends|^; kept as |a new journal goes on/,
  /^has been removed$|^is another file than before, kept as |damaged lines were left out|^kept as |^they stay in the file|a trace has every parameter/,
  /listened? on|choose another address|other machines reach this|certificate cannot be used/,
  /is not an address to listen on|is no number of an alarm's|Content-Length: |; SameSite=|^default-src |="/,
  /^offered is action=list|make it anew with|glib-networking|there is no (certificate|page: )/,
];

/** A text of a source without what stands for a value, as the pieces of sentences that it is made of. */
const piecesOf = (text) =>
  text
    .split(/%[.\d]*(?:llu|[dfsu])|\d+(?:\.\d+)?|[.;](?:\s|$)|\0/)
    .map((piece) => piece.replace(/^[\s,:;.]+|\s+$/g, "").toLowerCase())
    .filter((piece) => /[a-z]{2}/.test(piece));

const KNOWN = [sentences, ...Object.values(PARTS)]
  .flatMap((table) => Object.keys(table))
  .flatMap((text) => piecesOf(text.replace(/\{\w+\}/g, "\0")));

/** Whether the words stand in it as whole ones, or a source puts an ending to the last. */
const isKnown = (piece) => KNOWN.some((known) => ` ${known}`.includes(` ${piece}`));

const isSentence = (text) => /[a-z]{2,}\W? [a-z(]/i.test(text) && !/^[A-Z, ]+$|^[\w-]+\/[\w-]+;/.test(text);

/** What no German sentence has, unless somebody's own words stand in it. */
const ENGLISH =
  /\b(the|was|were|is|are|be|been|has|have|must|not|and|or|of|for|with|from|than|that|which|who|whose|this|its|it|to|at|on|by|nobody|cannot)\b/i;

/** The texts by which the tests of the sentences on events expect them, as far as one text has one. */
async function expected() {
  const sourced = (await sourcesBelow("tests/platform/trace")).flatMap(([, source]) => textsIn(source));
  const all = sourced.filter(({ before }) => !before.endsWith("<<")); // what a test says when it fails
  const texts = all.map(({ text }) => text.replace(/^[\s\S]*"because": "/, "").replace(/[;.,\s]*("\}\)?)?$/, ""));
  const begun = texts.filter((text) =>
    /^(person|bed|a bed|the (nearest|shoulders|event)|nobody|no bed) ?\d* /.test(text),
  );
  return begun.filter((text) => !text.endsWith("before that this person"));
}

/** One for each of the words by which a finding allows no fall, now or before. */
function againstFalls() {
  const [, source] = sources.find(([name]) => name === "trace/explanation.cpp");
  return [...source.matchAll(/\bText\{"[^"]*",\s*"([^"]*)",\s*"([^"]*)"\}/g)].flatMap(([, now, before]) => [
    ...(now === "moved" ? [] : [`person 3 lies on the floor but ${now}`]), // which has a sentence of its own
    `person 3 lies still on the floor, for 1 s of 3 s so far; before that this person ${before}`,
  ]);
}

describe("each sentence of the program's", () => {
  test("has a German one", async () => {
    const missing = [];
    let count = 0;
    for (const [name, source] of [...sources.filter(([file]) => speaks(file)), ...(await sourcesBelow("app"))]) {
      if (name.startsWith("app/") && !name.endsWith("status.cpp")) continue;
      for (const { text, before } of textsIn(source)) {
        const said = text.replace(/^Status: [\s\S]*\r\n\r\n/, "");
        if (!isSentence(said) || NOT_THE_PAGE.test(before) || ELSEWHERE.some((one) => one.test(said))) continue;
        ++count;
        if (translator.sentence(said.trim(), 0) === null && !piecesOf(said).every(isKnown))
          missing.push(`${name}: "${said}"`);
      }
    }
    assert.deepEqual(missing, []);
    assert.ok(count > 300, `${count} sentences were found`);
  });

  test("is looked for wherever the program speaks to the page", () => {
    const unread = sources.filter(([name, source]) => !speaks(name) && TELLS.test(source));
    // The lens's one sentence stands among those for the log and the bus.
    assert.deepEqual(
      unread.map(([name]) => name),
      ["camera/lens_service.cpp"],
    );
    const lens = textsIn(unread[0][1]).filter(({ before }) => /reportTrouble\(/.test(before));
    for (const { text } of lens) assert.notEqual(german(text), null, text);
  });

  test("on why an event began or ended is German in all its parts", async () => {
    const texts = [...(await expected()), ...againstFalls()];
    assert.ok(texts.length > 30, `${texts.length} sentences were found`);
    for (const text of texts) assert.doesNotMatch(german(text) ?? text, ENGLISH, `${text}: ${german(text)}`);
  });
});

/** The text with a value in each of its places. */
function filled(text) {
  return text.replace(/\{(([a-z]+)\d*)\}/g, (_, name, kind) => {
    if (kind === "number") return String(name.length);
    if (kind === "text" || kind === "reason") return `«${name}»`;
    return filled(Object.keys(PARTS[kind])[0]);
  });
}

test("no German sentence is hidden by another, lacks a place, or is English", () => {
  const places = (text) => [...new Set(text.match(/\{\w+\}/g))].sort();
  for (const [text, other] of Object.entries(sentences)) {
    assert.deepEqual(places(other), places(text), text);
    assert.doesNotMatch(
      other.replace(/„[^“]*“|\{\w+\}|what ist|is_\w+|add_\w+/g, ""),
      /\b(the|is|must|not|which|cannot)\b/,
      text,
    );
    const words = german(filled(text));
    const parts = other.split(/\{\w+\}/).filter((part) => part.trim());
    assert.ok(words !== null && parts.every((part) => words.includes(part)), `${text}: ${words}`);
  }
  for (const table of Object.values(PARTS)) {
    for (const [text, other] of Object.entries(table)) assert.deepEqual(places(other), places(text), text);
  }
});

describe("what is put together", () => {
  /** As the program said them, and what a reader must learn from the German ones. */
  const CASES = [
    [
      "bed 1 has been empty for only 1.5 s, and more than 5 s raise the event; the nearest is person 12, whose head is on its outline; 2 possible persons inside its outline were left out: not confirmed: the detector saw no person there; score 0.1499 under 0.1500",
      /^Bett 1 ist erst seit 1,5 s .* 5 s .*; am nächsten ist Person 12, der Kopf genau auf dem Umriss; 2 mögliche .*: nicht bestätigt: .*; Bewertung 0,1499 unter 0,1500$/,
    ],
    ["Person 3 stands.", /^Person 3 steht\.$/],
    [
      "Since 03:07 alarms call, but they and the answers to them are not stored (3 waiting): alarms.journal: cannot be written: No space left on device. Nobody outside is called meanwhile.",
      /^Seit 03:07 .*\(3 warten\): alarms\.journal: .*: der Datenträger ist voll\. Außerhalb .*\.$/,
    ],
    [
      "The camera has given no picture since 03:07:01 (Could not connect to 10.0.0.2: Connection refused): nobody is being watched. It is tried again until it answers.",
      /^Die Kamera gibt seit 03:07:01 kein Bild \(keine Verbindung zu 10\.0\.0\.2: .* abgewiesen\): niemand wird überwacht\. Es /,
    ],
    [
      "calls.json cannot be used: levels is a list of 1 to 5 levels. Since 03:07 phone is not reached: 503 Service Unavailable. Since 03:09 Dr. No; ward 2 is not reached: no answer within 5 s.",
      /^calls\.json ist nicht .*: levels ist .*\. Seit 03:07 ist phone nicht .*: 503, .*\. Seit 03:09 ist Dr\. No; ward 2 nicht zu erreichen: keine Antwort innerhalb von 5 s\.$/,
    ],
    [
      'Nothing was changed: the document: parameters: "A" must be a whole number from 0 to 4096',
      /^Nichts wurde geändert: .*„A“ muss eine ganze Zahl von 0 bis 4096 sein$/,
    ],
    [
      "It is closed already: false_alarm by Ida is an object.",
      /schon abgeschlossen: Fehlalarm, sagt Ida is an object\.$/,
    ],
  ];

  test("is taken apart, with its names and numbers as they were", () => {
    for (const [text, words] of CASES) assert.match(german(text), words);
  });

  test("keeps what is not known as the program said it", () => {
    assert.equal(
      german("the roof leaks; nobody is tracked; so be it."),
      "the roof leaks; niemand wird verfolgt; so be it.",
    );
    assert.equal(german("Nothing was changed: the roof. It leaks"), "Nichts wurde geändert: the roof. It leaks");
    assert.equal(german("person x stands"), null, "no such number");
    assert.equal(german("bed 1 is empty: "), null);
  });

  test("comes to its end and loses nothing, however odd", () => {
    const odd = ["", " ", ".", "; ", ". . ; . ", "{who} stands", "$& $1", "person 99999999999999999999 stands", "\0\0"];
    for (const text of [...odd, ".".repeat(9999), "person ".repeat(9999)]) assert.equal(german(text), null, text);
    const nested = "It cannot be watched: Nothing was changed: ".repeat(90);
    for (const between of ["; ", ". ", ": "]) {
      for (const piece of ["a: b", "Since 1 2 is not reached: x", nested.slice(0, 900), "(1 % px s) is"]) {
        const text = Array(Math.floor(3900 / (piece.length + 2)))
          .fill(piece)
          .join(between);
        assert.ok((german(text) ?? text).includes(piece.slice(-2)), text.slice(0, 50));
      }
    }
  });
});
