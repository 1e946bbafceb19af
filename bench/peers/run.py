#!/usr/bin/env python3
"""Throughput of this library against pugixml, libxml2, expat and TinyXML-2.

    bench/peers/run.py [--build DIR] [--rounds N] [--dir DIR] [--size MB]
                       [--parsers a,b] [--inputs a,b] [--modes a,b]

Generates the inputs once (into a new temporary directory, removed at the
end, unless --dir names one to keep and reuse), then runs rounds: in each
round every parser parses every input once per mode (memory: the cold
parse of bytes in memory; file; warm: bytes in memory again into a re-used
document, see peer_bench.cpp), each in a fresh peer_bench process, the parsers' order rotated from round to round. Prints a
Markdown table of the median MB/s, the median ratio to pugixml of the same
round (input and mode), and the peak RSS of parsing the records document
from a file, then one of the page faults of the timed parses per MB; the
raw lines of peer_bench go to stderr. --parsers may also name pugixml-ws:
pugixml keeping text of white space alone, as this library keeps it.
"""
import argparse
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

PARSERS = ["ozm", "pugixml", "libxml2", "expat", "tinyxml2"]
# Run only when named in --parsers (see the docstring).
EXTRA_PARSERS = ["pugixml-ws"]
INPUTS = ["records", "text", "dtd", "small"]
MODES = ["memory", "file", "warm"]
LABELS = {
    "ozm": "ozmxmlapi",
    "pugixml": "pugixml",
    "pugixml-ws": "pugixml (white space kept)",
    "libxml2": "libxml2",
    "expat": "expat (events only)",
    "tinyxml2": "TinyXML-2",
}
PKG = {"pugixml": "pugixml", "libxml2": "libxml-2.0", "expat": "expat", "tinyxml2": "tinyxml2"}


def input_label(kind, manifest):
    files, size = manifest[kind]
    mb = size / 1e6
    if kind == "records":
        return "records, %.0f MB" % mb
    if kind == "text":
        return "text-heavy, %.0f MB" % mb
    if kind == "dtd":
        return "internal DTD + entity refs, %.0f MB" % mb
    return "%d small docs (2-10 KB), %.1f MB" % (files, mb)


def read_manifest(d):
    out = {}
    with open(os.path.join(d, "manifest")) as f:
        for line in f:
            kind, files, size, _elements = line.split()
            out[kind] = (int(files), int(size))
    return out


def machine():
    cpu = platform.processor() or platform.machine()
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    mem = ""
    try:
        with open("/proc/meminfo") as f:
            kb = int(f.readline().split()[1])
            mem = ", %.0f GiB" % (kb / 2**20)
    except (OSError, ValueError, IndexError):
        pass
    return "%s, %d cores%s, Linux %s" % (cpu, os.cpu_count() or 0, mem, platform.release())


def versions():
    parts = []
    for p in PARSERS[1:]:
        try:
            v = subprocess.run(["pkg-config", "--modversion", PKG[p]], capture_output=True, text=True).stdout.strip()
        except OSError:
            v = ""
        parts.append("%s %s" % (LABELS[p].split(" ")[0], v or "?"))
    return ", ".join(parts)


def build_kind(build):
    """The compiler and build type of this library's build, from its CMake cache."""
    cache = {}
    try:
        with open(os.path.join(build, "CMakeCache.txt")) as f:
            for line in f:
                if line.startswith(("CMAKE_CXX_COMPILER:", "CMAKE_BUILD_TYPE:")):
                    k, v = line.rstrip("\n").split("=", 1)
                    cache[k.split(":")[0]] = v
    except OSError:
        return "build ?"
    cxx = cache.get("CMAKE_CXX_COMPILER", "")
    try:
        ver = subprocess.run([cxx, "-dumpfullversion"], capture_output=True, text=True).stdout.strip()
    except OSError:
        ver = ""
    return "%s %s, %s build" % (os.path.basename(cxx) or "?", ver, cache.get("CMAKE_BUILD_TYPE") or "default")


