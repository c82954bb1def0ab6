#pragma once

namespace android {

/** How a report looks, in light and in dark. */
constexpr const char* kReportStyle = R"css(
:root{color-scheme:light dark;--page:#fff;--card:#f7f8fa;--ink:#1d2430;--soft:#505a69;
--grid:#d7dce3;--edge:#b4bcc8;--wave:#3d68b0;--rms:#7f9fd3;--peak:#1d3f7d;--cycle:#7d3cb5;
--callback:#a0690a;--mixing:#1f7a4d;--left:#1f7a4d;--right:#a0690a;--bad:#c8351f;--good:#dff0df;
--maybe:#fbf0c9;--poor:#fae0da;--fill:#dde8fb;--lead:#1d2430;--silent:#cfd6e0;--playing:#4f86cf;
--padded:#9fb4d3;--paused:#e6e9ee;--free:#a79fb8;--anchor:#7d3cb5;--silence:#2563c9}
@media (prefers-color-scheme:dark){:root{--page:#15181d;--card:#1b2027;--ink:#e2e6ec;
--soft:#a9b3c0;--grid:#2f363f;--edge:#4d5763;--wave:#7fa6ee;--rms:#3f5f96;--peak:#a9c4f5;
--cycle:#c58af0;--callback:#e0a63c;--mixing:#63c795;--left:#63c795;--right:#e0a63c;--bad:#ff7a63;
--good:#1d3324;--maybe:#3d3615;--poor:#43231d;--fill:#1c2b45;--lead:#f0f2f5;--silent:#3a4350;
--playing:#4c7fc8;--padded:#33486a;--paused:#262c34;--free:#6a6280;--anchor:#c58af0;
--silence:#6ea3ff}}
*{box-sizing:border-box}
body{margin:0 auto;padding:24px 28px 64px;max-width:1320px;background:var(--page);color:var(--ink);
font:15px/1.5 system-ui,"Segoe UI","DejaVu Sans",sans-serif}
h1{font-size:24px;line-height:1.25;margin:0 0 4px;overflow-wrap:anywhere}
h2{font-size:18px;margin:0;overflow-wrap:anywhere}
p{margin:4px 0}.detail{color:var(--soft);overflow-wrap:anywhere}
section{margin:20px 0;padding:14px 16px 10px;background:var(--card);border:1px solid var(--grid);
border-radius:8px}
.scroll{overflow-x:auto}
table{border-collapse:collapse;width:100%;font-variant-numeric:tabular-nums}
caption{text-align:left;font-weight:600;font-size:18px;padding-bottom:6px}
th{font-weight:600;font-size:13px;color:var(--soft);text-align:right;vertical-align:bottom;
padding:4px 10px;border-bottom:1px solid var(--edge)}
td{text-align:right;padding:4px 10px;border-bottom:1px solid var(--grid);white-space:nowrap}
th:first-child,td:first-child{text-align:left;padding-left:0;white-space:normal;
overflow-wrap:anywhere;min-width:9em}
tr:last-child td{border-bottom:0}
th.words,td.words{text-align:left}
.tall{max-height:520px;overflow-y:auto}
.tall th{position:sticky;top:0;background:var(--card)}
.notice{margin:14px 0;padding:10px 14px;border:1px solid var(--bad);border-left-width:6px;
border-radius:6px;background:var(--card)}
dl{display:flex;flex-wrap:wrap;gap:10px 28px;margin:8px 0 4px;font-variant-numeric:tabular-nums}
dt{font-size:13px;color:var(--soft)}dd{margin:0;font-size:16px;overflow-wrap:anywhere}
figure{margin:12px 0 0}
figcaption{font-size:13px;font-weight:600;padding-left:52px;margin-bottom:3px}
.plot{position:relative;margin-left:52px}
.plot svg{position:absolute;width:100%;height:100%;background:var(--page);
outline:1px solid var(--edge);overflow:hidden}
.ticks span{position:absolute;right:100%;margin-right:6px;transform:translateY(-50%);
font-size:12px;line-height:1;color:var(--soft);white-space:nowrap}
.over{position:absolute;inset:0;pointer-events:none}
.over .mark{position:absolute;margin:-5px 0 0 -5px;pointer-events:auto}
.axis{position:relative;height:20px;margin:4px 0 0 52px;font-size:12px;color:var(--soft)}
.axis span{position:absolute;transform:translateX(-50%);white-space:nowrap}
.timename{font-size:12px;color:var(--soft);text-align:center;margin-left:52px}
.key{padding-left:52px;font-size:13px;color:var(--soft)}
.key span{display:inline-block;margin-right:14px}
.swatch,.key .mark{display:inline-block;width:12px;height:12px;margin-right:6px;border-radius:2px;
vertical-align:-1px}
.mark{display:block;width:10px;height:10px}
svg *{vector-effect:non-scaling-stroke}
svg .grid{stroke:var(--grid);fill:none}
svg .zero{stroke:var(--edge);fill:none}
svg .bound{stroke:var(--soft);stroke-dasharray:6 4;fill:none}
svg .wave{fill:var(--wave);stroke:var(--wave);stroke-width:1}
svg .rms{fill:var(--rms)}
svg .peak{fill:none;stroke:var(--peak);stroke-width:1}
svg .walk{fill:none;stroke-width:2}
svg .target{fill:none;stroke-width:1;stroke-dasharray:4 3}
svg .left{stroke:var(--left)}svg .right{stroke:var(--right)}
svg .room{fill:var(--wave);stroke:var(--wave);stroke-width:1}
svg .faint{opacity:.35}
svg .blocks{fill:var(--wave);stroke:var(--wave);stroke-width:1.5}
svg .cycle{fill:var(--cycle);stroke:var(--cycle);stroke-width:4;stroke-opacity:.6}
svg .callback{fill:var(--callback);stroke:var(--callback);stroke-width:1.5}
svg .mixing{fill:var(--mixing);stroke:var(--mixing);stroke-width:1.5}
svg .faint.cycle{stroke-width:1}
svg .lead{fill:var(--lead);stroke:var(--lead);stroke-width:1.6}
svg .event{stroke:var(--callback);stroke-width:1.5;stroke-dasharray:5 3;fill:none}
.swatch.blocks{background:var(--wave)}.swatch.cycle{background:var(--cycle)}
.swatch.callback{background:var(--callback)}.swatch.mixing{background:var(--mixing)}
.swatch.left{background:var(--left)}.swatch.right{background:var(--right)}
.swatch.lead{background:var(--lead)}.swatch.event{background:var(--callback)}
.good{fill:var(--good)}.maybe{fill:var(--maybe)}.poor{fill:var(--poor)}.fill{fill:var(--fill)}
.swatch.good{background:var(--good)}.swatch.maybe{background:var(--maybe)}
.swatch.poor{background:var(--poor)}.swatch.fill{background:var(--fill)}
.silent{fill:var(--silent);background:var(--silent)}
.playing{fill:var(--playing);background:var(--playing)}
.padded{fill:var(--padded);background:var(--padded)}
.paused{fill:var(--paused);background:var(--paused)}
.late{fill:var(--bad);background:var(--bad)}
.freerun{fill:var(--free);background:var(--free)}
.filling{fill:var(--silence);background:var(--silence)}
.dropping{fill:var(--bad);background:var(--bad)}
.swatch{outline:1px solid var(--edge)}
.mark.short{background:var(--bad);clip-path:polygon(50% 0,100% 100%,0 100%)}
.mark.set{background:var(--left);border-radius:50%;transform:scale(.7)}
.mark.fault{background:var(--bad);border-radius:2px}
.mark.anchor{background:var(--anchor);clip-path:polygon(50% 0,100% 50%,50% 100%,0 50%)}
.mark.silence{background:var(--silence);clip-path:polygon(50% 0,100% 100%,0 100%)}
.mark.drop{background:var(--bad);clip-path:polygon(0 0,100% 0,50% 100%)}
.hair{position:absolute;top:0;bottom:0;width:1px;background:var(--bad);pointer-events:none}
#now{position:fixed;right:16px;bottom:12px;padding:3px 10px;border-radius:6px;background:var(--ink);
color:var(--page);font-size:13px;font-variant-numeric:tabular-nums;white-space:pre-line}
#now:empty{display:none}
@media (max-width:700px){body{padding:14px 10px 64px}section{padding:10px 8px}
.minor{display:none}figcaption,.key{padding-left:0}.plot,.axis,.timename{margin-left:40px}
thead{position:absolute;width:1px;height:1px;overflow:hidden;clip-path:inset(50%)}
table,caption,tbody,td{display:block}
tr{display:grid;grid-template-columns:1fr 1fr;gap:1px 16px;padding:6px 0;
border-bottom:1px solid var(--grid)}
td,td:first-child{display:flex;justify-content:space-between;gap:8px;padding:0;border:0;
text-align:right;white-space:normal;overflow-wrap:anywhere;min-width:0}
td::before{content:attr(data-head);color:var(--soft);font-size:13px;text-align:left;
white-space:nowrap}
td:empty{display:none}}
)css";

/** A hair line through all strips; the time under the pointer, and the values of the strip there. The
 *  page works without it. */
constexpr const char* kReportScript = R"js(
'use strict';
const now = document.getElementById('now');
const plots = Array.from(document.querySelectorAll('.plot'));
const hairs = plots.map(function (plot) {
  const hair = document.createElement('div');
  hair.className = 'hair';
  hair.hidden = true;
  plot.append(hair);
  return hair;
});
const readings = plots.map(function (plot) {
  return Array.from(plot.querySelectorAll('.reading')).map(function (reading) {
    const data = reading.dataset;
    return {name: data.name, unit: data.unit ? ' ' + data.unit : '',
            low: data.low.split(','), high: data.high.split(',')};
  });
});
function textOf(reading, share) {
  const count = reading.low.length - 1;
  const column = Math.min(Math.floor(share * count), count - 1);
  const low = reading.low[column], high = reading.high[column];
  if (low === '') return reading.name + ': none here';
  return reading.name + ' ' + low + (high === '' ? '' : ' to ' + high) + reading.unit;
}
function show(index, event) {
  const box = plots[index].getBoundingClientRect();
  const share = Math.min(Math.max((event.clientX - box.left) / box.width, 0), 1);
  hairs.forEach(function (hair) { hair.hidden = false; hair.style.left = 100 * share + '%'; });
  const time = (share * Number(document.body.dataset.seconds)).toFixed(3) + ' s';
  now.textContent = [time].concat(readings[index].map(function (reading) {
    return textOf(reading, share);
  })).join('\n');
}
plots.forEach(function (plot, index) {
  plot.addEventListener('pointermove', function (event) { show(index, event); });
  plot.addEventListener('pointerdown', function (event) { show(index, event); });
  plot.addEventListener('pointerleave', function () {
    hairs.forEach(function (hair) { hair.hidden = true; });
    now.textContent = '';
  });
});
)js";

}  // namespace android
