"use strict";
// The page: files in, a card for each, a worker at a time. What the archives are made of stays in
// the worker (worker.js, velk.js); this draws and saves.

const $ = (selector, top = document) => top.querySelector(selector);
const kMagic = "VELK_V0.95a>";
const kLargeFile = 1 << 28; // bytes of an archive that does not go into a Blob, where it need not
const kStages = ["EOL", "FLT32", "DELTA", "LZP", "BWT", "ST", "RLE", "DCE"];
const kRows = 500; // as worker.js has it
const kDamaged = 5;

const waiting = []; // jobs, the first of which runs
let workerUrl;
let module; // as the first worker has compiled it

function make(tag, properties = {}, ...children) {
  const { color, ...rest } = properties;
  const element = Object.assign(document.createElement(tag), rest);
  if (color) element.style.setProperty("--color", `var(--${color})`);
  element.append(...children);
  return element;
}

const number = (n) => n.toLocaleString("en");
const plural = (n, what) => `${number(n)} ${what}${n === 1 ? "" : "s"}`;
const percent = (part, whole) => (whole === 0 ? "" : `${((100 * part) / whole).toFixed(2)}%`);
const hex = (crc) => crc.toString(16).padStart(8, "0");

// ---- Blocks, as bars

// A stage that did something; the EOL filter's trailer 1 is of a block in which it found no text.
const isApplied = ({ name, trailer }) => trailer >= (name === "EOL" ? 2 : 1);

function describe({ coded, original, form, stages }) {
  const parts = stages.filter(isApplied).map(({ name, before, after }) => {
    const saved = before - after;
    return saved > 0 ? `${name} saves ${percent(saved, original)}` : name;
  });
  const sizes = `${number(original)} bytes to ${number(coded)}, ${percent(coded, original)}`;
  return [sizes, ...(form === "fallback" ? ["fallback"] : []), ...parts].join(", ");
}

function figures(title, block) {
  const rows = block.stages.map(({ name, before, after, trailer }) =>
    make("tr", { className: isApplied({ name, trailer }) ? "" : "off" },
      make("th", { scope: "row" }, make("i", { color: name }), name),
      ...[number(before), number(after), trailer,
        before > after ? percent(before - after, block.original) : ""]
        .map((text) => make("td", {}, text))));
  const head = ["stage", "before", "after", "trailer", "saved"]
    .map((text) => make("th", { scope: "col" }, text));
  return make("table", {}, make("caption", {}, title),
    make("thead", {}, make("tr", {}, ...head)), make("tbody", {}, ...rows));
}

// The view of an archive: rows of an index, which fill as blocks are restored.
class View {
  constructor(card) {
    this.section = $(".view", card);
    this.list = $("ul", card);
    this.rows = [];
    this.most = 1;
    this.count = 0; // blocks restored
    this.expected = 0;
    this.total = { coded: 0, original: 0, stages: kStages.map((name) =>
      ({ name, before: 0, after: 0, trailer: 0 })) };
    $(".legend", card).append(...["record", ...kStages].map((name) =>
      make("span", {}, make("i", { color: name }), name === "record" ? "archive" : name)));
    this.list.onkeydown = (event) => this.onKey(event);
    this.list.onfocus = () => this.choose(0);
    this.list.onblur = this.list.onpointerleave = () => this.showSum();
  }

  row(size) {
    const i = this.rows.length;
    const bar = make("div", { className: "bar" });
    const item = make("li", { id: `block-${View.made++}`, title: "" }, make("span", {}, i + 1),
      make("div", {}, bar), make("span", {}, "…"));
    item.setAttribute("role", "option");
    item.setAttribute("aria-selected", "false");
    item.onpointerenter = () => this.choose(i);
    item.setAttribute("aria-label", `block ${i + 1}, ${number(size)} bytes`);
    this.rows.push({ item, bar, size });
    this.list.append(item);
    this.section.hidden = false;
    if (size > this.most) this.rescale(size);
    else bar.style.width = percent(size, this.most);
  }

