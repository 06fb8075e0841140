/** Mounts the page: header, connection, the two views, the save bar and the guide. */
import { html, render, useEffect, useLayoutEffect, useMemo, useReducer, useRef, useState } from "./vendor/preact.js";
import { Control, cameraAppearance } from "./api.js";
import { SettingsDraft } from "./draft.js";
import { Setup } from "./editor.js";
import { Guide, guideIsNew } from "./guide.js";
import { Link } from "./hub/link.js";
import { agedNews, isLimited, readiness, settingsGaps } from "./readiness.js";
import { reviewSettings } from "./review.js";
import { SaveBar } from "./savebar.js";
import { Settings } from "./settings.js";
import { Watch, watchedSize } from "./watch.js";
import { clockTime } from "./words.js";

const RETRY_MS = 5000;
const LOOK_MS = 1000;
const VIEWS = { "#watch": "Watch", "#setup": "Set up" };

/** "#setup/editor-beds" as a view and a heading's id in it; null for other anchors, such as the skip link's. */
function addressed() {
  const [view, place = null] = location.hash.split("/");
  return VIEWS[view] ? { view, place } : null;
}

/** The view that the address names; other anchors leave the view as it is. */
function useView() {
  const [named, setNamed] = useState(() => addressed() ?? { view: "#watch", place: null });
  useEffect(() => {
    const follow = () => setNamed((before) => addressed() ?? before);
    addEventListener("hashchange", follow);
    return () => removeEventListener("hashchange", follow);
  }, []);
  return named;
}

const PAST = { history: [], watching: null };

