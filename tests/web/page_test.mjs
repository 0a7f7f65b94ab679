// The page unvelk.html in a headless Chromium, opened as a file, beside velkz and velkinfo.
import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { basename, join } from "node:path";
import test, { after, before, beforeEach } from "node:test";
import { setTimeout as sleep } from "node:timers/promises";
import { startBrowser } from "./browser.mjs";
import { corpus, made, ROOT, run, velkz } from "./programs.mjs";

const PAGE = join(ROOT, "build/web/unvelk.html");
const original = made(40_000_000);
let browser, archive, inFolder;

async function until(isDone, what) {
  for (let i = 0; i < 1200; ++i, await sleep(50)) if (await isDone()) return;
  assert.fail(`waited too long for ${what}`);
}

before(async () => {
  browser = await startBrowser();
  inFolder = (name) => join(browser.folder, name);
  archive = velkz(original, "--size=40000000").stdout;
  writeFileSync(inFolder("large"), original);
  writeFileSync(inFolder("large.velk"), archive);
  for (const domain of ["Page", "DOM", "Network", "Log"]) await browser.page(`${domain}.enable`);
  const behavior = { behavior: "allow", downloadPath: browser.folder, eventsEnabled: true };
  await browser.all("Browser.setDownloadBehavior", behavior);
});
after(() => browser.close());

beforeEach(async () => {
  await browser.page("Page.navigate", { url: `file://${PAGE}` });
  await until(() => browser.evaluate("document.querySelectorAll('#level option').length === 9"), "page");
});

async function give(...files) {
  const { root } = await browser.page("DOM.getDocument");
  const found = { nodeId: root.nodeId, selector: "#files" };
  const { nodeId } = await browser.page("DOM.querySelector", found);
  await browser.page("DOM.setFileInputFiles", { nodeId, files });
}

// What the cards say, when nothing is under way in so many.
async function said(count) {
  const idle = `waiting.length === 0 && document.querySelectorAll("article").length === ${count}`;
  await until(() => browser.evaluate(idle), "the cards");
  return browser.evaluate("[...document.querySelectorAll('.state')].map((s) => s.textContent)");
}

async function press(key) {
  const keys = { key, code: key, windowsVirtualKeyCode: key === "Enter" ? 13 : 40 };
  await browser.page("Input.dispatchKeyEvent", { type: "rawKeyDown", ...keys });
  if (key === "Enter") await browser.page("Input.dispatchKeyEvent", { type: "char", text: "\r", ...keys });
  await browser.page("Input.dispatchKeyEvent", { type: "keyUp", ...keys });
}

async function activate(selector, i = 0) {
  await browser.evaluate(`document.querySelectorAll("${selector}")[${i}].focus()`);
  await press("Enter");
}

// What the link saves, by a name that begins so.
async function saved(link, name) {
  const done = () => browser.events.filter(({ method, params }) =>
    method === "Browser.downloadProgress" && params.state === "completed");
  const count = done().length;
  await activate(".save", link);
  await until(() => done().length > count, name);
  const { filePath } = done().pop().params;
  assert(basename(filePath).startsWith(name), filePath);
  return readFileSync(filePath);
}

test("the corpus, file after file", async () => {
  const archives = corpus();
  // A browser saves no more than ten files for a page unasked: what is under the links, instead.
  await browser.evaluate(`{ const made = URL.createObjectURL; globalThis.blobs = [];
    URL.createObjectURL = (blob) => (blobs.push(blob), made(blob)); }`);
  await give(...archives.map(({ path }) => path));
  const states = await said(archives.length);
  const restored = await browser.evaluate(`Promise.all(blobs.map(async (blob) =>
    [...new Uint8Array(await blob.arrayBuffer())].map((b) => String.fromCharCode(b)).join("")))`);
  for (const [i, { name, good, stdout, said }] of archives.entries()) {
    if (!good) {
      assert.equal(states[i], said, name);
      continue;
    }
    assert(states[i].startsWith(said) && states[i].includes("Restored: "), name);
    assert(stdout.equals(Buffer.from(restored.shift(), "latin1")), name);
  }
});

