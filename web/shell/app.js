/** Mounts the page: who looks on, header, connection, the views, the save bar and the guide. */
import { VIEW, mayAs } from "../base/facts.js";
import { LANGUAGE, clockTime, say } from "../base/words.js";
import { Insecure, Paused, SoundOff } from "../call/bar.js";
import { useCallsDraft } from "../call/receivers.js";
import { Caller } from "../call/caller.js";
import { openAlarms } from "../call/calls.js";
import { Link } from "../hub/link.js";
import { Control, PROGRAM_URL } from "../program/api.js";
import { Password, SignIn } from "../people/signin.js";
import { reviewSettings } from "../settings/review.js";
import { SaveBar } from "../settings/savebar.js";
import { html, render, useEffect, useLayoutEffect, useMemo, useReducer, useRef, useState } from "../vendor/preact.js";
import { Carer, Watch } from "../watch/watch.js";
import { Menu } from "./account.js";
import { useFocusOnChange, useView } from "./address.js";
import { Guide, guideFacts, useGuide } from "./guide.js";
import { useAppearance, useFacts } from "./known.js";
import { TABS, Tab } from "./tabs.js";
import { useWho } from "./who.js";

function Lost({ since, now }) {
  const at = clockTime(new Date(since), new Date(now));
  return html`<div class="lost">
    <p>
      <span class="sign" aria-hidden="true">✕</span>
      <span><strong>${say("lost.since", { at })}</strong> ${say("lost.again")}</span>
    </p>
  </div>`;
}

const Brand = () =>
  html`<a class="brand" href=${`index.html${VIEW.watch}`}
    ><img src="icon.svg" alt="" width="28" height="28" /><span>Velmor Care</span></a
  >`;

function Tabs({ view, dirty }) {
  return html`<nav aria-label=${say("view.all")}>
    ${TABS.map(
      (name) =>
        html`<a key=${name} href=${`index.html${VIEW[name]}`} aria-current=${view === VIEW[name] ? "page" : null}>
          ${say(`view.${name}`)}${name === "floor" && dirty && html`<span class="dot"><span aria-hidden="true">*</span><span class="hidden">, ${say("view.dirty")}</span></span>`}
        </a>`,
    )}
  </nav>`;
}

function Header({ view, state, dirty, guide, who, told, onPassword }) {
  const mends = mayAs(who.role, "installer");
  return html`<header class=${`top ${mends ? "has-tabs" : ""}`}>
    <div class="top-row">
      <${Brand} />
      ${mends && html`<${Tabs} view=${view} dirty=${dirty} />`}
      <p class=${`chip tone-${state.tone} ${told ? "hidden" : ""}`} role="status">
        <span class="sign" aria-hidden="true">${state.sign}</span>
        ${state.kind === "alarm" && !told ? html`<a href=${VIEW.watch}>${state.title}</a>` : html`<span>${state.title}</span>`}
      </p>
      ${
        mends &&
        html`<button
          type="button"
          class="quiet guide-button"
          ref=${guide.button}
          aria-expanded=${guide.step === null ? "false" : "true"}
          onClick=${() => guide.toStep(guide.step === null ? 0 : null)}
        >
          ${say("guide.guide")}
        </button>`
      }
      <${Menu} who=${who} onPassword=${onPassword} />
    </div>
  </header>`;
}

/** What stands where the settings are needed and not known yet. */
function waitingWords({ draft, connected }) {
  return connected && draft.loadError ? say("settings.unread", { error: draft.loadError }) : say("asking");
}

/** What the views show, see Watch. */
function viewOf({ link, facts, caller, who }) {
  const { news, past, scene, draft, now, state, live, calls } = facts;
  return {
    ...{ link, caller, state, live, past, scene, now, calls },
    settings: draft.saved,
    waiting: waitingWords(facts),
    events: news?.events ?? [],
    wrong: state.silentSince === null ? (news?.heartbeat?.wrong ?? []) : [],
    limited: facts.limited,
    openedAt: news?.feed === "absent" ? now - news.age : null,
    covers: who.known,
    mends: mayAs(who.role, "installer"),
  };
}

/** The tab's title: what is seen of a page in the background. */
function useTitle({ sign, title }) {
  // Not after the next frame: a hidden tab has none.
  useLayoutEffect(() => {
    document.title = `${sign} ${title} · Velmor Care`;
  }, [sign, title]);
}

/** The view that the role and the address lead to. */
function Content({ address, view, tab, role }) {
  const wall = address.view === VIEW.wall;
  if (wall || !mayAs(role, "nurse")) {
    return html`<${Carer} view=${view} />${wall && html`<a class="leave small" href=${VIEW.watch}>${say("back")}</a>`}`;
  }
  if (address.view === VIEW.watch || !mayAs(role, "installer")) return html`<${Watch} view=${view} />`;
  return html`<${Tab} ...${tab} place=${address.place} name=${address.view.slice(1)} />`;
}

