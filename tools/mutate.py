#!/usr/bin/env python3
"""Mutation check: how many small planted faults do the quick tests catch?

Every place in the product code where one of these faults can be planted is
listed, a fixed random sample of them is drawn, and each is planted alone
into a scratch copy of the tree, which is rebuilt incrementally and tested
with `ctest -LE integration`:

  compare   a flipped comparison (< and <=, > and >=, == and !=)
  constant  an integer constant one higher or one lower
  delete    a statement removed
  letter    one letter changed in a string (a message, an opcode)
  negate    the condition of an if or while negated
  return    a returned value replaced (true/false swapped, 0 and 1, else {})

A fault that does not compile is left out of the share. The same seed and
sample size draw the same faults as long as the product code is unchanged,
so that runs before and after a change of the tests compare.

With --kill-map FILE every quick test runs against every fault and the
names of the tests that failed are written to FILE, a line a fault, so that
one can see which tests catch what no other test catches.

  tools/mutate.py [--sample N] [--seed S] [--scratch DIR] [--only ID...] [--list]
                  [--kill-map FILE] [--at FILE:LINE...] [--sanitized]

--at plants every fault a named line can carry instead of a sample.

--sanitized builds and tests with AddressSanitizer and UndefinedBehavior-
Sanitizer, as the second round of `make test` does: a read past a buffer or
a leak fails there and nowhere else. It is several times slower, so it is
meant for the survivors of a plain run (--only with their numbers).

A run's survivors are classified in a verdicts file, a line each:

  <the survivor as the run printed it> | <class> | <one-line reason>

with class one of gap, equivalent, speed-only or unreachable. With
--verdicts FILE the summary counts only behaviour-changing faults (caught,
gaps and survivors not yet classified); --classify LOG applies the verdicts
to the output of an earlier run instead of running anything; given several
logs, a fault's last outcome counts (a plain run, then its survivors again
under --sanitized).
"""
import argparse
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

PRODUCT_DIRS = ("source", "Converters", "SF2", "DLS", "ACID", "RIFF")
ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

COMPARISON = re.compile(r"(?<=\s)(<=|>=|==|!=|<|>)(?=\s)")
FLIPPED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
INTEGER = re.compile(r"(?<![\w.])(0[xX][0-9A-Fa-f]+|\d+)(?=[uUlL]*(?![\w.]))")
CONDITION = re.compile(r"\b(?:if|while) \(")
ASSIGNMENT = re.compile(r"(?<![=<>!])=(?!=)")  # an if with a declaration
RETURN = re.compile(r"\breturn (.+);\s*$")
NOT_A_STATEMENT = re.compile(
    r"^\s*(return\b|using\b|namespace\b|struct\b|class\b|enum\b|typedef\b|case\b|default\b|"
    r"public:|private:|protected:|static_assert\b|friend\b|template\b|extern\b|virtual\b|\}|\{)")
DECLARATION = re.compile(
    r"^\s*(?:(?:const|static|constexpr|inline|unsigned|auto|mutable)\s+)*[A-Za-z_][\w:]*"
    r"(?:<[^;=]*>)?[\s*&]+[A-Za-z_]\w*\s*(?:[=;({\[,]|$)")
DEFAULT_VALUES = {"nullptr", "{}", "std::string()", '""'}


def code_mask(lines):
    """Per line, a string of 'c' (code), 's' (inside a string literal) and
    ' ' (comment, quote characters, preprocessor) for every character."""
    masks, in_block = [], False
    for line in lines:
        mask = [" "] * len(line)
        if not in_block and line.lstrip().startswith("#"):
            masks.append("".join(mask))
            continue
        i, quote = 0, None
        while i < len(line):
            pair = line[i:i + 2]
            if in_block:
                if pair == "*/":
                    in_block = False
                    i += 1
            elif quote:
                if line[i] == "\\":
                    mask[i] = mask[min(i + 1, len(line) - 1)] = "e"
                    i += 1
                elif line[i] == quote:
                    quote = None
                else:
                    mask[i] = "s" if quote == '"' else "e"
            elif pair == "//":
                break
            elif pair == "/*":
                in_block = True
                i += 1
            elif line[i] in "\"'":
                quote = line[i]
            else:
                mask[i] = "c"
            i += 1
        masks.append("".join(mask))
    return masks


def matching_paren(line, mask, open_at):
    depth = 0
    for i in range(open_at, len(line)):
        if mask[i] != "c":
            continue
        depth += {"(": 1, ")": -1}.get(line[i], 0)
        if depth == 0:
            return i
    return None


