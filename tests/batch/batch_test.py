#!/usr/bin/env python3
"""sorvane-batch over a generated library: what each input comes to, where
its folder goes, reruns, a failed reconversion, signals, shards and the
command line. The JSON report is read back with Python's own parser.

    batch_test.py SORVANE_BATCH EXAMPLES_FOLDER [TEST_CLASS ...]
"""
import json
import os
import pty
import re
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest

BATCH, EXAMPLES = sys.argv[1], sys.argv[2]
OWN_FILES = {"sorvane.log", "results.txt", "sorvane-batch.stamp"}
# Bytes as file names: a quote, a backslash, a control byte and a byte that is no UTF-8.
WEIRD = b'we"ird\\\x01\xff.sf2'


def run(args, cwd, env=None):
    result = subprocess.run([BATCH] + args, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                            capture_output=True, timeout=240)
    result.err = result.stderr.decode(errors="replace")
    assert "Sanitizer" not in result.err and "runtime error" not in result.err, result.err
    return result


def read_report(path):
    with open(path, "rb") as report:
        return json.loads(report.read().decode("utf-8"))


def read_bytes(path):
    with open(path, "rb") as file:
        return file.read()


def by_input(records):
    return {record["input"]: record for record in records}


def chunk(name, body):
    return name + struct.pack("<I", len(body)) + body + b"\0" * (len(body) % 2)


def short_acid_loop():
    """A loop whose acid chunk is cut short: converted, with a warning."""
    fmt = chunk(b"fmt ", struct.pack("<HHIIHH", 1, 1, 44100, 88200, 2, 16))
    data = chunk(b"data", b"".join(struct.pack("<h", i * 50) for i in range(400)))
    body = b"WAVE" + fmt + chunk(b"acid", bytes(8)) + data
    return b"RIFF" + struct.pack("<I", len(body)) + body


def copy_example(name, to):
    os.makedirs(os.path.dirname(to), exist_ok=True)
    shutil.copyfile(os.path.join(EXAMPLES, name), to)


def files_below(root):
    return sorted(os.path.relpath(os.path.join(folder, name), root)
                  for folder, _, names in os.walk(root) for name in names)


def hidden_below(root):
    return [os.path.join(folder, name) for folder, folders, names in os.walk(root)
            for name in folders + names if name.startswith(".")]


def sfz_samples(path):
    """The files an SFZ file plays, resolved as a player does: relative to
    the SFZ file's folder, after the last default_path."""
    default, samples = "", []
    with open(path, encoding="utf-8", errors="surrogateescape") as sfz:
        for line in sfz:
            line = line.strip()
            if line.startswith("default_path="):
                default = line[len("default_path="):]
            elif line.startswith("sample="):
                samples.append(os.path.join(os.path.dirname(path), default, line[len("sample="):]))
    return samples


