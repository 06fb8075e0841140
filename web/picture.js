import { streamUrl } from "./api.js";
import { html, useEffect, useMemo, useRef, useState } from "./vendor/preact.js";

const RETRY_MS = 5000;
const SIZE_POLL_MS = 200;

/** "1280x720" as numbers; anything else gives a picture of common proportions until the camera's first arrives. */
function sizeFromText(text) {
  const match = /^([1-9]\d{1,4})x([1-9]\d{1,4})$/.exec(text);
  return match ? { width: Number(match[1]), height: Number(match[2]) } : { width: 1280, height: 720 };
}

/**
 * One of the camera's live streams, as wide as there is room for, in the proportions in which the camera sends it: a
 * camera that is turned by a quarter sends "1280x720" as 720 x 1280.
 *
 * @param {object} props
 * @param {string} props.size the stream's resolution, such as "1280x720"
 * @param {boolean} [props.anonymised] whether nobody is to be recognised on it: another picture is then refused
 * @param {string} props.label what the picture shows, for those who cannot see it
 * @param {number} [props.epoch] another number connects again
 * @param {() => void} [props.onFail] told when no picture comes
 * @param {(size: {width: number, height: number}) => void} [props.onSize] told the size in which pictures really arrive
 * @param {(view: View) => any} [props.children] drawn over the picture, in an SVG whose unit is the stream's pixel
 * @param {(view: View) => any} [props.above] HTML over all of it
 * @typedef {{width: number, height: number, unit: number, image: HTMLImageElement | null}} View width and height in the
 *     stream's pixels, of which `unit` make one CSS pixel
 */
export function LivePicture({ size, anonymised = false, label, epoch = 0, onFail, onSize, children, above }) {
  const image = useRef(null);
  const frame = useRef(null);
  const [attempt, setAttempt] = useState(0);
  const [view, setView] = useState(() => sizeFromText(size));
  const visible = useVisible();
  const source = useMemo(
    () => (visible ? streamUrl(size, anonymised) : null),
    [size, anonymised, epoch, attempt, visible],
  );
  const [seen, setSeen] = useState({ source, state: "waiting" });
  const state = seen.source === source ? seen.state : "waiting";
  const shownWidth = useWidth(frame);

  // A stream never finishes loading, so nothing but the image itself tells when its first picture has arrived. Browsers
  // go on receiving the stream of an image that has left the page, hence the end of it.
  useEffect(() => {
    if (source === null) return undefined;
    const element = image.current;
    const timer = setInterval(() => {
      if (!element.naturalWidth) return;
      clearInterval(timer);
      const arrived = { width: element.naturalWidth, height: element.naturalHeight };
      setSeen({ source, state: "live" });
      setView(arrived);
      onSize?.(arrived);
    }, SIZE_POLL_MS);
    return () => {
      clearInterval(timer);
      element.removeAttribute("src");
    };
  }, [source]);

  useEffect(() => {
    if (state !== "failed") return undefined;
    const timer = setTimeout(() => setAttempt((count) => count + 1), RETRY_MS);
    return () => clearTimeout(timer);
  }, [state]);

  const shown = { ...view, unit: shownWidth > 0 ? view.width / shownWidth : 1, image: image.current };
  return html`
    <div class="picture" ref=${frame} style=${{ "--picture-width": view.width, "--picture-height": view.height }}>
      <img
        key=${source}
        class=${`picture-image ${state === "live" ? "" : "is-absent"}`}
        ref=${image}
        src=${source}
        alt=${label}
        draggable=${false}
        onError=${() => {
          setSeen({ source, state: "failed" });
          onFail?.();
        }}
      />
      ${children && html`<svg class="picture-over" viewBox=${`0 0 ${view.width} ${view.height}`}>${children(shown)}</svg>`}
      ${above?.(shown)}
      ${
        state !== "live" &&
        html`<p class="picture-message" role="status">
          ${
            state === "failed"
              ? "The camera sends no picture. Trying again every few seconds."
              : "Waiting for the camera's picture."
          }
        </p>`
      }
    </div>
  `;
}

/** Whether anybody can see the page. Browsers open few connections to one camera, and a hidden tab needs no picture. */
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
