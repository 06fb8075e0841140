/**
 * Requests to the camera service: what is watched, an address that is tried, a camera that is taken over, the lens and
 * the sensor.
 */
import { REFUSAL } from "../base/facts.js";
import { askService } from "../program/api.js";

const URL_OF_SERVICE = "/platform/camera";

/**
 * @typedef {object} Known
 * @property {string} source what is watched
 * @property {boolean} recording whether that is no camera
 * @property {object} optics what is calculated with: {product_name, focal_length_um, chosen: ?{product_name,
 *   focal_length_um}}; chosen is what the next start takes instead
 * @property {?object} check the last address that was tried: {id, address, state: "checking" | "done", end, fits, problem,
 *   advice, facts: [heading, text][], fingerprint, picture: ?string}
 * @property {?object} takeover {check: id, state: "opening" | "done" | "failed", reason}
 */

/** @returns {Promise<?Known>} null on a camera that has no such service */
export async function knownCamera() {
  try {
    return await askService(URL_OF_SERVICE);
  } catch (error) {
    if (error.status === REFUSAL.absent) return null;
    throw error;
  }
}

/** @param {{address: string, user: string, password: string, certificate: string}} fields @returns {Promise<Known>} */
export const tryCamera = (fields) => askService(URL_OF_SERVICE, { action: "check", ...fields });

/** @returns {Promise<Known>} */
export const takeOver = (check) => askService(URL_OF_SERVICE, { action: "take_over", check });

/** @param {{product_name: string, focal_length_um: number}} optics for the next start @returns {Promise<Known>} */
export const chooseOptics = (optics) => askService(URL_OF_SERVICE, { action: "optics", ...optics });
