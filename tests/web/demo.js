/** What the browser's tests begin with: the real program on the demo's camera, and Chromium on its page. */
import { after, afterEach, before } from "node:test";
import { openBrowser, openPage, openSetup } from "./browser.js";
import { Gateway, demoCamera, demoParameters, startProgram } from "./program.js";
import { LANDSCAPE as SIZE } from "../../web/base/facts.js";
import { encodeSettings, parseSettings } from "../../web/program/wire.js";

/**
 * The program, a gateway before it that can be cut, and a browser that takes the gateway without knowing it, for all
 * tests of a file; pages are closed after each test.
 */
export function onTheDemo() {
  const demo = { pages: [] };
  before(async () => {
    demo.program = await startProgram({ ...demoCamera(), parameters: demoParameters() });
    demo.gateway = new Gateway(Number(demo.program.page.port));
    const rule = `MAP ${demo.program.page.host} 127.0.0.1:${await demo.gateway.plug()}`;
    demo.browser = await openBrowser([`--host-resolver-rules=${rule}`]);
  });
  afterEach(async () => {
    demo.gateway.intercept = () => false;
    if (!demo.gateway.server.listening) await demo.gateway.plug();
    for (const page of demo.pages.splice(0)) await page.context().close();
  });
  after(async () => {
    await demo.browser?.close();
    await demo.gateway?.cut();
    await demo.program?.stop();
  });
  const opening = (how) => async (options) => {
    const page = await how(demo.browser, demo.program.page, options);
    demo.pages.push(page);
    return page;
  };
  demo.open = opening(openPage);
  demo.openSetup = opening(openSetup);
  demo.read = async () => parseSettings(await demo.program.ask("get_all_parameters"), SIZE);
  demo.store = (settings) => demo.program.ask("set_all_parameters", encodeSettings(settings, SIZE).toString());
  return demo;
}