  rescale(most) {
    this.most = most;
    for (const { bar, size } of this.rows) bar.style.width = percent(size, most);
  }

  open({ blocks, blockCount }) {
    this.expected = blockCount;
    for (const { size } of blocks) this.row(size);
    this.showRest(blockCount);
  }

  showRest(count) {
    const rest = $(".more", this.section);
    rest.hidden = count <= kRows;
    rest.textContent =
      `and ${plural(count - kRows, "block")} more, which the sums count; velkinfo list shows them`;
  }

  add(block) {
    const i = this.count++;
    this.sum(block);
    if (i >= kRows) return this.expected ? undefined : this.showRest(this.count);
    if (i === this.rows.length) this.row(block.original);
    const row = this.rows[i];
    row.block = block;
    row.item.lastChild.textContent = percent(block.coded, block.original);
    row.item.title = `Block ${i + 1}: ${describe(block)}`;
    row.item.setAttribute("aria-label", `block ${i + 1} at offset ${number(block.offset)}: ${describe(block)}`);
    // From the record on the left to the original on the right, what the stages took off; a line
    // for those that only prepare.
    const saved = block.stages.filter(isApplied).reverse().map(({ name, before, after }) => {
      const part = make("i", { color: name });
      part.style.flex = `${Math.max(0, before - after)} 0 2px`;
      return part;
    });
    const record = make("i", { color: "record" });
    record.style.flex = `${block.coded} 0 2px`;
    row.bar.replaceChildren(record, ...saved);
    if (this.chosen === i) this.choose(i);
  }

  sum({ coded, original, stages }) {
    this.total.coded += coded;
    this.total.original += original;
    let after = original;
    this.total.stages.forEach((sum, i) => {
      sum.before += after;
      after = stages[i]?.after ?? after; // a fallback undid the rest
      sum.after += after;
      sum.trailer = Math.max(sum.trailer, stages[i]?.trailer ?? 0);
    });
  }

  damage(i) {
    if (i === this.rows.length && i < kRows) this.row(this.most);
    const row = this.rows[i];
    if (row === undefined) return;
    row.item.className = "bad";
    row.item.lastChild.textContent = "damaged";
    row.item.title = `Block ${i + 1} is damaged`;
    row.item.setAttribute("aria-label", `block ${i + 1} is damaged`);
  }

  showSum() {
    this.rows[this.chosen]?.item.setAttribute("aria-selected", "false");
    this.chosen = undefined;
    this.list.removeAttribute("aria-activedescendant");
    const { coded, original } = this.total;
    const title = `${plural(this.count, "block")} restored, ${number(original)} bytes to ` +
      `${number(coded)}, ${percent(coded, original)}`;
    $(".figures", this.section).replaceChildren(figures(title, this.total));
  }

  choose(i) {
    i = Math.max(0, Math.min(i, this.rows.length - 1));
    this.rows[this.chosen]?.item.setAttribute("aria-selected", "false");
    this.chosen = i;
    const { item, block, size } = this.rows[i];
    item.setAttribute("aria-selected", "true");
    item.scrollIntoView({ block: "nearest" });
    this.list.setAttribute("aria-activedescendant", item.id);
    const title = block
      ? `Block ${i + 1} at offset ${number(block.offset)}: ${number(block.original)} bytes to ` +
        `${number(block.coded)}, ${percent(block.coded, block.original)}` +
        (block.form === "fallback" ? ", fallback" : "")
      : `Block ${i + 1}, ${number(size)} bytes`;
    $(".figures", this.section).replaceChildren(
      block ? figures(title, block) : make("p", {}, title));
  }

  onKey(event) {
    const at = this.chosen ?? -1, last = this.rows.length - 1;
    const to = { ArrowDown: at + 1, ArrowUp: at - 1, PageDown: at + 10, PageUp: at - 10, Home: 0,
      End: last }[event.key];
    if (to === undefined) return;
    event.preventDefault();
    this.choose(to);
  }
}
View.made = 0;

