/** Requests to the camera service: what is watched, an address that is tried, a camera that is taken over. */
import { NO_ANSWER } from "../base/words.js";

const URL_OF_SERVICE = "/platform/camera";
const TIMEOUT_MS = 5000;
const ABSENT = 404;

/**
 * @typedef {object} Known
 * @property {string} source what is watched
 * @property {boolean} recording whether that is no camera
 * @property {?object} check the last address that was tried: {id, address, state: "checking" | "done", end, fits, problem,
 *   advice, facts: [heading, text][], fingerprint, picture: ?string}
 * @property {?object} takeover {check: id, state: "opening" | "done" | "failed", reason}
 */

/** An answer as JSON; a refusal becomes an error with the service's words. */
async function talk(options) {
  let answer;
  let text;
  try {
    answer = await fetch(URL_OF_SERVICE, {
      headers: { "X-Requested-With": "velmor_care" },
      cache: "no-store",
      signal: AbortSignal.timeout(TIMEOUT_MS),
      ...options,
    });
    text = await answer.text();
  } catch (error) {
    throw new Error(NO_ANSWER, { cause: error });
  }
  if (answer.ok) return JSON.parse(text);
  throw Object.assign(new Error(text.trim() || `Refused: ${answer.status}.`), { status: answer.status });
}

/** @returns {Promise<?Known>} null on a camera that has no such service */
export async function knownCamera() {
  try {
    return await talk();
  } catch (error) {
    if (error.status === ABSENT) return null;
    throw error;
  }
}

/** @param {{address: string, user: string, password: string, certificate: string}} fields @returns {Promise<Known>} */
export const tryCamera = (fields) =>
  talk({ method: "POST", body: new URLSearchParams({ action: "check", ...fields }) });

/** @returns {Promise<Known>} */
export const takeOver = (check) => talk({ method: "POST", body: new URLSearchParams({ action: "take_over", check }) });
