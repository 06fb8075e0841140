/** Addresses and requests: the program (control.cgi), the camera's streams and its appearance. */
import { CODE, REFUSAL } from "../base/facts.js";
import { failure, programWords, say } from "../base/words.js";
import { differences, encodeSettings, parseSettings } from "./wire.js";

/** Address of the program's handler, beside the page. */
export const PROGRAM_URL = new URL("../control.cgi", import.meta.url).href;

const TIMEOUT_MS = 5000;
const SAVE = "set_all_parameters";

/** Whether a request to the program changes the settings. */
export const isSave = (url) => url.includes(SAVE);

/**
 * The answer to a request as text; with `form`, to one that changes something. Every reason why there is none becomes a
 * sentence, a refusal has its `status`.
 */
export async function fetchText(url, form) {
  let answer;
  try {
    const signal = AbortSignal.timeout(TIMEOUT_MS);
    const request = form ? { method: "POST", body: form } : {};
    const headers = { "X-Requested-With": "velmor_care" };
    answer = await fetch(url, { ...request, headers, cache: "no-store", signal });
    if (answer.ok) return await answer.text();
  } catch (error) {
    const slow = error.name === "TimeoutError" || error.name === "AbortError";
    throw slow ? failure("slowAnswer", { seconds: TIMEOUT_MS / 1000 }) : failure("noAnswer");
  }
  const { status, statusText: reason } = answer;
  const told = await answer.text().catch(() => "");
  const key = reason ? "refusedRequest.because" : "refusedRequest";
  throw failure(key, { status, reason }, { status, told: told.trim() });
}

/** The lines in which a service says why it refuses; longer ones are no such line. */
const MOST_TOLD = 300;

/**
 * The answer of one of the workstation's services as JSON, null for an empty one; a refusal is an error with the
 * service's own words and `status`.
 */
export async function askService(url, form) {
  try {
    const text = await fetchText(url, form && new URLSearchParams(form));
    return text.trim() ? JSON.parse(text) : null;
  } catch (error) {
    const { told, status } = error;
    if (error instanceof SyntaxError) throw failure("unclearAnswer");
    if (!told || told.length > MOST_TOLD || told.startsWith("<")) throw error;
    throw Object.assign(new Error(programWords(told)), { status, told });
  }
}

/** `ask`, one call after the other: the program answers one request at a time. */
export function oneByOne(ask) {
  let last = Promise.resolve();
  return (url) => {
    const answer = last.then(() => ask(url));
    last = answer.catch(() => {});
    return answer;
  };
}

/** The actions of the program. */
export class Control {
  /**
   * @param {string} base address of the program's handler
   * @param {(url: string) => Promise<string>} ask gets the answer to a request
   */
  constructor(base = PROGRAM_URL, ask = oneByOne(fetchText)) {
    this.base = base;
    this.ask = ask;
  }

  request(action, parameters = "") {
    return this.ask(`${this.base}?action=${action}${parameters && `&${parameters}`}`);
  }

  async number(action) {
    const text = await this.request(action);
    if (!/^\d+$/.test(text.trim())) throw failure("noNumber", { action });
    return Number(text);
  }

  /** @returns {Promise<number>} */
  statusCode() {
    return this.number("get_status_code");
  }

  /** @returns {Promise<string>} the program's words for its status code */
  statusText() {
    return this.request("get_status_string");
  }

  /** @returns {Promise<number>} milliseconds that the last cycle took */
  executionTime() {
    return this.number("get_execution_time");
  }

  /** @returns {Promise<boolean>} true when the analysis picture is upright */
  async isPortrait() {
    return (await this.number("get_is_portrait")) === 1;
  }

  /** @returns {Promise<string>} the settings document */
  document() {
    return this.request("get_all_parameters");
  }

  /** @returns {Promise<import("./wire.js").Settings>} */
  async settings(size) {
    return parseSettings(await this.document(), size);
  }

  /** Sends all settings; that they were taken is known only by reading them back. */
  async save(settings, size) {
    await this.request(SAVE, encodeSettings(settings, size));
  }

  async toggleDeveloperMode() {
    await this.request("toggle_dev_mode");
  }
}

const NOT_STORED = say("notStored");
const NOT_WHOLE = say("notWhole");

/** What the program says of a save that has just been answered; the next cycle overwrites it. */
async function doubtOf(control) {
  try {
    return (await control.statusCode()) === CODE.dataError ? [NOT_WHOLE] : [];
  } catch {
    return [];
  }
}

/**
 * Saves and reads back. The answer and the status are no judges of what is in use, only of what else went wrong: a
 * store that took nothing, a floor that could not be calibrated.
 * @returns {Promise<{saved: boolean, differences: object[], error: ?string, warnings: string[]}>} error: why it is not
 *   known what the program holds, or why it was not saved
 */
export async function saveAndCheck(control, settings, size) {
  let refusal = null;
  let warnings = [];
  try {
    await control.save(settings, size);
    warnings = await doubtOf(control);
  } catch (error) {
    refusal = error.message;
    if (error.status === REFUSAL.notStored) warnings = [NOT_STORED];
  }
  try {
    const found = differences(settings, await control.settings(size), size);
    const saved = found.length === 0;
    return { saved, differences: found, error: saved ? null : refusal, warnings };
  } catch (error) {
    return { saved: false, differences: [], error: refusal ?? error.message, warnings };
  }
}

let requests = 0;
const unique = () => `${Date.now().toString(36)}${(requests++).toString(36)}`;

/**
 * Address of the live stream (MJPEG) of a size such as "1280x720"; another one each time, so that nothing is cached.
 * Asked for as anonymised, it is refused once another choice has been saved; covered is the workstation's own
 * anonymised view, whatever was chosen.
 */
export function streamUrl({ size, anonymised = false, covered = false }) {
  const address = covered ? "/platform/anonymised.mjpg" : "/axis-cgi/mjpg/video.cgi";
  const only = anonymised && !covered ? "&anonymised=1" : "";
  return `${address}?resolution=${encodeURIComponent(size)}${only}&_=${unique()}`;
}

const SIGHT_URL = "/platform/sight";

/**
 * Address of what the camera saw ("then"), sees ("now"), or of the edges of both; the same while `turn` is.
 * Anonymised, nothing is in it in which people may stand.
 */
export const sightUrl = (show, anonymised, turn) =>
  `${SIGHT_URL}?show=${show}${anonymised ? "&anonymised=1" : ""}&_=${turn}`;

/** The camera hangs where it should: the room as it is seen now counts from now on. Throws as fetchText does. */
export const acceptPlace = () => fetchText(SIGHT_URL, new URLSearchParams({ action: "accept" }));

/**
 * How the camera turns its streams. One that does not tell counts as upright and not mirrored.
 * @returns {Promise<{rotation: number, mirrored: boolean}>} rotation in degrees clockwise
 */
export async function cameraAppearance() {
  const group = "root.Image.I0.Appearance";
  let text = "";
  try {
    text = await fetchText(`/axis-cgi/param.cgi?action=list&group=${group}`);
  } catch (error) {
    if (error.status === undefined) throw error;
  }
  const values = new Map(text.split(/\r?\n/).map((line) => line.split("=", 2)));
  return {
    rotation: Number(values.get(`${group}.Rotation`) ?? 0) || 0,
    mirrored: values.get(`${group}.MirrorEnabled`)?.trim() === "yes",
  };
}
