/** What the page knows, as hooks: the hub's news, the draft of the settings, how the camera turns its picture. */
import { mayAs } from "../base/facts.js";
import { clockTime, eventName, say } from "../base/words.js";
import { stateWithCalls } from "../call/calls.js";
import { cameraAppearance } from "../program/api.js";
import { SettingsDraft } from "../settings/draft.js";
import { useEffect, useMemo, useReducer, useState } from "../vendor/preact.js";
import { agedNews, isLimited, readiness } from "../watch/readiness.js";
import { sceneNow } from "../watch/scene.js";

const RETRY_MS = 5000;
const LOOK_MS = 1000;
const PAST = { history: [], watching: null };

/** What the hub tells, with ages as of now; looked at each second, also when the hub has fallen silent. */
function useHub(link) {
  const [told, setTold] = useState({ news: null, past: PAST, scene: null, seen: null, begun: "", ended: "" });
  const [, look] = useReducer((count) => count + 1, 0);
  useEffect(() => {
    link.listen("news", (news) =>
      setTold((before) => ({ ...before, news, ...spoken(before.news?.events ?? [], news.events, before) })),
    );
    link.listen("past", (past) => setTold((before) => ({ ...before, past })));
    link.listen("scene", (scene) => setTold((before) => ({ ...before, scene })));
    const timer = setInterval(look, LOOK_MS);
    return () => clearInterval(timer);
  }, []);
  const news = told.news && agedNews(told.news, performance.now() - told.news.at);
  return { ...told, news };
}

/** What to announce when the events go from `before` to `after`; nothing at the first state. */
function spoken(before, after, { seen, past }) {
  const was = (name) => before.find((event) => event.name === name)?.active;
  const active = after.filter((event) => event.active).map((event) => event.name);
  const begun = active.filter((name) => was(name) === false || was(name) === null);
  const ended = after.filter((event) => event.active === false && was(event.name)).map((event) => event.name);
  const words = {};
  const at = clockTime(new Date());
  const joined = (names) => names.map(eventName).join(say("spoken.and"));
  if (begun.length) words.begun = say("spoken.begun", { events: joined(begun), at });
  const byRestart = ended.some((name) => past?.history?.findLast((change) => change.name === name)?.closed_at_start);
  if (ended.length) words.ended = say(byRestart ? "spoken.restart" : "spoken.ended", { events: joined(ended), at });
  return { ...words, seen: active[0] ?? seen };
}

/** The draft of the settings, which the hub reads for it. */
function useDraft(link, control) {
  const [, redraw] = useReducer((count) => count + 1, 0);
  const draft = useMemo(() => new SettingsDraft(control, redraw, () => link.refresh()), []);
  useEffect(() => {
    link.listen("settings", (read) => draft.receive(read));
    const ask = (event) => draft.dirty && event.preventDefault();
    addEventListener("beforeunload", ask);
    return () => removeEventListener("beforeunload", ask);
  }, []);
  return draft;
}

/** The alarms as the hub tells them; the caller hears of them at once, drawn or not. */
function useCalls(link, caller) {
  const [calls, setCalls] = useState({ state: "opening", alarms: [], pause: null, receivers: [] });
  useEffect(() => {
    link.listen("calls", (told) => {
      caller.take(told.alarms, told.state === "open");
      setCalls(told);
    });
  }, []);
  return calls;
}

/** How the camera turns its picture; null until it has told, since on a mirrored one every point would be misplaced. */
export function useAppearance(connected) {
  const [appearance, setAppearance] = useState(null);
  useEffect(() => {
    if (!connected) return undefined;
    const ask = () => cameraAppearance().then(setAppearance, () => {});
    ask();
    if (appearance) return undefined;
    const timer = setInterval(ask, RETRY_MS);
    return () => clearInterval(timer);
  }, [connected, appearance === null]);
  return appearance;
}

/** Everything that the page shows, from what the hub tells and from the draft. */
export function useFacts(link, control, caller, { role }) {
  const { news, past, scene: told, seen, begun, ended } = useHub(link);
  const draft = useDraft(link, control);
  const calls = useCalls(link, caller);
  const now = Date.now() + (news?.offset ?? 0);
  const read = draft.loadError ? null : draft.saved;
  const settings = mayAs(role, "nurse") ? read : undefined;
  const state = stateWithCalls(readiness({ news, past, settings, size: draft.size, now }), calls, now);
  const analysed = news?.heartbeat?.picture_age_ms;
  const live = {
    analysedAge: analysed === undefined || analysed === null ? null : analysed + news.beatAge,
    offset: news?.offset ?? 0,
  };
  const connected = state.silentSince === null && news !== null && news.silence !== null;
  const scene = news?.explains ? sceneNow(told, news, now) : undefined;
  const limited = news !== null && isLimited(news);
  return { news, past, scene, seen, begun, ended, draft, calls, now, state, live, connected, limited };
}
