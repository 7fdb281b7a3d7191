#!/usr/bin/python3
"""Bad-input campaign for the scrivo tool.

Generates a table of hostile inputs and targets (truncations, flipped bytes,
EXIF layouts and loops, header bombs, odd sizes, special files, full disk,
read-only targets, interrupts), runs each case against the built tool and
checks the exit code, the message, that no temporary (*.part) is left and
that every page written is a valid JPEG. Each case runs under a timeout, so
a hang is a failure.

    bad_input_campaign.py /path/to/scrivo [--quick] [--sample PHOTO.jpg]

--quick runs the fast subset (a few seconds) that CTest runs. Needs only
Python's standard library: the JPEGs are written by the small encoder below
(flat blocks, any size and component count) or cut from the sample
photograph by the tool itself.
"""
import argparse
import os
import random
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time

ROOT = os.geteuid() == 0


def segment(marker, payload):
    return struct.pack(">BBH", 0xFF, marker, len(payload) + 2) + payload


def flat_jpeg(width, height, components=1, end_marker=True, adobe=False, blocks=None):
    """A baseline JPEG whose blocks are all flat mid-grey: one-symbol
    Huffman tables, so each block is two bits (DC difference 0, end of
    block). `blocks` limits the entropy data written (header bombs)."""
    ids = range(1, components + 1)
    out = b"\xff\xd8"
    if adobe:  # APP14 "Adobe", transform 0: four components are CMYK
        out += segment(0xEE, b"Adobe" + struct.pack(">HHHB", 100, 0, 0, 0))
    out += segment(0xDB, b"\x00" + b"\x01" * 64)
    sof = struct.pack(">BHHB", 8, height, width, components)
    out += segment(0xC0, sof + b"".join(struct.pack(">BBB", c, 0x11, 0) for c in ids))
    one_symbol = bytes([1] + [0] * 15) + b"\x00"
    out += segment(0xC4, b"\x00" + one_symbol + b"\x10" + one_symbol)
    sos = bytes([components]) + b"".join(struct.pack(">BB", c, 0) for c in ids)
    out += segment(0xDA, sos + b"\x00\x3f\x00")
    count = ((width + 7) // 8) * ((height + 7) // 8) * components
    if blocks is not None:
        count = min(count, blocks)
    bits = 2 * count
    data = bytearray(b"\x00" * (bits // 8))
    if bits % 8:
        data.append(0xFF >> (bits % 8))  # pad with one bits
    out += bytes(data)
    return out + (b"\xff\xd9" if end_marker else b"")


def strip_app1(jpeg):
    """The JPEG without its APP1 segments (EXIF), up to the first scan."""
    out, pos = jpeg[:2], 2
    while pos + 4 <= len(jpeg) and jpeg[pos] == 0xFF:
        marker = jpeg[pos + 1]
        length = struct.unpack(">H", jpeg[pos + 2:pos + 4])[0]
        if marker == 0xDA:
            break
        if marker != 0xE1:
            out += jpeg[pos:pos + 2 + length]
        pos += 2 + length
    return out + jpeg[pos:]


def with_exif(jpeg, tiff):
    body = strip_app1(jpeg)
    return body[:2] + segment(0xE1, b"Exif\x00\x00" + tiff) + body[2:]


def ifd(entries, next_ifd, big=False):
    e = ">" if big else "<"
    out = struct.pack(e + "H", len(entries))
    for tag, typ, count, value in entries:
        out += struct.pack(e + "HHII", tag, typ, count, value)
    return out + struct.pack(e + "I", next_ifd)


def tiff(entries, next_ifd=0, big=False):
    head = (b"MM\x00\x2a" if big else b"II\x2a\x00") + struct.pack(">I" if big else "<I", 8)
    return head + ifd(entries, next_ifd, big)


EXIF_LAYOUTS = {
    "exif-ifd-loop": tiff([(0x0112, 3, 1, 1)], next_ifd=8),
    "exif-subifd-loop": tiff([(0x8769, 4, 1, 8)]),
    "exif-huge-count": tiff([(0x010F, 2, 0xFFFFFFFF, 26)]),
    "exif-offset-past-end": tiff([(0x010F, 2, 64, 0x7FFFFFF0)], next_ifd=0x7FFFFFF0),
    "exif-big-endian": tiff([(0x0112, 3, 1, 6 << 16)], big=True),
    "exif-orientation-65535": tiff([(0x0112, 3, 1, 65535)]),
    "exif-cut-header": b"II\x2a\x00\x08",
    "exif-empty": b"",
}


class Campaign:
    def __init__(self, tool, sample, quick):
        self.tool, self.sample, self.quick = tool, sample, quick
        self.work = tempfile.mkdtemp(prefix="scrivo_campaign_")
        self.rows, self.failures = [], 0
        self.timeout = 30 if quick else 120

    def path(self, *parts):
        return os.path.join(self.work, *parts)

    def write(self, name, data):
        p = self.path(name)
        os.makedirs(os.path.dirname(p), exist_ok=True)
        with open(p, "wb") as f:
            f.write(data)
        return p

    def run(self, args, stdout=subprocess.PIPE, interrupt=None):
        """Runs the tool; `interrupt` = (seconds, signal) sends the signal."""
        proc = subprocess.Popen([self.tool] + args, cwd=self.work, stdout=stdout,
                                stderr=subprocess.PIPE, stdin=subprocess.DEVNULL)
        try:
            if interrupt:
                time.sleep(interrupt[0])
                proc.send_signal(interrupt[1])
            out, err = proc.communicate(timeout=self.timeout)
            return proc.returncode, out or b"", err.decode("utf-8", "replace")
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.communicate()
            return "timeout", b"", ""

    def valid_jpeg(self, path):
        with open(path, "rb") as f:
            data = f.read()
        if not (data.startswith(b"\xff\xd8") and data.rstrip(b"\x00").endswith(b"\xff\xd9")):
            return False
        return subprocess.run([self.tool, "detect", path], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=self.timeout).returncode == 0

    def check(self, name, args, codes, message="", outputs=(), stdout=subprocess.PIPE,
              interrupt=None, page_on_stdout=False):
        code, out, err = self.run(args, stdout, interrupt)
        problems = []
        if code not in codes:
            problems.append("exit %s, wanted %s" % (code, "/".join(map(str, codes))))
        if message and message not in err:
            problems.append("no %r in: %s" % (message, err.strip()[-300:]))
        for root, _, files in os.walk(self.work):
            problems += ["left " + os.path.join(root, f) for f in files if f.endswith(".part")]
        for o in outputs:
            if os.path.lexists(self.path(o)) and not os.path.isdir(self.path(o)) \
                    and not self.valid_jpeg(self.path(o)):
                problems.append("invalid page " + o)
        if page_on_stdout and not (out.startswith(b"\xff\xd8") and out.endswith(b"\xff\xd9")):
            problems.append("no JPEG on standard output")
        self.report(name, code, problems)
        return code, out, err

    def report(self, name, code, problems):
        self.rows.append((name, code, "ok" if not problems else "; ".join(problems)))
        self.failures += bool(problems)
        print("%-28s %-8s %s" % (name, code, self.rows[-1][2]), flush=True)

    # ---- the table -------------------------------------------------------

    def photographs(self):
        base = self.path("base.jpg")
        code, _, err = self.run(["scan", self.sample, "--corners", "0,0,0,480,640,480,640,0",
                                 "--enhance", "none", "-o", base])
        if code != 0:
            sys.exit("cannot cut the base photograph from the sample: " + err)
        with open(base, "rb") as f:
            return f.read()

    def decode_cases(self, base):
        cases = [
            ("header-bomb-60000", flat_jpeg(60000, 60000, 3, blocks=64), [1], "too large"),
            ("cmyk", flat_jpeg(64, 64, 4, adobe=True), [1], "CMYK JPEG is not supported"),
            ("no-end-marker", base[:-2], [0], "warning: no end marker"),
            ("flat-no-end-marker", flat_jpeg(64, 48, 3, end_marker=False), [0], "warning"),
            ("cut-10pct", base[:len(base) // 10], [1], "truncated"),
            ("cut-90pct", base[:len(base) * 9 // 10], [1], "truncated"),
            ("cut-in-headers", base[:300], [1], "truncated"),
            ("empty", b"", [1], "empty file"),
            ("not-a-jpeg", b"GIF89a" + b"\x00" * 40, [1], "not a JPEG"),
            ("odd-1x1", flat_jpeg(1, 1), [0, 1], ""),
        ]
        if not self.quick:
            cases += [
                ("odd-65000x8", flat_jpeg(65000, 8), [0, 1], ""),
                ("odd-8x65000", flat_jpeg(8, 65000), [0, 1], ""),
                ("odd-3x5-colour", flat_jpeg(3, 5, 3), [0, 1], ""),
                ("header-bomb-grey", flat_jpeg(65535, 65535, 1, blocks=8), [1], "too large"),
                ("header-bomb-no-end", flat_jpeg(60000, 60000, 3, False, blocks=8), [1],
                 "too large"),
                ("cut-50pct", base[:len(base) // 2], [1], "truncated"),
                ("cut-header-only", base[:base.find(b"\xff\xda") + 14], [1], "truncated"),
            ]
            rng = random.Random(7)
            for i in range(24):
                data = bytearray(base)
                for _ in range(1 + i % 4):
                    at = rng.randrange(2, len(data))
                    data[at] ^= 1 << rng.randrange(8)
                cases.append(("flip-%02d" % i, bytes(data), [0, 1], ""))
        for name, data, codes, message in cases:
            self.write("in/%s.jpg" % name, data)
            self.check(name, ["scan", "in/%s.jpg" % name, "--enhance", "none", "-o",
                              "out/%s.jpg" % name], codes, message, ["out/%s.jpg" % name])

    def exif_cases(self, base):
        layouts = list(EXIF_LAYOUTS.items())
        for name, block in layouts[:3] if self.quick else layouts:
            self.write("in/%s.jpg" % name, with_exif(base, block))
            self.check(name, ["scan", "in/%s.jpg" % name, "--enhance", "none", "--auto-rotate",
                              "-o", "out/%s.jpg" % name], [0], "", ["out/%s.jpg" % name])

    def special_inputs(self, base):
        os.makedirs(self.path("special/dir.jpg"), exist_ok=True)
        os.mkfifo(self.path("special/fifo.jpg"))
        os.symlink("nowhere.jpg", self.path("special/broken.jpg"))
        self.write("special/good.jpg", base)
        for name, arg, message in [("input-fifo", "special/fifo.jpg", "not a regular file"),
                                   ("input-folder.jpg", "special/dir.jpg", "no *.jpg"),
                                   ("input-broken-link", "special/broken.jpg", "cannot read"),
                                   ("input-dev-null", "/dev/null", "not a regular file")]:
            # A folder is a batch of its photographs, here none: a usage error.
            codes = [2] if name == "input-folder.jpg" else [1]
            self.check(name, ["scan", arg], codes, message)
        self.check("batch-skips-named", ["scan", "special", "-o", "out/special"], [0],
                   "special/fifo.jpg: skipped: a FIFO", ["out/special/good.page.jpg"])

    def targets(self, base):
        self.write("t/in.jpg", base)
        scan = ["scan", "t/in.jpg", "--enhance", "none"]
        self.check("target-stdout", scan + ["-o", "-"], [0], "", page_on_stdout=True)
        # A page larger than a pipe holds, to a reader that leaves after two bytes.
        gone = subprocess.run(["bash", "-c", '"$0" scan "$1" --enhance none -o - | head -c 2'
                               ' >/dev/null; exit ${PIPESTATUS[0]}', self.tool, self.sample],
                              cwd=self.work,
                              stderr=subprocess.PIPE, timeout=self.timeout)
        self.report("target-reader-gone", gone.returncode,
                    [] if gone.returncode == 1 and b"Broken pipe" in gone.stderr
                    else ["wanted exit 1 and 'Broken pipe'"])
        os.symlink("real.jpg", self.path("t/link.jpg"))
        self.check("target-symlink", scan + ["-o", "t/link.jpg"], [0], "", ["t/real.jpg"])
        if not os.path.islink(self.path("t/link.jpg")):
            self.report("target-symlink-stays", "-", ["the link was replaced"])
        os.symlink("/dev/null", self.path("t/devnull.jpg"))
        self.check("target-device-link", scan + ["-o", "t/devnull.jpg"], [0], "")
        if not os.path.islink(self.path("t/devnull.jpg")) or os.path.isfile("/dev/null"):
            self.report("target-device-stays", "-", ["the device link was replaced"])
        os.mkfifo(self.path("t/pipe.jpg"))
        reader = subprocess.Popen(["cat", self.path("t/pipe.jpg")], stdout=subprocess.PIPE)
        self.check("target-fifo", scan + ["-o", "t/pipe.jpg"], [0], "")
        try:
            page = reader.communicate(timeout=5)[0]
        except subprocess.TimeoutExpired:  # nothing was ever written into the FIFO
            reader.kill()
            page = reader.communicate()[0]
        if not page.startswith(b"\xff\xd8") or not stat_is_fifo(self.path("t/pipe.jpg")):
            self.report("target-fifo-page", "-", ["the FIFO got no page or was replaced"])
        self.check("several-to-a-file", ["scan", "t/in.jpg", "special/good.jpg", "-o", "o.jpg"],
                   [2], "-o must name a folder")
        self.check("memory-budget", scan + ["--memory", "8M", "-o", "t/m.jpg"], [1],
                   "memory budget", ["t/m.jpg"])
        self.check("memory-bad-value", scan + ["--memory", "lots"], [2], "--memory")
        name = b"caf\xe9.jpg"
        with open(os.path.join(self.work.encode(), b"t", name), "wb") as f:
            f.write(base)
        code, out, err = self.run(["detect", os.path.join("t", name.decode("latin-1"))
                                   .encode("latin-1").decode(sys.getfilesystemencoding(),
                                                             "surrogateescape"), "--json"])
        ok = code == 0 and b'"file_bytes":"t/caf\\\\xE9.jpg"' in out
        self.report("json-non-utf8-name", code, [] if ok else ["JSON: %r" % out[:200]])

    def read_only_and_full(self, base):
        self.write("ro/in.jpg", base)
        folder = self.path("ro/locked")
        os.makedirs(folder)
        mounted = []
        if ROOT:
            if subprocess.run(["mount", "-t", "tmpfs", "-o", "ro,size=1m", "none", folder]).returncode:
                return self.report("read-only-mount", "-", [])  # no mounts here: nothing to test
            mounted.append(folder)
        else:
            os.chmod(folder, 0o555)
        try:
            self.check("ro-batch-folder", ["scan", "ro", "-o", "ro/locked"], [1],
                       "cannot write to the folder")
            self.check("ro-missing-folder", ["scan", "ro/in.jpg", "-o", "ro/locked/sub/p.jpg"],
                       [1], "cannot create the folder")
            if ROOT and not self.quick:
                full = self.path("ro/full")
                os.makedirs(full)
                subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16k", "none", full], check=True)
                mounted.append(full)
                self.check("full-disk", ["scan", "ro/in.jpg", "-o", "ro/full/p.jpg"], [1],
                           "No space left on device", ["ro/full/p.jpg"])
        finally:
            for m in mounted:
                subprocess.run(["umount", m])
            os.chmod(folder, 0o755)

    def interrupts(self):
        count = 4 if self.quick else 8
        os.makedirs(self.path("batch"))
        for i in range(count):
            shutil.copy(self.sample, self.path("batch/p%d.jpg" % i))
        for sig, code in [(signal.SIGINT, 130), (signal.SIGTERM, 143)][:1 if self.quick else 2]:
            outs = ["out/batch/p%d.page.jpg" % i for i in range(count)]
            self.check("interrupt-" + signal.Signals(sig).name, ["scan", "batch", "-o",
                                                                "out/batch", "-j", "2"],
                       [code], "interrupted by " + signal.Signals(sig).name, outs,
                       interrupt=(1.0, sig))
            shutil.rmtree(self.path("out/batch"), ignore_errors=True)

    def main(self):
        base = self.photographs()
        started = time.time()
        try:
            self.decode_cases(base)
            self.exif_cases(base)
            self.special_inputs(base)
            self.targets(base)
            self.read_only_and_full(base)
            self.interrupts()
        finally:
            shutil.rmtree(self.work, ignore_errors=True)
        print("%d passed, %d failed (%.1f s)" % (len(self.rows) - self.failures, self.failures,
                                                 time.time() - started))
        return 1 if self.failures else 0


def stat_is_fifo(path):
    return stat.S_ISFIFO(os.lstat(path).st_mode)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("tool")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--sample", default=os.path.join(
        os.path.dirname(os.path.abspath(__file__)), "..", "samples", "page-on-desk.jpg"))
    a = parser.parse_args()
    sys.exit(Campaign(os.path.abspath(a.tool), os.path.abspath(a.sample), a.quick).main())
