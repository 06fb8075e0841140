/** Requests about alarms: answers, pauses, tests, and whom they call. */
import { askService } from "../program/api.js";

const ALARMS_URL = "/platform/alarms";
const CALLS_URL = "/platform/calls";

/** Minutes for which the call can be paused. */
export const PAUSES = [5, 10, 15, 30, 60];

/** @returns {Promise<object>} the alarm as it is now; `stored: false` while the answer is not on disk yet */
export const answer = (id, what, reason = "") => askService(ALARMS_URL, { action: "answer", id, what, reason });

export const pause = (minutes, reason) => askService(ALARMS_URL, { action: "pause", minutes, reason });
export const endPause = () => askService(ALARMS_URL, { action: "unpause" });

/** Sends a test the whole way: it comes back by the feed, and goes to the receivers. */
export const test = () => askService(ALARMS_URL, { action: "test" });

export const readCalls = () => askService(CALLS_URL);
export const saveCalls = (document) => askService(CALLS_URL, { document: JSON.stringify(document) });
