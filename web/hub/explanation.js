import { REFUSAL } from "../base/facts.js";
import { fetchText } from "../program/api.js";

const WHY_URL = "/platform/why";
/** How often it is asked for while somebody looks at what is seen now. */
const POLL_MS = 1900;
/** A sentence is known a moment after its change; it is asked for so often, once a second. */
const TRIES = 10;
const MOST_SENTENCES = 2000;

const keyOf = ({ run, seq }) => `${run} ${seq}`;

const textsOf = (list) => list.map(({ text }) => text).filter((text) => typeof text === "string");

/**
 * Why the program decides as it does, in sentences. Nothing waits for it: a program without it, a refusal, an answer
 * that does not come or makes no sense leave sentences out, and that is all.
 *
 * offered: whether the program explains, as far as known. scene: {time, people, beds} as last told, each person and bed a
 * sentence, or null.
 */
export class Explanation {
  /**
   * @param {{learned: () => void, scene: () => void}} listener what has come: sentences of changes, or what is seen
   * @param {() => number} now milliseconds that never jump
   */
  constructor(listener, now) {
    Object.assign(this, { listener, now, offered: false, absent: false, scene: null, sentences: new Map() });
    Object.assign(this, { wanted: [], run: undefined, tries: 0, asking: false, askedAt: -Infinity });
  }

  /** Because of what a change {run, seq, name, active} came, without a full stop; undefined: not known. */
  because(change) {
    const told = this.sentences.get(keyOf(change));
    return told?.name === change.name && told.active === change.active ? told.because : undefined;
  }

  /** Something has happened: these changes' sentences are wanted. Only another run may explain where one did not. */
  want(changes, run) {
    Object.assign(this, { wanted: changes, absent: this.absent && run === this.run, run, tries: TRIES });
    this.tick(false);
  }

  /** Once a second, and when somebody begins to look at what is seen now. */
  tick(looked) {
    const due = this.tries > 0 || (looked && this.now() - this.askedAt >= POLL_MS);
    if (due && !this.asking && !this.absent) this.ask();
  }

  async ask() {
    Object.assign(this, { asking: true, askedAt: this.now(), tries: this.tries - 1 });
    try {
      this.take(JSON.parse(await fetchText(WHY_URL)));
    } catch ({ status }) {
      this.absent = status === REFUSAL.absent;
      if (this.absent) this.offered = false;
    }
    this.asking = false;
  }

  take({ time, people, beds, events }) {
    this.scene = { time, people: textsOf(people), beds: textsOf(beds) };
    const learned = events.filter(({ because, ...change }) => typeof because === "string" && !this.because(change));
    for (const event of learned) this.sentences.set(keyOf(event), event);
    for (const key of this.sentences.keys()) {
      if (this.sentences.size <= MOST_SENTENCES) break;
      this.sentences.delete(key);
    }
    this.offered = true;
    if (this.wanted.every((change) => this.because(change) !== undefined)) this.tries = 0;
    this.listener.scene();
    if (learned.length) this.listener.learned();
  }
}
