// A headless Chromium, spoken to through a pipe: messages of its DevTools protocol that end in a
// zero byte each.
import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

export async function startBrowser() {
  const folder = mkdtempSync(join(tmpdir(), "velk-chromium-"));
  const args = ["--headless=new", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
    "--disable-dev-shm-usage", `--user-data-dir=${folder}/profile`, "about:blank"];
  const stdio = ["ignore", "ignore", "ignore", "pipe", "pipe"];
  const child = spawn("chromium", args, { stdio });
  const answers = new Map(), events = [];
  let text = "", count = 0;
  child.stdio[4].setEncoding("utf8").on("data", (part) => {
    const messages = (text + part).split("\0");
    text = messages.pop();
    for (const message of messages.map((m) => JSON.parse(m))) {
      if (message.id === undefined) events.push(message);
      else answers.get(message.id)(message);
    }
  });
  const send = async (method, params = {}, sessionId = undefined) => {
    const id = ++count;
    child.stdio[3].write(JSON.stringify({ id, method, params, sessionId }) + "\0");
    const { result, error } = await new Promise((resolve) => answers.set(id, resolve));
    if (error) throw new Error(`${method}: ${error.message}`);
    return result;
  };
  const { targetInfos } = await send("Target.getTargets");
  const { targetId } = targetInfos.find(({ type }) => type === "page");
  const { sessionId } = await send("Target.attachToTarget", { targetId, flatten: true });
  return {
    folder,
    events,
    all: send,
    page: (method, params) => send(method, params, sessionId),
    async evaluate(expression) {
      const params = { expression, awaitPromise: true, returnByValue: true };
      const { result, exceptionDetails } = await this.page("Runtime.evaluate", params);
      if (exceptionDetails) throw new Error(exceptionDetails.exception.description);
      return result.value;
    },
    async close() {
      await Promise.all([once(child, "exit"), send("Browser.close").catch(() => {})]);
      rmSync(folder, { recursive: true, force: true });
    },
  };
}
