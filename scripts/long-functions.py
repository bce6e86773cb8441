#!/usr/bin/env python3
"""Lists functions longer than a limit (default 60 lines) in the C++ sources given (folders are
searched for .cpp, .hpp and .mm files).

    scripts/long-functions.py [--limit N] [--check] PATH...

A function is found by its head: a line that ends its parameter list and opens a brace, outside
any other function's body. Lambdas and class bodies are counted inside the function that holds
them. With --check the exit status is 1 when any is longer."""
import argparse
import os
import re
import sys

HEAD = re.compile(r'^\s*(?!if\b|for\b|while\b|switch\b|catch\b|do\b|else\b|namespace\b|class\b|struct\b|enum\b|union\b|return\b|extern\b)'
                  r'[^;=]*\)\s*(const\s*)?(noexcept\s*)?(override\s*)?(final\s*)?(->\s*[^{;]+)?\s*(:[^;{]*)?\{\s*(//.*)?$')


def strip(line):
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(\\.|[^'\\])*'", "''", line)
    return line.split('//')[0]


def functions(path):
    with open(path, encoding='utf-8', errors='replace') as f:
        lines = f.readlines()
    out, i = [], 0
    while i < len(lines):
        text = strip(lines[i])
        if HEAD.match(text) and not text.startswith((' ' * 8, '\t\t')):
            depth, j = 0, i
            while j < len(lines):
                t = strip(lines[j])
                depth += t.count('{') - t.count('}')
                if depth <= 0 and '{' in ''.join(strip(x) for x in lines[i:j + 1]):
                    break
                j += 1
            name = re.sub(r'\s+', ' ', text.split('(')[0].strip()).split(' ')[-1]
            out.append((j - i + 1, name, i + 1))
            i = j + 1
            continue
        i += 1
    return out


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--limit', type=int, default=60)
    parser.add_argument('--check', action='store_true')
    parser.add_argument('paths', nargs='+')
    args = parser.parse_args()
    found = []
    for top in args.paths:
        files = [top] if os.path.isfile(top) else [os.path.join(d, n) for d, _, ns in os.walk(top) for n in ns
                                                  if n.endswith(('.cpp', '.hpp', '.mm'))]
        for path in sorted(files):
            found += [(n, name, path, line) for n, name, line in functions(path) if n > args.limit]
    for n, name, path, line in sorted(found, reverse=True):
        print(f'{n:4d}  {name}  {path}:{line}')
    if args.check and found:
        sys.exit(1)


if __name__ == '__main__':
    main()
