/** Mounts the page: header, connection, the two views, the save bar and the guide. */
import { html, render, useEffect, useMemo, useReducer, useRef, useState } from "./vendor/preact.js";
import { Control, EventFeed, Program, cameraAppearance } from "./api.js";
import { SettingsDraft } from "./draft.js";
import { Setup } from "./editor.js";
import { Guide, guideIsNew } from "./guide.js";
import { reviewSettings } from "./review.js";
import { SaveBar } from "./savebar.js";
import { Settings } from "./settings.js";
import { Watch, useNow, watchedSize } from "./watch.js";
import { clockTime, describeState } from "./words.js";

const RETRY_MS = 5000;
const VIEWS = { "#watch": "Watch", "#setup": "Set up" };

/** The view that the address names; other anchors, such as the skip link's, leave the view as it is. */
function useView() {
  const [view, setView] = useState(VIEWS[location.hash] ? location.hash : "#watch");
  useEffect(() => {
    const follow = () => VIEWS[location.hash] && setView(location.hash);
    addEventListener("hashchange", follow);
    return () => removeEventListener("hashchange", follow);
  }, []);
  return view;
}

/** The program's state, followed for the page's life. `epoch` grows each time the connection is back. */
function useProgram(program) {
  const [state, update] = useReducer((before, change) => ({ ...before, ...change(before) }), {
    status: null,
    lostSince: null,
    epoch: 0,
  });
  useEffect(() => {
    let answered = new Date();
    program.addEventListener("status", ({ detail }) => {
      if (detail.connected) answered = new Date();
      update(() => ({ status: detail }));
    });
    program.addEventListener("lost", () => update(() => ({ lostSince: answered })));
    program.addEventListener("back", () => update(({ epoch }) => ({ lostSince: null, epoch: epoch + 1 })));
    program.start();
  }, []);
  return state;
}

const EMPTY = { events: [], history: [], limited: false };

/** The two events as the feed tells them, and what is to be said aloud about the last change. */
function useEvents(feed) {
  const [state, setState] = useState({
    ...EMPTY,
    offset: 0,
    seen: null,
    begun: "",
    ended: "",
  });
  useEffect(() => {
    const take = ({ detail }) =>
      setState((before) => ({
        ...before,
        ...detail,
        ...spoken(before.events, detail.events, before.seen),
      }));
    feed.addEventListener("state", take);
    feed.addEventListener("change", take);
    feed.start();
  }, []);
  return state;
}

/** What to announce when the events go from `before` to `after`; nothing at the first state. */
function spoken(before, after, seen) {
  const was = (name) => before.find((event) => event.name === name)?.active;
  const active = after.filter((event) => event.active).map((event) => event.name);
  const begun = active.filter((name) => was(name) === false);
  const ended = after.filter((event) => !event.active && was(event.name)).map((event) => event.name);
  const words = {};
  if (begun.length) words.begun = `${begun.join(" and ")} at ${clockTime(new Date())}.`;
  if (ended.length) words.ended = `${ended.join(" and ")} ended at ${clockTime(new Date())}.`;
  return { ...words, seen: active[0] ?? seen };
}

/** The draft of the settings; read again whenever the connection is back or the view changes. */
function useDraft(control, connected, epoch, view) {
  const [, redraw] = useReducer((count) => count + 1, 0);
  const draft = useMemo(() => new SettingsDraft(control, redraw), []);
  useEffect(() => {
    draft.load();
  }, [epoch, view]);
  const missing = connected && draft.present === null;
  useEffect(() => {
    if (!missing) return undefined;
    const timer = setInterval(() => draft.load(), RETRY_MS);
    return () => clearInterval(timer);
  }, [missing]);
  useEffect(() => {
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

function Lost({ since }) {
  const now = new Date(useNow());
  return html`<div class="lost">
    <p>
      <span class="sign" aria-hidden="true">✕</span>
      <span><strong>The camera does not answer since ${clockTime(since, now)}.</strong> Trying again …</span>
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

function SetupView({ draft, appearance, epoch, control }) {
  const { present, size, history } = draft;
  const edit = (next, label) => draft.edit(next, label);
  return html`<div class="setup">
    <h1 tabindex="-1">Set up</h1>
    <h2 class="hidden">On the picture</h2>
    <${Setup}
      size=${size}
      mirrored=${appearance.mirrored}
      streamSize=${watchedSize(draft.saved)}
      epoch=${epoch}
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

/** Moves the focus to a view's heading when the view changes, so that the keyboard starts there. */
function useFocusOnChange(view, main) {
  const shown = useRef(view);
  useEffect(() => {
    if (shown.current === view) return;
    shown.current = view;
    scrollTo(0, 0);
    if (!main.current.querySelector(".guide:focus-within")) main.current.querySelector("h1")?.focus();
  }, [view]);
}

function App({ control, program, feed }) {
  const view = useView();
  const { status, lostSince, epoch } = useProgram(program);
  const events = useEvents(feed);
  const connected = status?.connected ?? false;
  const draft = useDraft(control, connected, epoch, view);
  const appearance = useAppearance(connected);
  const [step, setStep] = useState(() => (guideIsNew() ? 0 : null));
  const guideButton = useRef(null);
  const toStep = (next) => {
    setStep(next);
    if (next === null) guideButton.current.focus();
  };
  const main = useRef(null);
  useFocusOnChange(view, main);
  const state = describeState(status, events.events);
  useEffect(() => {
    document.title = `${state.sign} ${state.title} · Velmor Care`;
  }, [state.sign, state.title]);
  const { present, size, dirty, outcome } = draft;
  const facts = { connected, draft: present, dirty, seen: events.seen };
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
    <div class="hidden" aria-live="assertive">${events.begun}</div>
    <div class="hidden" aria-live="polite">${events.ended}</div>
    <div role="alert">${lostSince && html`<${Lost} since=${lostSince} />`}</div>
    <main class="page" id="main" tabindex="-1" ref=${main}>
      ${step !== null && html`<${Guide} step=${step} onStep=${toStep} facts=${facts} />`}
      ${
        view === "#watch" &&
        html`<${Watch}
          ...${events}
          state=${state}
          settings=${draft.saved}
          waiting=${waitingWords(draft, connected)}
          lostSince=${lostSince}
          epoch=${epoch}
          onDoubt=${() => draft.load()}
        />`
      }
      ${
        view === "#setup" &&
        (present && appearance
          ? html`<${SetupView} draft=${draft} appearance=${appearance} epoch=${epoch} control=${control} />`
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

const control = new Control();
const program = new Program(control);
const feed = new EventFeed(program);
render(html`<${App} control=${control} program=${program} feed=${feed} />`, document.getElementById("app"));
