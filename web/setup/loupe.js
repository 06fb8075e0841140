import { html, useEffect, useRef } from "../vendor/preact.js";

/** Sides of the square loupe in CSS pixels; in between it takes a share of the picture's width. */
const SMALLEST = 92;
const LARGEST = 140;
const SHARE = 0.29;
/** At least this many times larger than the picture on the screen, and at least so many CSS pixels for its pixels. */
const MAGNIFICATION = 4;
const REDRAW_MS = 100;

/**
 * The side on which a loupe in the picture's upper corner leaves the point free: the finger that drags it comes from
 * below.
 */
export const loupeSide = (at, width) => (at.x > width / 2 ? "left" : "right");

/** The loupe's side in CSS pixels on a picture of that width. */
export const loupeSize = (width) => Math.round(Math.min(LARGEST, Math.max(SMALLEST, width * SHARE)));

/** How many stream pixels a loupe of `side` CSS pixels shows across, when `unit` of them make one CSS pixel. */
export const loupeSpan = (side, unit) => side / (MAGNIFICATION * Math.max(1, 1 / unit));

/**
 * The live picture around a point, much larger, with a cross hair whose centre is the point.
 *
 * @param {object} props
 * @param {import("../picture/picture.js").View} props.view
 * @param {{x: number, y: number}} props.at the point in the stream's pixels
 * @param {string} props.name which point, as shown under the loupe
 */
export function Loupe({ view, at, name }) {
  const canvas = useRef(null);
  const { image, unit, width } = view;
  const side = loupeSize(width / unit);
  useEffect(() => {
    const draw = () => drawAround(canvas.current, image, at, loupeSpan(side, unit));
    draw();
    const timer = setInterval(draw, REDRAW_MS);
    return () => clearInterval(timer);
  }, [image, at.x, at.y, side, unit]);
  const half = side / 2;
  const cross = `M0 ${half}H${half - 6}M${half + 6} ${half}H${side}M${half} 0V${half - 6}M${half} ${half + 6}V${side}`;
  return html`
    <div
      class=${`loupe loupe-${loupeSide(at, width)}`}
      aria-hidden="true"
      style=${{ width: `${side}px`, height: `${side}px` }}
    >
      <canvas ref=${canvas} width=${side * 2} height=${side * 2}></canvas>
      <svg viewBox=${`0 0 ${side} ${side}`}>
        <path class="editor-halo" d=${cross} />
        <path class="loupe-cross" d=${cross} />
        <circle class="loupe-centre" cx=${half} cy=${half} r="1.5" />
      </svg>
      <span class="loupe-name">${name}</span>
    </div>
  `;
}

function drawAround(canvas, image, { x, y }, span) {
  const context = canvas.getContext("2d");
  context.imageSmoothingEnabled = false;
  context.fillRect(0, 0, canvas.width, canvas.height);
  if (!image?.naturalWidth) return;
  context.drawImage(image, x - span / 2, y - span / 2, span, span, 0, 0, canvas.width, canvas.height);
}
