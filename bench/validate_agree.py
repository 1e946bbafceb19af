#!/usr/bin/env python3
"""validate_agree.py - `ozmxml validate` against `xmllint --valid` on many documents.

Generates documents from several definitions - fixed ones (those the test
suite uses, the benchmark's, examples/samples/notes.dtd), random ones, and
XHTML 1.0 Strict when the w3c-sgml-lib package is installed - valid ones and
mutants of them (a required attribute removed, children swapped or repeated,
an undeclared element, a duplicate ID, a dangling IDREF, a value outside its
enumeration, text in element content), has both programs judge each, and
prints how often they agree, with every class of disagreement and examples.

Needs xmllint (Debian: libxml2-utils; the library does not depend on it) and
a built ozmxml. Not a test: it reads the verdicts of another program.

    bench/validate_agree.py [--ozmxml build/tools/ozmxml] [--documents N]
                            [--seed S] [--keep DIR] [--jobs N]
"""

import argparse
import collections
import concurrent.futures
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
XHTML = "/usr/share/xml/w3c-sgml-lib/schema/dtd"

# ---- Definitions as models ----------------------------------------------
# A model: {"elements": {name: content}, "attlists": {name: [att]}, "root": name}
# content: ("EMPTY",) ("ANY",) ("MIXED", [names]) ("CHILDREN", part)
# part: ("name", n, mod) or ("seq"|"choice", [parts], mod)
# att: {"name", "type" (CDATA, ID, ..., or "ENUM"), "values", "default" (kind), "value"}


def tokenize_model(text):
    return re.findall(r"#PCDATA|[^\s()|,*+?]+|[()|,*+?]", text)


def parse_part(tokens, i):
    """The group that opens at tokens[i] == '('; returns (part, next index)."""
    assert tokens[i] == "("
    i += 1
    members, kind = [], "choice"
    while tokens[i] != ")":
        if tokens[i] == "(":
            part, i = parse_part(tokens, i)
        else:
            name = tokens[i]
            i += 1
            mod = ""
            if i < len(tokens) and tokens[i] in "*+?":
                mod = tokens[i]
                i += 1
            part = ("name", name, mod)
        members.append(part)
        if tokens[i] == ",":
            kind = "seq"
            i += 1
        elif tokens[i] == "|":
            i += 1
    i += 1
    mod = ""
    if i < len(tokens) and tokens[i] in "*+?":
        mod = tokens[i]
        i += 1
    return (kind, members, mod), i


def parse_written_dtd(text):
    """The model of a definition as `ozmxml dtd` writes it (one declaration a
    line, attribute lists a definition a line, no parameter entities)."""
    model = {"elements": {}, "attlists": {}, "root": None}
    m = re.match(r"<!DOCTYPE (\S+)", text)
    if m:
        model["root"] = m.group(1)
    lines = text.split("\n")
    i = 0
    while i < len(lines):
        line = lines[i]
        i += 1
        m = re.match(r"<!ELEMENT (\S+) (.*)>$", line)
        if m:
            name, content = m.group(1), m.group(2)
            if content == "EMPTY":
                model["elements"].setdefault(name, ("EMPTY",))
            elif content == "ANY":
                model["elements"].setdefault(name, ("ANY",))
            elif content.startswith("(#PCDATA"):
                model["elements"].setdefault(name, ("MIXED", re.findall(r"\|\s*([^\s|)]+)", content)))
            else:
                part, _ = parse_part(tokenize_model(content), 0)
                model["elements"].setdefault(name, ("CHILDREN", part))
            continue
        m = re.match(r"<!ATTLIST (\S+)$", line)
        if m:
            atts = model["attlists"].setdefault(m.group(1), [])
            while i < len(lines):
                body = lines[i].strip()
                i += 1
                end = body.endswith(">")
                if end:
                    body = body[:-1].strip()
                a = re.match(r'(\S+)\s+(\([^)]*\)|NOTATION \([^)]*\)|\S+)\s*(#REQUIRED|#IMPLIED|#FIXED\s+"[^"]*"|"[^"]*")?$', body)
                if a:
                    att = {"name": a.group(1), "type": a.group(2), "values": [], "default": "", "value": None}
                    if att["type"].startswith("("):
                        att["values"] = [v.strip() for v in att["type"][1:-1].split("|") if v.strip()]
                        att["type"] = "ENUM"
                    d = a.group(3) or ""
                    if d.startswith("#FIXED"):
                        att["default"], att["value"] = "#FIXED", re.search(r'"([^"]*)"', d).group(1)
                    elif d.startswith('"'):
                        att["default"], att["value"] = "VALUE", d[1:-1]
                    else:
                        att["default"] = d
                    if not any(x["name"] == att["name"] for x in atts):
                        atts.append(att)
                if end:
                    break
    return model


