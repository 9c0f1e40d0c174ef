#!/usr/bin/env python3
"""Runs every command of the README, of docs/, of the manual page and of each --help, as it stands there.

usage: scripts/docs_commands.py BUILD/bin [FOLDER]

Each page gets a folder of its own with the inputs that the pages name, and its commands are run in their order. What
stands below a command counts: "Killed" has the recording killed, a line of an error has it expected. What cannot be run
stands in docs_commands_left_out.txt, each with its reason.
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LEFT_OUT = pathlib.Path(__file__).with_name("docs_commands_left_out.txt")
SECONDS = 4
KEY = "000102030405060708090a0b0c0d0e0f"

# A player without a screen: it must decode all that it is given.
PLAYER = """#!/bin/sh
args=; end=
for word; do
    case $word in
    *.sdp) args="$args -i $word"; end="-t 1" ;;
    -) args="$args -i -" ;;
    *) args="$args $word" ;;
    esac
done
exec ffmpeg -nostdin -v error -xerror $args $end -f null -
"""


def commands_of_page(text):
    """(command, the lines below it) of each indented line that is one; a `$` stands ahead of it, or its program's name."""
    lines = text.splitlines()
    fenced = False
    for number, line in enumerate(lines):
        if line.startswith("```"):
            fenced = not fenced
        begins = re.match(r"    \$ (.+)", line) or re.match(r"    ((?:muxora|make|cmake|bench/\S+|scripts/\S+) .+)", line)
        if fenced or not begins or re.match(r"    muxora: ", line):
            continue
        below = []
        for after in lines[number + 1:]:
            if not after.startswith("    ") or after.startswith("    $ "):
                break
            below.append(after[4:])
        yield begins.group(1), below


def scripts_of_page(text):
    """Each fenced block of shell, as one script."""
    return [(block, []) for block in re.findall(r"^```sh\n(.*?)^```", text, re.MULTILINE | re.DOTALL)]


def commands_of_manual(text):
    for block in re.findall(r"^\.nf\n(.*?)^\.fi", text, re.MULTILINE | re.DOTALL):
        for line in block.replace("\\-", "-").splitlines():
            yield line, []


def commands_of_help(text):
    for line in text.partition("Example")[2].splitlines():
        if line.startswith("  ") and not line.startswith("   "):
            killed = line.endswith("(killed)")
            yield line.strip().removesuffix("(killed)").strip(), ["Killed"] if killed else []


def pages(muxora):
    yield from ((path.name, list(commands_of_page(path.read_text())))
                for path in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))])
    # Other hosts are this one, by a runner that stands for ssh.
    yield "SCALE.md, blocks", scripts_of_page((ROOT / "docs/SCALE.md").read_text())
    yield "muxora.1", list(commands_of_manual((ROOT / "docs/muxora.1").read_text()))
    tool = subprocess.run([muxora, "--help"], capture_output=True, text=True, check=True).stdout
    for name in re.findall(r"^  (\w+)", tool.partition("Subcommands:")[2], re.MULTILINE):
        if name != "serve":  # another program
            text = subprocess.run([muxora, name, "--help"], capture_output=True, text=True, check=True).stdout
            yield f"{name} --help", list(commands_of_help(text))


