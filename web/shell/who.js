/** Who looks on, as a hook. */
import { remember } from "../base/memory.js";
import { say } from "../base/words.js";
import { whoLooks } from "../people/service.js";
import { useEffect, useRef, useState } from "../vendor/preact.js";

const RETRY_MS = 3000;
/** A session lasts from its last use on, which this is: a screen on a wall is never loaded anew. */
const RENEW_MS = 12 * 3600 * 1000;
/** All tabs have one session: whoever signs in or out in one of them does so in all. */
const KEY = "session";
export const tellOtherTabs = () => remember(KEY, String(Date.now()));

/** {who, wrong, ended, again, onIn}: who is null until the camera has said it; ended: somebody was signed in here. */
export function useWho() {
  const [state, setState] = useState({ who: null, wrong: "", ended: false });
  const asked = useRef(0);
  // The last question's answer counts: one of before may come after it, and know nothing of a session that began since.
  const again = async () => {
    asked.current += 1;
    const question = asked.current;
    const take = (change) => question === asked.current && setState(change);
    try {
      const who = await whoLooks();
      take((before) => ({ who, wrong: "", ended: !who.role && (before.ended || Boolean(before.who?.role)) }));
    } catch {
      take((before) => (before.who ? before : { ...before, wrong: say("noAnswer") }));
    }
  };
  useEffect(() => {
    again();
    const follow = ({ key }) => key === `velmor-${KEY}` && again();
    addEventListener("storage", follow);
    return () => removeEventListener("storage", follow);
  }, []);
  useEffect(() => {
    // Whoever was signed in may be so again, by another tab or another password.
    const isIn = Boolean(state.who?.role);
    const timer = setInterval(() => (isIn || state.who === null || state.ended) && again(), isIn ? RENEW_MS : RETRY_MS);
    return () => clearInterval(timer);
  }, [state.who]);
  const onIn = () => {
    tellOtherTabs();
    return again();
  };
  return { ...state, again, onIn };
}