class Library(unittest.TestCase):
    """One library through a first run, a move of its output, a rerun, a
    failed reconversion and --force."""

    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="sorvane-batch-test-")
        self.lib = os.path.join(self.root, "lib")
        lib = self.lib
        copy_example("demo.sf2", f"{lib}/GM/demo.sf2")
        copy_example("demo_collection.dls", f"{lib}/GM/demo.dls")  # one stem, two extensions
        copy_example("demo.sf2", f"{lib}/GM/LOUD.SBK")
        copy_example("demo_loop.wav", f"{lib}/loops/demo_loop.wav")
        copy_example("demo_loop.wav", f"{lib}/loops/tab\tloop.wav")
        with open(f"{lib}/loops/short_acid.wav", "wb") as loop:
            loop.write(short_acid_loop())
        copy_example("demo_song.rmi", f"{lib}/songs/demo_song.rmi")
        os.chmod(f"{lib}/songs", 0o555)
        os.makedirs(f"{lib}/broken")
        with open(f"{lib}/broken/broken.dls", "wb") as broken:
            broken.write(b"garbage, not a collection")
        with open(f"{lib}/notes.txt", "w") as notes:
            notes.write("not a bank")
        copy_example("demo.sf2", f"{lib}/.hidden/demo.sf2")
        copy_example("demo.sf2", os.fsdecode(os.fsencode(lib) + b"/" + WEIRD))
        os.symlink("GM", f"{lib}/folder_link")  # not followed
        os.symlink("GM/demo.sf2", f"{lib}/linked.sf2")  # followed
        os.symlink("missing.sf2", f"{lib}/dangling.sf2")
        self.songs_before = sorted(os.listdir(f"{lib}/songs"))
        # The output folder lies inside the library: no rerun may take it for input.
        self.command = ["-j2", "--json", "report.json", "-o", "lib/out", "lib", "lib/notes.txt"]

    def tearDown(self):
        os.chmod(f"{self.lib}/songs", 0o755)
        shutil.rmtree(self.root)

    def batch(self, extra=()):
        result = run(list(extra) + self.command, self.root)
        return result, by_input(read_report(os.path.join(self.root, "report.json")))

    def folder(self, relative):
        return os.path.join(self.lib, "out", relative)

    def test_library_run_rerun_failed_reconversion_and_force(self):
        result, records = self.batch()
        self.assertEqual(result.returncode, 1, result.err)
        weird = "lib/" + WEIRD.decode("utf-8", errors="replace")
        expected = {"lib/GM/demo.sf2": "converted", "lib/GM/demo.dls": "converted", "lib/GM/LOUD.SBK": "converted",
                    "lib/loops/demo_loop.wav": "converted", "lib/loops/short_acid.wav": "warnings",
                    "lib/loops/tab\tloop.wav": "converted",
                    "lib/songs/demo_song.rmi": "converted", "lib/broken/broken.dls": "failed",
                    "lib/notes.txt": "failed", "lib/linked.sf2": "converted", weird: "converted"}
        self.assertEqual({name: record["class"] for name, record in records.items()}, expected)
        self.assertEqual(records["lib/loops/short_acid.wav"]["warnings"],
                         ["acid chunk too short: missing fields read as 0"])
        self.assertEqual(records["lib/broken/broken.dls"]["errors"], ["Not an IFF-like file"])
        self.assertEqual(records["lib/notes.txt"]["errors"], ["Unsupported extension:txt"])
        summary = result.err[result.err.index("\nsorvane-batch: 11 inputs"):]
        self.assertIn("1 with warnings, 2 failed, 0 up to date\nfailed:\n", summary)
        self.assertIn("\n  lib/broken/broken.dls: Not an IFF-like file\n", summary)
        self.assertEqual(len([line for line in result.err.splitlines() if line.startswith("[")]), len(expected))

        # The JSON shows the byte that is no UTF-8 as U+FFFD; on disk it is itself.
        on_disk = {weird: "lib/" + os.fsdecode(WEIRD)}
        for name, record in records.items():
            if record["class"] == "failed":
                self.assertIsNone(record["output"], name)
                continue
            path = on_disk.get(name, name)
            folder = self.folder(path[len("lib/"):])
            self.assertEqual(record["output"], "lib/out/" + name[len("lib/"):])
            self.assertTrue(OWN_FILES <= set(os.listdir(folder)), name)
            self.assertTrue(os.path.isfile(os.path.join(folder, record["first_sfz"][len(record["output"]) + 1:])))
            # The converter's files: all but the batch's own and the input's copy.
            copy = os.path.basename(path).replace("\t", "_")
            written = [f for f in files_below(folder) if "/" in f or f not in OWN_FILES | {copy}]
            self.assertEqual(record["files_written"], len(written), name)
            self.assertEqual(record["bytes_written"], sum(os.path.getsize(os.path.join(folder, f)) for f in written))
            self.assertEqual(record["bytes_read"], os.path.getsize(os.path.join(self.root, path)))
        # Two stems do not mix; nothing failed left a folder or a staging folder.
        self.assertIn("sf2_smpl.wav", os.listdir(self.folder("GM/demo.sf2")))
        self.assertEqual(sorted(os.listdir(self.folder("GM/demo.dls"))), sorted(OWN_FILES | {"demo_dls"}))
        self.assertFalse(os.path.exists(self.folder("broken")))
        self.assertEqual(hidden_below(os.path.join(self.lib, "out")), [])
        # The song was split inside its job folder, never beside itself.
        self.assertEqual(sorted(os.listdir(f"{self.lib}/songs")), self.songs_before)
        self.assertTrue({"demo_song.mid", "demo_song.dls"} <= set(os.listdir(self.folder("songs/demo_song.rmi"))))

        # Every folder is self-contained: moved elsewhere, every SFZ file
        # still finds its audio, the loop's its own copy of the loop.
        moved = os.path.join(self.root, "moved")
        os.rename(os.path.join(self.lib, "out"), moved)
        sfz_files = [os.path.join(moved, f) for f in files_below(moved) if f.endswith(".sfz")]
        self.assertGreater(len(sfz_files), 10)
        for sfz in sfz_files:
            for sample in sfz_samples(sfz):
                self.assertTrue(os.path.isfile(sample), f"{sfz} plays missing {sample}")
        loop_samples = sfz_samples(f"{moved}/loops/demo_loop.wav/demo_loop.sfz")
        self.assertEqual(read_bytes(loop_samples[0]), read_bytes(f"{self.lib}/loops/demo_loop.wav"))
        os.rename(moved, os.path.join(self.lib, "out"))

        # A rerun converts nothing up to date, and finds nothing in its output folder.
        log = self.folder("GM/demo.sf2/sorvane.log")
        before = os.stat(log)
        result, records = self.batch()
        self.assertEqual(result.returncode, 1, result.err)
        self.assertEqual({name: record["class"] for name, record in records.items()},
                         {name: "failed" if cls == "failed" else "up_to_date" for name, cls in expected.items()})
        self.assertEqual(records["lib/GM/demo.sf2"]["first_sfz"], "lib/out/GM/demo.sf2/000/000_Sine_Pad.sfz")
        self.assertEqual((os.stat(log).st_ino, os.stat(log).st_mtime_ns), (before.st_ino, before.st_mtime_ns))

        # A failed reconversion keeps the earlier bank whole, and says so.
        bank = self.folder("GM/demo.sf2")
        kept = {f: read_bytes(os.path.join(bank, f)) for f in files_below(bank)}
        with open(f"{self.lib}/GM/demo.sf2", "wb") as damaged:
            damaged.write(b"RIFF\x04\0\0\0WAVE")
        result, records = self.batch()
        self.assertEqual(records["lib/GM/demo.sf2"]["class"], "failed")
        self.assertTrue(records["lib/GM/demo.sf2"]["kept_earlier"])
        self.assertEqual(records["lib/GM/demo.sf2"]["output"], "lib/out/GM/demo.sf2")
        self.assertIn("lib/GM/demo.sf2: Not a SoundFont file but a RIFF(WAVE) (the earlier conversion is kept)",
                      result.err)
        self.assertEqual({f: read_bytes(os.path.join(bank, f)) for f in files_below(bank)}, kept)

        # Mended, it converts again, and so does a folder another converter
        # version made; --force redoes even what is up to date.
        copy_example("demo.sf2", f"{self.lib}/GM/demo.sf2")
        stamp = self.folder("GM/LOUD.SBK/sorvane-batch.stamp")
        older = re.sub(rb"\nconverter .*\n", b"\nconverter 0.1\n", read_bytes(stamp))
        with open(stamp, "wb") as file:
            file.write(older)
        result, records = self.batch()
        self.assertEqual(records["lib/GM/demo.sf2"]["class"], "converted")
        self.assertEqual(records["lib/GM/LOUD.SBK"]["class"], "converted")
        self.assertEqual(records["lib/GM/demo.dls"]["class"], "up_to_date")
        # A file planted in the folder goes with it: the whole folder is new
        # (an inode number may be handed out again, so none is compared).
        marker = self.folder("GM/demo.dls/planted")
        open(marker, "wb").close()
        result, records = self.batch(["--force"])
        self.assertEqual(records["lib/GM/demo.dls"]["class"], "converted")
        self.assertFalse(os.path.exists(marker))


