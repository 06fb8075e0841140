/** What the program, the camera and the page agree on: names, codes, limits and places, each of them here only. */

export const FALL = "Fall Detected";
export const BED = "Patient Out of Bed";
/** The program's events, in the order in which the page shows them. */
export const EVENT_NAMES = [FALL, BED];

/** The events as the alarms' kinds. */
export const KIND = { [FALL]: "fall", [BED]: "exit" };

/** The program's status codes of which the page knows more than their text. */
export const CODE = {
  starting: 100,
  watching: 200,
  stopped: 300,
  dataError: 400,
  noAnalysis: 401,
  outOfBed: 502,
  fall: 503,
  slow: 600,
};

/** Refusals (HTTP) of which the page knows the reason. */
export const REFUSAL = { signedOut: 401, forbidden: 403, absent: 404, notAnonymised: 409, notStored: 500 };

/** Troubles of a heartbeat that the page treats in a way of their own. */
export const TROUBLE = {
  cameraAway: "camera-away",
  pictureFrozen: "picture-frozen",
  tooDark: "too-dark",
  lensCovered: "lens-covered",
  outOfFocus: "out-of-focus",
  cameraMoved: "camera-moved",
  standsStill: "analysis-stands-still",
  ticksLeftOut: "ticks-left-out",
  notRecorded: "alarms-not-recorded",
  notStored: "alarms-not-stored",
  notReached: "receiver-not-reached",
  certificateEnds: "certificate-ends",
  lensAway: "lens-away",
};

/** Milliseconds after which a heartbeat, and what it says of a cycle or a picture, is old. */
export const FRESH_MS = 3000;

/** The analysis picture in pixels. */
export const LANDSCAPE = { width: 1280, height: 720 };
export const PORTRAIT = { width: 720, height: 1280 };

/** Size of the stream on which the program always draws; it cannot be anonymised. */
export const APPLICATION_SIZE = "800x450";

/** "1280x720" as numbers, or null for any other text. */
export function sizeOf(text) {
  const match = /^([1-9]\d{0,4})x([1-9]\d{0,4})$/.exec(text);
  return match && { width: Number(match[1]), height: Number(match[2]) };
}

/** Width and height in millimetres of the sensors of the camera models that the program knows. */
export const SENSORS = {
  "AXIS P3255-LVE": [6.34, 3.53],
  "AXIS P3265-LV": [6.34, 4.51],
  "AXIS P3265-LVE": [6.34, 4.51],
  "AXIS P3265-V": [6.34, 4.51],
  "AXIS P3268-LV": [8.1, 4.51],
  "AXIS P3268-LVE": [8.1, 4.51],
  "AXIS Q1615 Mk III": [6.34, 3.53],
  "AXIS Q1656": [8.1, 4.51],
  "AXIS Q1656-B": [8.1, 4.51],
  "AXIS Q1656-BE": [8.1, 4.51],
  "AXIS Q1656-BLE": [8.1, 4.51],
  "AXIS Q1656-LE": [8.1, 4.51],
  "AXIS Q1715": [6.34, 3.53],
  "AXIS Q3536-LVE": [8.1, 4.51],
  "AXIS Q3538-LVE": [10.67, 8],
};
/** With which it calculates for any other. */
export const UNKNOWN_SENSOR = [6.2, 3.5];

/** The floor points, clockwise from the far left one as the analysis picture shows them. */
export const COLOURS = ["red", "green", "blue", "yellow"];

/** Who may do what: each may also do what those before may. */
export const ROLES = ["carer", "nurse", "installer"];
export const mayAs = (role, least) => ROLES.indexOf(role) >= ROLES.indexOf(least);

/** The page's views, as addresses. */
export const VIEW = {
  watch: "#watch",
  floor: "#floor",
  alarms: "#alarms",
  streams: "#streams",
  people: "#people",
  system: "#system",
  wall: "#wall",
};

/** Headings under which something is mended: their view and their id in it. */
export const PLACES = {
  events: { view: VIEW.alarms, id: "detections-heading" },
  sensitivity: { view: VIEW.system, id: "sensitivity-heading" },
  beds: { view: VIEW.floor, id: "editor-beds" },
  exclusions: { view: VIEW.floor, id: "editor-exclusions" },
  floor: { view: VIEW.floor, id: "editor-floor" },
};
export const hrefOf = ({ view, id }) => `${view}/${id}`;