def model_text(part):
    if part[0] == "name":
        return part[1] + part[2]
    sep = ", " if part[0] == "seq" else " | "
    return "(" + sep.join(model_text(p) for p in part[1]) + ")" + part[2]


def write_dtd(model):
    out = []
    for name, content in model["elements"].items():
        if content[0] == "EMPTY" or content[0] == "ANY":
            body = content[0]
        elif content[0] == "MIXED":
            body = "(#PCDATA" + "".join(" | " + n for n in content[1]) + (")*" if content[1] else ")")
        else:
            body = model_text(content[1])
        out.append("<!ELEMENT %s %s>" % (name, body))
        atts = model["attlists"].get(name)
        if atts:
            lines = []
            for a in atts:
                t = "(" + " | ".join(a["values"]) + ")" if a["type"] == "ENUM" else a["type"]
                d = a["default"]
                if d == "#FIXED":
                    d = '#FIXED "%s"' % a["value"]
                elif d == "VALUE":
                    d = '"%s"' % a["value"]
                lines.append("  %s %s %s" % (a["name"], t, d))
            out.append("<!ATTLIST %s\n%s>" % (name, "\n".join(lines)))
    return "\n".join(out) + "\n"


# ---- Random definitions ---------------------------------------------------

def random_dtd(rnd, index):
    n = rnd.randint(5, 14)
    names = ["e%d" % i for i in range(n)]
    model = {"elements": {}, "attlists": {}, "root": "e0"}
    repeats = rnd.random() < 0.15  # a name may stand twice in one model

    def random_part(pool, depth):
        if depth > 2 or rnd.random() < 0.45 or len(pool) < 2:
            name = rnd.choice(pool) if repeats else pool.pop(rnd.randrange(len(pool)))
            return ("name", name, rnd.choice(["", "", "?", "*", "+"]))
        kind = rnd.choice(["seq", "choice"])
        members = []
        for _ in range(rnd.randint(2, 4)):
            if not pool:
                break
            members.append(random_part(pool, depth + 1))
        if len(members) < 2 and not members:
            members.append(("name", names[-1], ""))
        return (kind, members, rnd.choice(["", "", "?", "*", "+"]))

    for i, name in enumerate(names):
        later = names[i + 1:]
        r = rnd.random()
        if not later or (i > 0 and r < 0.2):
            content = ("EMPTY",) if rnd.random() < 0.5 else ("MIXED", [])
        elif i > 0 and r < 0.35:
            content = ("MIXED", rnd.sample(later, min(len(later), rnd.randint(1, 3))))
        elif i > 0 and r < 0.4:
            content = ("ANY",)
        else:
            pool = list(later)
            part = random_part(pool, 0)
            if part[0] == "name":
                part = ("seq", [part], "")
            content = ("CHILDREN", part)
        model["elements"][name] = content
        atts = []
        has_id = False
        for k in range(rnd.randint(0, 3)):
            t = rnd.choice(["CDATA", "CDATA", "ID", "IDREF", "IDREFS", "NMTOKEN", "NMTOKENS", "ENUM", "ENUM"])
            if t == "ID" and has_id:
                t = "CDATA"
            has_id = has_id or t == "ID"
            att = {"name": "a%d" % k, "type": t, "values": [], "default": "", "value": None}
            if t == "ENUM":
                att["values"] = ["v%d" % j for j in range(rnd.randint(2, 4))]
            if t == "ID" or t.startswith("IDREF"):
                att["default"] = rnd.choice(["#REQUIRED", "#IMPLIED"])
            else:
                att["default"] = rnd.choice(["#REQUIRED", "#IMPLIED", "#FIXED", "VALUE"])
                if att["default"] in ("#FIXED", "VALUE"):
                    att["value"] = random_value(rnd, att, [])
            atts.append(att)
        if atts:
            model["attlists"][name] = atts
    return model


# ---- Documents -------------------------------------------------------------

WORDS = ["alpha", "beta", "gamma", "delta", "kappa", "omega", "x", "data", "text", "more"]


