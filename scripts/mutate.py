#!/usr/bin/env python3
"""Mutation testing of the library and of the GPU layer's conversion, packing, fence and cache code.

Each mutant changes one token of one line (relational and arithmetic operator swaps, a constant
+1/-1, true/false, a negated condition, an error line demoted to a warning, two swapped call
arguments, a deleted call statement such as glFlush() or a lock_guard). The mutants of the chosen
files are enumerated, a seeded sample is taken, and each one is applied to a private copy of the
tree (build-mut/tree), built incrementally with ninja (build-mut/build) and tested with the
one-process test binaries, stopping at the first failure. The copy is restored after each mutant.

    scripts/mutate.py --count 200 --seed 1            # sample and run
    scripts/mutate.py --list | head                   # enumerate only
    scripts/mutate.py --only 17,42                    # rerun chosen mutant numbers of the sample
    scripts/mutate.py --match 'Fence.*push_back'      # rerun mutants by file and line text
    scripts/mutate.py --count 300 --skip-done         # go on with a sample, leaving out mutants
                                                      # the results file already has

Numbers change whenever the mutated sources change (the sample is drawn from a new list), so
--match and --skip-done identify a mutant by its file, line text and mutation instead.

A mutant is killed when the build succeeds and a test fails or times out; mutants that do not
compile are reported apart and left out of the score. Not part of CI: a run takes about half a
minute per mutant.
"""
import argparse
import json
import os
import random
import re
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, "build-mut")
TREE = os.path.join(WORK, "tree")
BUILD = os.path.join(WORK, "build")

DEFAULT_FILES = ["src/*.cpp", "src/*.h"] + [
    "host/gpu/" + name
    for name in (
        "YuvShaderCode.cpp",
        "YuvConversion.cpp",
        "YuvPassPrograms.cpp",
        "NativeFence.cpp",
        "FenceFdTracker.cpp",
        "ImageTexture.cpp",
        "NativeBufferImage.cpp",
        "EglSyncEntries.cpp",
        "EglImageEntries.cpp",
    )
]

# Calls whose removal the tests are expected to notice. Log, trace and GL error checks are left
# alone: their lines are diagnostics, not behaviour.
DELETABLE = re.compile(
    r"^\s*(?:std::lock_guard<[^>]*>\s+\w+\(.*\)|std::unique_lock<[^>]*>\s+\w+\(.*\)|"
    r"android::Mutex::Autolock\s+\w+\(.*\)|"
    r"(?:[\w:]+(?:\.|->))*(?:gl[A-Z]\w*|egl[A-Z]\w*|unlock|lock|close|flush|clear|erase|"
    r"push_back|emplace_back|pop_front|notify_all|notify_one|release|reset|signal|"
    r"\w*[Ww]rite[Bb]ack\w*|\w*[Uu]pload\w*|\w*[Rr]elease\w*|\w*[Dd]estroy\w*|\w*[Dd]elete\w*)"
    r"\(.*\));\s*$"
)
NOT_CODE = re.compile(r"^\s*(?://|\*|/\*|#)")
SWAPS = [
    (" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "),
    (" == ", " != "), (" != ", " == "), (" && ", " || "), (" || ", " && "),
    (" + ", " - "), (" - ", " + "), (" * ", " / "), (" / ", " * "),
    ("true", "false"), ("false", "true"), ("ZEL_LOGE(", "ZEL_LOGW("),
]
NUMBER = re.compile(r"(?<![\w.])(0x[0-9a-fA-F]+|\d+)(?=[uUlL]*\b)(?![.\w])")
TWO_ARGS = re.compile(r"\b(\w+)\((\w[\w.>-]*), (\w[\w.>-]*)\)")
CONDITION = re.compile(r"\b(if|while) \((.*)\) \{\s*$")


def strip_strings(line):
    """The line with the insides of string and character literals blanked, same length."""
    return re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'', lambda m: "_" * len(m.group(0)), line)


def code_part(line):
    blank = strip_strings(line)
    cut = blank.find("//")
    return blank if cut < 0 else blank[:cut]