class Interruption(unittest.TestCase):
    """SIGINT or SIGTERM in mid-batch: running conversions stop, their
    staging folders go, finished banks stay whole."""

    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="sorvane-batch-test-")
        # A copy of the batch beside a converter that notes its process id
        # and waits a second before it becomes the real one (same process),
        # so that a signal lands while conversions run.
        tools = os.path.join(self.root, "tools")
        os.makedirs(tools)
        shutil.copy2(BATCH, tools)
        self.batch = os.path.join(tools, os.path.basename(BATCH))
        self.pids = os.path.join(self.root, "pids")
        with open(os.path.join(tools, "sorvane"), "w") as wrapper:
            wrapper.write(f"#!{sys.executable}\nimport os, sys, time\n"
                          f"open({self.pids!r}, 'a').write(f'{{os.getpid()}}\\n')\n"
                          "if len(sys.argv) > 1: time.sleep(1)\n"
                          f"os.execv({os.path.join(os.path.dirname(BATCH), 'sorvane')!r}, sys.argv)\n")
        os.chmod(os.path.join(tools, "sorvane"), 0o755)
        for index in range(10):
            copy_example("demo.sf2", f"{self.root}/lib/bank{index}.sf2")

    def tearDown(self):
        shutil.rmtree(self.root)

    def interrupt(self, signal_number):
        shutil.rmtree(os.path.join(self.root, "out"), ignore_errors=True)
        open(self.pids, "w").close()
        process = subprocess.Popen([self.batch, "-j2", "--json", "report.json", "-o", "out", "lib"], cwd=self.root,
                                   stdin=subprocess.DEVNULL, stderr=subprocess.PIPE)
        first = process.stderr.readline().decode()
        self.assertTrue(first.startswith("[ 1/10] converted"), first)
        # A third conversion has started (the first process asked the version).
        while len(read_bytes(self.pids).split()) < 4:
            time.sleep(0.01)
        process.send_signal(signal_number)
        err = process.stderr.read().decode()
        process.stderr.close()
        self.assertEqual(process.wait(timeout=60), 128 + signal_number, err)
        self.assertNotIn("Sanitizer", err)
        records = read_report(os.path.join(self.root, "report.json"))
        classes = [record["class"] for record in records]
        self.assertGreaterEqual(classes.count("cancelled"), 1, err)
        self.assertEqual(classes.count("converted") + classes.count("cancelled"), len(classes))
        self.assertLess(len(classes), 10)
        self.assertRegex(err, r"\d+ cancelled, [1-9]\d* not started \(stopped by SIG")
        # Finished banks whole, nothing half-made left, no conversion still running.
        out = os.path.join(self.root, "out")
        converted = {os.path.basename(r["input"]) for r in records if r["class"] == "converted"}
        self.assertEqual(set(os.listdir(out)), converted)
        for folder in os.listdir(out):
            pool = read_bytes(os.path.join(out, folder, "sf2_smpl.wav"))
            self.assertEqual(len(pool), struct.unpack("<I", pool[4:8])[0] + 8)
            self.assertIn("sorvane-batch.stamp", os.listdir(os.path.join(out, folder)))
        for pid in read_bytes(self.pids).split():
            with self.assertRaises(ProcessLookupError):
                os.kill(int(pid), 0)

    def test_sigint_and_sigterm_stop_the_running_conversions(self):
        self.interrupt(signal.SIGINT)
        self.interrupt(signal.SIGTERM)