def random_value(rnd, att, ids):
    t = att["type"]
    if t == "ENUM":
        return rnd.choice(att["values"])
    if t == "NMTOKEN":
        return rnd.choice(["tok", "12ab", "a.b-c", "x_y"])
    if t == "NMTOKENS":
        return " ".join(rnd.choice(["tok", "12ab", "q"]) for _ in range(rnd.randint(1, 3)))
    return rnd.choice(WORDS) + rnd.choice(["", " ", " &amp; ", " two"]) + rnd.choice(WORDS)


def min_sizes(model):
    """The fewest elements an instance of each element needs."""
    INF = 10**9
    size = {n: INF for n in model["elements"]}

    def part_size(p):
        if p[0] == "name":
            base = 1 + size.get(p[1], INF) if p[1] in size else INF
        elif p[0] == "seq":
            base = sum(part_size(m) for m in p[1])
        else:
            base = min(part_size(m) for m in p[1]) if p[1] else 0
        return 0 if p[2] in ("*", "?") else min(base, INF)

    for _ in range(len(size) + 2):
        changed = False
        for n, content in model["elements"].items():
            s = part_size(content[1]) if content[0] == "CHILDREN" else 0
            if s < size[n]:
                size[n], changed = s, True
        if not changed:
            break
    return size, part_size


class Node:
    def __init__(self, name):
        self.name, self.atts, self.items = name, {}, []  # items: Node or str


def generate(rnd, model, budget):
    sizes, part_size = min_sizes(model)
    count = [0]
    ids = []
    pending_refs = []
    declared = list(model["elements"])

    def expand(p, out, tight):
        kind, mod = p[0], p[2]
        if mod in ("*", "?"):
            reps = 0 if tight else (rnd.randint(0, 1) if mod == "?" else rnd.randint(0, 2))
        elif mod == "+":
            reps = 1 if tight else rnd.randint(1, 2)
        else:
            reps = 1
        for _ in range(reps):
            if kind == "name":
                out.append(p[1])
            elif kind == "seq":
                for m in p[1]:
                    expand(m, out, tight)
            elif p[1]:
                options = p[1]
                if tight:
                    best = min(part_size(m) for m in options)
                    options = [m for m in options if part_size(m) == best]
                expand(rnd.choice(options), out, tight)

    def build(name, depth):
        node = Node(name)
        count[0] += 1
        tight = count[0] > budget or depth > 8
        for att in model["attlists"].get(name, []):
            d = att["default"]
            if d == "#REQUIRED" or (d != "#FIXED" and rnd.random() < 0.5) or (d == "#FIXED" and rnd.random() < 0.5):
                if att["type"] == "ID":
                    node.atts[att["name"]] = "id%d" % len(ids)
                    ids.append(node.atts[att["name"]])
                elif att["type"] in ("IDREF", "IDREFS"):
                    pending_refs.append((node, att))
                elif d == "#FIXED":
                    node.atts[att["name"]] = att["value"]
                else:
                    node.atts[att["name"]] = random_value(rnd, att, ids)
        content = model["elements"][name]
        if content[0] == "MIXED":
            if rnd.random() < 0.8:
                node.items.append(rnd.choice(WORDS))
            if content[1] and not tight:
                for _ in range(rnd.randint(0, 2)):
                    child = rnd.choice(content[1])
                    if sizes.get(child, 10**9) < 10**9:
                        node.items.append(build(child, depth + 1))
                        node.items.append(rnd.choice(WORDS))
        elif content[0] == "ANY":
            if not tight:
                small = [n for n in declared if sizes[n] == 0]
                for _ in range(rnd.randint(0, 2)):
                    if small:
                        node.items.append(build(rnd.choice(small), depth + 1))
        elif content[0] == "CHILDREN":
            names = []
            expand(content[1], names, tight)
            for child in names:
                node.items.append("\n" + "  " * depth)
                node.items.append(build(child, depth + 1))
        return node

    root = build(model["root"], 1)
    for node, att in pending_refs:
        if ids:
            node.atts[att["name"]] = " ".join(rnd.sample(ids, min(len(ids), 1 if att["type"] == "IDREF" else 2)))
        elif att["default"] == "#REQUIRED":
            node.atts[att["name"]] = "id0"  # no ID anywhere: invalid, as it must be
    return root


def walk(node):
    yield node
    for item in node.items:
        if isinstance(item, Node):
            yield from walk(item)