def mutants_of(path, text):
    lines = text.split("\n")
    result = []
    in_comment = False
    for number, line in enumerate(lines):
        stripped = line.strip()
        if in_comment:
            if "*/" in stripped:
                in_comment = False
            continue
        if stripped.startswith("/*") and "*/" not in stripped:
            in_comment = True
            continue
        if not stripped or NOT_CODE.match(line) or "static_assert" in line:
            continue
        code = code_part(line)

        def add(kind, start, end, new):
            result.append({"file": path, "line": number + 1, "kind": kind,
                           "old": line, "new": line[:start] + new + line[end:]})

        for old, new in SWAPS:
            if old in ("true", "false"):
                for m in re.finditer(r"\b%s\b" % old, code):
                    add("bool", m.start(), m.end(), new)
                continue
            start = code.find(old)
            while start >= 0:
                if not (old.strip() in "*/" and re.search(r"\w\*? $", code[:start + 1]) is None):
                    add("operator", start, start + len(old), new)
                start = code.find(old, start + 1)
        is_log = re.search(r"\bZEL_(?:LOG|FATAL|TRACE|CHECK)|\bALOG|\blog\w*\(", code)
        if not is_log and not re.search(r"\[\s*\w*\s*\]\s*=|#|alignas", code):
            for m in NUMBER.finditer(code):
                value = int(m.group(1), 0)
                text_new = [str(value + 1)] + ([str(value - 1)] if value > 0 else [])
                if m.group(1).startswith("0x"):
                    text_new = [hex(value + 1)] + ([hex(value - 1)] if value > 0 else [])
                for new in text_new:
                    add("constant", m.start(1), m.end(1), new)
        m = CONDITION.search(code)
        if m:
            add("negate", m.start(2), m.end(2), "!(" + m.group(2) + ")")
        if not is_log:
            for m in TWO_ARGS.finditer(code):
                if m.group(2) != m.group(3) and m.group(1) not in ("if", "while", "for", "sizeof"):
                    first = line[m.start(2):m.end(2)]
                    second = line[m.start(3):m.end(3)]
                    add("swap-args", m.start(2), m.end(3), second + ", " + first)
        if DELETABLE.match(code) and not stripped.startswith("return"):
            indent = line[: len(line) - len(line.lstrip())]
            result.append({"file": path, "line": number + 1, "kind": "delete-call",
                           "old": line, "new": indent + "(void)0;  // deleted"})
    return result


def enumerate_mutants(patterns):
    import glob
    files = []
    for pattern in patterns:
        files += sorted(os.path.relpath(p, ROOT) for p in glob.glob(os.path.join(ROOT, pattern)))
    mutants = []
    for path in files:
        with open(os.path.join(ROOT, path)) as f:
            mutants += mutants_of(path, f.read())
    return mutants


def sync_tree():
    """Copies the changed files of the worktree into the private tree. Copies get a fresh mtime,
    so that ninja rebuilds what an interrupted run left built from a mutant."""
    tracked = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                             capture_output=True, text=True).stdout.split("\n")
    for path in filter(None, tracked):
        src = os.path.join(ROOT, path)
        dst = os.path.join(TREE, path)
        if not os.path.isfile(src):
            continue
        os.makedirs(os.path.dirname(dst), exist_ok=True)
        if os.path.exists(dst):
            with open(src, "rb") as a, open(dst, "rb") as b:
                if a.read() == b.read():
                    continue
        shutil.copyfile(src, dst)


def run(cmd, timeout, env=None):
    try:
        proc = subprocess.run(cmd, cwd=BUILD, capture_output=True, text=True, timeout=timeout,
                              env=env)
        return proc.returncode, proc.stdout[-3000:] + proc.stderr[-3000:]
    except subprocess.TimeoutExpired:
        return "timeout", ""


def configure():
    if os.path.exists(os.path.join(BUILD, "build.ninja")):
        return
    subprocess.run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O1", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"],
                   check=True, stdout=subprocess.DEVNULL)


TARGETS = ["zel_unit_tests", "zel_host_tests", "zel_test_checker"]


def build():
    return run(["ninja", "-j2"] + TARGETS, 600)


