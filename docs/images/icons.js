/**
 * Draws the page's icons for telephones, which take no SVG, from web/icon.svg:
 * `npm --prefix tests/web run icons` writes web/icon-*.png. Telephones cut their own corners, so these have none.
 */
import { readFile } from "node:fs/promises";
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import { openBrowser } from "../../tests/web/browser.js";

const WEB = fileURLToPath(new URL("../../web", import.meta.url));
/** 180: what an iPhone asks for. */
const SIZES = [180, 192, 512];

const svg = (await readFile(join(WEB, "icon.svg"), "utf8")).replace('rx="8"', "");
const browser = await openBrowser();
try {
  const page = await browser.newPage();
  for (const size of SIZES) {
    await page.setViewportSize({ width: size, height: size });
    await page.setContent(`<style>body { margin: 0 } svg { display: block; width: 100vw }</style>${svg}`);
    await page.screenshot({ path: join(WEB, `icon-${size}.png`) });
  }
} finally {
  await browser.close();
}