def escape(text):
    return text.replace("&", "&amp;").replace("<", "&lt;").replace('"', "&quot;")


def serialize(node, out):
    out.append("<" + node.name)
    for k, v in node.atts.items():
        # Values written by the generator may hold a reference on purpose.
        out.append(' %s="%s"' % (k, v.replace("<", "&lt;").replace('"', "&quot;")))
    if not node.items:
        out.append("/>")
        return
    out.append(">")
    for item in node.items:
        if isinstance(item, Node):
            serialize(item, out)
        else:
            out.append(escape(item))
    out.append("</%s>" % node.name)


def copy_tree(node):
    c = Node(node.name)
    c.atts = dict(node.atts)
    c.items = [copy_tree(i) if isinstance(i, Node) else i for i in node.items]
    return c


MUTATIONS = ["required", "swap", "repeat", "undeclared", "duplicate-id", "dangling-idref", "enumeration", "text"]


def mutate(rnd, model, root, kind):
    """Applies one mutation in place; False when the tree offers no place."""
    nodes = list(walk(root))
    rnd.shuffle(nodes)
    atts_of = lambda n: {a["name"]: a for a in model["attlists"].get(n.name, [])}
    for node in nodes:
        content = model["elements"][node.name]
        children = [i for i, x in enumerate(node.items) if isinstance(x, Node)]
        if kind == "required":
            for a in atts_of(node).values():
                if a["default"] == "#REQUIRED" and a["name"] in node.atts:
                    del node.atts[a["name"]]
                    return True
        elif kind == "swap" and content[0] == "CHILDREN" and len(children) >= 2:
            for i, j in zip(children, children[1:]):
                if node.items[i].name != node.items[j].name:
                    node.items[i], node.items[j] = node.items[j], node.items[i]
                    return True
        elif kind == "repeat" and content[0] == "CHILDREN" and children:
            i = rnd.choice(children)
            node.items.insert(i + 1, copy_tree(node.items[i]))
            for n in walk(node.items[i + 1]):  # the copy keeps no ID
                for a in atts_of(n).values():
                    if a["type"] == "ID" and a["default"] == "#IMPLIED":
                        n.atts.pop(a["name"], None)
                    elif a["type"] == "ID":
                        n.atts[a["name"]] = n.atts.get(a["name"], "c") + "c"
            return True
        elif kind == "undeclared":
            node.items.append(Node("undeclared"))
            return True
        elif kind == "duplicate-id":
            ids = [(n, a["name"]) for n in walk(root) for a in atts_of(n).values() if a["type"] == "ID" and a["name"] in n.atts]
            if len(ids) >= 2:
                (n1, a1), (n2, a2) = ids[0], ids[-1]
                n2.atts[a2] = n1.atts[a1]
                return True
            return False
        elif kind == "dangling-idref":
            for a in atts_of(node).values():
                if a["type"] in ("IDREF", "IDREFS"):
                    node.atts[a["name"]] = "nowhere"
                    return True
        elif kind == "enumeration":
            for a in atts_of(node).values():
                if a["type"] == "ENUM" and a["default"] != "#FIXED":
                    node.atts[a["name"]] = "outside"
                    return True
        elif kind == "text" and content[0] == "CHILDREN":
            node.items.insert(0, "oops")
            return True
    return False


# ---- The fixed definitions ---------------------------------------------------

BOOK = """<!ELEMENT book (title, chapter+, appendix?)>
<!ATTLIST book lang NMTOKEN #IMPLIED edition CDATA #FIXED "1">
<!ELEMENT title (#PCDATA | em)*>
<!ELEMENT chapter (title, (para | note)*, section*)>
<!ATTLIST chapter id ID #REQUIRED kind (intro | body | outro) "body" see IDREFS #IMPLIED>
<!ELEMENT section (title, para+)>
<!ATTLIST section id ID #IMPLIED>
<!ELEMENT para (#PCDATA | em | ref)*>
<!ELEMENT note EMPTY>
<!ATTLIST note to IDREF #REQUIRED>
<!ELEMENT em (#PCDATA)>
<!ELEMENT ref EMPTY>
<!ATTLIST ref target IDREF #REQUIRED>
<!ELEMENT appendix ANY>
"""