// ---- Where the output goes

function blobSink() {
  const parts = []; // Blobs, which the browser may keep on the disk
  return {
    write: (bytes) => void parts.push(new Blob([bytes])),
    // Of no type, it would get a suffix by its content.
    end: () => URL.createObjectURL(new Blob(parts, { type: "application/octet-stream" })),
    abort: () => void (parts.length = 0),
  };
}

async function fileSink(name) {
  const handle = await showSaveFilePicker({ suggestedName: name });
  const file = await handle.createWritable();
  return {
    name: handle.name,
    write: (bytes) => file.write(bytes),
    end: () => file.close().then(() => null),
    abort: () => file.abort().catch(() => {}),
  };
}

const isDirect = (job) =>
  "showSaveFilePicker" in window && ($("#direct").checked || job.file.size > kLargeFile);

// ---- Jobs

function say(job, text, kind = "") {
  const state = $(".state", job.card);
  state.className = `state ${kind}`;
  state.textContent = text;
}

function offer(job, ...buttons) {
  $(".buttons", job.card).replaceChildren(...buttons);
}

function button(text, onclick, className = "") {
  return make("button", { type: "button", onclick, className }, text);
}

const closing = (job) => button("Close", () => {
  if (job.url) URL.revokeObjectURL(job.url);
  job.card.remove();
  $("#files").focus();
});

async function addFile(file) {
  const start = String.fromCharCode(...new Uint8Array(await file.slice(0, kMagic.length).arrayBuffer()));
  const isArchive = /\.velk$/i.test(file.name) || start === kMagic;
  const card = $("#job").content.cloneNode(true).firstElementChild;
  const name = !isArchive ? `${file.name}.velk`
    : /.\.velk$/i.test(file.name) ? file.name.slice(0, -5) : `${file.name}.original`;
  const job = { file, card, name, mode: isArchive ? "restore" : "compress",
    level: Number($("#level").value) };
  $("h2", card).textContent = `${file.name}, ${plural(file.size, "byte")}`;
  $("#jobs").append(card);
  if (!isDirect(job)) return queue(job, blobSink());
  say(job, "Waits for a name.");
  offer(job, button(isArchive ? "Restore to a file…" : "Compress to a file…",
    () => queueDirect(job), "first"), closing(job));
}

async function queueDirect(job) {
  try {
    queue(job, await fileSink(job.name));
  } catch (error) {
    if (error.name !== "AbortError") say(job, `can't be written: ${error.message}`, "fault");
  }
}

function queue(job, sink) {
  job.sink = sink;
  waiting.push(job);
  say(job, "Waits for the files before it.");
  offer(job, button("Cancel", () => end(job, { fault: { text: "cancelled" } })));
  if (waiting.length === 1) run(job);
}

function run(job) {
  const progress = $("progress", job.card);
  say(job, { restore: "Restoring…", compress: "Compressing…", salvage: "Looking…" }[job.mode]);
  progress.hidden = false;
  progress.removeAttribute("value");
  progress.setAttribute("aria-label", `Progress of ${job.file.name}`);
  if (job.mode === "restore") job.view = new View(job.card);
  job.worker = new Worker(workerUrl);
  job.worker.onerror = (event) => end(job, { fault: { text: event.message } });
  job.worker.onmessage = ({ data }) => hear(job, data).catch((error) =>
    end(job, { fault: { text: `can't be written: ${error.message}` } }));
  const { mode, file, level } = job;
  job.worker.postMessage({ mode, file, level, module });
}

async function hear(job, data) {
  if (data.type === "bytes") {
    await job.sink.write(data.bytes);
    job.worker.postMessage("taken");
  } else if (data.type === "progress") {
    const done = job.mode === "compress" ? data.size : data.archiveSize;
    $("progress", job.card).value = job.file.size === 0 ? 1 : done / job.file.size;
  } else if (data.type === "module") {
    module = data.module;
  } else if (data.type === "opened") {
    job.view?.open(data);
  } else if (data.type === "block") {
    job.view?.add(data.block);
  } else {
    if (data.result) job.url = await job.sink.end();
    end(job, data);
  }
}