/** What the hub tells, with ages as of now; looked at each second, also when the hub has fallen silent. */
function useHub(link) {
  const [told, setTold] = useState({ news: null, past: PAST, seen: null, begun: "", ended: "" });
  const [, look] = useReducer((count) => count + 1, 0);
  useEffect(() => {
    link.listen("news", (news) =>
      setTold((before) => ({ ...before, news, ...spoken(before.news?.events ?? [], news.events, before) })),
    );
    link.listen("past", (past) => setTold((before) => ({ ...before, past })));
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
  if (begun.length) words.begun = `${begun.join(" and ")} at ${clockTime(new Date())}.`;
  const byRestart = ended.some((name) => past?.history?.findLast((change) => change.name === name)?.closed_at_start);
  const how = byRestart ? "was ended by a restart: whether it is over is not known" : "ended";
  if (ended.length) words.ended = `${ended.join(" and ")} ${how}, at ${clockTime(new Date())}.`;
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

/** How the camera turns its picture; null until it has told, since on a mirrored one every point would be misplaced. */
function useAppearance(connected) {
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

function Lost({ since, now }) {
  const at = clockTime(new Date(since), new Date(now));
  return html`<div class="lost">
    <p>
      <span class="sign" aria-hidden="true">✕</span>
      <span><strong>The camera does not answer since ${at}.</strong> Trying again …</span>
    </p>
  </div>`;
}

function Header({ view, state, dirty, guiding, guideButton, onGuide }) {
  return html`<header class="top">
    <div class="top-row">
      <a class="brand" href="#watch"><img src="icon.svg" alt="" width="28" height="28" />Velmor Care</a>
      <nav aria-label="Views">
        ${Object.entries(VIEWS).map(
          ([hash, name]) =>
            html`<a key=${hash} href=${hash} aria-current=${view === hash ? "page" : null}>
              ${name}${hash === "#setup" && dirty && html`<span class="dot"><span aria-hidden="true">*</span><span class="hidden">, with unsaved changes</span></span>`}
            </a>`,
        )}
      </nav>
      <p class=${`chip tone-${state.tone}`} role="status">
        <span class="sign" aria-hidden="true">${state.sign}</span>${state.title}
      </p>
      <button
        type="button"
        class="quiet"
        ref=${guideButton}
        aria-expanded=${guiding ? "true" : "false"}
        onClick=${onGuide}
      >
        Guide
      </button>
    </div>
  </header>`;
}

function SetupView({ link, draft, appearance, live, control }) {
  const { present, size, history } = draft;
  const edit = (next, label) => draft.edit(next, label);
  return html`<div class="setup">
    <h1 tabindex="-1">Set up</h1>
    <h2 class="hidden">On the picture</h2>
    <${Setup}
      size=${size}
      mirrored=${appearance.mirrored}
      streamSize=${watchedSize(draft.saved)}
      link=${link}
      live=${live}
      draft=${present}
      onDraft=${edit}
      onUndo=${() => draft.undo()}
      onRedo=${() => draft.redo()}
      canUndo=${history.canUndo}
      canRedo=${history.canRedo}
    />
    <h2>Settings</h2>
    <${Settings} settings=${present} onDraft=${edit} control=${control} />
  </div>`;
}

/** What stands where the settings are needed and not known yet. */
function waitingWords(draft, connected) {
  return connected && draft.loadError ? `The settings cannot be read: ${draft.loadError}` : "Asking the camera …";
}

function Waiting({ words }) {
  return html`<h1 class="hidden" tabindex="-1">Set up</h1>
    <p class="loading" role="status">${words}</p>`;
}

/** Moves the focus to a view's heading, or to the one that the address names, so that the keyboard starts there. */
function useFocusOnChange({ view, place }, ready, main) {
  const shown = useRef({ view, place: null });
  useEffect(() => {
    const before = shown.current;
    if (before.view === view && before.place === place) return;
    const heading = place && document.getElementById(place);
    if (place && !heading && !ready) return;
    shown.current = { view, place };
    if (heading) {
      heading.tabIndex = -1;
      heading.scrollIntoView({ block: "start" });
      heading.focus({ preventScroll: true });
    } else if (before.view !== view) {
      scrollTo(0, 0);
      if (!main.current.querySelector(".guide:focus-within")) main.current.querySelector("h1")?.focus();
    }
  }, [view, place, ready]);
}

/** Everything that the page shows, from what the hub tells and from the draft. */
function useFacts(link, control) {
  const { news, past, seen, begun, ended } = useHub(link);
  const draft = useDraft(link, control);
  const now = Date.now() + (news?.offset ?? 0);
  const state = readiness({ news, past, settings: draft.loadError ? null : draft.saved, size: draft.size, now });
  const analysed = news?.heartbeat?.picture_age_ms;
  const live = {
    analysedAge: analysed === undefined || analysed === null ? null : analysed + news.beatAge,
    offset: news?.offset ?? 0,
  };
  const connected = state.silentSince === null && news !== null && news.silence !== null;
  return { news, past, seen, begun, ended, draft, now, state, live, connected };
}

function App({ link, control }) {
  const address = useView();
  const { view } = address;
  const { news, past, seen, begun, ended, draft, now, state, live, connected } = useFacts(link, control);
  const appearance = useAppearance(connected);
  const [step, setStep] = useState(() => (guideIsNew() ? 0 : null));
  const guideButton = useRef(null);
  const toStep = (next) => {
    setStep(next);
    if (next === null) guideButton.current.focus();
  };
  const main = useRef(null);
  const { present, size, dirty, outcome } = draft;
  useFocusOnChange(address, view !== "#setup" || (present !== null && appearance !== null), main);
  // Not after the next frame: a hidden tab has none, and its title is all that is seen of it.
  useLayoutEffect(() => {
    document.title = `${state.sign} ${state.title} · Velmor Care`;
  }, [state.sign, state.title]);
  const away = news?.heartbeat?.wrong?.some(({ what }) => what === "camera-away");
  const seesPicture = connected && !away && (!news.heartbeat || news.heartbeat.cycle > 0);
  const gaps = present && settingsGaps(present, size);
  const facts = { seesPicture, gaps, dirty, seen };
  return html`
    <a class="skip" href="#main">Skip to the content</a>
    <${Header}
      view=${view}
      state=${state}
      dirty=${dirty}
      guiding=${step !== null}
      guideButton=${guideButton}
      onGuide=${() => toStep(step === null ? 0 : null)}
    />
    <div class="hidden" aria-live="assertive">${begun}</div>
    <div class="hidden" aria-live="polite">${ended}</div>
    <div role="alert">${state.silentSince !== null && html`<${Lost} since=${state.silentSince} now=${now} />`}</div>
    <main class="page" id="main" tabindex="-1" ref=${main}>
      ${step !== null && html`<${Guide} step=${step} onStep=${toStep} facts=${facts} />`}
      ${
        view === "#watch" &&
        html`<${Watch}
          link=${link}
          state=${state}
          settings=${draft.saved}
          waiting=${waitingWords(draft, connected)}
          live=${live}
          events=${news?.events ?? []}
          past=${past}
          limited=${news !== null && isLimited(news)}
          openedAt=${news?.feed === "absent" ? now - news.age : null}
          now=${now}
        />`
      }
      ${
        view === "#setup" &&
        (present && appearance
          ? html`<${SetupView} link=${link} draft=${draft} appearance=${appearance} live=${live} control=${control} />`
          : html`<${Waiting} words=${waitingWords(draft, connected)} />`)
      }
    </main>
    ${
      present &&
      (view === "#setup" || dirty || (outcome && outcome.kind !== "saved")) &&
      html`<${SaveBar} draft=${draft} review=${reviewSettings(present, size)} />`
    }
  `;
}

const link = new Link();
const control = new Control("control.cgi", (url) => link.ask(url));
render(html`<${App} link=${link} control=${control} />`, document.getElementById("app"));
