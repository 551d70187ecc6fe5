#include "tools/queuectl/page/pagestyle.h"

using namespace Qt::StringLiterals;

namespace queuectl {

QString pageStyle()
{
    return uR"(
:root { color-scheme: light dark;
  --page: #f5f6f8; --panel: #ffffff; --text: #1c2128; --faint: #59636e; --rule: #d5dae1;
  --good: #1a6b54; --careful: #805300; --bad: #b42318; --plain: #34588e; }
@media (prefers-color-scheme: dark) { :root {
  --page: #0f1317; --panel: #171c22; --text: #e4e8ee; --faint: #9ba6b4; --rule: #303944;
  --good: #4fc0a0; --careful: #dfac52; --bad: #ff8d83; --plain: #88aee6; } }
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; }
body { margin: 0; background: var(--page); color: var(--text); line-height: 1.45;
  font-family: system-ui, sans-serif; font-size: 0.9375rem; font-variant-numeric: tabular-nums;
  overflow-wrap: anywhere; }
header, main, footer { max-width: 68rem; margin: 0 auto; padding: 0 1.25rem; }
header { padding-top: 1.75rem; }
footer { padding-bottom: 2rem; color: var(--faint); }
h1, h2, h3, p, dl, dd { margin: 0; }
h1 { font-size: 1.5rem; line-height: 1.25; font-weight: 650; }
h2 { font-size: 1.125rem; font-weight: 650; }
h3 { font-size: 0.9375rem; font-weight: 600; margin: 1.5rem 0 0.25rem; }
section { background: var(--panel); border: 1px solid var(--rule); border-radius: 0.5rem;
  padding: 1.125rem 1.25rem 1.25rem; margin: 1rem 0; }
.note { color: var(--faint); font-size: 0.8125rem; margin-top: 0.25rem; }
.faint { color: var(--faint); }
.good { color: var(--good); }
.careful { color: var(--careful); }
.bad { color: var(--bad); }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(9rem, 1fr));
  gap: 0.75rem; margin: 1.25rem 0 1rem; }
.tiles div { background: var(--panel); border: 1px solid var(--rule); border-radius: 0.5rem;
  padding: 0.75rem 1rem; }
.tiles dt { color: var(--faint); font-size: 0.8125rem; }
.tiles dd { font-size: 1.5rem; line-height: 1.3; font-weight: 600; }
.tiles dd.note { font-size: 0.8125rem; font-weight: 400; margin: 0; }
.marked { list-style: none; padding: 0; margin: 0.5rem 0 0; }
.marked li { padding: 0.125rem 0 0.125rem 1.5rem; text-indent: -1.5rem; }
.mark { display: inline-block; width: 1.5rem; text-indent: 0; font-weight: 700; }
svg { display: block; overflow: visible; }
svg text { font-size: 0.8125rem; fill: var(--text); stroke: var(--panel); stroke-width: 4px;
  stroke-linejoin: round; paint-order: stroke; }
svg .faint { fill: var(--faint); }
svg .good { fill: var(--good); }
svg .careful { fill: var(--careful); }
svg .bad { fill: var(--bad); }
svg .plain { fill: var(--plain); }
svg .base { stroke: var(--faint); }
svg .baseline { fill: var(--rule); }
svg .grid { stroke: var(--rule); stroke-dasharray: 2 3; }
.chart { margin-top: 1rem; }
.lane { display: flex; justify-content: space-between; gap: 0.75rem; font-size: 0.8125rem;
  line-height: 20px; white-space: nowrap; }
.lane span { background: var(--panel); overflow: hidden; text-overflow: ellipsis; }
.lane .faint { flex: none; max-width: 75%; }
table { border-collapse: collapse; width: 100%; margin-top: 0.75rem; }
th, td { text-align: left; vertical-align: top; padding: 0.375rem 1rem 0.375rem 0;
  border-bottom: 1px solid var(--rule); font-weight: 400; }
tr:last-child th, tr:last-child td { border-bottom: 0; }
thead th { color: var(--faint); font-size: 0.8125rem; vertical-align: bottom;
  overflow-wrap: normal; }
tbody th { font-weight: 600; }
th:last-child, td:last-child { padding-right: 0; }
th.number, td.number { text-align: right; }
td.number, td.time { white-space: nowrap; }
td.words { min-width: 7rem; }
td.picture { width: 40%; min-width: 8rem; }
td.small { width: 12rem; min-width: 6rem; }
td.spread { width: 38%; }
th .note { font-weight: 400; }
details { margin-top: 0.75rem; }
summary { color: var(--faint); cursor: pointer; }
pre { white-space: pre-wrap; margin: 0.5rem 0 0; font-family: ui-monospace, monospace;
  font-size: 0.8125rem; background: var(--page); border-radius: 0.375rem; padding: 0.75rem 1rem; }
@media (max-width: 44rem) {
  header, main, footer { padding-left: 0.75rem; padding-right: 0.75rem; }
  section { padding: 0.875rem 0.875rem 1rem; }
  svg .spare { display: none; }
  .tiles { grid-template-columns: repeat(2, 1fr); gap: 0.5rem; }
  .tiles div:first-child { grid-column: 1 / -1; }
  .cards thead { position: absolute; width: 1px; height: 1px; overflow: hidden;
    clip-path: inset(50%); }
  .cards, .cards tbody { display: block; }
  .cards tr { display: grid; grid-template-columns: repeat(6, 1fr); column-gap: 0.5rem;
    padding: 0.5rem 0; border-bottom: 1px solid var(--rule); }
  .cards tr:last-child { border-bottom: 0; }
  .cards th, .cards td { border: 0; padding: 0.125rem 0; width: auto; min-width: 0;
    grid-column: 1 / -1; }
  .cards td.number { grid-column: span 2; align-self: end; text-align: left; }
  .cards td.time { grid-column: span 3; }
  .cards.ages tr { grid-template-columns: repeat(5, 1fr); }
  .cards.ages td.number { grid-column: span 1; }
  .cards.ages td.small { grid-column: 1 / 5; }
  .cards.ages td.small + td.number { grid-column: 1; }
  .cards td[data-label]::before { content: attr(data-label); display: block; white-space: normal;
    color: var(--faint); font-size: 0.75rem; }
}
@media print { section, .tiles div { break-inside: avoid; } body { background: none; } }
)"_s;
}

} // namespace queuectl