def next_letter(c):
    base = "a" if c.islower() else "A"
    return chr((ord(c) - ord(base) + 1) % 26 + ord(base))


def sites_in_line(line, mask):
    """(kind, start, end, replacement) for every fault this line can carry."""
    code = "".join(ch if m == "c" else " " for ch, m in zip(line, mask))
    if not code.strip():
        return
    for m in COMPARISON.finditer(code):
        yield "compare", m.start(), m.end(), FLIPPED[m.group(1)]
    for m in INTEGER.finditer(code):
        text = m.group(1)
        value = int(text, 0) if not re.fullmatch(r"0\d+", text) else int(text, 8)
        delta = 1 if value == 0 or m.start() % 2 else -1  # one fault per constant
        new = hex(value + delta) if text.lower().startswith("0x") else str(value + delta)
        yield "constant", m.start(), m.end(), new
    for m in CONDITION.finditer(code):
        close = matching_paren(line, mask, m.end() - 1)
        if close is not None and not ASSIGNMENT.search(code[m.end():close]):
            yield "negate", m.end(), close, "!(" + line[m.end():close] + ")"
    ret = RETURN.search(code)
    if ret:
        value = line[ret.start(1):ret.end(1)].strip()
        swap = {"true": "false", "false": "true", "0": "1", "1": "0"}
        if value not in DEFAULT_VALUES:
            yield "return", ret.start(1), ret.end(1), swap.get(value, "{}")
    stripped = code.rstrip()
    if (stripped.endswith(";") and not NOT_A_STATEMENT.match(code)
            and not DECLARATION.match(code) and not re.search(r"= (default|delete);", code)
            and code.count("(") == code.count(")") and code.count("{") == code.count("}")):
        start = len(line) - len(line.lstrip())
        yield "delete", start, len(stripped), ";"
    # One letter per string literal: the middle one, not a printf conversion.
    for m in re.finditer(r"s+", mask):
        letters = [i for i in range(m.start(), m.end())
                   if line[i].isalpha() and line[i - 1] != "%"]
        if letters:
            i = letters[len(letters) // 2]
            yield "letter", i, i + 1, next_letter(line[i])


def product_files(root):
    out = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", *PRODUCT_DIRS],
                         cwd=root, capture_output=True, text=True, check=True).stdout
    return sorted(f for f in out.split() if f.endswith((".cpp", ".h")))


def all_sites(root):
    sites = []
    for path in product_files(root):
        with open(os.path.join(root, path), encoding="utf-8") as f:
            lines = f.read().split("\n")
        for number, (line, mask) in enumerate(zip(lines, code_mask(lines)), 1):
            for kind, start, end, new in sites_in_line(line, mask):
                sites.append((path, number, kind, start, end, new))
    return sites


def describe(site):
    path, number, kind, start, end, new = site
    return f"{path}:{number} {kind}: -> {new.strip()[:60]!r}"


def sync_tree(root, scratch):
    """Copies the working tree into the scratch source folder, touching only
    files whose content changed so that the rebuild stays incremental, and
    with each file's permissions."""
    out = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=root,
                         capture_output=True, text=True, check=True).stdout
    for path in out.split("\n"):
        src = os.path.join(root, path)
        if not path or not os.path.isfile(src):
            continue
        dst = os.path.join(scratch, path)
        with open(src, "rb") as f:
            data = f.read()
        if os.path.isfile(dst):
            with open(dst, "rb") as f:
                same = f.read() == data
        else:
            same = False
        if not same:
            os.makedirs(os.path.dirname(dst), exist_ok=True)
            with open(dst, "wb") as f:
                f.write(data)
        # The shipping tests run scripts of the tree: keep them executable.
        shutil.copymode(src, dst)


# In-process tests lift the converter's output limit, so a fault that loops
# on a write would fill the disk before its time runs out: no file may pass
# this size (the process is stopped by SIGXFSZ, which counts as caught).
FILE_SIZE_LIMIT = 2 << 30


def limit_file_size():
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_SIZE_LIMIT, FILE_SIZE_LIMIT))


# What `make test` sets for its sanitized round.
SANITIZER_ENV = {"ASAN_OPTIONS": "detect_leaks=1:abort_on_error=1",
                 "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1"}


def run(command, cwd, timeout):
    """Exit status of `command`, or None when it ran out of time; a command
    out of time is ended with everything it started."""
    process = subprocess.Popen(command, cwd=cwd, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, start_new_session=True,
                               preexec_fn=limit_file_size, env={**os.environ, **SANITIZER_ENV})
    try:
        return process.wait(timeout=timeout)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return None