def run_one(bench, d, parser, kind, mode):
    cmd = [bench, "--dir", d, "--parser", parser, "--input", kind, "--mode", mode]
    r = subprocess.run(cmd, capture_output=True, text=True)
    if r.returncode != 0:
        sys.exit("run.py: %s failed:\n%s%s" % (" ".join(cmd), r.stdout, r.stderr))
    line = r.stdout.strip().splitlines()[-1]
    print(line, file=sys.stderr)
    return dict(kv.split("=", 1) for kv in line.split())


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--build", default="build", help="build directory holding bench/peers/peer_bench")
    ap.add_argument("--rounds", type=int, default=7)
    ap.add_argument("--dir", help="input directory to reuse (generated there if it has no manifest)")
    ap.add_argument("--size", type=float, default=0, help="make every input of this size in MB (default: 100/50/20 MB, 2,000 small docs)")
    ap.add_argument("--parsers", default=",".join(PARSERS))
    ap.add_argument("--inputs", default=",".join(INPUTS))
    ap.add_argument("--modes", default=",".join(MODES))
    a = ap.parse_args()
    parsers = a.parsers.split(",")
    for p in parsers:
        if p not in PARSERS + EXTRA_PARSERS:
            sys.exit("run.py: unknown parser %s" % p)
    inputs = a.inputs.split(",")
    modes = a.modes.split(",")
    if "pugixml" not in parsers:
        sys.exit("run.py: the ratios need pugixml among the parsers")
    bench = os.path.join(a.build, "bench", "peers", "peer_bench")
    if not os.access(bench, os.X_OK):
        sys.exit("run.py: no %s; configure with -DOZM_BENCH_PEERS=ON and build the peer_bench target" % bench)

    tmp = None
    d = a.dir
    if d is None:
        tmp = tempfile.mkdtemp(prefix="ozm-peers-")
        d = tmp
    try:
        if not os.path.exists(os.path.join(d, "manifest")):
            gen = [bench, "--generate", d] + (["--size", str(a.size)] if a.size else [])
            subprocess.run(gen, check=True)
        manifest = read_manifest(d)
        started = time.strftime("%Y-%m-%d")
        load = os.getloadavg()[0]

        # secs[(parser, kind, mode)] = [seconds per round]
        secs, rss, faults = {}, {}, {}
        for r in range(a.rounds):
            order = parsers[r % len(parsers):] + parsers[:r % len(parsers)]
            for kind in inputs:
                for mode in modes:
                    for p in order:
                        res = run_one(bench, d, p, kind, mode)
                        secs.setdefault((p, kind, mode), []).append(float(res["seconds"]))
                        rss.setdefault((p, kind, mode), []).append(int(res["maxrss_kb"]))
                        faults.setdefault((p, kind, mode), []).append(int(res["faults"]))
            print("round %d of %d done" % (r + 1, a.rounds), file=sys.stderr)
    finally:
        if tmp:
            shutil.rmtree(tmp, ignore_errors=True)

    cmd = "bench/peers/run.py" + "".join(" " + x for x in sys.argv[1:])
    print("`%s` on %s, %s (load average %.1f at the start); ozmxmlapi: %s; %s." %
          (cmd, started, machine(), load, build_kind(a.build), versions()))
    print("MB/s: median of %d rounds (MB = 10^6 bytes of UTF-8 input); in brackets the median ratio of the" % a.rounds)
    print("parser's speed to pugixml's in the same round (same input and mode); higher is faster.")
    print()
    def table(cell, last_row=None):
        # One row per input and mode, one cell per parser.
        print("| input | mode | " + " | ".join(LABELS[p] for p in parsers) + " |")
        print("|---|---|" + "---:|" * len(parsers))
        for kind in inputs:
            size = manifest[kind][1]
            for mode in modes:
                cells = [cell(p, kind, mode, size) for p in parsers]
                print("| %s | %s | %s |" % (input_label(kind, manifest), mode, " | ".join(cells)))
        if last_row:
            last_row()

    def speed(p, kind, mode, size):
        s = secs[(p, kind, mode)]
        ratio = statistics.median(pg / x for pg, x in zip(secs[("pugixml", kind, mode)], s))
        return "%.0f (%.2f)" % (size / 1e6 / statistics.median(s), ratio)

    def peak_rss():
        if "records" in inputs and "file" in modes:
            cells = ["%.0f" % (statistics.median(rss[(p, "records", "file")]) / 1024) for p in parsers]
            print("| peak RSS (MiB), %s | file | %s |" % (input_label("records", manifest), " | ".join(cells)))

    table(speed, peak_rss)
    # Each minor fault is the first touch of a 4 KB page: the memory a parse
    # takes fresh from the system, which costs time of its own.
    print()
    print("Minor page faults of the timed parses per MB of input, median of the rounds:")
    print()
    table(lambda p, kind, mode, size: "%.0f" % (statistics.median(faults[(p, kind, mode)]) / (size / 1e6)))

if __name__ == "__main__":
    main()
