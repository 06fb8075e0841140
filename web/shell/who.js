/** Who looks on, as a hook. */
import { remember } from "../base/memory.js";
import { say } from "../base/words.js";
import { whoLooks } from "../people/service.js";
import { useEffect, useState } from "../vendor/preact.js";

const RETRY_MS = 3000;
/** All tabs have one session: whoever signs in or out in one of them does so in all. */
const KEY = "session";
export const tellOtherTabs = () => remember(KEY, String(Date.now()));

/** {who, wrong, ended, again, onIn}: who is null until the camera has said it; ended: somebody was signed in here. */
export function useWho() {
  const [state, setState] = useState({ who: null, wrong: "", ended: false });
  const again = () =>
    whoLooks().then(
      (who) =>
        setState((before) => ({ who, wrong: "", ended: !who.role && (before.ended || Boolean(before.who?.role)) })),
      () => setState((before) => (before.who ? before : { ...before, wrong: say("noAnswer") })),
    );
  useEffect(() => {
    again();
    const follow = ({ key }) => key === `velmor-${KEY}` && again();
    addEventListener("storage", follow);
    return () => removeEventListener("storage", follow);
  }, []);
  useEffect(() => {
    if (state.who?.role) return undefined;
    const timer = setInterval(() => state.who === null && again(), RETRY_MS);
    return () => clearInterval(timer);
  }, [state.who]);
  const onIn = () => {
    tellOtherTabs();
    return again();
  };
  return { ...state, again, onIn };
}
