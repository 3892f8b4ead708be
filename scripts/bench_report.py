#!/usr/bin/env python3
"""Turns one run of the peer comparison into a table, JSON and an SVG chart.

bench_report.py COMPARE_JSON MEMORY_JSONL OUT_DIR [README]

COMPARE_JSON is Google Benchmark's JSON output of peer_compare, MEMORY_JSONL
one line per side from compare_memory. Prints the table, writes
OUT_DIR/ratios.json and OUT_DIR/ratios.svg, and, given a README, replaces the
text between its "bench:begin" and "bench:end" markers with the table.
"""
import html
import json
import platform
import re
import sys

SIZES = {"0": "100 KB", "1": "1 MB", "2": "10 MB"}


def load_times(path):
    """name -> (time in ns, items per second or None).

    Saves and the reader threads count wall-clock time (fsync waits, threads
    running side by side); everything else counts CPU time, which other
    work on a shared machine disturbs less.
    """
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    data = json.load(open(path))
    times = {}
    for b in data["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        name = re.sub(r"_median$", "", b["name"])
        clock = "real_time" if name.startswith(("BM_Save_", "BM_Readers_")) else "cpu_time"
        times[name] = (b[clock] * scale[b["time_unit"]], b.get("items_per_second"))
    return data.get("context", {}), times


def cpu_name():
    try:
        for line in open("/proc/cpuinfo"):
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return platform.processor() or "unknown CPU"


def rows(times, memory):
    """(measure, size, figures text, ratio, target text, met) per row."""
    out = []

    def t(kind, side, size=None):
        key = f"BM_{kind}_{side}" + (f"/{size}" if size is not None else "")
        return times.get(key, (None, None))[0]

    def ratio_row(measure, size, value, target, met, figures):
        out.append((measure, SIZES.get(size, size), figures, value, target, met))

    for size in SIZES:
        mine, pt, pg = t("Load", "propmap", size), t("Load", "ptree", size), t("Load", "pugixml", size)
        if None not in (mine, pt, pg):
            ratio_row("load vs PropertyTree (speed)", size, pt / mine, ">= 3", pt / mine >= 3,
                      f"{mine / 1e6:.2f} ms vs {pt / 1e6:.2f} ms")
            ratio_row("load vs pugixml (speed)", size, pg / mine, ">= 0.6", pg / mine >= 0.6,
                      f"{mine / 1e6:.2f} ms vs {pg / 1e6:.2f} ms")
    for size in SIZES:
        mine, pt, pg, raw = (t("Save", s, size) for s in ("propmap", "ptree", "pugixml", "raw"))
        if None not in (mine, pt, pg, raw):
            ratio_row("save vs PropertyTree (speed)", size, pt / mine, ">= 2.5", pt / mine >= 2.5,
                      f"{mine / 1e6:.2f} ms vs {pt / 1e6:.2f} ms")
            ratio_row("save vs pugixml (speed)", size, pg / mine, ">= 0.6", pg / mine >= 0.6,
                      f"{mine / 1e6:.2f} ms vs {pg / 1e6:.2f} ms")
            ratio_row("Flush / raw write+fsync+rename (time)", size, mine / raw, "<= 2",
                      mine / raw <= 2 if size == "2" else None, f"{mine / 1e6:.2f} ms vs {raw / 1e6:.2f} ms")
    for size in SIZES:
        mine, pt, pg = t("Lookup", "propmap", size), t("Lookup", "ptree", size), t("Lookup", "pugixml", size)
        if None not in (mine, pt, pg):
            ratio_row("lookup / PropertyTree (time)", size, mine / pt, "<= 0.33", mine / pt <= 1 / 3,
                      f"{mine:.0f} ns vs {pt:.0f} ns (pugixml {pg:.0f} ns)")
    for size in SIZES:
        mine, pt = t("Copy", "propmap", size), t("Copy", "ptree", size)
        if None not in (mine, pt):
            ratio_row("CopyKey / PropertyTree copy (time)", size, mine / pt, "<= 1", mine / pt <= 1,
                      f"{mine / 1e6:.2f} ms vs {pt / 1e6:.2f} ms")
    mine, pg = t("Enumerate", "propmap"), t("Enumerate", "pugixml")
    if None not in (mine, pg):
        ratio_row("enumerate 10k / pugixml walk (time)", "10k keys", mine / pg, "<= 1", mine / pg <= 1,
                  f"{mine / 1e3:.0f} us vs {pg / 1e3:.0f} us")
    one = times.get("BM_Readers_propmap/2/real_time/threads:1", (None, None))[1]
    two = times.get("BM_Readers_propmap/2/real_time/threads:2", (None, None))[1]
    if one and two:
        ratio_row("two readers / one (lookups per second)", "10 MB", two / one, ">= 1.6", two / one >= 1.6,
                  f"{two / 1e6:.2f} M/s vs {one / 1e6:.2f} M/s")
    plain, host = memory.get("propmap"), memory.get("propmap-host")
    if plain and host:
        # Judged on what the process keeps (malloc's in-use bytes with its
        # overhead and the indexes), the figure comparable with the peers'.
        per = plain["heap_bytes"] / plain["entries"]
        asked = host["host_heap_bytes"] / host["entries"]
        peers = ", ".join(f"{s} {memory[s]['heap_bytes'] / memory[s]['entries']:.0f}"
                          for s in ("pugixml", "ptree") if s in memory)
        ratio_row("heap bytes kept per key + value", "10 MB", per, "<= 180", per <= 180,
                  f"{asked:.0f} asked of the host heap; peers {peers}; "
                  f"RSS growth {plain['rss_growth'] / plain['entries']:.0f}")
    return out


def table(result_rows):
    lines = ["| measure | size | propmap vs peer | ratio | target | met |", "|---|---|---|---|---|---|"]
    for measure, size, figures, value, target, met in result_rows:
        mark = "yes" if met else ("no" if met is not None else "-")
        lines.append(f"| {measure} | {size} | {figures} | {value:.2f} | {target} | {mark} |")
    return "\n".join(lines)


def svg(result_rows):
    """Horizontal bars of each ratio divided by its target (1 = on target)."""
    chart = [r for r in result_rows if r[5] is not None]
    bar_h, gap, left, width = 18, 6, 330, 360
    height = 40 + len(chart) * (bar_h + gap)
    scale = width / 3.0  # 0 .. 3x the target

    def score(value, target):
        bound = float(target.split()[1])
        return value / bound if target.startswith(">=") else bound / value

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 60}" height="{height}" '
             'font-family="sans-serif" font-size="11">',
             f'<text x="{left}" y="14">share of the target reached (1 = met; longer is better)</text>']
    x_one = left + scale
    for i, (measure, size, _, value, target, met) in enumerate(chart):
        y = 24 + i * (bar_h + gap)
        s = min(score(value, target), 3.0)
        color = "#2e7d32" if met else "#c62828"
        parts.append(f'<text x="{left - 6}" y="{y + 13}" text-anchor="end">{html.escape(measure)}, {size}</text>')
        parts.append(f'<rect x="{left}" y="{y}" width="{s * scale:.1f}" height="{bar_h}" fill="{color}"/>')
        parts.append(f'<text x="{left + s * scale + 4:.1f}" y="{y + 13}">{value:.2f} ({html.escape(target)})</text>')
    parts.append(f'<line x1="{x_one}" y1="20" x2="{x_one}" y2="{height}" stroke="#000" stroke-dasharray="4 3"/>')
    parts.append("</svg>")
    return "\n".join(parts) + "\n"


