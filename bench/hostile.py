#!/usr/bin/env python3
"""Hostile and large inputs: each is made in a scratch directory and given to
the ozmxml tool under /usr/bin/time -v; prints the exit status, the first
line the tool wrote to standard error, the elapsed time and the peak memory.

    bench/hostile.py [--build DIR] [--large] [NAME...]

NAME picks probes by a part of their name. --large adds the probes that
write files of gigabytes (positions past 2^31).
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile


def doctype(decls, body):
    return '<!DOCTYPE r [<!ELEMENT r ANY>%s]><r>%s</r>' % (decls, body)


def laughs():
    decls = '<!ENTITY a0 "dha">' + ''.join(
        '<!ENTITY a%d "%s">' % (i, ('&a%d;' % (i - 1)) * 10) for i in range(1, 10))
    return doctype(decls, '&a9;')


def names(n):
    return '<r>' + ''.join('<e%d/>' % i for i in range(n)) + '</r>'


def expanding(mb):
    # A document of about mb MB whose references add a tenth to it.
    para = '<p>' + 'word ' * 30 + '&x;</p>\n'
    count = mb * 1000000 // len(para)
    return doctype('<!ENTITY x "%s">' % ('y' * 15), para * count)


# name, command (FILE stands for the input), the input's text or a function
# of the scratch directory that writes it, and whether it is large.
PROBES = [
    ('text of 4,000 units, the first of a slab', 'check FILE', '<a>' + 'a' * 4000 + '</a>', False),
    ('entity naming a FIFO without a writer', 'check FILE',
     lambda d: doctype('<!ENTITY x SYSTEM "%s">' % fifo(d), '&x;'), False),
    ('external subset /dev/stdin on an open pipe', 'check FILE < PIPE',
     '<!DOCTYPE r SYSTEM "/dev/stdin"><r/>', False),
    ('2,000 declarations of one 89 KB file', 'check FILE',
     lambda d: repeated(d, 89000), False),
    ('2,000 declarations of one 122 KB file', 'check FILE',
     lambda d: repeated(d, 122000), False),
    ('generation, 25,000 distinct names', 'dtd --generate FILE', lambda d: names(25000), False),
    ('generation, 100,000 distinct names', 'dtd --generate FILE', lambda d: names(100000), False),
    ('generation, 1,000,000 distinct names', 'dtd --generate FILE', lambda d: names(1000000), False),
    ('200,000 attributes, attribute list declared', 'check FILE',
     lambda d: '<!DOCTYPE r [<!ELEMENT r EMPTY><!ATTLIST r a CDATA #IMPLIED>]><r ' +
     ' '.join('a%d="v"' % i for i in range(200000)) + '/>', False),
    ('content model of 100,000 alternatives', 'check FILE',
     lambda d: '<!DOCTYPE r [<!ELEMENT r (' + '|'.join('e%d' % i for i in range(100000)) + ')*>' +
     ''.join('<!ELEMENT e%d EMPTY>' % i for i in range(100000)) + ']><r/>', False),
    ('2.6 MB page with 260,000 &nbsp;', 'check FILE',
     lambda d: doctype('<!ENTITY nbsp "&#160;">', ('word&nbsp;' * 10 + '\n') * 26000), False),
    ('100 MB document expanding by 9 MB', 'check FILE', lambda d: expanding(100), False),
    ('billion laughs', 'check FILE', lambda d: laughs(), False),
    ('quadratic blowup, 100 KB entity 250,000 times', 'check FILE',
     lambda d: doctype('<!ENTITY a "%s">' % ('x' * 100000), '&a;' * 250000), False),
    ('51 MB document under ulimit -v 300000', 'ULIMIT check FILE',
     lambda d: '<a>' + '<b x="1">text</b>' * 3000000 + '</a>', False),
    ('write of a 51 MB document', 'write -o /dev/null FILE',
     lambda d: '<a>' + '<b x="1">text</b>' * 3000000 + '</a>', False),
    ('tree to a full device', 'tree FILE > /dev/full', '<a><b/></a>', False),
    ('entity value with &#65536;', 'tree FILE', doctype('<!ENTITY e "ab&#65536;cd">', '&e;'), False),
    ('2,200,000,000 line ends before the root', 'check FILE', lambda d: lines(d), True),
]


def fifo(d):
    path = os.path.join(d, 'fifo')
    if not os.path.exists(path):
        os.mkfifo(path)
    return path


def repeated(d, size):
    with open(os.path.join(d, 'ent.txt'), 'w') as f:
        f.write('y' * size)
    return doctype(''.join('<!ENTITY e%d SYSTEM "ent.txt">' % i for i in range(2000)), '')


def lines(d):
    # Written here rather than held as a string: 2.2 GB.
    path = os.path.join(d, 'input.xml')
    block = '\n' * (1 << 20)
    with open(path, 'w') as f:
        for _ in range(2200000000 // len(block)):
            f.write(block)
        f.write('<r></s>')
    return None


def run(tool, name, command, make, workdir):
    path = os.path.join(workdir, 'input.xml')
    text = make(workdir) if callable(make) else make
    if text is not None:
        with open(path, 'w') as f:
            f.write(text)
    shell = command.replace('FILE', 'input.xml')
    prefix = ''
    if shell.startswith('ULIMIT '):
        shell, prefix = shell[7:], 'ulimit -v 300000; '
    stdin = subprocess.DEVNULL
    holder = None
    if '< PIPE' in shell:
        shell = shell.replace(' < PIPE', '')
        holder = subprocess.Popen(['sleep', '30'], stdout=subprocess.PIPE)
        stdin = holder.stdout
    line = '%s/usr/bin/time -v %s %s 2>err.txt' % (prefix, tool, shell)
    proc = subprocess.run(['bash', '-c', line], cwd=workdir, stdin=stdin, stdout=subprocess.DEVNULL)
    if holder:
        holder.kill()
    err = open(os.path.join(workdir, 'err.txt'), errors='replace').read()
    elapsed = re.search(r'Elapsed \(wall clock\) time.*: (\S+)', err)
    rss = re.search(r'Maximum resident set size \(kbytes\): (\d+)', err)
    said = next((l for l in err.splitlines() if not l.startswith('\t') and 'Command' not in l), '')
    print('| %s | %d | %s | %s | %s |' % (name, proc.returncode, said[:90].replace('|', '\\|'),
                                          elapsed.group(1) if elapsed else '?',
                                          '%.0f MB' % (int(rss.group(1)) / 1024) if rss else '?'))
    sys.stdout.flush()


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument('--build', default='build')
    ap.add_argument('--large', action='store_true')
    ap.add_argument('names', nargs='*')
    args = ap.parse_args()
    tool = os.path.abspath(os.path.join(args.build, 'tools', 'ozmxml'))
    print('| probe | exit | first line on standard error | elapsed | peak RSS |')
    print('|---|---|---|---|---|')
    for name, command, make, large in PROBES:
        if large and not args.large:
            continue
        if args.names and not any(n in name for n in args.names):
            continue
        with tempfile.TemporaryDirectory() as workdir:
            run(tool, name, command, make, workdir)


if __name__ == '__main__':
    main()
