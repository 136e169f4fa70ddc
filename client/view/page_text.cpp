// The page's fixed text and style. The script adds the run's data as text nodes.
#include "client/view/page.h"

const char kPageHead[] = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; img-src data:">
<link rel="icon" href="data:,">
<title>run</title>
)html";

const char kPageTail[] = R"html(
</head>
<body>
<header><h1 id="name"></h1><dl id="about"></dl></header>
<main>
<section>
<h2>Timeline</h2>
<p class="help">Drag to select; or, with the timeline focused: arrow keys move, + and - zoom, Shift and arrows
select, Enter zooms to the selection, Escape shows all.</p>
<div id="keys" class="legend"></div>
<div id="timeline" tabindex="0" role="application" aria-label="Timeline of the run"
 aria-describedby="range"></div>
<p class="tools">
<button id="in" type="button">Zoom in</button>
<button id="out" type="button">Zoom out</button>
<button id="zoom" type="button">To selection</button>
<button id="all" type="button">All</button>
<span id="range" aria-live="polite"></span></p>
<p class="tools"><input id="command" readonly aria-label="Command that lists the selection">
<button id="copy" type="button">Copy</button></p>
</section>
<section><h2>Marks</h2><div id="marks"></div></section>
<section><h2>Crashes</h2><div id="crashes"></div></section>
<section class="half"><h2>Tags</h2><div id="tags"></div></section>
<section class="half"><h2>Pids</h2><div id="pids"></div></section>
<section><h2>Files</h2><ul id="findings"></ul><div id="files"></div></section>
</main>
)html";

const char kPageStyle[] = R"css(
:root { color-scheme: light dark; --back: #fff; --text: #1b1f24; --dim: #59636e; --line: #d1d9e0;
 --bar: #7a9cc6; --warn: #b07400; --error: #c02a2a; --pick: rgba(40, 110, 220, .22); --lane: #f3f5f8; }
@media (prefers-color-scheme: dark) { :root { --back: #14181d; --text: #e6e9ed; --dim: #98a3af;
 --line: #3a424c; --bar: #5c7fae; --warn: #dd9f2c; --error: #f06a63; --pick: rgba(110, 165, 255, .28);
 --lane: #1d232a; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 1240px; padding: 12px; background: var(--back); color: var(--text);
 font: 15px/1.45 system-ui, sans-serif; }
h1 { font-size: 22px; margin: 0 0 6px; overflow-wrap: anywhere; }
h2 { font-size: 17px; margin: 22px 0 6px; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: 2px 14px; margin: 0; }
dt, .help, .axis { color: var(--dim); }
dd { margin: 0; overflow-wrap: anywhere; }
.help { margin: 0 0 6px; font-size: 13px; }
#timeline { position: relative; user-select: none; touch-action: pan-y; cursor: crosshair;
 outline-offset: 3px; }
.lane { display: flex; margin-bottom: 3px; }
.lane > span { flex: 0 0 72px; font-size: 13px; align-self: center; }
.lane > div { flex: 1 1 0; min-width: 0; position: relative; height: 34px; background: var(--lane);
 overflow: hidden; }
.lane.marks > div { height: 44px; }
canvas { display: block; width: 100%; height: 100%; }
.mark { position: absolute; top: 4px; width: 16px; height: 36px; margin-left: -8px; padding: 0 0 20px; border: 0;
 background: none; font-size: 12px; font-weight: 700; line-height: 16px; color: var(--error); cursor: pointer; }
.mark::after { content: ""; position: absolute; left: 7px; top: 16px; width: 2px; height: 20px;
 background: currentColor; }
.mark.calm { color: var(--dim); } .mark.odd { color: var(--warn); }
.hole { position: absolute; top: 0; bottom: 0; min-width: 2px; background: repeating-linear-gradient(45deg,
 var(--warn) 0 2px, transparent 2px 6px); }
.axis { display: flex; justify-content: space-between; margin-left: 72px; font-size: 12px; }
#pick { position: absolute; top: 0; bottom: 0; background: var(--pick); pointer-events: none; }
.tools { display: flex; flex-wrap: wrap; gap: 6px; margin: 6px 0; align-items: center; }
button { font: inherit; }
#command { flex: 1 1 200px; min-width: 0; font: 13px ui-monospace, monospace; padding: 4px; }
.legend { display: flex; flex-wrap: wrap; gap: 2px 14px; font-size: 13px; margin-bottom: 6px; }
.swatch { display: inline-block; width: 10px; height: 10px; margin-right: 4px; }
.scroll { overflow-x: auto; max-height: 420px; overflow-y: auto; }
table { border-collapse: collapse; font-size: 13px; width: 100%; }
th, td { text-align: left; padding: 2px 10px 2px 0; border-bottom: 1px solid var(--line); vertical-align: top;
 overflow-wrap: anywhere; }
.number { text-align: right; white-space: nowrap; }
.time { white-space: nowrap; }
pre { background: var(--lane); padding: 6px; overflow-x: auto; font: 12px ui-monospace, monospace; margin: 6px 0; }
@media (min-width: 800px) { .half { display: inline-block; width: 49%; vertical-align: top; } }
@media (max-width: 500px) { .lane > span { flex-basis: 52px; } .axis { margin-left: 52px; }
 .axis span:nth-child(even) { display: none; } }
)css";