def main():
    compare_json, memory_jsonl, out_dir = sys.argv[1:4]
    readme = sys.argv[4] if len(sys.argv) > 4 else None
    context, times = load_times(compare_json)
    memory = {}
    for line in open(memory_jsonl):
        if line.strip():
            entry = json.loads(line)
            memory[entry["side"]] = entry
    result_rows = rows(times, memory)
    machine = f"{cpu_name()}, {context.get('num_cpus', '?')} cores"
    text = table(result_rows)
    print(text)
    json.dump({"machine": machine, "date": context.get("date"),
               "rows": [dict(zip(("measure", "size", "figures", "ratio", "target", "met"), r))
                        for r in result_rows], "memory": memory},
              open(f"{out_dir}/ratios.json", "w"), indent=1)
    open(f"{out_dir}/ratios.svg", "w").write(svg(result_rows))
    if readme:
        body = open(readme).read()
        block = (f"<!-- bench:begin -->\nMeasured on {machine} ({context.get('date', '')}) with "
                 f"`bash scripts/bench.sh`. Saves and readers are wall-clock times, the rest CPU times; "
                 f"on a shared 2-core machine expect some noise.\n\n"
                 f"{text}\n\n![ratios](docs/bench-ratios.svg)\n<!-- bench:end -->")
        body = re.sub(r"<!-- bench:begin -->.*?<!-- bench:end -->", lambda _: block, body, flags=re.S)
        open(readme, "w").write(body)


if __name__ == "__main__":
    main()