class Shards(unittest.TestCase):
    def test_shards_cover_every_input_exactly_once(self):
        root = tempfile.mkdtemp(prefix="sorvane-batch-test-")
        try:
            for index in range(12):
                copy_example("demo_loop.wav", f"{root}/lib/part{index % 3}/loop{index}.wav")
            everything = by_input(read_json_run(["--shard", "1/1", "-o", "all", "lib"], root))
            self.assertEqual(len(everything), 12)
            seen = []
            for shard in range(1, 4):
                part = read_json_run(["--shard", f"{shard}/3", "-o", "out", "lib"], root)
                self.assertGreater(len(part), 0)
                seen += [record["input"] for record in part]
            self.assertEqual(sorted(seen), sorted(everything))
            self.assertEqual(sorted(os.listdir(f"{root}/out/part0")), sorted(os.listdir(f"{root}/all/part0")))
        finally:
            shutil.rmtree(root)


def read_json_run(args, cwd):
    """Runs the batch with the report on standard output, parsed."""
    result = run(["-q", "--json", "-"] + args, cwd)
    assert result.returncode == 0, result.err
    return json.loads(result.stdout.decode("utf-8"))


class CommandLine(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="sorvane-batch-test-")
        copy_example("demo_loop.wav", f"{self.root}/lib/loop.wav")

    def tearDown(self):
        shutil.rmtree(self.root)

    def test_help_version_and_usage_errors(self):
        result = run(["--help"], self.root)
        self.assertEqual(result.returncode, 0)
        self.assertTrue(result.stdout.startswith(b"Usage: sorvane-batch [-j N]"))
        self.assertRegex(run(["--version"], self.root).stdout.decode(), r"^sorvane-batch \d+\.\d+\n$")
        for args in ([], ["-j", "0", "lib"], ["-j"], ["--shard", "4/3", "lib"], ["--shard", "1", "lib"],
                     ["--bogus", "lib"], ["-o", "", "lib"], ["--force=yes", "lib"]):
            result = run(args, self.root)
            self.assertEqual(result.returncode, 2, args)
            self.assertIn("Try 'sorvane-batch --help'", result.err)
        self.assertEqual(os.listdir(self.root), ["lib"])

    def test_missing_input_fails_and_missing_converter_stops(self):
        result = run(["-q", "lib", "gone.sf2"], self.root)
        self.assertEqual(result.returncode, 1)
        self.assertIn("  gone.sf2: sorvane-batch: cannot read: No such file or directory", result.err)
        alone = os.path.join(self.root, "alone")
        os.makedirs(alone)
        shutil.copy2(BATCH, alone)
        result = subprocess.run([os.path.join(alone, os.path.basename(BATCH)), "lib"], cwd=self.root,
                                env=dict(os.environ, PATH=alone), capture_output=True)
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"no sorvane program beside this one nor on PATH", result.stderr)

    def test_terminal_shows_a_live_progress_line(self):
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.root)
            os.execv(BATCH, [BATCH, "-o", "out", "lib"])
        shown = b""
        while True:
            try:
                got = os.read(terminal, 4096)
            except OSError:
                break
            if not got:
                break
            shown += got
        self.assertEqual(os.waitpid(pid, 0)[1], 0)
        self.assertRegex(shown.decode(), r"\r\x1b\[K1/1 inputs, 200\.4 kB of 200\.4 kB, .*, 0 failed")
        self.assertIn(b"sorvane-batch: 1 input in", shown)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:], verbosity=2)
