#!/usr/bin/env python3
"""Instructions per input byte of each parser, counted by callgrind.

    bench/peers/callgrind.py [--build DIR] [--size MB] [--dir DIR]
                             [--parsers a,b] [--inputs a,b] [--modes a,b] [--top N]

Generates every input at --size MB (default 5; the small documents: the
first of them that make up that size) into a new temporary directory, unless
--dir names one, then runs peer_bench once per parser and input under
valgrind --tool=callgrind with collection off except around the timed parses
(peer_bench toggles it), so that the count is that of the parses alone: no
generation, reading, tree walk or freeing. Instruction counts do not depend
on the machine's load. Prints a Markdown table of Ir per byte; with --top N
also the N functions of this library's runs with the most instructions
(callgrind_annotate, self cost). The callgrind files stay in a directory
under /tmp, named at the end; generated inputs are removed.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile

# The parsers, inputs and their labels are run.py's, beside this script
# (imported without leaving a __pycache__ in the source tree).
sys.dont_write_bytecode = True
from run import INPUTS, LABELS, PARSERS  # noqa: E402


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--build", default="build")
    ap.add_argument("--size", type=float, default=5)
    ap.add_argument("--dir", help="input directory to reuse (generated there if it has no manifest)")
    ap.add_argument("--parsers", default=",".join(PARSERS))
    ap.add_argument("--inputs", default=",".join(INPUTS))
    ap.add_argument("--modes", default="memory")
    ap.add_argument("--top", type=int, default=0, help="show this library's N costliest functions per input")
    a = ap.parse_args()
    parsers, inputs, modes = a.parsers.split(","), a.inputs.split(","), a.modes.split(",")
    bench = os.path.join(a.build, "bench", "peers", "peer_bench")
    if not os.access(bench, os.X_OK):
        sys.exit("callgrind.py: no %s; configure with -DOZM_BENCH_PEERS=ON and build peer_bench" % bench)
    if subprocess.run([bench, "--callgrind-support"], capture_output=True, text=True).stdout.strip() != "yes":
        sys.exit("callgrind.py: peer_bench was built without <valgrind/callgrind.h> (install valgrind and rebuild)")
    if not shutil.which("valgrind"):
        sys.exit("callgrind.py: valgrind not found")

    out = tempfile.mkdtemp(prefix="ozm-peers-callgrind-")
    d = a.dir or os.path.join(out, "inputs")
    if not os.path.exists(os.path.join(d, "manifest")):
        subprocess.run([bench, "--generate", d, "--size", str(a.size)], check=True)
    manifest = {}
    with open(os.path.join(d, "manifest")) as f:
        for line in f:
            kind, files, size, _ = line.split()
            manifest[kind] = (int(files), int(size))

    ir = {}
    for kind in inputs:
        for mode in modes:
            for p in parsers:
                cg = os.path.join(out, "callgrind.out.%s.%s.%s" % (p, kind, mode))
                cmd = ["valgrind", "--tool=callgrind", "--collect-atstart=no", "--callgrind-out-file=" + cg,
                       bench, "--dir", d, "--parser", p, "--input", kind, "--mode", mode]
                r = subprocess.run(cmd, capture_output=True, text=True)
                if r.returncode != 0:
                    sys.exit("callgrind.py: %s failed:\n%s%s" % (" ".join(cmd), r.stdout, r.stderr[-3000:]))
                with open(cg) as f:
                    m = re.search(r"^(?:totals|summary): (\d+)", f.read(), re.M)
                ir[(p, kind, mode)] = int(m.group(1))
                print("%s %s %s: %d Ir" % (p, kind, mode, ir[(p, kind, mode)]), file=sys.stderr, flush=True)
    if not a.dir:
        shutil.rmtree(d, ignore_errors=True)

    print("`bench/peers/callgrind.py%s`: instructions (Ir) per byte of UTF-8 input of the parses alone;" %
          "".join(" " + x for x in sys.argv[1:]))
    print("in brackets the ratio to pugixml's count (lower is fewer instructions).")
    print()
    print("| input | mode | " + " | ".join(LABELS[p] for p in parsers) + " |")
    print("|---|---|" + "---:|" * len(parsers))
    for kind in inputs:
        files, size = manifest[kind]
        label = "%s, %.1f MB" % (kind, size / 1e6) if kind != "small" else "%d small docs, %.1f MB" % (files, size / 1e6)
        for mode in modes:
            cells = []
            for p in parsers:
                c = "%.1f" % (ir[(p, kind, mode)] / size)
                if ("pugixml", kind, mode) in ir:
                    c += " (%.2f)" % (ir[(p, kind, mode)] / ir[("pugixml", kind, mode)])
                cells.append(c)
            print("| %s | %s | %s |" % (label, mode, " | ".join(cells)))

    if a.top and "ozm" in parsers:
        for kind in inputs:
            for mode in modes:
                cg = os.path.join(out, "callgrind.out.ozm.%s.%s" % (kind, mode))
                r = subprocess.run(["callgrind_annotate", "--threshold=100", cg], capture_output=True, text=True)
                rows = [l for l in r.stdout.splitlines() if re.match(r"^\s*[\d,]+ \(", l)]
                print("\nozmxmlapi, %s, %s: the %d functions with the most instructions (self)" % (kind, mode, a.top))
                print("```")
                for l in rows[1:a.top + 1]:  # the first row is the program total
                    # Without the object file's path, and templates' arguments cut short.
                    l = re.sub(r" \[[^\]]*\]$", "", l.rstrip()).replace("???:", "")
                    print(l[:150])
                print("```")
    print("\ncallgrind files: %s" % out)


if __name__ == "__main__":
    main()