DATASET = """<!ELEMENT dataset (group)*>
<!ATTLIST dataset name CDATA #IMPLIED seed CDATA #IMPLIED>
<!ELEMENT group (group | record)*>
<!ATTLIST group id ID #IMPLIED label CDATA #IMPLIED>
<!ELEMENT record (country | city | qty | price | title | note | phone | tag | name | email | code | date)*>
<!ATTLIST record id ID #REQUIRED updated CDATA #IMPLIED region CDATA #IMPLIED
          status (active | pending | deleted | archived | draft | on-hold) 'active' rev NMTOKEN #IMPLIED
          lang NMTOKEN #IMPLIED>
""" + "".join("<!ELEMENT %s (#PCDATA)>\n" % f for f in
              "country city qty price title note phone tag name email code date".split())


def written_model(ozmxml, work, name, dtd_text, root, extra_files=()):
    """The model of a definition as ozmxml reads it, and its files."""
    d = os.path.join(work, "def-" + name)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name + ".dtd"), "w") as f:
        f.write(dtd_text)
    for src in extra_files:
        shutil.copy(src, d)
    stub = os.path.join(d, "stub.xml.txt")
    with open(stub, "w") as f:
        f.write('<!DOCTYPE %s SYSTEM "%s.dtd"><%s/>' % (root, name, root))
    out = subprocess.run([ozmxml, "dtd", stub], capture_output=True, text=True)
    if out.returncode != 0:
        raise SystemExit("ozmxml cannot read the definition %s: %s" % (name, out.stderr))
    model = parse_written_dtd(out.stdout)
    model["root"] = root
    os.remove(stub)
    return model, d


# ---- Running both ------------------------------------------------------------

def run_ours(ozmxml, directory, dtd, jobs):
    cmd = [ozmxml, "validate", "-r", "--format", "json", "--max-errors", "0", "-j", str(jobs)]
    if dtd:
        cmd += ["--dtd", dtd]
    out = subprocess.run(cmd + [directory], capture_output=True, text=True)
    verdicts = {}
    for line in out.stdout.splitlines():
        o = json.loads(line)
        kinds = sorted({e.get("kind", "parse") for e in o["errors"]})
        first = o["errors"][0]["message"] if o["errors"] else ""
        verdicts[os.path.abspath(o["name"])] = (o["status"], kinds, first)
    return verdicts


def run_xmllint(path, dtd):
    cmd = ["xmllint", "--noout"] + (["--dtdvalid", dtd] if dtd else ["--valid"]) + [path]
    out = subprocess.run(cmd, capture_output=True, text=True)
    first = ""
    for line in out.stderr.splitlines():
        if "error" in line:
            first = re.sub(r"^.*?error : ", "", line)
            break
    return out.returncode, first


