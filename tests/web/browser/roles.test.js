// Who may ask for what: the table of docs/http.md against the program, in requests as somebody with bad intent makes them.
import assert from "node:assert/strict";
import { once } from "node:events";
import { readFile } from "node:fs/promises";
import { request } from "node:http";
import { after, before, test } from "node:test";
import { demoCamera, startProgram, until } from "../program.js";

const TEXT = await readFile(new URL("../../../docs/http.md", import.meta.url), "utf8");
const PROGRAM = "/local/velmor_care/control.cgi";
const RANKS = ["anybody", "carer", "nurse", "installer"];
const FORM = { "Content-Type": "application/x-www-form-urlencoded" };

const codesIn = (cell) => [...cell.matchAll(/`([^`]+)`/g)].map(([, code]) => code);

/** The cells of the first table after a text, without its head. */
function tableAfter(words) {
  const [table] = TEXT.slice(TEXT.indexOf(words)).match(/(^\|.*\|\n)+/m);
  const rows = table.trim().split("\n").slice(2);
  return rows.map((row) => row.split("|").slice(1, -1));
}

const RULES = tableAfter("## Who may ask for what").map(([methods, address, parameter, least]) => ({
  methods: methods.trim().split(", "),
  path: codesIn(address)[0],
  parameter: codesIn(parameter)[0] ?? "",
  least: least.trim(),
}));
const ADDRESSES = tableAfter("# Addresses").flatMap(([cell]) => codesIn(cell));
const ACTIONS = tableAfter("## Actions").flatMap(([cell]) => codesIn(cell));

/** Whether a form says a parameter once, with this very value. */
function saysOnce(form, parameter) {
  const [key, value] = parameter.split("=");
  const said = new URLSearchParams(form).getAll(key);
  return said.length === 1 && said[0] === value;
}

/** @param {string} obeyed the form that counts */
function leastFor(method, path, obeyed) {
  const asked = method === "HEAD" ? "GET" : method;
  const own = RULES.filter((rule) => rule.path === path);
  const rules = own.length ? own : RULES.filter((rule) => path.startsWith(rule.path.replace(/\*$/, "")));
  const fits = ({ methods, parameter }) => methods.includes(asked) && (!parameter || saysOnce(obeyed, parameter));
  return rules.find(fits)?.least ?? "installer";
}

const house = { visitors: { stranger: {} } };
const rankOf = (visitor) => Math.max(0, RANKS.indexOf(visitor));

/** An answer's {status, text, headers}; a stream is closed as soon as it has begun. */
async function ask(visitor, method, target, body) {
  const { hostname, port } = house.program.page;
  const headers = { "X-Requested-With": "test", ...house.visitors[visitor], ...(method === "POST" && FORM) };
  const asking = request({ hostname, port, method, path: target, headers });
  asking.end(body);
  const [answer] = await once(asking, "response");
  const told = { status: answer.statusCode, headers: answer.headers, text: "" };
  if (/multipart|event-stream/.test(answer.headers["content-type"])) answer.destroy();
  else for await (const chunk of answer) told.text += chunk;
  return told;
}

/** What is wrong with an answer, in words; nothing of one that is as it should be. */
function faultOf(visitor, least, { status }) {
  const may = rankOf(visitor) >= rankOf(least);
  const refusal = visitor === "stranger" ? 401 : 403;
  const right = may ? status < 500 && status !== 401 && status !== 403 : status === refusal;
  return right ? [] : [`${visitor}, at least ${least}: ${status}`];
}

async function signIn(name, password) {
  const form = String(new URLSearchParams({ action: "sign_in", name, password }));
  const { status, headers } = await ask("stranger", "POST", "/platform/session", form);
  assert.equal(status, 200);
  return { Cookie: headers["set-cookie"].map((cookie) => cookie.split(";")[0]).join("; ") };
}

before(async () => {
  house.program = await startProgram(demoCamera());
  for (const role of ["installer", "carer", "nurse"]) {
    const adder = role === "installer" ? "stranger" : "installer";
    const { text } = await ask(adder, "POST", "/platform/people", `action=add&name=${role}&role=${role}`);
    house.visitors[role] = await signIn(role, JSON.parse(text).password);
  }
  await until(async () => (await ask("nurse", "GET", "/platform/anonymised.jpg")).status === 200);
});
after(() => house.program?.stop());

test("each address answers a stranger, a carer and a nurse as the documents say, and none fails", async () => {
  const targets = new Set(ADDRESSES.map((address) => address.replace("WxH", "640x360")));
  const known = [...targets].map((target) => target.split("?")[0]);
  const rowless = known.filter((path) => !RULES.some((rule) => rule.path === path));
  assert.deepEqual(rowless, [], "has no line of its own");
  for (const { path } of RULES) if (!known.includes(path)) targets.add(path.replace("*", "index.html"));
  for (const path of [...known, ...RULES.map((rule) => rule.path)]) targets.add(`${path}?anonymised=1`);
  for (const action of ACTIONS) targets.add(`${PROGRAM}?action=${action}`);

  const faults = [];
  for (const target of targets) {
    const [path, query = ""] = target.split("?");
    for (const method of ["GET", "HEAD", "POST"]) {
      const [asked, body] = method === "POST" ? [path, query] : [target];
      const least = leastFor(method, path, query);
      for (const visitor of ["stranger", "carer", "nurse"]) {
        const answer = await ask(visitor, method, asked, body);
        faults.push(...faultOf(visitor, least, answer).map((fault) => `${method} ${target}: ${fault}`));
      }
    }
  }
  assert.deepEqual(faults, []);
});

/** Whatever says an action once, misspelt, or twice. */
function* writings() {
  const keys = ["action", "Action", "%61ction", "action%20", "+action", "action[]", "x;action"];
  const values = ["get_status_code", "get_all_parameters"];
  const pairs = keys.flatMap((key) => values.map((value) => `${key}=${value}`));
  for (const pair of pairs) yield* [[pair], ...pairs.map((other) => [pair, other])];
}

test("however a carer writes an action, the program does what the carer may, or nothing", async () => {
  const faults = [];
  let obeyed = 0;
  const tryIt = async (method, query, body) => {
    const form = body ?? query;
    const answer = await ask("carer", method, `${PROGRAM}?${query}`, body);
    const least = leastFor(method, PROGRAM, form);
    if (least === "carer") obeyed += 1;
    const wrong = faultOf("carer", least, answer);
    if (least === "carer" && !/^\d+$/.test(answer.text.trim())) wrong.push(`answers ${answer.text}`);
    faults.push(...wrong.map((fault) => `${method} ${query} ${body}: ${fault}`));
  };
  for (const parts of writings()) {
    await tryIt("GET", parts.join("&"));
    await tryIt("POST", "", parts.join("&"));
    if (parts.length === 2) await tryIt("POST", ...parts);
  }
  assert.deepEqual(faults, []);
  assert.ok(obeyed > 0);
});
