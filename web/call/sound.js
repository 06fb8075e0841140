/** The call's sounds, made by the browser: no file has to be there when they are needed. */

import { SOFTEST } from "./calls.js";

/** Seconds between two calls, and what is played: [from, length, hertz]. A fall is fast, high and hard; an exit is a chime. */
const TUNES = {
  fall: {
    wave: "square",
    every: 2,
    gain: 0.35,
    notes: [
      [0, 0.22, 880],
      [0.26, 0.22, 1245],
      [0.52, 0.22, 880],
      [0.78, 0.3, 1245],
    ],
  },
  exit: {
    wave: "sine",
    every: 8,
    gain: 0.3,
    notes: [
      [0, 0.35, 660],
      [0.4, 0.5, 495],
    ],
  },
};
const LOUDEST = 1;

/** What is played for a kind of alarm: each step is louder, up to the loudest, and comes sooner again. */
export function tuneOf(kind, loudness) {
  const tune = TUNES[kind] ?? TUNES.fall;
  const above = Math.max(0, loudness - SOFTEST) / 2;
  return {
    ...tune,
    gain: Math.min(LOUDEST, tune.gain * (1 + above)),
    every: Math.max(1.5, tune.every / (1 + above / 2)),
  };
}

/** Plays the tunes once the browser allows it: after a click, on this page. */
export class Sounder {
  /** @param {() => void} onChange told when it has become able to play, or unable */
  constructor(onChange) {
    Object.assign(this, { onChange, context: null, nextAt: 0, playing: null });
  }

  get ready() {
    return this.context?.state === "running";
  }

  /** To be called by a click. @returns {Promise<boolean>} whether sounds can be heard now */
  async allow() {
    const Context = globalThis.AudioContext ?? globalThis.webkitAudioContext;
    if (!Context) return false;
    if (!this.context) {
      this.context = new Context();
      this.context.onstatechange = () => this.onChange();
    }
    await Promise.race([this.context.resume(), new Promise((resolve) => setTimeout(resolve, 1000))]).catch(() => {});
    this.onChange();
    return this.ready;
  }

  /** Once a second and at once with each news: plays while somebody is called, null: nobody. */
  ring(call) {
    if (!this.ready) return;
    const key = call && `${call.kind} ${call.loudness}`;
    const now = this.context.currentTime;
    if (key !== this.playing) this.nextAt = now;
    this.playing = key;
    if (!call || now < this.nextAt) return;
    const tune = tuneOf(call.kind, call.loudness);
    this.nextAt = now + tune.every - 0.1;
    this.play(tune);
  }

  /** Plays a tune once. */
  play({ wave, gain, notes }) {
    const { currentTime, destination } = this.context;
    for (const [from, length, frequency] of notes) {
      const source = this.context.createOscillator();
      const volume = this.context.createGain();
      source.type = wave;
      source.frequency.value = frequency;
      const start = currentTime + from;
      volume.gain.setValueAtTime(0, start);
      volume.gain.linearRampToValueAtTime(gain, start + 0.02);
      volume.gain.setValueAtTime(gain, start + length - 0.04);
      volume.gain.linearRampToValueAtTime(0, start + length);
      source.connect(volume).connect(destination);
      source.start(start);
      source.stop(start + length);
    }
  }
}
