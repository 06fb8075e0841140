import { streamUrl } from "../program/api.js";

const RETRY_MS = 2000;
/** A stream without a byte for so long is opened anew: the camera repeats a picture at least once a second. */
const SILENCE_MS = 10000;
const MOST_HEADER_BYTES = 4096;
const MOST_PICTURE_BYTES = 16 << 20;

function joined(first, second) {
  if (!first.length) return second;
  const both = new Uint8Array(first.length + second.length);
  both.set(first);
  both.set(second, first.length);
  return both;
}

/** Where a part's header ends, or -1; line ends before it belong to the part before. */
function headerEnd(bytes) {
  let at = 0;
  while (bytes[at] === 13 || bytes[at] === 10) ++at;
  for (; at + 3 < bytes.length; ++at) {
    if (bytes[at] === 13 && bytes[at + 1] === 10 && bytes[at + 2] === 13 && bytes[at + 3] === 10) return at + 4;
  }
  return -1;
}

function pictureLength(header) {
  const length = Number(/^content-length:\s*(\d+)\s*$/im.exec(new TextDecoder().decode(header))?.[1]);
  if (!(length > 0 && length <= MOST_PICTURE_BYTES)) throw new Error("a picture without a sensible length");
  return length;
}

/**
 * Reads a stream of pictures (multipart) to its end.
 * @param {ReadableStreamDefaultReader<Uint8Array>} reader
 * @param {{onBytes: () => void, onPicture: (jpeg: Uint8Array) => void}} listener
 * @throws when the stream makes no sense
 */
export async function readPictures(reader, { onBytes, onPicture }) {
  let bytes = new Uint8Array(0);
  let length = null;
  for (;;) {
    const { done, value } = await reader.read();
    if (done) return;
    onBytes();
    bytes = joined(bytes, value);
    for (;;) {
      if (length === null) {
        const end = headerEnd(bytes);
        if (end < 0 && bytes.length > MOST_HEADER_BYTES) throw new Error("a part without an end of its header");
        if (end < 0) break;
        length = pictureLength(bytes.subarray(0, end));
        bytes = bytes.subarray(end);
      }
      if (bytes.length < length) break;
      onPicture(bytes.slice(0, length));
      bytes = bytes.subarray(length);
      length = null;
    }
  }
}

/** One stream of pictures, received once for all who look at it, again and again until stop(). */
export class PictureStream {
  /**
   * @param {{size: string, anonymised: boolean}} what
   * @param {{onPicture: (picture: Blob) => void, onFail: (status: ?number) => void}} listener status: of a refusal
   * @param {() => number} now milliseconds that never jump
   */
  constructor(what, listener, now) {
    Object.assign(this, { what, listener, now, stopped: false, heardAt: null, connection: null, timer: null });
    this.receive();
  }

  stop() {
    this.stopped = true;
    clearTimeout(this.timer);
    this.connection?.abort();
  }

  /** Tries at once instead of later. */
  hurry() {
    if (this.connection) return;
    clearTimeout(this.timer);
    this.receive();
  }

  /** Once a second: notices a stream that has fallen silent. */
  tick() {
    if (this.connection && this.now() - this.heardAt > SILENCE_MS) this.connection.abort();
  }

  async receive() {
    this.connection = new AbortController();
    this.heardAt = this.now();
    let status = null;
    try {
      await this.readFrom(streamUrl(this.what), this.connection.signal);
    } catch (error) {
      status = error.status ?? null;
    }
    this.connection.abort();
    this.connection = null;
    if (this.stopped) return;
    this.timer = setTimeout(() => this.receive(), RETRY_MS);
    this.listener.onFail(status);
  }

  async readFrom(url, signal) {
    const answer = await fetch(url, { signal, cache: "no-store" });
    if (!answer.ok) {
      await answer.body?.cancel();
      throw Object.assign(new Error("refused"), { status: answer.status });
    }
    await readPictures(answer.body.getReader(), {
      onBytes: () => (this.heardAt = this.now()),
      onPicture: (jpeg) => this.stopped || this.listener.onPicture(new Blob([jpeg], { type: "image/jpeg" })),
    });
  }
}
