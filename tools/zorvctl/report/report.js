// The script of `zorvctl report`. It reads the records out of the page and draws them. Texts of the records may be
// hostile: they become text nodes and nothing else.
//
// Times of samples are the device's own clock without a zone. They are handled as if they were UTC, so that neither the
// reader's zone nor a change of summer time moves them.
(() => {
"use strict";
const report = JSON.parse(document.getElementById("records").textContent);
const byId = (id) => document.getElementById(id);
const kDay = 86400, kMostRows = 500, kTables = ["Thermal", "Battery_Power", "UserBehavior"];

// ---- Elements and texts

// An element with text or elements in it.
function make(name, inside = [], properties = {}) {
    const element = Object.assign(document.createElement(name), properties);
    element.append(...[inside].flat());
    return element;
}

const pad = (number) => String(number).padStart(2, "0");
const dateOf = (time) => new Date(time * 1000).toISOString().slice(0, 10);
const stamp = (time) => new Date(time * 1000).toISOString().slice(0, 16).replace("T", " ");
const kMonths = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];
const format = new Intl.NumberFormat("en", {maximumFractionDigits: 1});
const shown = (value, unit = "") => value == null ? "–" : format.format(value) + (unit && " " + unit);
const counted = (count, one) => format.format(count) + " " + one + (count === 1 ? "" : "s");
const note = (text) => make("p", text, {className: "note"});

// A table of texts and numbers, at most kMostRows of them. `groups` stand above as many equal shares of all columns but
// the first.
function table(heads, rows, caption, groups = []) {
    if (rows.length === 0) {
        return [note("None.")];
    }
    const cell = (value) => typeof value === "number" ? make("td", shown(value), {className: "number"})
        : value instanceof Node ? make("td", value) : make("td", value == null ? "–" : String(value));
    const body = rows.slice(0, kMostRows).map(([first, ...rest]) =>
        make("tr", [make("th", String(first), {scope: "row", className: /^\d{4}-/.test(first) ? "day" : ""}),
            ...rest.map(cell)]));
    const colSpan = (heads.length - 1) / groups.length;
    const above = groups.map((group) => make("th", group, {scope: "colgroup", colSpan}));
    const made = make("table", [make("caption", caption, {className: "hidden"}),
        make("thead", [groups.length ? make("tr", [make("td"), ...above]) : [],
            make("tr", heads.map((head) => make("th", head, {scope: "col"})))].flat()), make("tbody", body)]);
    const wide = make("div", made, {className: "wide", tabIndex: 0, role: "region"});
    wide.setAttribute("aria-label", caption);
    return rows.length > kMostRows ? [note(`The newest ${kMostRows} of ${format.format(rows.length)}.`), wide] : [wide];
}

// A table that is made when it is opened.
function details(summary, makeInside) {
    const element = make("details", make("summary", summary));
    element.addEventListener("toggle", () => element.childElementCount > 1 || element.append(...makeInside()));
    return element;
}

function fill(id, ...inside) {
    const section = byId(id);
    section.replaceChildren(section.querySelector("h2"), ...inside.flat());
}

// ---- Values

// What the hardware library answers for a value that it cannot read; 0 is one too where the row has nothing else.
const isThere = (value) => typeof value === "number" && value !== -1 && value !== 4294967295;
const reading = (value) => isThere(value) && value !== 0 ? value : null;

// The numbers of a text such as "4071, 4066, 4061".
function list(value) {
    return value == null ? [] : String(value).split(/[,; ]+/, 8).map((part) => {
        const number = Number(part);
        return part !== "" && Number.isFinite(number) && isThere(number) ? number : null;
    });
}

const columns = new Map(report.columns.map((each) => [each.column, each]));
const meaning = (name) => columns.get(name)?.meaning || name;
const ofAll = (rows, name) => rows[name] ?? rows.t.map(() => null);

// The lines of a chart: their labels, and a column of values for each. `names` are columns of the table.
const plain = (...names) => (rows) => names.map((name) => [meaning(name), ofAll(rows, name).map(reading)]);
// Of a column in which 0 is a value, as long as `witness`, which cannot be 0, was read too.
const withZero = (name, witness) => (rows) => {
    const others = ofAll(rows, witness);
    const value = (each, i) => isThere(each) && reading(others[i]) !== null ? each : null;
    return [[meaning(name), ofAll(rows, name).map(value)]];
};
const lists = (name, label, value = (number) => number) => (rows) => {
    const all = ofAll(rows, name).map(list), width = Math.max(0, ...new Set(all.map((each) => each.length)));
    return Array.from({length: width}, (_, at) => [`${label} ${at + 1}`, all.map((each) => value(each[at] ?? null))]);
};
const together = (...parts) => (rows, device) => parts.flatMap((part) => part(rows, device));

function design(rows, device) {
    const known = (device.SysInfo?.battery_design_capacity ?? []).map(reading).filter((each) => each !== null);
    return known.length ? [[meaning("battery_design_capacity"), rows.t.map(() => known.at(-1)), true]] : [];
}

function charge(rows) {
    const fulls = ofAll(rows, "full_capacity");
    return [["charge", ofAll(rows, "current_capacity").map((value, i) => {
        const full = reading(fulls[i]);
        return full && isThere(value) && value >= 0 ? value * 100 / full : null;
    })]];
}

function spread(rows) {
    return [["highest cell above the lowest", ofAll(rows, "cellvoltages").map((text) => {
        const cells = list(text).map(reading);
        return cells.length > 1 && !cells.includes(null) ? Math.max(...cells) - Math.min(...cells) : null;
    })]];
}

const fromZero = (_, min, max) => [0, max > 0 ? max * 1.05 : 1];
const kBattery = "Battery_Power";
const kCharts = [
    {section: "battery", title: "Capacity", unit: "mWh", of: kBattery, range: fromZero,
        lines: together(plain("full_capacity", "current_capacity"), design)},
    {section: "battery", title: "Charge", unit: "%", of: kBattery, range: [0, 105], lines: charge},
    {section: "battery", title: "Charge cycles", unit: "", of: kBattery,
        lines: withZero("cyclecount", "full_capacity")},
    {section: "battery", title: "Voltage of the cells", unit: "mV", of: kBattery,
        lines: lists("cellvoltages", "cell", reading)},
    {section: "battery", title: "Spread of the cells", unit: "mV", of: kBattery, range: fromZero, lines: spread},
    {section: "battery", title: "Current", unit: "mA", of: kBattery, lines: withZero("current", "full_capacity")},
    {section: "temperatures", title: "Processor, graphics, board and disks", unit: "°C", of: "Thermal",
        lines: together(plain("cpu_temp", "gpu_temp", "board_temp"), lists("disk_temp", "disk", reading))},
    {section: "temperatures", title: "Voltage regulator and graphics memory", unit: "°C", of: "Thermal",
        lines: plain("vr_thermal_ch2", "vr_thermal_ch3")},
    {section: "temperatures", title: "Battery and charger", unit: "°C", of: kBattery,
        lines: plain("temperature", "battery_connector", "charger_choke", "acfet", "vr_thermal_ch1")},
    {section: "load", title: "Processor load", unit: "%", of: "Thermal", range: [0, 105],
        lines: withZero("cpu_usage", "cpu_temp")},
    {section: "load", title: "Processor power", unit: "W", of: "Thermal", range: fromZero,
        lines: together(withZero("package_power", "cpu_temp"), plain("max_pl1", "max_pl2"))},
    {section: "load", title: "Fans", unit: "rpm", of: "Thermal", range: fromZero, lines: lists("rpm_fans", "fan")},
];

// ---- Charts
//
// uPlot draws the lowest and the highest value of each column of pixels, so that many rows hide no extreme.

const palette = getComputedStyle(document.documentElement);
const colour = (name) => palette.getPropertyValue(name).trim();
let plots = [], whole = [0, 1];

// Breaks the lines where much more time passes than usual, and makes every chart as long as all records.
function withGaps(times, lines) {
    const steps = times.slice(1).map((time, i) => time - times[i]).sort((a, b) => a - b);
    const most = Math.max(4 * (steps[steps.length >> 1] ?? 0), 3600);
    const x = [whole[0]], ys = lines.map(() => [null]);
    times.forEach((time, i) => {
        if (i > 0 && time - times[i - 1] > most) {
            x.push(times[i - 1] + 1);
            ys.forEach((y) => y.push(null));
        }
        x.push(time);
        ys.forEach((y, line) => y.push(lines[line][1][i]));
    });
    x.push(whole[1]);
    ys.forEach((y) => y.push(null));
    return [x, ...ys];
}

function timeLabels(_, ticks, axis, space, step) {
    return ticks.map((tick) => {
        const date = new Date(tick * 1000), day = date.getUTCDate() + " " + kMonths[date.getUTCMonth()];
        return step >= 28 * kDay ? kMonths[date.getUTCMonth()] + " " + date.getUTCFullYear()
            : step >= kDay || date.getUTCHours() + date.getUTCMinutes() === 0 ? day
                : pad(date.getUTCHours()) + ":" + pad(date.getUTCMinutes());
    });
}

function draw(figure, height, data, series, more) {
    const axis = {stroke: () => colour("--pale"), grid: {stroke: () => colour("--rule"), width: 1},
        ticks: {stroke: () => colour("--rule"), width: 1}, font: "12px system-ui, sans-serif"};
    const place = make("div");
    figure.append(place);
    const plot = new uPlot({
        width: place.clientWidth,
        height,
        series: [{label: "time", value: (_, time, line, at) => at == null ? "newest" : stamp(time)}, ...series],
        tzDate: (time) => uPlot.tzDate(new Date(time * 1000), "Etc/UTC"),
        cursor: {sync: {key: "time"}, y: false},
        legend: {markers: {stroke: (_, line) => `var(--line-${(line - 1) % 6 + 1})`}},
        ...more,
        axes: [{...axis, values: timeLabels, space: 70}, {...axis, size: 58, ...more.axis}],
        scales: {x: {time: true}, y: more.range ? {range: more.range} : {}},
        hooks: {setScale: [(u, scale) => scale === "x" && u === plots[0] && showRange(u.scales.x)], ...more.hooks},
    }, data, place);
    plot.root.querySelector("canvas").setAttribute("role", "img");
    for (const label of plot.root.querySelectorAll(".u-series th")) {  // a click hides or shows the line
        label.tabIndex = 0;
        label.setAttribute("role", "button");
        label.addEventListener("keydown", (event) => (event.key === "Enter" || event.key === " ") &&
            (event.preventDefault(), label.click()));
    }
    plots.push(plot);
    return plot;
}

function showRange({min, max}) {
    byId("from").value = dateOf(Math.max(min, 0));
    byId("to").value = dateOf(Math.max(max - 1, 0));
}

function setRange(min, max) {
    plots.forEach((plot) => plot.setScale("x", {min, max}));
}

// By day, or by month where there are many days: how many values, lowest, mean and highest.
function summaries(times, lines, unit) {
    const days = new Set(times.map((time) => Math.floor(time / kDay))).size;
    const group = (time) => dateOf(time).slice(0, days > 92 ? 7 : 10), groups = new Map();
    times.forEach((time, i) => {
        const name = group(time);
        groups.has(name) || groups.set(name, lines.map(() => ({count: 0, sum: 0, min: Infinity, max: -Infinity})));
        groups.get(name).forEach((of, line) => {
            const value = lines[line][1][i];
            if (value !== null) {
                of.count += 1, of.sum += value;
                of.min = Math.min(of.min, value), of.max = Math.max(of.max, value);
            }
        });
    });
    const rows = [...groups].reverse().map(([name, each]) => [name, ...each.flatMap((of) =>
        of.count ? [of.count, of.min, of.sum / of.count, of.max] : [0, null, null, null])]);
    const heads = ["values", ...["lowest", "mean", "highest"].map((head) => head + (unit && ", " + unit))];
    return [[days > 92 ? "month" : "day", ...lines.flatMap(() => heads)], rows];
}

function extremes(lines, unit) {
    return lines.map(([label, values]) => {
        let min = Infinity, max = -Infinity;
        values.forEach((value) => value === null || (min = Math.min(min, value), max = Math.max(max, value)));
        return min > max ? `${label}: no values` : `${label}: ${shown(min, unit)} to ${shown(max, unit)}`;
    }).join("; ");
}

function chart(kind, device) {
    const rows = device[kind.of], lines = rows ? kind.lines(rows, device) : [];
    const some = lines.filter(([, values]) => values.some((value) => value !== null));
    const figure = make("figure", make("figcaption", kind.title + (kind.unit && ` (${kind.unit})`)));
    byId(kind.section).append(figure);
    if (some.length === 0) {
        figure.append(note("No values."));
        return;
    }
    const plot = draw(figure, 220, withGaps(rows.t, some), some.map(([label, values, dashed], i) => ({
        label, stroke: () => colour(`--line-${i % 6 + 1}`), width: 2, dash: dashed && [6, 4],
        points: {fill: () => colour("--paper")},
        value: (_, value, line, at) => shown(at == null ? values.findLast((each) => each !== null) : value, kind.unit),
    })), {range: kind.range});
    plot.root.querySelector("canvas").setAttribute("aria-label", `${kind.title}. ${extremes(some, kind.unit)}.`);
    figure.append(details(`${kind.title} as a table`, () =>
        table(...summaries(rows.t, some, kind.unit), kind.title, some.map(([label]) => label))));
}

// ---- What lasted how long: power, lid and modes

// Trigger of an event: lane, and the state that it begins.
const kStates = {
    10: ["power", 1], 11: ["power", 0], 12: ["power", 0.5], 13: ["power", 1],
    14: ["mains", 1], 15: ["mains", 0], 16: ["lid", 1], 17: ["lid", 0], 18: ["quiet fan", 1], 19: ["quiet fan", 0],
    20: ["battery health", 1], 21: ["battery health", 0.8], 22: ["battery health", 0.6],
};
const kLanes = {
    power: {1: "on", 0.5: "suspended", 0: "off"}, mains: {1: "mains", 0: "battery"}, lid: {1: "open", 0: "closed"},
    "quiet fan": {1: "on", 0: "off"}, "battery health": {1: "100 %", 0.8: "80 %", 0.6: "60 %"},
};

function sightings(device) {
    const seen = [];
    const take = (rows, name, lane, state, witness) => rows?.[name]?.forEach((value, i) => {
        if (isThere(value) && reading(rows[witness]?.[i]) !== null) {
            seen.push([rows.t[i], lane, state(value)]);
        }
    });
    const either = (value) => value === 0 ? 0 : 1;
    take(device.Thermal, "ac_dc", "mains", either, "cpu_temp");
    take(device.Battery_Power, "ac_dc", "mains", either, "full_capacity");
    take(device.Battery_Power, "lid_status", "lid", either, "full_capacity");
    take(device.Battery_Power, "quiet_fan_status", "quiet fan", either, "full_capacity");
    take(device.Battery_Power, "current_batteryhealth_mode", "battery health", (mode) => mode / 100, "full_capacity");
    const events = device.UserBehavior;
    events?.t.forEach((time, i) => kStates[events.freq[i]] && seen.push([time, ...kStates[events.freq[i]]]));
    return seen.filter(([, lane, state]) => state in kLanes[lane]).sort((a, b) => a[0] - b[0]);
}

function timeline(device) {
    const seen = sightings(device), names = Object.keys(kLanes), events = device.UserBehavior;
    const inside = [];
    if (seen.length > 0) {
        const figure = make("figure", make("figcaption", "What lasted how long"));
        byId("timeline").append(figure);
        const x = [whole[0]], lanes = names.map(() => [null]);
        seen.forEach(([time, lane, state], i) => {
            if (time - (seen[i - 1]?.[0] ?? time) > 1.5 * kDay) {  // so long after the last sighting nothing is known
                x.push(seen[i - 1][0] + 1);
                lanes.forEach((each) => each.push(null));
            }
            x.push(time);
            lanes.forEach((each, at) => each.push(names[at] === lane ? state : each.at(-1)));
        });
        x.push(Math.max(whole[1], x.at(-1)));
        lanes.forEach((each) => each.push(each.at(-1)));
        const plot = draw(figure, 40 * names.length + 40, [x, ...lanes], names.map((name, i) => ({
            label: name, stroke: () => colour(`--line-${i + 1}`), paths: () => null, points: {show: false},
            value: (_, state, line, at) => kLanes[name][at == null ? lanes[i].at(-1) : state] ?? "–",
        })), {range: [0, names.length], hooks: {draw: [(u) => bars(u, lanes)]}, axis: {size: 110, grid: {show: false},
            splits: () => names.map((_, i) => names.length - i - 0.5), values: () => names}});
        plot.root.querySelector("canvas").setAttribute("aria-label",
            "Power, mains, lid, quiet fan and battery health over time; the table below names each change.");
        inside.push(note("Tall bars: on, mains, open. Low bars: off, battery, closed. Between: suspended; 60, 80 %."));
    }
    const rows = (events?.t ?? []).map((time, i) => [stamp(time), report.triggers[events.freq[i]] ?? events.freq[i]]);
    inside.push(rows.length ? details("Events as a table", () => table(["time", "event"], rows.reverse(), "Events"))
        : note("No events were recorded."));
    byId("timeline").append(...inside);
}

// A bar for each stretch of a state; stretches that share a pixel become one, as tall as the tallest.
function bars(u, lanes) {
    const {ctx, bbox, data: [x]} = u, height = bbox.height / lanes.length;
    ctx.save();
    ctx.beginPath();
    ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
    ctx.clip();
    lanes.forEach((states, lane) => {
        ctx.fillStyle = colour(`--line-${lane + 1}`);
        let from = 0, drawn = -Infinity;
        for (let i = 1; i <= x.length; ++i) {
            if (i < x.length && states[i] === states[from]) {
                continue;
            }
            const left = u.valToPos(x[from], "x", true), right = u.valToPos(x[Math.min(i, x.length - 1)], "x", true);
            if (states[from] !== null && right - drawn >= 1) {
                const tall = (0.08 + 0.62 * states[from]) * height;
                ctx.fillRect(left, bbox.top + (lane + 0.85) * height - tall, Math.max(right - left, 1), tall);
                drawn = right;
            }
            from = i;
        }
    });
    ctx.restore();
}

// ---- Sections of words and tables

function machine(device) {
    const rows = [["device", device.id]];
    for (const {table: of, column, unit} of report.columns) {
        const values = of === "SysInfo" && column !== "freq" && device.SysInfo?.[column] || [];
        const value = values.findLast((each) => each !== null && each !== "");
        if (value !== undefined) {
            rows.push([meaning(column), typeof value === "number" ? shown(value, unit) : value]);
        }
    }
    fill("machine", table(["fact", "value"], rows, "Machine"));
}

// The day of each sample and how many there are.
function days(device) {
    const counts = new Map();
    kTables.forEach((name) => device[name]?.t.forEach((time) => {
        const day = Math.floor(time / kDay);
        counts.set(day, (counts.get(day) ?? 0) + 1);
    }));
    return new Map([...counts].sort((a, b) => a[0] - b[0]));
}

function calendar(counts) {
    if (counts.size === 0) {
        fill("calendar", note("No samples."));
        return [];
    }
    const most = Math.max(1, ...new Set(counts.values()));
    const months = [...new Set([...counts.keys()].map((day) => dateOf(day * kDay).slice(0, 7)))];
    const cells = (month) => {
        const first = Date.parse(month + "-01") / 1000 / kDay, length = new Date(Date.parse(month + "-01"));
        length.setUTCMonth(length.getUTCMonth() + 1, 0);
        const all = Array.from({length: (first + 3) % 7}, () => make("td"));  // 1970 began on a Thursday
        for (let at = 0; at < length.getUTCDate(); ++at) {
            const count = counts.get(first + at) ?? 0;
            all.push(make("td", [String(at + 1), make("span", `: ${counted(count, "sample")}`, {className: "hidden"})],
                {className: "day-" + Math.ceil(count * 4 / most), title: counted(count, "sample")}));
        }
        return all;
    };
    const one = (month) => {
        const all = cells(month), weeks = [];
        while (all.length) {
            weeks.push(make("tr", all.splice(0, 7)));
        }
        const heads = ["Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"].map((day) => make("th", day, {scope: "col"}));
        return make("table", [make("caption", `${kMonths[month.slice(5) - 1]} ${month.slice(0, 4)}`),
            make("thead", make("tr", heads)), make("tbody", weeks)]);
    };
    const present = [...counts.keys()], gaps = present.slice(1).map((day, i) => [present[i] + 1, day - present[i] - 1])
        .filter(([, length]) => length > 0).sort((a, b) => b[1] - a[1]);
    const missing = gaps.reduce((sum, [, length]) => sum + length, 0);
    const text = missing === 0 ? "No day is without samples." : `Without samples: ${counted(missing, "day")} in ` +
        `${counted(gaps.length, "gap")}. A machine can pause for days between days of collecting.`;
    const gapTable = () => table(["first day without samples", "days"],
        gaps.map(([day, length]) => [dateOf(day * kDay), length]), "Gaps");
    fill("calendar", note(`${text} The fullest day has ${counted(most, "sample")}.`),
        make("div", months.slice(-36).map(one), {className: "months"}),
        missing ? details("Gaps as a table", gapTable) : []);
    return gaps;
}

function summary(device, counts, gaps) {
    const newest = (rows, name) => rows?.[name]?.findLast((value) => reading(value) !== null);
    const battery = device.Battery_Power, full = newest(battery, "full_capacity");
    const made = newest(device.SysInfo, "battery_design_capacity");
    const apart = battery && spread(battery)[0][1].findLast((value) => value !== null);
    const total = [...counts.values()].reduce((sum, count) => sum + count, 0), present = [...counts.keys()];
    let hottest = null;
    device.Thermal?.cpu_temp?.forEach((value, i) => {
        if (reading(value) !== null && value > (hottest?.[0] ?? -Infinity)) {
            hottest = [value, device.Thermal.t[i]];
        }
    });
    const tiles = [
        ["Battery", full && made ? shown(full * 100 / made, "%") : "–",
            full ? `${shown(full)} of ${shown(made, "mWh")} as designed` : ""],
        ["Charge cycles", shown(newest(battery, "cyclecount")), ""],
        ["Spread of the cells", shown(apart, "mV"), "at the newest sample"],
        ["Hottest processor", hottest ? shown(hottest[0], "°C") : "–", hottest ? stamp(hottest[1]) : ""],
        ["Samples and events", shown(total),
            present.length ? `${dateOf(present[0] * kDay)}\nto ${dateOf(present.at(-1) * kDay)}` : ""],
        ["Days with samples", shown(present.length), gaps.length ? `longest gap ${counted(gaps[0][1], "day")}` : ""],
    ];
    fill("summary", make("dl", tiles.map(([name, value, more]) =>
        make("div", [make("dt", name), make("dd", [value, make("small", more)])])), {className: "tiles"}));
}

function machineWide() {
    const none = (what) => note(`${what} are told of the tool's own machine; this report was made of files.`);
    const {settings, uploads, log} = report;
    fill("settings", !settings ? none("Settings") : settings.problem ? note(settings.problem) : [
        make("p", `Ruling: ${settings.file ?? "none"}; ${settings.why}. Server: ${settings.server}.`),
        settings.heldBack ? make("p", `Collecting and sending are held back: ${settings.heldBack}.`) : [],
        ...table(["setting", "value", "meaning", "next"], Object.entries(settings.keys).map(([name, key]) =>
            [name, key.value ?? "(absent)", key.meaning, key.nextInWords]), "Settings")]);
    fill("uploads", !uploads ? none("Uploads") : uploads.problem ? note(uploads.problem) : [
        make("p", `Next upload: ${uploads.nextUploadInWords}.`),
        ...table(["file", "kind", "age, days", "state", "size, bytes", "sent, %", "tries", "last answer"],
            uploads.files.reverse().map((file) => [file.file, file.type, file.ageInDays, file.state, file.size,
                file.percent, file.tries, file.answer]), "Uploads")]);
    const levels = {1: "error", 2: "warning", 4: "information"};
    fill("log", !log ? none("Events of the log") : log.problem ? note(log.problem) : [
        note(`The newest first. Times are those of this machine (${report.zone}).`),
        ...table(["time", "level", "text"], log.entries.reverse().map(([time, level, text]) =>
            [time, make("span", levels[level] ?? "other", {className: `log-${level}`}), text]), "Event log")]);
    fill("files", table(["file", "device", "state"], report.files, "Files"),
        report.withoutTime ? note(`${counted(report.withoutTime, "row")} without a readable time are left out.`) : []);
}

// ---- The page

function show(device) {
    plots.forEach((plot) => plot.destroy());
    plots = [];
    const counts = days(device), times = kTables.flatMap((name) => device[name]?.t ?? []);
    const first = times.reduce((min, time) => Math.min(min, time), times[0] ?? 0);
    whole = [first, times.reduce((max, time) => Math.max(max, time), first + 1)];
    for (const id of ["battery", "temperatures", "load", "timeline"]) {
        fill(id);
    }
    machine(device);
    const gaps = calendar(counts);
    summary(device, counts, gaps);
    kCharts.forEach((kind) => chart(kind, device));
    timeline(device);
    showRange({min: whole[0], max: whole[1]});
}

function start() {
    const {devices} = report, choice = byId("device");
    byId("about").textContent = `Made ${report.made} (${report.zone}) by zorvctl ${report.version}. ` +
        "Times of samples are the device's own clock, which says no time zone.";
    document.querySelectorAll("main h2").forEach((head) => byId("sections").append(
        make("li", make("a", head.textContent, {href: "#" + head.parentElement.id}))));
    machineWide();
    byId("choice").hidden = devices.length === 0;
    if (devices.length === 0) {
        for (const id of ["summary", "machine", "calendar", "battery", "temperatures", "load", "timeline"]) {
            fill(id, note("No samples."));
        }
        return;
    }
    byId("device-label").hidden = devices.length < 2;
    devices.forEach((device, i) => {
        const model = device.SysInfo?.model_name?.findLast((name) => name);
        choice.append(make("option", model ? `${model}, ${device.id}` : device.id, {value: i}));
    });
    choice.addEventListener("change", () => show(devices[choice.value]));
    const form = byId("choice");
    form.addEventListener("submit", (event) => event.preventDefault());
    form.addEventListener("reset", (event) => (event.preventDefault(), setRange(...whole)));
    for (const end of ["from", "to"]) {
        byId(end).addEventListener("change", () => {
            const from = Date.parse(byId("from").value) / 1000, to = Date.parse(byId("to").value) / 1000 + kDay;
            from < to && setRange(from, to);
        });
    }
    const fit = (fixed) => plots.forEach((plot) => plot.setSize(
        {width: fixed ?? plot.root.parentElement.clientWidth, height: plot.height}));
    const repaint = () => plots.forEach((plot) => plot.redraw(false));
    let width = innerWidth;
    addEventListener("resize", () => innerWidth !== width && (width = innerWidth, fit()));
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", repaint);
    const print = (begins) => {
        document.documentElement.classList.toggle("printing", begins);
        fit(begins ? 680 : undefined);
        repaint();
    };
    addEventListener("beforeprint", () => print(true));
    addEventListener("afterprint", () => print(false));
    show(devices[0]);
}

start();
})();
