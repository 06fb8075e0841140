/** Requests about people: who is signed in, and who may. */
import { REFUSAL } from "../base/facts.js";
import { askService } from "../program/api.js";

const SESSION_URL = "/platform/session";
const PEOPLE_URL = "/platform/people";

/** On a camera that knows nobody whoever reaches the page sets it up. */
const NOBODY_KNOWN = { people: false, name: "", role: "installer", must_change: false, known: false };

/**
 * Who looks on: {people, name, role, must_change, known}. people: whether signing in is needed; role null: not signed in;
 * known: whether the camera has sessions, and with them an anonymised picture of its own.
 */
export async function whoLooks() {
  try {
    const { people, name, role, must_change: must } = await askService(SESSION_URL);
    return {
      people,
      name: name ?? "",
      role: people ? role : (role ?? "installer"),
      must_change: must === true,
      known: true,
    };
  } catch (error) {
    if (error.status === REFUSAL.absent) return NOBODY_KNOWN;
    throw error;
  }
}

export const signIn = (name, password) => askService(SESSION_URL, { action: "sign_in", name, password });
export const signOut = () => askService(SESSION_URL, { action: "sign_out" });
export const changePassword = (old, fresh) => askService(SESSION_URL, { action: "password", old, new: fresh });

export const readPeople = () => askService(PEOPLE_URL);
/** One change to the people or their tokens; what is shown once is in the answer. */
export const changePeople = (action, fields) => askService(PEOPLE_URL, { action, ...fields });
