#!/usr/bin/env python3
"""Builds the seed corpora of the fuzz targets from the test suite.

Every string literal of tests/ (adjacent literals joined) that holds markup
becomes a seed: documents for the document targets, definitions for the
definition target. The seeds of fuzz/seeds are added to all of them, and the
file target also gets documents in UTF-16 with a byte-order mark.

usage: make_corpus.py SOURCE_DIR OUT_DIR
"""
import hashlib
import pathlib
import re
import sys

LITERAL = re.compile(r'(?:u8|u|U|L)?"((?:[^"\\\n]|\\.)*)"')
ESCAPE = re.compile(r'\\(u[0-9a-fA-F]{4}|U[0-9a-fA-F]{8}|x[0-9a-fA-F]{1,4}|[0-7]{1,3}|.)', re.S)
SIMPLE = {'n': '\n', 't': '\t', 'r': '\r', '0': '\0', '"': '"', "'": "'", '\\': '\\', '?': '?', 'a': '\a',
          'b': '\b', 'f': '\f', 'v': '\v'}


def unescape(text):
    def one(m):
        e = m.group(1)
        if e[0] in 'uU' and len(e) > 1:
            return chr(int(e[1:], 16))
        if e[0] == 'x':
            return chr(int(e[1:], 16))
        if e[0] in '01234567' and e != '0':
            return chr(int(e, 8))
        return SIMPLE.get(e, e)
    return ESCAPE.sub(one, text)


def literals(source):
    """Runs of adjacent string literals, joined."""
    run, last_end = [], None
    for m in LITERAL.finditer(source):
        if last_end is not None and source[last_end:m.start()].strip() == '':
            run.append(m.group(1))
        else:
            if run:
                yield unescape(''.join(run))
            run = [m.group(1)]
        last_end = m.end()
    if run:
        yield unescape(''.join(run))


def write(directory, data):
    directory.mkdir(parents=True, exist_ok=True)
    (directory / hashlib.sha1(data).hexdigest()).write_bytes(data)


def main():
    src, out = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    docs, dtds = set(), set()
    for path in sorted((src / 'tests').rglob('*.cpp')):
        for text in literals(path.read_text(errors='replace')):
            if '<' not in text or len(text) < 3:
                continue
            if re.search(r'<!(ELEMENT|ENTITY|ATTLIST|NOTATION)|<!\[', text) and not text.lstrip().startswith(
                    ('<!DOCTYPE', '<?xml')):
                dtds.add(text)
                docs.add('<!DOCTYPE r [' + text + ']><r/>')
            else:
                docs.add(text)
    seeds = sorted((src / 'fuzz' / 'seeds').glob('*'))
    for target in ('parse_string', 'parse_file', 'round_trip', 'generate', 'fast_path'):
        for text in sorted(docs):
            write(out / target, text.encode('utf-8', 'surrogatepass'))
        for seed in seeds:
            write(out / target, seed.read_bytes())
    for i, text in enumerate(sorted(docs)):
        if i % 8 == 0:
            write(out / 'parse_file', b'\xff\xfe' + text.encode('utf-16-le', 'surrogatepass'))
            write(out / 'parse_file', b'\xfe\xff' + text.encode('utf-16-be', 'surrogatepass'))
    for text in sorted(dtds):
        write(out / 'parse_dtd', text.encode('utf-8', 'surrogatepass'))
    for seed in seeds + sorted((src / 'fuzz' / 'files').glob('*')):
        write(out / 'parse_dtd', seed.read_bytes())
    for d in sorted(out.iterdir()):
        print(d.name, len(list(d.iterdir())))


if __name__ == '__main__':
    main()