def classify(ours, lint_rc, lint_first):
    status, kinds, first = ours
    lint = re.sub(r"determinist: .*", "determinist: MODEL", lint_first)
    lint = re.sub(r'"[^"]*"', '"V"', lint)
    lint = re.sub(r"\b(e\d+|a\d+)\b", "N", lint)
    return "ours %s, xmllint %s | ours: %s | xmllint: %s" % (
        status, "valid" if lint_rc == 0 else "invalid (exit %d)" % lint_rc, ",".join(kinds), lint[:90])


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--ozmxml", default=os.path.join(ROOT, "build", "tools", "ozmxml"))
    ap.add_argument("--documents", type=int, default=12000)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--keep", help="write the documents here and keep them")
    ap.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    args = ap.parse_args()
    if not shutil.which("xmllint"):
        raise SystemExit("xmllint is needed (Debian: apt-get install libxml2-utils)")
    rnd = random.Random(args.seed)
    work = args.keep or tempfile.mkdtemp(prefix="ozm-agree-")
    os.makedirs(work, exist_ok=True)

    # (name, model, directory of its files, dtd file or None, mode)
    definitions = []
    fixed = [("book", BOOK, "book"), ("dataset", DATASET, "dataset"),
             ("notes", open(os.path.join(ROOT, "examples", "samples", "notes.dtd")).read(), "notes")]
    for name, text, root in fixed:
        model, d = written_model(args.ozmxml, work, name, text, root)
        definitions.append((name, model, d, os.path.join(d, name + ".dtd"), "system"))
    xhtml = os.path.join(XHTML, "REC-xhtml1-20020801", "xhtml1-strict.dtd")
    if os.path.exists(xhtml):
        ents = [os.path.join(XHTML, "REC-xhtml-modularization-20100729", "xhtml-%s.ent" % e)
                for e in ("lat1", "symbol", "special")]
        model, d = written_model(args.ozmxml, work, "xhtml1-strict", open(xhtml).read(), "html", ents)
        definitions.append(("xhtml", model, d, os.path.join(d, "xhtml1-strict.dtd"), "system"))
        # The library looks for what an external subset names beside the
        # document (XML: beside the subset): the entity sets go there too.
        os.makedirs(os.path.join(work, "docs-xhtml"), exist_ok=True)
        for e in ents:
            shutil.copy(e, os.path.join(work, "docs-xhtml"))
        definitions.append(("xhtml-dtdvalid", model, d, os.path.join(d, "xhtml1-strict.dtd"), "dtdvalid"))
    else:
        print("w3c-sgml-lib is not installed: XHTML 1.0 Strict left out")
    for i in range(40):
        model = random_dtd(rnd, i)
        text = write_dtd(model)
        mode = "internal" if i % 4 else "dtdvalid"
        d = os.path.join(work, "def-gen%d" % i)
        os.makedirs(d, exist_ok=True)
        with open(os.path.join(d, "gen.dtd"), "w") as f:
            f.write(text)
        definitions.append(("gen%d" % i, model, d, os.path.join(d, "gen.dtd"), mode))

    per_definition = max(1, args.documents // len(definitions) + 1)
    files = []  # (path, definition name, mutation, dtd for the run or None)
    for name, model, d, dtd_file, mode in definitions:
        docs = os.path.join(work, "docs-" + name)
        os.makedirs(docs, exist_ok=True)
        budget = 60 if name.startswith("xhtml") else 40
        for k in range(per_definition):
            root = generate(rnd, model, budget)
            mutation = "valid"
            if k % 3:
                mutation = MUTATIONS[k % len(MUTATIONS)]
                if not mutate(rnd, model, root, mutation):
                    mutation = "valid"
            out = []
            serialize(root, out)
            body = "".join(out)
            if mode == "internal":
                head = "<!DOCTYPE %s [\n%s]>\n" % (model["root"], open(dtd_file).read())
            elif mode == "system":
                head = '<!DOCTYPE %s SYSTEM "%s">\n' % (model["root"], dtd_file)
            else:
                head = ""
            path = os.path.join(docs, "d%05d.xml" % k)
            with open(path, "w") as f:
                f.write(head + body + "\n")
            files.append((path, name, mutation, dtd_file if mode == "dtdvalid" else None))

    ours = {}
    for name, model, d, dtd_file, mode in definitions:
        ours.update(run_ours(args.ozmxml, os.path.join(work, "docs-" + name),
                             dtd_file if mode == "dtdvalid" else None, args.jobs))
    with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        lint = list(pool.map(lambda f: run_xmllint(f[0], f[3]), files))

    agree = 0
    classes = collections.Counter()
    examples = {}
    by_mutation = collections.Counter()
    by_definition = collections.Counter()
    for (path, name, mutation, dtd), (rc, first) in zip(files, lint):
        verdict = ours[os.path.abspath(path)]
        same = (verdict[0] == "valid") == (rc == 0) and (verdict[0] != "failed" or rc != 0)
        by_mutation[(mutation, "valid" if rc == 0 else "invalid")] += 1
        by_definition[(name.rstrip("0123456789") if name.startswith("gen") else name, same)] += 1
        if same:
            agree += 1
            continue
        c = classify(verdict, rc, first)
        classes[c] += 1
        examples.setdefault(c, (path, verdict[2], first))
    total = len(files)
    print("documents: %d from %d definitions; agreement %d (%.2f%%)" % (total, len(definitions), agree,
                                                                        100.0 * agree / total))
    print("by mutation (xmllint's verdict):")
    for (mutation, v), n in sorted(by_mutation.items()):
        print("  %-15s %-8s %6d" % (mutation, v, n))
    print("by definition (agree / disagree):")
    for name in sorted({n for n, _ in by_definition}):
        print("  %-15s %6d %6d" % (name, by_definition[(name, True)], by_definition[(name, False)]))
    if classes:
        print("disagreements by class:")
        for c, n in classes.most_common():
            path, ours_first, lint_first = examples[c]
            print("  %5d  %s\n         e.g. %s\n         ours: %s\n         xmllint: %s" % (n, c, path, ours_first,
                                                                                      lint_first))
    if not args.keep:
        shutil.rmtree(work)
    return 0


if __name__ == "__main__":
    sys.exit(main())
