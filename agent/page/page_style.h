// How the page of a migration looks: on a telephone, on a desk, in the dark and on paper.
#ifndef QX_AGENT_PAGE_PAGE_STYLE_H
#define QX_AGENT_PAGE_PAGE_STYLE_H

#include "agent/page/html.h"

namespace agent {

inline constexpr StyleSheet kPageStyle = R"css(
:root {
  color-scheme: light dark;
  --paper: #fcfcfa; --ink: #1d2024; --quiet: #565c64; --rule: #d8d8d2;
  --bar: #868d96; --measured: #2c6094; --limit: #868d96; --out: #945000; --down: #f8e9d2;
  --good: #1c6b3a; --bad: #ac2018;
}
@media (prefers-color-scheme: dark) {
  :root {
    --paper: #16191d; --ink: #e4e6e8; --quiet: #a4abb3; --rule: #353b42;
    --bar: #808892; --measured: #7fb2e4; --limit: #808892; --out: #f0ab52; --down: #382a17;
    --good: #84d3a0; --bad: #ff9188;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0; background: var(--paper); color: var(--ink);
  font: 16px/1.5 system-ui, "Segoe UI", Roboto, "Helvetica Neue", "DejaVu Sans", sans-serif;
  font-variant-numeric: tabular-nums; overflow-wrap: anywhere; -webkit-text-size-adjust: 100%;
}
main, footer { max-width: 46rem; margin: 0 auto; padding: 0 1rem; }
main { padding-top: 2.5rem; }
h1, h2 { font-family: Charter, "Bitstream Charter", Cambria, Georgia, "DejaVu Serif", serif;
  font-weight: 600; line-height: 1.25; text-wrap: balance; }
h1 { font-size: 1.75rem; margin: .25rem 0 .75rem; }
h2 { font-size: 1.2rem; margin: 0 0 .75rem; }
p { margin: 0 0 .75rem; max-width: 40rem; }
section { border-top: 1px solid var(--rule); padding: 1.5rem 0 1rem; }
.standing { margin: 0; font-weight: 600; color: var(--quiet); }
.standing::before { content: "\25CF\00A0"; }
.succeeded { color: var(--good); }
.failed, .interrupted { color: var(--bad); }
.cancelled, .cleaned, .running { color: var(--out); }
.ending { font-size: 1.1rem; }
.note, footer { color: var(--quiet); font-size: .875rem; }
.failure { border-left: 3px solid var(--bad); padding-left: .85rem; }
dl { margin: 0; }
dt { color: var(--quiet); font-size: .875rem; }
dd { margin: 0; }
.figures { display: grid; grid-template-columns: repeat(auto-fit, minmax(12.5rem, 1fr));
  gap: 1.25rem 2rem; margin: 1.5rem 0 2rem; }
.figures strong { display: block; font-size: 1.35rem; line-height: 1.3; font-weight: 600;
  text-wrap: balance; }
.figures span { color: var(--quiet); font-size: .875rem; display: block; line-height: 1.4; }
.facts div { display: grid; grid-template-columns: 11rem 1fr; gap: 0 1rem; padding: .2rem 0; }
.facts dt { line-height: 1.7; }
code, .paths, .log { font-family: ui-monospace, "Cascadia Mono", Menlo, Consolas,
  "DejaVu Sans Mono", monospace; font-size: .8125rem; }
th code { display: block; color: var(--quiet); font-weight: 400; }
ul { margin: 0 0 .75rem; padding-left: 1.1rem; }
li { margin-bottom: .35rem; }
.paths { list-style: none; padding: 0; columns: 16rem; column-gap: 2rem; }
.log { list-style: none; padding: 0; }
.paths li { break-inside: avoid; }
summary { cursor: pointer; color: var(--quiet); font-size: .875rem; padding: .35rem 0; }
table { border-collapse: collapse; table-layout: fixed; width: 100%; font-size: .875rem; line-height: 1.4;
  margin-bottom: .75rem; }
caption { text-align: left; color: var(--quiet); padding: .35rem 0; }
th, td { text-align: left; vertical-align: top; padding: .45rem .75rem .45rem 0;
  border-bottom: 1px solid var(--rule); font-weight: 400; }
th:last-child, td:last-child { padding-right: 0; }
thead th { color: var(--quiet); }
.times th:first-child { width: 48%; }
.limits th:first-child { width: 33%; }
.limits thead th:last-child { width: 17%; }
svg { display: block; font-size: 13px; margin: .5rem 0 1rem; }
svg text { fill: var(--quiet); }
svg .name { fill: var(--ink); }
svg .name tspan { fill: var(--quiet); }
svg .scale { font-size: 12px; }
svg .failed-name { fill: var(--bad); font-weight: 600; }
svg .down-name { fill: var(--out); font-weight: 600; }
.grid { stroke: var(--rule); }
.down { fill: var(--down); }
.down-edge { stroke: var(--out); }
.bar { fill: var(--bar); stroke: var(--bar); }
.bar.out { fill: var(--out); stroke: var(--out); }
.bar.failed { fill: var(--bad); stroke: var(--bad); }
.bar.measured { fill: var(--measured); stroke: none; }
.bar.limit { fill: var(--limit); stroke: none; }
footer { padding-top: 1rem; padding-bottom: 2.5rem; border-top: 1px solid var(--rule); }
@media (max-width: 34rem) {
  main { padding-top: 1.25rem; }
  h1 { font-size: 1.45rem; }
  .facts div { grid-template-columns: 1fr; padding: .35rem 0; }
  table { font-size: .8125rem; }
}
@media print {
  :root {
    color-scheme: light;
    --paper: #fff; --ink: #000; --quiet: #444; --rule: #bbb;
    --bar: #777; --measured: #2c6094; --limit: #808080; --out: #854800; --down: #f6ead8;
    --good: #14522c; --bad: #8e1a13;
  }
  @page { margin: 18mm 16mm; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  body { font-size: 10.5pt; }
  main, footer { max-width: none; padding-left: 0; padding-right: 0; }
  main { padding-top: 0; }
  h2, caption { break-after: avoid; }
  tr, li, svg, .figures, .facts div, footer p { break-inside: avoid; }
  details::details-content { content-visibility: visible; block-size: auto; }
}
)css";

}  // namespace agent

#endif