def build(build_dir, jobs):
    return run(["cmake", "--build", ".", "-j", str(jobs)], build_dir, 900) == 0


# The tests that take seconds each. ctest starts the longest first, so a
# fault the quick ones catch would still wait for these: without a kill map
# they run only once the others pass.
SLOW_TESTS = (r"Cancellation\.|EachFileAndFolderCostsABlock|FoldersSwappedForLinks|PCreateDirMakesOne|"
              r"PartialWritesAreReported|OutputStaysWithin|HintLoadMethod|batch|man_page|install|completion|"
              r"debian_package")


def failing_tests(build_dir, jobs, every_test=False):
    """The quick tests that fail (or hang: that counts as caught too), or an
    empty list when all pass. Without every_test, the run stops at the first
    failure and the list names no test."""
    failed_log = os.path.join(build_dir, "Testing", "Temporary", "LastTestsFailed.log")
    if os.path.exists(failed_log):
        os.remove(failed_log)
    command = ["ctest", "-LE", "integration", "-j", str(jobs)]
    if every_test:
        phases = [command]
    else:
        command.append("--stop-on-failure")
        phases = [command + ["-E", SLOW_TESTS], command + ["-R", SLOW_TESTS]]
    for phase in phases:
        status = run(phase, build_dir, 240 if every_test else 120)
        if status != 0:
            break
    if status == 0:
        return []
    if not every_test or not os.path.exists(failed_log):
        return ["?"]
    with open(failed_log) as f:
        return [line.strip().split(":", 1)[-1] for line in f if line.strip()]


def plant(src_dir, site):
    path, number, kind, start, end, new = site
    full = os.path.join(src_dir, path)
    with open(full, encoding="utf-8") as f:
        original = f.read()
    lines = original.split("\n")
    line = lines[number - 1]
    lines[number - 1] = line[:start] + new + line[end:]
    with open(full, "w", encoding="utf-8") as f:
        f.write("\n".join(lines))
    return full, original


def report_kill_map(killers):
    """Per test, the faults it catches and those no other test catches: a
    test that catches nothing alone is the first to look at when cutting."""
    alone, total = {}, {}
    for tests in killers:
        for test in tests:
            total[test] = total.get(test, 0) + 1
        if len(tests) == 1:
            alone[tests[0]] = alone.get(tests[0], 0) + 1
    print("\ncaught by (alone / in all):")
    for test in sorted(total, key=lambda t: (alone.get(t, 0), total[t])):
        print(f"  {alone.get(test, 0):3} / {total[test]:3}  {test}")


NOT_BEHAVIOUR = ("equivalent", "speed-only", "unreachable")
CLASSES = ("gap",) + NOT_BEHAVIOUR


def read_verdicts(path):
    """{survivor description: (class, reason)} from a verdicts file."""
    verdicts = {}
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            if not line.strip() or line.startswith("#"):
                continue
            fields = line.rstrip("\n").rsplit(" | ", 2)
            if len(fields) != 3 or fields[1] not in CLASSES:
                raise SystemExit(f"{path}:{number}: expected 'survivor | class | reason'")
            verdicts[fields[0].strip()] = (fields[1], fields[2].strip())
    return verdicts


def summarize(caught, survivors, verdicts):
    """Prints every survivor with its verdict and the share of behaviour-
    changing faults caught; survivors are (number, description) pairs."""
    counts = {name: 0 for name in CLASSES + ("unclassified",)}
    for n, text in sorted(survivors):
        verdict, reason = verdicts.get(text, ("unclassified", ""))
        counts[verdict] += 1
        print(f"  survivor #{n} {text} | {verdict} | {reason}")
    changing = caught + counts["gap"] + counts["unclassified"]
    share = 100.0 * caught / changing if changing else 0.0
    print(f"behaviour-changing: {caught} of {changing} caught ({share:.1f} %); "
          + ", ".join(f"{counts[name]} {name}" for name in CLASSES + ("unclassified",)))