test("a large file there and back, its figures, by the keyboard", async () => {
  await give(inFolder("large"));
  await said(1);
  assert(archive.equals(await saved(0, "large")));
  await give(inFolder("large.velk"));
  await said(2);
  assert(original.equals(await saved(1, "large")));

  const told = JSON.parse(run("velkinfo", ["list", "--json", inFolder("large.velk")]).stdout);
  assert.equal(await browser.evaluate("document.querySelectorAll('li').length"), told.blocks.length);
  await browser.evaluate("document.querySelector('section:not([hidden]) ul').focus()");
  for (const { number, offset, coded, original, stages } of told.blocks) {
    const rows = await browser.evaluate("[...document.querySelectorAll('.figures tbody tr')].map((r) => r.innerText)");
    assert.deepEqual(rows.map((row) => row.replaceAll(",", "").split(/\s+/).slice(0, 4).join(" ")),
      stages.map(({ name, trailer, before, after }) => `${name} ${before} ${after} ${trailer}`));
    const title = await browser.evaluate("document.querySelector('section:not([hidden]) .figures').innerText.replaceAll(',', '')");
    assert(title.startsWith(`Block ${number} at offset ${offset}: ${original} bytes to ${coded}`), title);
    await press("ArrowDown");
  }
  for (const [scheme, width] of [["light", 800], ["dark", 800], ["light", 320], ["dark", 320]]) {
    const features = [{ name: "prefers-color-scheme", value: scheme }];
    await browser.page("Emulation.setEmulatedMedia", { features });
    const size = { width, height: 900, deviceScaleFactor: 1, mobile: true };
    await browser.page("Emulation.setDeviceMetricsOverride", size);
    assert(await browser.evaluate("document.scrollingElement.scrollWidth <= innerWidth"), `${width}`);
    const { data } = await browser.page("Page.captureScreenshot", { captureBeyondViewport: true });
    writeFileSync(join(ROOT, `build/web/${scheme}-${width}.png`), Buffer.from(data, "base64"));
  }
});

test("damage, what is intact, and a cancelled file between others", async () => {
  const { offset, size, start } = (({ blocks }) => ({ ...blocks[4], size: blocks[4].original,
    start: blocks.slice(0, 4).reduce((sum, block) => sum + block.original, 0) }))(
    JSON.parse(run("velkinfo", ["list", "--json", inFolder("large.velk")]).stdout));
  const damaged = Buffer.from(archive), path = inFolder("damaged.velk");
  damaged[offset + 100] ^= 1;
  writeFileSync(path, damaged);
  await give(inFolder("large.velk"), path, path);
  await until(() => browser.evaluate("document.querySelectorAll('li').length > 3"), "blocks");
  await activate("button");
  const states = await said(3);
  assert.equal(states[0], "cancelled");
  assert.equal(states[1], run("velkz", ["-t", path]).stderr.toString().trim().split(": ").pop());
  assert.equal(await browser.evaluate("document.querySelectorAll('li.bad').length"), 2);
  await activate("button.first");
  assert.match((await said(3))[1], /Lost, and left out: block 5, bytes/);
  const intact = Buffer.concat([original.subarray(0, start), original.subarray(start + size)]);
  assert(intact.equals(await saved(0, "damaged")));
  for (const end of [offset + 1000, 15]) { // with neither index nor all blocks
    writeFileSync(path, archive.subarray(0, end));
    await browser.evaluate("document.querySelectorAll('article').forEach((card) => card.remove())");
    await give(path);
    await said(1);
    await activate("button.first");
    assert.match((await said(1))[0], end === 15 ? /^0 intact blocks/ : /^4 intact blocks/);
  }
});

test("straight to a file, until it is full", async () => {
  await browser.evaluate(`globalThis.size = 0; globalThis.showSaveFilePicker = async () => ({
    name: "named", createWritable: async () => ({
      async write(bytes) { if ((size += bytes.length) > 5e7) throw new Error("full"); },
      close: async () => void (globalThis.finished = size), abort: async () => {} }) });
    document.querySelector("#direct").checked = true`);
  await give(inFolder("large.velk"), inFolder("large.velk"));
  assert.deepEqual(await said(2), ["Waits for a name.", "Waits for a name."]);
  await activate("button.first");
  await until(async () => (await said(2))[0] !== "Waits for a name.", "the first file");
  await activate("button.first");
  await until(async () => (await said(2))[1] !== "Waits for a name.", "the second file");
  const [first, second] = await said(2);
  assert.match(first, /^Written to named. Restored: 40,000,000 bytes/);
  assert.equal(second, "can't be written: full");
  assert.equal(await browser.evaluate("finished"), 40_000_000);
});

test("nothing is asked of a network, nor can be", async () => {
  const urls = browser.events.filter(({ method }) => method === "Network.requestWillBeSent")
    .map(({ params }) => params.request.url).filter((url) => !url.startsWith("blob:"));
  assert.deepEqual([...new Set(urls)], [`file://${PAGE}`]);
  assert.doesNotMatch(readFileSync(PAGE, "latin1"), /https?:/);
  assert.equal(await browser.evaluate(`new Promise((told) => {
    addEventListener("securitypolicyviolation", (event) => told(event.effectiveDirective));
    fetch("http://127.0.0.1:9/").catch(() => {});
  })`), "connect-src");
  assert(readFileSync(PAGE).length < 120_000);
  assert.deepEqual(browser.events.filter(({ method }) => method === "Log.entryAdded")
    .map(({ params }) => params.entry.text).filter((text) => !text.includes("127.0.0.1")), []);
});
