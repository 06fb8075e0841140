const FAILURES_UNTIL_LOST = 2;

/**
 * The program's state as its status tells it. `status` is null until there was an answer or two requests in a row have
 * failed; then {code, text, executionTime, connected}: `text` and `executionTime` null while they are not known.
 */
export class StatusPoll {
  /**
   * @param {import("../program/api.js").Control} control
   * @param {{told: () => void, back: () => void}} listener `told` after each answer and failure, `back` with the first
   *   answer after a lost connection
   * @param {() => number} now milliseconds that never jump
   */
  constructor(control, listener, now) {
    Object.assign(this, { control, listener, now, failures: 0, status: null, answeredAt: null, asking: false });
  }

  /** Asks once, unless an answer is still awaited. */
  async poll() {
    if (this.asking) return;
    this.asking = true;
    try {
      await this.ask();
    } catch {
      this.failed();
    }
    this.asking = false;
  }

  async ask() {
    const code = await this.control.statusCode();
    // The code alone says most, and each request may wait for the end of a cycle.
    const known = this.status?.code === code ? this.status : { text: null };
    this.answered({ ...known, code, executionTime: this.status?.executionTime ?? null, connected: true });
    const executionTime = await this.control.executionTime();
    const text = this.status.text ?? (await this.control.statusText());
    // A cycle may have ended between code and text: words of another code are worse than none.
    const isOne = this.status.text !== null || (await this.control.statusCode()) === code;
    this.answered({ code, text: isOne ? text : null, executionTime, connected: true });
  }

  answered(status) {
    const back = this.failures >= FAILURES_UNTIL_LOST;
    this.failures = 0;
    this.status = status;
    this.answeredAt = this.now();
    this.listener.told();
    if (back) this.listener.back();
  }

  failed() {
    this.failures += 1;
    if (this.failures < FAILURES_UNTIL_LOST) return;
    const unknown = { code: null, text: null, executionTime: null };
    this.status = { ...(this.status ?? unknown), connected: false };
    this.listener.told();
  }
}
