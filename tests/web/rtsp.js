/** Network cameras of one colour, each a process of its own. */
import { spawn } from "node:child_process";
import { once } from "node:events";
import { createServer } from "node:net";
import { join } from "node:path";
import { PROGRAMS } from "./program.js";

async function freePort() {
  const probe = createServer().listen(0, "127.0.0.1");
  await once(probe, "listening");
  const { port } = probe.address();
  await new Promise((resolve) => probe.close(resolve));
  return port;
}

/** Ten pictures a second; with a login ("user:password") whoever watches must sign in. */
export async function startCamera(grey, login = "") {
  const port = await freePort();
  const colour = 0xff000000 + grey * 0x010101;
  const pipeline =
    `( videotestsrc is-live=true pattern=solid-color foreground-color=${colour} ` +
    "! video/x-raw,format=I420,framerate=10/1,width=640,height=368 ! jpegenc ! rtpjpegpay name=pay0 )";
  const child = spawn(join(PROGRAMS, "rtsp_camera"), [String(port), pipeline, `login=${login}`], { stdio: "ignore" });
  return { uri: `rtsp://127.0.0.1:${port}/room`, stop: () => child.kill("SIGKILL") };
}