def classify_logs(log_paths, verdicts):
    outcomes = {}  # fault number: (outcome, description); the last log wins
    pattern = re.compile(r"^#(\d+) (caught|SURVIVED): (.*)$")
    for log_path in log_paths:
        with open(log_path, encoding="utf-8") as f:
            for line in f:
                m = pattern.match(line.rstrip("\n"))
                if m:
                    outcomes[int(m.group(1))] = (m.group(2), m.group(3))
    caught = sum(1 for outcome, _ in outcomes.values() if outcome == "caught")
    survivors = [(n, text) for n, (outcome, text) in outcomes.items() if outcome == "SURVIVED"]
    summarize(caught, survivors, verdicts)
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--sample", type=int, default=220)
    parser.add_argument("--seed", type=int, default=13)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--scratch", default="/tmp/sorvane-mutate")
    parser.add_argument("--only", type=int, nargs="*", help="sample numbers to run alone")
    parser.add_argument("--list", action="store_true", help="print the sample, run nothing")
    parser.add_argument("--at", nargs="*", help="FILE:LINE places to plant every fault of")
    parser.add_argument("--kill-map", help="run every test against every fault; write who fails here")
    parser.add_argument("--verdicts", help="classified survivors: 'survivor | class | reason' lines")
    parser.add_argument("--classify", metavar="LOG", nargs="+", help="apply --verdicts to earlier runs' output")
    parser.add_argument("--sanitized", action="store_true", help="build and test under the address sanitizer")
    args = parser.parse_args()
    verdicts = read_verdicts(args.verdicts) if args.verdicts else {}
    if args.classify:
        return classify_logs(args.classify, verdicts)

    sites = all_sites(ROOT)
    # The first N of one fixed shuffle: a larger sample extends a smaller one.
    random.Random(args.seed).shuffle(sites)
    sample = sites[:args.sample]
    chosen = list(enumerate(sample, 1))
    if args.at:
        wanted = {tuple(place.rsplit(":", 1)) for place in args.at}
        chosen = [(n, s) for n, s in enumerate(sites, 1) if (s[0], str(s[1])) in wanted]
    if args.only:
        chosen = [(n, s) for n, s in chosen if n in args.only]
    drawn = f"{len(chosen)} at the named lines" if args.at else f"sample {len(sample)} with seed {args.seed}"
    print(f"{len(sites)} places for a fault; {drawn}")
    if args.list:
        for n, site in chosen:
            print(f"#{n} {describe(site)}")
        return 0

    src_dir = os.path.join(args.scratch, "src")
    build_dir = os.path.join(args.scratch, "build-asan" if args.sanitized else "build")
    sync_tree(ROOT, src_dir)
    if not os.path.isdir(build_dir):
        flavour = (["-DCMAKE_BUILD_TYPE=Debug", "-DSORVANE_SANITIZE=ON"] if args.sanitized
                   else ["-DCMAKE_BUILD_TYPE=RelWithDebInfo"])
        subprocess.run(["cmake", "-S", src_dir, "-B", build_dir, "-DSORVANE_TESTS=ON"] + flavour,
                       stdout=subprocess.DEVNULL, check=True)
    if not build(build_dir, args.jobs) or failing_tests(build_dir, args.jobs):
        print("the unchanged tree does not build or pass its tests")
        return 1

    caught, survived, stillborn, killers = [], [], [], []
    kill_map = open(args.kill_map, "w") if args.kill_map else None
    began = time.time()
    # Grouped by file, so that one file is recompiled for a run of faults.
    for n, site in sorted(chosen, key=lambda item: (item[1][0], item[1][1], item[0])):
        full, original = plant(src_dir, site)
        failed = []
        try:
            if not build(build_dir, args.jobs):
                stillborn.append((n, site))
                verdict = "does not build"
            else:
                failed = failing_tests(build_dir, args.jobs, every_test=bool(kill_map))
                verdict = "caught" if failed else "SURVIVED"
                (caught if failed else survived).append((n, site))
        finally:
            with open(full, "w", encoding="utf-8") as f:
                f.write(original)
        print(f"#{n} {verdict}: {describe(site)}", flush=True)
        if kill_map and verdict != "does not build":
            print(f"#{n} {describe(site)} | {' '.join(failed)}", file=kill_map, flush=True)
            if failed:
                killers.append(failed)
    build(build_dir, args.jobs)

    live = len(caught) + len(survived)
    share = 100.0 * len(caught) / live if live else 0.0
    print(f"\n{len(chosen)} faults in {time.time() - began:.0f} s: {len(stillborn)} do not build, "
          f"{len(caught)} of {live} caught ({share:.1f} %)")
    if args.verdicts:
        summarize(len(caught), [(n, describe(site)) for n, site in survived], verdicts)
    else:
        for n, site in sorted(survived):
            print(f"  survivor #{n} {describe(site)}")
    if kill_map:
        kill_map.close()
        report_kill_map(killers)
    return 0


if __name__ == "__main__":
    sys.exit(main())
