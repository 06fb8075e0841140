/** What everybody sees first: the alarms with their answers, the state, the picture, the last hours. */
import { APPLICATION_SIZE } from "../base/facts.js";
import { say } from "../base/words.js";
import { AlarmCard } from "../call/alarm.js";
import { Device, Insecure, Pause } from "../call/bar.js";
import { isCalling, openAlarms } from "../call/calls.js";
import { LivePicture } from "../picture/picture.js";
import { html, useLayoutEffect, useRef, useState } from "../vendor/preact.js";
import { Events, State } from "./quiet.js";
import { Room } from "./room.js";
import { Scene } from "./scene.js";
import { Sight } from "./sight.js";
import { Timeline } from "./timeline.js";

/** Since when the program watches; null where that is not known, or it does not. */
function watchingSince({ watching }) {
  const last = watching?.at(-1);
  return last?.active ? Date.parse(last.time) : null;
}

/** The reason of an alarm's beginning, where the program has told it; one made here knows its event by its time. */
function becauseOfAlarm(alarm, { events, past }) {
  const told = [...events, ...past.history].filter(({ name, because }) => because && name === alarm.event);
  const isIts = ({ run, seq, since, time }) =>
    alarm.local ? (since ?? time) === alarm.began : run === alarm.run && seq === alarm.seq;
  return told.find((change) => change.active && isIts(change))?.because;
}

/** Whatever overtakes the alarm on top is brought into sight, also where somebody is typing further down. */
function useSight([first]) {
  const top = useRef(null);
  useLayoutEffect(() => {
    const overtaken = first && top.current && top.current !== first.id;
    top.current = first?.id ?? null;
    if (overtaken) document.querySelector("[data-alarm]").scrollIntoView({ block: "nearest" });
  }, [first?.id]);
}

/** One list, however it is laid out: a card that is overtaken stays the same, with the focus that is in it. */
function Alarms({ alarms, view }) {
  useSight(alarms);
  const { link, now, state, calls } = view;
  return alarms.map(
    (alarm) =>
      html`<${AlarmCard}
        key=${alarm.id}
        ...${{ alarm, link, now }}
        because=${becauseOfAlarm(alarm, view)}
        state=${calls.state}
        silent=${state.silentWords}
      />`,
  );
}

function Waiting({ words }) {
  return html`<div class="panel">
    <div class="stage no-picture" role="status"><p>${words}</p></div>
  </div>`;
}

/** The anonymised picture that does not depend on any choice. */
function Covered({ link, live }) {
  const label = say("room.labelAnonymised");
  return html`<div class="stage">
    <${LivePicture} link=${link} size=${APPLICATION_SIZE} anonymised covered label=${label} live=${live} />
  </div>`;
}

/** For those who have no tab with it. */
function ThisDevice({ caller }) {
  const [open, setOpen] = useState(false);
  return html`<details onToggle=${(event) => setOpen(event.currentTarget.open)}>
    <summary>${say("device.title")}</summary>
    ${open && html`<${Device} caller=${caller} />`}
  </details>`;
}

/** What is not needed while somebody calls. */
const More = ({ caller }) =>
  html`<div class="row carer-more">
    <${Pause} />
    <${ThisDevice} caller=${caller} />
  </div>`;

/** One screen of a telephone: the alarm or the state, the picture; whatever is normal is small. */
export function Carer({ view }) {
  const { link, live, state, settings, calls, events, past, limited, now, covers, caller } = view;
  const alarms = openAlarms(calls.alarms);
  const told = alarms.length > 0;
  return html`<div class="carer">
    <h1 class="hidden" tabindex="-1">${say("view.watch")}</h1>
    <${Alarms} alarms=${alarms} view=${view} />
    ${!told && html`<${State} state=${state} since=${watchingSince(past)} now=${now} />`}
    ${covers ? html`<${Covered} link=${link} live=${live} />` : settings && html`<${Room} ...${{ link, settings, live, covers }} />`}
    ${told && html`<${Insecure} /><${State} state=${state} told />`}
    ${!told && html`<${Events} ...${{ events, limited, state, now }} told=${[]} history=${past.history} />`}
    ${!alarms.some(isCalling) && html`<${More} caller=${caller} />`}
  </div>`;
}

/**
 * @param {{view: object}} props
 * @param {import("../hub/link.js").Link} view.link
 * @param {import("../call/caller.js").Caller} view.caller
 * @param {object} view.state what readiness gave
 * @param {?object} view.settings the saved ones, and `view.waiting`, the words in their place
 * @param {object} view.live of the picture, see LivePicture
 * @param {object[]} view.events of the hub's news
 * @param {{history: object[], watching: ?object[]}} view.past of the hub
 * @param {{alarms: object[], pause: ?object, state: string}} view.calls of the hub
 * @param {{what: string, since: string}[]} view.wrong the troubles of the newest heartbeat
 * @param {?object} view.scene of sceneNow; undefined where the program does not tell
 * @param {boolean} view.limited whether only the status tells
 * @param {?number} view.openedAt since when this page knows what happens, see unwatchedTimes
 * @param {boolean} view.covers whether there is an anonymised view of the workstation's own
 * @param {boolean} view.mends whether who looks on may change settings
 * @param {number} view.now milliseconds since 1970 by the camera's clock
 */
export function Watch({ view }) {
  const { link, caller, state, settings, live, events, past, calls, wrong, scene, now } = view;
  const { limited, openedAt, covers, mends } = view;
  const { history, watching } = past;
  const alarms = openAlarms(calls.alarms);
  return html`<div class="watch">
    <h1 class="hidden" tabindex="-1">${say("view.watch")}</h1>
    <div class="first">
      ${settings ? html`<${Room} ...${{ link, settings, live, covers }} />` : html`<${Waiting} words=${view.waiting} />`}
    </div>
    <div class="side">
      <${Alarms} alarms=${alarms} view=${view} />
      ${alarms.length > 0 && html`<${Insecure} />`}
      <${State} state=${state} since=${watchingSince(past)} told=${alarms.length > 0} mends=${mends} now=${now} />
      <${Events} ...${{ events, history, limited, state, now }} told=${alarms.map(({ event }) => event)} />
      <${Sight} wrong=${wrong} now=${now} mends=${mends} />
      ${scene !== undefined && html`<${Scene} link=${link} scene=${scene} now=${now} />`}
      ${calls.state !== "absent" && html`<${Pause} />`} ${!mends && html`<${ThisDevice} caller=${caller} />`}
    </div>
    <${Timeline}
      ...${{ history, events, watching, openedAt, now, alarms: calls.alarms }}
      silentSince=${state.silentSince}
    />
  </div>`;
}