def test(mutant, timeout, skip=""):
    env = dict(os.environ, GTEST_FAIL_FAST="1", GTEST_BRIEF="1")
    if skip:
        env["GTEST_FILTER"] = "-" + skip
    binaries = ["zel_unit_tests_one_process"]
    if mutant is not None and mutant["file"].startswith("host/"):
        binaries = ["zel_host_tests_one_process", "zel_unit_tests_one_process"]
    for name in binaries:
        code, out = run(["ctest", "-R", "^%s$" % name, "--timeout", str(timeout)], timeout + 30,
                        env)
        if code != 0:
            return "killed", name
    return "survived", ""


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--files", nargs="*", default=DEFAULT_FILES)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("--match", default="", help="regex over 'file: line -> mutated line'; any mutant")
    parser.add_argument("--skip-tests", default="",
                        help="gtest pattern of tests left out (one failing on the unmutated tree)")
    parser.add_argument("--skip-done", action="store_true",
                        help="leave out mutants already in the results file")
    parser.add_argument("--timeout", type=int, default=240, help="seconds per test binary")
    parser.add_argument("--results", default=os.path.join(WORK, "results.jsonl"))
    args = parser.parse_args()

    mutants = enumerate_mutants(args.files)
    rng = random.Random(args.seed)
    sample = rng.sample(mutants, min(args.count, len(mutants)))
    for index, mutant in enumerate(sample):
        mutant["id"] = index
    if args.list:
        print("%d mutants in %d lines of choice, sample of %d" % (
            len(mutants), len({(m["file"], m["line"]) for m in mutants}), len(sample)))
        for m in sample:
            print("#%d %s:%d %s: %s" % (m["id"], m["file"], m["line"], m["kind"], m["new"].strip()))
        return 0
    if args.only:
        chosen = {int(x) for x in args.only.split(",")}
        sample = [m for m in sample if m["id"] in chosen]
    if args.match:
        pattern = re.compile(args.match)
        sample = [m for m in mutants
                  if pattern.search("%s: %s -> %s" % (m["file"], m["old"].strip(), m["new"].strip()))]
        for m in sample:
            m.setdefault("id", -1)
    if args.skip_done and os.path.exists(args.results):
        with open(args.results) as f:
            done = {(d["file"], d["old"], d["new"]) for d in map(json.loads, filter(None, f))}
        sample = [m for m in sample if (m["file"], m["old"], m["new"]) not in done]

    os.makedirs(WORK, exist_ok=True)
    sync_tree()
    configure()
    code, out = build()
    if code != 0:
        print(out)
        sys.exit("mutate: the unmutated tree does not build")
    if test(None, args.timeout, args.skip_tests)[0] != "survived" or \
            test({"file": "host/"}, args.timeout, args.skip_tests)[0] != "survived":
        sys.exit("mutate: the unmutated tree fails its tests")

    counts = {"killed": 0, "survived": 0, "no-build": 0}
    survivors = []
    with open(args.results, "a") as log:
        for mutant in sample:
            path = os.path.join(TREE, mutant["file"])
            with open(path) as f:
                original = f.read()
            lines = original.split("\n")
            assert lines[mutant["line"] - 1] == mutant["old"]
            lines[mutant["line"] - 1] = mutant["new"]
            started = time.time()
            try:
                with open(path, "w") as f:
                    f.write("\n".join(lines))
                code, out = build()
                if code != 0:
                    outcome, by = "no-build", ""
                else:
                    outcome, by = test(mutant, args.timeout, args.skip_tests)
            finally:
                with open(path, "w") as f:
                    f.write(original)
            counts[outcome] += 1
            if outcome == "survived":
                survivors.append(mutant)
            mutant.update(outcome=outcome, by=by, seconds=round(time.time() - started, 1))
            log.write(json.dumps(mutant) + "\n")
            log.flush()
            print("#%d %-8s %s:%d %s: %s" % (mutant["id"], outcome, mutant["file"], mutant["line"],
                                            mutant["kind"], mutant["new"].strip()), flush=True)
    build()  # leave the private tree built as the worktree is

    valid = counts["killed"] + counts["survived"]
    print("\nmutants: %d, not compiling: %d, killed: %d, survived: %d, score: %.1f%%" % (
        len(sample), counts["no-build"], counts["killed"], counts["survived"],
        100.0 * counts["killed"] / valid if valid else 0.0))
    for m in survivors:
        print("survivor #%d %s:%d %s: %s" % (m["id"], m["file"], m["line"], m["kind"],
                                             m["new"].strip()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
