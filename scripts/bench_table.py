#!/usr/bin/env python3
"""Turns the JSON results of quelmksp_bench into the table of ratios."""
import json
import os
import statistics
import sys
from collections import defaultdict


def load(path):
    with open(path) as f:
        data = json.load(f)
    runs = defaultdict(list)
    for b in data["benchmarks"]:
        if b.get("run_type") == "aggregate" or b.get("error_occurred"):
            continue
        runs[b["run_name"]].append(b)
    return data["context"], runs


def median(runs, name, counter):
    values = [b[counter] for b in runs.get(name, []) if counter in b]
    return statistics.median(values) if values else None


def fmt(value, unit=""):
    if value is None:
        return "–"
    if unit == "us":
        return f"{value:,.1f} µs" if value < 10000 else f"{value / 1000:,.1f} ms"
    if unit == "x":
        return f"{value:.3f}"
    return f"{value:,.0f}{unit}"


def main():
    context, runs = load(sys.argv[1])
    reps = max((len(v) for v in runs.values()), default=0)
    rows = []

    def pair(what, name, provider, raw, ratio, target, raw_label):
        rows.append((what, fmt(median(runs, name, provider), "us"),
                     f"{raw_label}: {fmt(median(runs, name, raw), 'us')}",
                     fmt(median(runs, name, ratio), "x"), target))

    pair("`SignHash`, PIN cached, logging off", "SignHash/manual_time", "provider_us",
         "middleware_us", "ratio_middleware", "≤ 1.03", "`C_SignInit`+`C_Sign` via middleware")
    pair("`SignHash` ÷ SoftHSM2 directly", "SignHash/manual_time", "provider_us",
         "softhsm_us", "ratio_softhsm", "", "`C_SignInit`+`C_Sign` on SoftHSM2")
    pair("length query, then the signature", "QueryThenSign/manual_time", "provider_us",
         "middleware_us", "ratio_middleware", "≤ 1.10", "one raw signature")
    for n in sorted({int(k.split("/")[1]) for k in runs if k.startswith("EnumKeys/")}):
        name = f"EnumKeys/{n}/manual_time"
        pair(f"`EnumKeys` to the end, {n} pairs", name, "provider_us", "middleware_us",
             "ratio_middleware", "≤ 1.05" if n >= 1000 else "",
             "the list build's token calls")
        share = median(runs, name, "provider_share_us_per_key")
        rows.append((f"provider's share per key, {n} pairs", fmt(share, "us"), "", "",
                     "flat"))
    for n in sorted({int(k.split("/")[1]) for k in runs if k.startswith("AttributeReads/")}):
        pair(f"3-attribute reads of all objects, {n} pairs", f"AttributeReads/{n}/manual_time",
             "middleware_us", "softhsm_us", "ratio_softhsm", "≤ 1.10", "SoftHSM2 directly")
    for name in sorted(k for k in runs if k.startswith("OpenKeyFirst/")):
        pair("`OpenKey`, first (builds the list)", name, "provider_us", "middleware_us",
             "ratio_middleware", "", "the list build's token calls")
    pair("`OpenKey`+`FreeKey`, later", "OpenKeyLater/manual_time", "provider_us",
         "middleware_us", "ratio_middleware", "", "a search by `CKA_ID`")
    pair("`OpenProvider`+`FreeProvider`", "OpenFreeProvider/manual_time", "provider_us",
         "middleware_us", "ratio_middleware", "", "its five token calls")
    rows.append(("logging on: time added per `SignHash`",
                 fmt(median(runs, "LoggingOnOff/manual_time", "added_us"), "us"),
                 f"logging off: {fmt(median(runs, 'LoggingOnOff/manual_time', 'logging_off_us'), 'us')}",
                 "", "≤ 0.1 ms"))
    threads = "Threads/iterations:1/repeats:1"
    rows.append(("two threads ÷ one, each with its own provider",
                 "×" + fmt(median(runs, threads, "speedup_provider"), "x"),
                 "SoftHSM2 alone: ×" + fmt(median(runs, threads, "speedup_softhsm"), "x"), "",
                 "≥ ×1.85"))
    memory = "Memory/iterations:1/repeats:1"
    rows.append((f"RSS growth over {fmt(median(runs, memory, 'cycles'))} open/sign/free cycles",
                 fmt(median(runs, memory, "rss_kib_growth"), " KiB"),
                 f"after warm-up: {fmt(median(runs, memory, 'rss_kib_after_warmup'), ' KiB')}",
                 "", "flat"))

    print(f"Machine: {context.get('num_cpus')} CPUs at {context.get('mhz_per_cpu')} MHz, "
          f"{os.uname().sysname} {os.uname().release}; load average at start "
          f"{', '.join(f'{x:.2f}' for x in context.get('load_avg', []))}; "
          f"medians of {reps} repetitions.")
    print()
    print("| what | the provider | raw PKCS#11 on the same token and key | ratio | target |")
    print("|---|---|---|---|---|")
    for row in rows:
        print("| " + " | ".join(row) + " |")


main()
