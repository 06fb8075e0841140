import { failure, failureWords } from "../base/words.js";

/** Grows with each change of what hub and tab say to each other: a tab of yesterday keeps yesterday's hub. */
const VERSION = 4;
/** A hub that has been silent for so long is given up: it speaks once a second. */
const SILENCE_MS = 5000;
const LOOK_MS = 1000;
/** How often a shared hub is tried that does not speak: a broken worker starts anew, some browsers cannot run one. */
const ATTEMPTS = 2;

/** A hub that all tabs of one person share. */
function sharedHub(who, onError) {
  const worker = new SharedWorker(new URL("worker.js", import.meta.url), {
    type: "module",
    name: `velmor-hub-${VERSION}/${who.role}/${who.name}`,
  });
  worker.onerror = onError;
  return worker.port;
}

/** A hub of this tab's own. */
function ownHub(who) {
  const { port1, port2 } = new MessageChannel();
  import("./hub.js").then(({ Hub }) => {
    const hub = new Hub(undefined, who.role);
    hub.start();
    hub.connect(port1);
  });
  return port2;
}

/** A tab's way to the hub. A hub that does not start or falls silent is replaced, in the end by one in the tab. */
export class Link {
  /** @param {{name: string, role: string}} who looks on */
  constructor(who) {
    this.who = who;
    this.sounds = false;
    this.listeners = new Map();
    this.newest = new Map();
    this.asked = new Map();
    this.watched = new Map();
    this.lastId = 0;
    this.shared = typeof SharedWorker === "function" ? ATTEMPTS : 0;
    this.connect();
    this.timer = setInterval(() => performance.now() - this.heardAt > SILENCE_MS && this.connect(), LOOK_MS);
    addEventListener("pagehide", () => this.port.postMessage({ type: "bye" }));
  }

  /** Somebody else looks on from now on. */
  stop() {
    clearInterval(this.timer);
    this.listeners.clear();
    this.port.postMessage({ type: "bye" });
    this.port.close();
  }

  connect() {
    if (this.own) return;
    this.port?.close();
    this.heardAt = performance.now();
    this.own = this.shared === 0;
    this.port = this.own ? ownHub(this.who) : this.tryShared();
    this.port.onmessage = ({ data }) => this.take(data);
    this.refuseAll();
  }

  /** A hub that has just come to know this tab, or had given it up, is told what it looks at. */
  watchAll() {
    if (this.looks) this.look(true);
    for (const [id, { what }] of this.watched) this.send({ type: "watch", id, ...what });
  }

  tryShared() {
    this.shared -= 1;
    const fail = () => {
      this.shared = 0;
      this.connect();
    };
    try {
      return sharedHub(this.who, fail);
    } catch {
      this.own = true;
      return ownHub(this.who);
    }
  }

  refuseAll() {
    for (const { reject } of this.asked.values()) reject(failure("noAnswer"));
    this.asked.clear();
  }

  send(message) {
    this.port.postMessage(message);
  }

  take({ type, ...message }) {
    this.heardAt = performance.now();
    if (!this.own) this.shared = ATTEMPTS;
    if (type === "news") {
      this.here();
      message.at = this.heardAt;
    }
    if (type === "settings" && message.said) message.error = failureWords(message.said);
    if (type === "hello") this.watchAll();
    else if (type === "answer") this.answered(message);
    else if (type === "picture") this.watched.get(message.id)?.onPicture(message.picture);
    else if (type === "failed") this.watched.get(message.id)?.onFail(message.status);
    else {
      this.newest.set(type, message);
      this.listeners.get(type)?.(message);
    }
  }

  /**
   * Hears the hub's messages of a type from now on, and the newest so far: effects of a tab in the background come late.
   * @param {"news" | "past" | "settings" | "scene" | "calls" | "tested" | "voice" | "signed-out"} type news has `at`, when it came by performance.now()
   */
  listen(type, take) {
    this.listeners.set(type, take);
    if (this.newest.has(type)) take(this.newest.get(type));
  }

  /** Tells the hub that this tab lives, and whether it can make a sound. */
  here() {
    this.send({ type: "here", sounds: this.sounds, visible: !document.hidden });
  }

  answered({ id, text, error, status, said }) {
    const { resolve, reject } = this.asked.get(id) ?? {};
    this.asked.delete(id);
    if (error === undefined) resolve?.(text);
    else reject?.(Object.assign(new Error(said ? failureWords(said) : error), { status }));
  }

  /** The text of an answer, in turn with all other requests. @returns {Promise<string>} */
  ask(url) {
    const id = ++this.lastId;
    return new Promise((resolve, reject) => {
      this.asked.set(id, { resolve, reject });
      this.send({ type: "ask", id, url: new URL(url, document.baseURI).href });
    });
  }

  /** Whether this tab shows what is seen now: only then is it kept up to date ("scene"). */
  look(on) {
    this.looks = on;
    this.send({ type: "look", on });
  }

  /** Reads the settings again soon. */
  refresh() {
    this.send({ type: "refresh" });
  }

  /**
   * Pictures of a stream until the function returned is called.
   * @param {{size: string, anonymised: boolean, covered: boolean}} what
   * @param {{onPicture: (picture: Blob, took: () => void) => void, onFail: (status: ?number) => void}} listener the next
   *   picture comes once `took` was called; status: of a refusal
   */
  watch(what, { onPicture, onFail }) {
    const id = ++this.lastId;
    const took = () => this.send({ type: "took", id });
    this.watched.set(id, { what, onFail, onPicture: (picture) => onPicture(picture, took) });
    this.send({ type: "watch", id, ...what });
    return () => {
      this.watched.delete(id);
      this.send({ type: "leave", id });
    };
  }
}