def make_inputs(folder, muxora):
    """Every input that a page names."""
    def run(*words):
        subprocess.run(words, cwd=folder, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    ffmpeg = ("ffmpeg", "-v", "error", "-y")
    run(*ffmpeg, "-f", "lavfi", "-i", f"testsrc2=size=320x180:rate=25:duration={SECONDS}", "-f", "lavfi", "-i",
        f"sine=sample_rate=48000:duration={SECONDS}", "-c:v", "libx264", "-preset", "veryfast", "-g", "25", "-c:a", "aac",
        "film.mp4")
    for name in ("other.mp4", "high.mp4", "low.mp4"):
        shutil.copy(folder / "film.mp4", folder / name)
    for name in ("film.mkv", "camera.ts"):
        run(*ffmpeg, "-i", "film.mp4", "-c", "copy", name)
    run(*ffmpeg, "-i", "film.mp4", "-an", "-c", "copy", "video.h264")
    run(*ffmpeg, "-i", "film.mp4", "-vn", "-c", "copy", "sound.aac")
    (folder / "recording.key").write_text(KEY + "\n")
    run(muxora, "pack", "film.mp4", "-o", "film.ovx", "--quiet")
    run(muxora, "pack", "film.mp4", "-o", "recording.ovx", "--encrypt", "0:256", "--key-file", "recording.key", "--quiet")
    run(muxora, "pack", "film.mp4", "-o", "recording.mp4", "--quiet")
    for name in ("converted", "site"):
        (folder / name).mkdir()


# What stands for ssh: the machine on the other side has a shell, and a login's environment.
RUNNER = """#!/bin/sh
export SHELL=/bin/sh
echo "$1" >>"$RUNNER_LOG"
shift
[ "$1" != -- ] || shift
exec sh -c "$*"
"""


def make_machines(folder, binaries):
    """The list that docs/SCALE.md shows, and ssh to them."""
    (folder / "machines").write_text("4/first.example\n4/second.example\n")
    ssh = binaries / "ssh"
    ssh.write_text(RUNNER)
    ssh.chmod(0o755)


class Page:
    def __init__(self, folder, path):
        self.folder = folder
        self.environment = {**os.environ, "PATH": path, "RUNNER_LOG": str(folder / "asked"), "PARALLEL_HOME": str(folder)}
        self.behind = []  # commands with an & at their end

    def shell(self, command):
        return subprocess.Popen(["bash", "-o", "pipefail", "-c", command], cwd=self.folder, env=self.environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                start_new_session=True)

    def run(self, command, below):
        """What is wrong with the command, or nothing."""
        if below and below[0] == "Killed":
            return self.kill(command)
        if command.endswith("&"):
            self.behind.append(self.shell(command[:-1]))
            written = re.search(r"--sdp (\S+)", command)
            return self.wait_for(self.folder / written.group(1)) if written else ""
        made = re.match(r"mkdir (\S+)$", command)
        if made and (self.folder / made.group(1)).is_dir():
            (self.folder / made.group(1)).rmdir()
        process = self.shell(command)
        try:
            output = process.communicate(timeout=120)[0]
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return "does not end"
        errors = [line for line in below if line.startswith("muxora: ")]
        if errors:
            return "" if process.returncode != 0 and output.strip() == errors[0] else f"says: {output.strip()}"
        return "" if process.returncode == 0 else f"ends with {process.returncode}: {output.strip()[-500:]}"

    def kill(self, command):
        target = self.folder / re.search(r"-o (\S+)", command).group(1)
        target.unlink(missing_ok=True)
        process = self.shell("exec " + command)
        trouble = self.wait_for(target) or self.wait_for(target, 20000)
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        return trouble

    @staticmethod
    def wait_for(path, size=0):
        for _ in range(1200):
            if path.exists() and path.stat().st_size >= size:
                return ""
            time.sleep(0.05)
        return f"does not make {path.name}"

    def end(self):
        troubles = []
        for process in self.behind:
            output = process.communicate(timeout=120)[0]
            if process.returncode != 0:
                troubles.append(f"ends with {process.returncode}: {output.strip()}")
        return troubles


def main():
    if len(sys.argv) not in (2, 3):
        print(__doc__.strip().splitlines()[2], file=sys.stderr)
        return 2
    binaries = pathlib.Path(sys.argv[1]).resolve()
    muxora = str(binaries / "muxora")
    left_out = dict(line.split("\t", 1) for line in LEFT_OUT.read_text().splitlines() if line.strip())
    unused = set(left_out)
    wrong = count = 0
    with tempfile.TemporaryDirectory(dir=sys.argv[2] if len(sys.argv) == 3 else None) as work:
        work = pathlib.Path(work)
        (work / "bin").mkdir()
        (work / "bin/ffplay").write_text(PLAYER)
        (work / "bin/ffplay").chmod(0o755)
        path = f"{binaries}:{work / 'bin'}:{os.environ['PATH']}"
        (work / "inputs").mkdir()
        make_inputs(work / "inputs", muxora)
        make_machines(work / "inputs", work / "bin")
        for number, (name, commands) in enumerate(pages(muxora)):
            folder = work / str(number)
            shutil.copytree(work / "inputs", folder)
            page = Page(folder, path)
            for command, below in commands:
                if "\n" not in command:
                    command = re.sub(r"\s+# .*", "", command)
                reason = next((start for start in left_out if command.startswith(start)), None)
                if reason is not None:
                    unused.discard(reason)
                    continue
                count += 1
                trouble = page.run(command, below)
                wrong += bool(trouble)
                print(f"{'BAD ' if trouble else 'good'} {name}: {command}" + (f"\n     {trouble}" if trouble else ""),
                      flush=True)
            for trouble in page.end():
                wrong += 1
                print(f"BAD  {name}: a command behind the others {trouble}")
            shutil.rmtree(folder)
    for start in sorted(unused):
        wrong += 1
        print(f"BAD  nothing begins with '{start}' any more: take it out of {LEFT_OUT.name}")
    print(f"{count} commands run, {wrong} wrong")
    return 1 if wrong or count < 20 else 0


if __name__ == "__main__":
    sys.exit(main())
