import { FRESH_MS, LANDSCAPE, REFUSAL, sizeOf } from "../base/facts.js";
import { clockTime, say } from "../base/words.js";
import { html, useEffect, useRef, useState } from "../vendor/preact.js";

const LOOK_MS = 500;

/**
 * Since when a picture that is shown is not live any more, or null: no other one has come, or what was found in it is old.
 * @param {?number} arrived ms since the newest picture came; null: none did
 * @param {?number} analysed age of the picture that the program last spoke about; null: it does not tell
 * @param {number} now milliseconds since 1970 by the camera's clock
 */
export function notLiveSince(arrived, analysed, now) {
  const age = Math.max(arrived ?? 0, analysed ?? 0);
  return age > FRESH_MS ? now - age : null;
}

/**
 * One of the camera's live streams, as wide as there is room for, in the proportions in which the camera sends it: a
 * camera that is turned by a quarter sends "1280x720" as 720 x 1280.
 *
 * @param {object} props
 * @param {import("../hub/link.js").Link} props.link where pictures come from
 * @param {string} props.size the stream's resolution, such as "1280x720"
 * @param {boolean} [props.anonymised] whether nobody is to be recognised on it: another picture is then refused
 * @param {boolean} [props.covered] whether it is the workstation's own anonymised view
 * @param {string} props.label what the picture shows, for those who cannot see it
 * @param {{analysedAge: ?number, offset: number}} props.live age in ms of the picture that the program last spoke about,
 *   null where it does not tell, and the camera's clock minus ours
 * @param {(since: ?number|"absent") => void} [props.onLive] told since when the picture is not live, null while it is,
 *   "absent" while there is none
 * @param {(view: View) => any} [props.children] drawn over the picture, in an SVG whose unit is the stream's pixel
 * @param {(view: View) => any} [props.above] HTML over all of it
 * @typedef {{width: number, height: number, unit: number, image: HTMLImageElement | null}} View width and height in the
 *     stream's pixels, of which `unit` make one CSS pixel
 */
export function LivePicture({ link, size, anonymised = false, covered = false, label, live, onLive, children, above }) {
  const image = useRef(null);
  const frame = useRef(null);
  const [view, setView] = useState(() => sizeOf(size) ?? LANDSCAPE);
  const { arrived, failed } = usePictures({ link, size, anonymised, covered, image, setView });
  const shownWidth = useWidth(frame);
  const since = notLiveSince(arrived, live.analysedAge, Date.now() + live.offset);
  const refused = failed?.status === REFUSAL.notAnonymised;
  const absent = arrived === null || refused;
  useEffect(() => onLive?.(absent ? "absent" : since), [absent, since === null ? null : Math.round(since / 1000)]);

  const shown = { ...view, unit: shownWidth > 0 ? view.width / shownWidth : 1, image: image.current };
  return html`
    <div class="picture" ref=${frame} style=${{ "--picture-width": view.width, "--picture-height": view.height }}>
      <img
        class=${`picture-image ${absent ? "is-absent" : since === null ? "" : "is-old"}`}
        ref=${image}
        alt=${label}
        draggable=${false}
      />
      ${children && html`<svg class="picture-over" viewBox=${`0 0 ${view.width} ${view.height}`}>${children(shown)}</svg>`}
      ${above?.(shown)} ${!absent && since !== null && html`<${NotLive} since=${since} />`}
      ${(absent || failed) && html`<p class="picture-message" role="status">${messageOf(failed, refused)}</p>`}
    </div>
  `;
}

/** "Not live: the picture of 19:25:40". */
export const notLiveWords = (since) => say("picture.notLive", { at: clockTime(new Date(since)) });

function NotLive({ since }) {
  return html`<p class="picture-old">
    <span class="sign" aria-hidden="true">✕</span><span>${notLiveWords(since)}</span>
  </p>`;
}

function messageOf(failed, refused) {
  if (refused) return say("picture.notAnonymised");
  return failed ? say("picture.none") : say("picture.waiting");
}

/**
 * Shows a stream's pictures in an image element while anybody can see the page.
 * @returns {{arrived: ?number, failed: ?{status: ?number}}} arrived: ms since the newest picture came, null before the
 *   first; failed: since that one none comes
 */
function usePictures({ link, size, anonymised, covered, image, setView }) {
  const visible = useVisible();
  const newest = useRef({ at: null, url: null });
  const [, look] = useState(0);
  const [failed, setFailed] = useState(null);

  useEffect(() => {
    if (!visible) return undefined;
    const shown = (url, element) => {
      const { at, url: before } = newest.current;
      if (before) URL.revokeObjectURL(before);
      newest.current = { at: performance.now(), url };
      setFailed(null);
      if (at === null || performance.now() - at > FRESH_MS) look((count) => count + 1);
      setView((old) => sizeShown(old, element));
    };
    const onPicture = (picture, took) => showIn(image, picture, took, shown);
    const onFail = (status) => {
      setFailed({ status });
      if (status >= 400 && status < 500) link.refresh();
    };
    return link.watch({ size, anonymised, covered }, { onPicture, onFail });
  }, [link, size, anonymised, covered, visible]);

  useEffect(() => {
    const timer = setInterval(() => look((count) => count + 1), LOOK_MS);
    return () => {
      clearInterval(timer);
      if (newest.current.url) URL.revokeObjectURL(newest.current.url);
    };
  }, []);
  const { at } = newest.current;
  return { arrived: at === null ? null : performance.now() - at, failed };
}

/** Puts a picture into an image element; `shown(url, element)` once it is to be seen, and its address is then the caller's. */
function showIn(image, picture, took, shown) {
  const url = URL.createObjectURL(picture);
  const element = image.current;
  const done = (good) => {
    took();
    // A picture may be ready after its place has left the page.
    if (good && image.current === element) shown(url, element);
    else URL.revokeObjectURL(url);
  };
  element.onload = () => done(true);
  element.onerror = () => done(false);
  element.src = url;
}

/** The same object while the camera's pictures have the same size. */
function sizeShown(old, { naturalWidth: width, naturalHeight: height }) {
  return old.width === width && old.height === height ? old : { width, height };
}

/** Whether anybody can see the page: a hidden tab needs no picture. */
function useVisible() {
  const [visible, setVisible] = useState(!document.hidden);
  useEffect(() => {
    const follow = () => setVisible(!document.hidden);
    document.addEventListener("visibilitychange", follow);
    return () => document.removeEventListener("visibilitychange", follow);
  }, []);
  return visible;
}

/** The width of an element in CSS pixels, kept up to date. */
function useWidth(element) {
  const [width, setWidth] = useState(0);
  useEffect(() => {
    const observer = new ResizeObserver(([entry]) => setWidth(entry.contentRect.width));
    observer.observe(element.current);
    return () => observer.disconnect();
  }, []);
  return width;
}
