/** A receiver of calls: believes only what is signed, keeps what it takes, and fails or hangs while it is told to. */
import { createHmac } from "node:crypto";
import { once } from "node:events";
import { createServer } from "node:http";

const TAKEN = 204;
const FAILS = 503;

export class Receiver {
  constructor(secret) {
    Object.assign(this, { secret, taken: [], failed: 0, unsigned: 0, fails: false, hangs: false, held: new Set() });
    this.server = createServer(async (request, response) => {
      let body = "";
      for await (const chunk of request) body += chunk;
      if (this.hangs) this.hold(response);
      else response.writeHead(this.take(request.headers, body)).end();
    });
  }

  /** Leaves a call without an answer, until whoever calls gives it up. */
  hold(response) {
    this.held.add(response);
    response.on("close", () => this.held.delete(response));
  }

  take(headers, body) {
    const signed = createHmac("sha256", this.secret).update(`${headers["x-velmor-timestamp"]}.${body}`).digest("hex");
    if (headers["x-velmor-signature"] !== `sha256=${signed}`) this.unsigned += 1;
    if (this.fails) this.failed += 1;
    else this.taken.push(JSON.parse(body));
    return this.fails ? FAILS : TAKEN;
  }

  /** What was taken, without what has come again. */
  get calls() {
    return this.taken.filter(({ run, number }, at) => {
      const first = this.taken.findIndex((other) => other.run === run && other.number === number);
      return first === at;
    });
  }

  /** @returns {Promise<string>} its address */
  async begin() {
    this.server.listen(0, "127.0.0.1");
    await once(this.server, "listening");
    return `http://127.0.0.1:${this.server.address().port}/calls`;
  }

  end() {
    this.server.closeAllConnections();
    this.server.close();
  }
}