/** One caller for the page's life; what it does is not drawn by parts. */
function useCaller(link) {
  const [, redraw] = useReducer((count) => count + 1, 0);
  const caller = useMemo(() => new Caller(link, redraw), []);
  useEffect(() => () => caller.stop(), []);
  return caller;
}

/** With alarms below (`hasCards`), no more than must be stands before their answers. */
function Notices({ facts, caller, hasCards }) {
  const { state, calls, now } = facts;
  return html`<div role="alert">
      ${state.silentSince !== null && html`<${Lost} since=${state.silentSince} now=${now} />`}
    </div>
    <div class="notices">
      <${SoundOff} caller=${caller} />
      ${calls.pause && html`<${Paused} pause=${calls.pause} now=${now} />`} ${!hasCards && html`<${Insecure} />`}
    </div>`;
}

function Page({ link, control, who, onWho }) {
  const address = useView();
  const caller = useCaller(link);
  const facts = useFacts(link, control, caller, who);
  const { draft, state } = facts;
  const { present, dirty, outcome } = draft;
  const appearance = useAppearance(facts.connected);
  const mends = mayAs(who.role, "installer");
  const guide = useGuide(mends);
  const main = useRef(null);
  const [asks, setAsks] = useState(who.must_change);
  // Another password ends the session and begins another: what was asked in between was refused.
  const hasAsked = () => {
    setAsks(false);
    onWho();
  };
  const wall = address.view === VIEW.wall;
  const setsUp = mends && !wall && address.view !== VIEW.watch;
  const hasAlarms = openAlarms(facts.calls.alarms).length > 0;
  useFocusOnChange(address, present !== null && appearance !== null, main);
  useTitle(state);
  const called = useCallsDraft(mends && who.known);
  const unsaved = dirty || called.dirty;
  const saves = mends && present && (setsUp || unsaved || (outcome && outcome.kind !== "saved"));
  const tab = { link, facts, appearance, control, who, onWho, caller, called, waiting: waitingWords(facts) };
  return html`
    <a class="skip" href="#main">${say("skip")}</a>
    ${!wall && html`<${Header} view=${address.view} ...${{ state, dirty, guide, who }} told=${!setsUp} onPassword=${() => setAsks(true)} />`}
    <div class="hidden" aria-live="assertive">${facts.begun}</div>
    <div class="hidden" aria-live="polite">${facts.ended}</div>
    <${Notices} facts=${facts} caller=${caller} hasCards=${hasAlarms && !setsUp} />
    <main class=${`page ${wall ? "wall" : ""}`} id="main" tabindex="-1" ref=${main}>
      ${asks && !hasAlarms && html`<${Password} must=${who.must_change} onDone=${hasAsked} />`}
      ${guide.step !== null && !wall && html`<${Guide} step=${guide.step} onStep=${guide.toStep} facts=${guideFacts(facts)} />`}
      <${Content} address=${address} role=${who.role} view=${viewOf({ link, facts, caller, who })} tab=${tab} />
    </main>
    ${saves && html`<${SaveBar} draft=${draft} called=${called} review=${reviewAll(present, draft.size, called)} />`}
  `;
}

/** What is wrong with all that is unsaved. */
function reviewAll(settings, size, called) {
  const { refusals, warnings } = reviewSettings(settings, size);
  return { refusals: [...refusals, ...called.problems], warnings };
}

/** Somebody's page with its way to the hub, which ends with it. */
function Signed({ who, onWho }) {
  const { link, control } = useMemo(() => {
    const way = new Link(who);
    return { link: way, control: new Control(PROGRAM_URL, (url) => way.ask(url)) };
  }, []);
  useEffect(() => {
    link.listen("signed-out", onWho);
    return () => link.stop();
  }, []);
  return html`<${Page} link=${link} control=${control} who=${who} onWho=${onWho} />`;
}

function App() {
  const { who, wrong, ended, again, onIn } = useWho();
  if (who?.role) return html`<${Signed} key=${`${who.role} ${who.name}`} who=${who} onWho=${again} />`;
  return html`<header class="top">
      <div class="top-row"><${Brand} /></div>
    </header>
    <main class="page" id="main" tabindex="-1">
      ${who ? html`<${SignIn} ended=${ended} onIn=${onIn} />` : html`<p class="loading" role="status">${wrong || say("asking")}</p>`}
    </main>`;
}

document.documentElement.lang = LANGUAGE;
navigator.serviceWorker?.register("notify.js").catch(() => {});
render(html`<${App} />`, document.getElementById("app"));