function end(job, { result, fault }) {
  const at = waiting.indexOf(job);
  if (at === -1) return; // cancelled before
  waiting.splice(at, 1);
  job.worker?.terminate();
  $("progress", job.card).hidden = true;
  if (fault) fail(job, fault);
  else finish(job, result);
  job.view?.showSum();
  if (at === 0 && waiting.length !== 0) run(waiting[0]);
}

function finish(job, result) {
  say(job, { restore: restored, compress: packed, salvage: salvaged }[job.mode](job, result),
    result.warning ? "warn" : "");
  const save = job.url
    ? [make("a", { className: "save", href: job.url, download: job.name }, `Save ${job.name}`)]
    : [];
  offer(job, ...save, closing(job));
}

const written = ({ sink }) => (sink.name ? `Written to ${sink.name}. ` : "");

function restored(job, { size, crc, blocks, warning }) {
  return (warning ? `${warning}. ` : "") + written(job) +
    `Restored: ${plural(size, "byte")} in ${plural(blocks, "block")}, CRC-32 ${hex(crc)}.`;
}

function packed(job, { size, archiveSize }) {
  return written(job) + `Compressed at level ${job.level}: ${number(size)} to ${plural(archiveSize, "byte")}` +
    (size === 0 ? "." : `, ${percent(archiveSize, size)}.`);
}

function salvaged(job, { size, blocks, lost, early }) {
  const most = 8;
  const text = written(job) + `${plural(blocks, "intact block")}, ${plural(size, "byte")}`;
  if (early) return `${text}, before the damage; 'velkinfo salvage' may find more.`;
  const places = lost.slice(0, most).map(({ number: n, from, to }) =>
    `block ${n}, bytes ${number(from)} to ${number(to - 1)} of the original`);
  if (lost.length > most) places.push(`${lost.length - most} more`);
  return `${text}. Lost, and left out: ${places.join("; ") || "nothing"}.`;
}

function fail(job, { text, status, told }) {
  job.sink.abort();
  say(job, text, "fault");
  if (told?.damagedPart === 2) job.view?.damage(told.damagedBlock);
  const intact = button("Save what is intact", () => {
    const next = { ...job, mode: "salvage", view: null, url: null };
    if (isDirect(next)) queueDirect(next);
    else queue(next, blobSink());
  }, "first");
  offer(job, ...(status === kDamaged && job.mode === "restore" ? [intact] : []), closing(job));
}

// ---- The start

// Whether so much can be had for a compression at the highest levels.
function hasMemory(mebibytes) {
  try {
    return new WebAssembly.Memory({ initial: 16 * mebibytes, maximum: 16 * mebibytes }) !== null;
  } catch {
    return false;
  }
}

async function addAll(files) {
  for (const file of files) await addFile(file);
}

function start() {
  const lacking = ["DecompressionStream", "WebAssembly", "Worker"].find((name) => !(name in window));
  if (lacking) {
    $("#old").hidden = false;
    $("#old span").textContent = lacking;
    $("#form").hidden = true;
    return;
  }
  workerUrl = URL.createObjectURL(new Blob([$("#worker").textContent]));
  for (let level = 1; level <= (hasMemory(256) ? 9 : 7); ++level) {
    $("#level").append(make("option", { value: level, selected: level === 5 }, level));
  }
  $("#direct-line").hidden = !("showSaveFilePicker" in window);
  const files = $("#files"), drop = $("#drop");
  files.onchange = () => {
    addAll([...files.files]);
    files.value = "";
  };
  $("#form").onsubmit = (event) => event.preventDefault();
  const over = (event) => {
    event.preventDefault();
    drop.classList.toggle("over", event.type === "dragover");
  };
  document.ondragover = document.ondragleave = over;
  document.ondrop = (event) => {
    over(event);
    addAll([...event.dataTransfer.files]);
  };
}

start();
