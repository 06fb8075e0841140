/** Mounts the page: header, connection, the two views, the save bar and the guide. */
import { TROUBLE, VIEW } from "../base/facts.js";
import { clockTime } from "../base/words.js";
import { Camera } from "../camera/camera.js";
import { Link } from "../hub/link.js";
import { Control, PROGRAM_URL } from "../program/api.js";
import { Settings } from "../settings/panels.js";
import { reviewSettings } from "../settings/review.js";
import { SaveBar } from "../settings/savebar.js";
import { Setup } from "../setup/editor.js";
import { html, render, useLayoutEffect, useRef, useState } from "../vendor/preact.js";
import { isLimited, settingsGaps } from "../watch/readiness.js";
import { Watch, watchedSize } from "../watch/watch.js";
import { useFocusOnChange, useView } from "./address.js";
import { Guide, guideIsNew } from "./guide.js";
import { useAppearance, useFacts } from "./known.js";

const VIEW_NAMES = { [VIEW.watch]: "Watch", [VIEW.setup]: "Set up" };

function Lost({ since, now }) {
  const at = clockTime(new Date(since), new Date(now));
  return html`<div class="lost">
    <p>
      <span class="sign" aria-hidden="true">✕</span>
      <span><strong>The camera does not answer since ${at}.</strong> Trying again …</span>
    </p>
  </div>`;
}

function Header({ view, state, dirty, guide }) {
  return html`<header class="top">
    <div class="top-row">
      <a class="brand" href=${VIEW.watch}><img src="icon.svg" alt="" width="28" height="28" />Velmor Care</a>
      <nav aria-label="Views">
        ${Object.entries(VIEW_NAMES).map(
          ([hash, name]) =>
            html`<a key=${hash} href=${hash} aria-current=${view === hash ? "page" : null}>
              ${name}${hash === VIEW.setup && dirty && html`<span class="dot"><span aria-hidden="true">*</span><span class="hidden">, with unsaved changes</span></span>`}
            </a>`,
        )}
      </nav>
      <p class=${`chip tone-${state.tone}`} role="status">
        <span class="sign" aria-hidden="true">${state.sign}</span>${state.title}
      </p>
      <button
        type="button"
        class="quiet"
        ref=${guide.button}
        aria-expanded=${guide.step === null ? "false" : "true"}
        onClick=${() => guide.toStep(guide.step === null ? 0 : null)}
      >
        Guide
      </button>
    </div>
  </header>`;
}

/** What stands where the settings are needed and not known yet. */
function waitingWords({ draft, connected }) {
  return connected && draft.loadError ? `The settings cannot be read: ${draft.loadError}` : "Asking the camera …";
}

function SetupView({ link, facts, appearance, control }) {
  const { draft, live } = facts;
  const { present, size, history } = draft;
  if (!present || !appearance) {
    return html`<h1 class="hidden" tabindex="-1">Set up</h1>
      <p class="loading" role="status">${waitingWords(facts)}</p>`;
  }
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
    <${Camera} />
  </div>`;
}

function WatchView({ link, facts }) {
  const { news, past, scene, draft, now, state, live } = facts;
  return html`<${Watch}
    ...${{ link, state, live, past, scene, now }}
    settings=${draft.saved}
    waiting=${waitingWords(facts)}
    events=${news?.events ?? []}
    wrong=${state.silentSince === null ? (news?.heartbeat?.wrong ?? []) : []}
    limited=${news !== null && isLimited(news)}
    openedAt=${news?.feed === "absent" ? now - news.age : null}
  />`;
}

/** What the guide's steps are told by. */
function guideFacts({ news, connected, draft, seen }) {
  const away = news?.heartbeat?.wrong?.some(({ what }) => what === TROUBLE.cameraAway);
  const seesPicture = connected && !away && (!news.heartbeat || news.heartbeat.cycle > 0);
  const gaps = draft.present && settingsGaps(draft.present, draft.size);
  return { seesPicture, gaps, dirty: draft.dirty, seen };
}

/** The guide's step, null without the guide, and the button to which the focus goes when it ends. */
function useGuide() {
  const [step, setStep] = useState(() => (guideIsNew() ? 0 : null));
  const button = useRef(null);
  const toStep = (next) => {
    setStep(next);
    if (next === null) button.current.focus();
  };
  return { step, toStep, button };
}

function App({ link, control }) {
  const address = useView();
  const facts = useFacts(link, control);
  const { draft, state } = facts;
  const { present, dirty, outcome } = draft;
  const appearance = useAppearance(facts.connected);
  const guide = useGuide();
  const main = useRef(null);
  const setsUp = address.view === VIEW.setup;
  useFocusOnChange(address, !setsUp || (present !== null && appearance !== null), main);
  // Not after the next frame: a hidden tab has none, and its title is all that is seen of it.
  useLayoutEffect(() => {
    document.title = `${state.sign} ${state.title} · Velmor Care`;
  }, [state.sign, state.title]);
  const saves = present && (setsUp || dirty || (outcome && outcome.kind !== "saved"));
  return html`
    <a class="skip" href="#main">Skip to the content</a>
    <${Header} view=${address.view} state=${state} dirty=${dirty} guide=${guide} />
    <div class="hidden" aria-live="assertive">${facts.begun}</div>
    <div class="hidden" aria-live="polite">${facts.ended}</div>
    <div role="alert">
      ${state.silentSince !== null && html`<${Lost} since=${state.silentSince} now=${facts.now} />`}
    </div>
    <main class="page" id="main" tabindex="-1" ref=${main}>
      ${guide.step !== null && html`<${Guide} step=${guide.step} onStep=${guide.toStep} facts=${guideFacts(facts)} />`}
      ${
        setsUp
          ? html`<${SetupView} ...${{ link, facts, appearance, control }} />`
          : html`<${WatchView} link=${link} facts=${facts} />`
      }
    </main>
    ${saves && html`<${SaveBar} draft=${draft} review=${reviewSettings(present, draft.size)} />`}
  `;
}

const link = new Link();
const control = new Control(PROGRAM_URL, (url) => link.ask(url));
render(html`<${App} link=${link} control=${control} />`, document.getElementById("app"));
