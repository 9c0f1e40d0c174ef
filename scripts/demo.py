#!/usr/bin/env python3
"""Packs a clip into every format, has other programs read each file back, and prints what they found.

usage: scripts/demo.py BUILD/bin [OUTPUT-DIRECTORY]

Every picture that a reader decodes from a container is compared with the clip's, and so is the sound. A row that is not
right is printed in red and makes the script fail. A contact sheet shows one and the same picture out of each container.
"""

import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import time

SECONDS = 10
FPS = 25
WIDTH, HEIGHT = 640, 360
SHEET_PICTURE = 130  # the picture that goes into the contact sheet
RTP_PORT = 25000 + 8 * (os.getpid() % 1000)  # not that of a demo beside this one
RTP_SPEED = 4

# The sounds that a format may take, by the name of the clip that holds them.
SOUNDS = {
    # Without the noise that a decoder makes up: a frame must sound the same wherever the decoder began.
    "aac": ["-c:a", "aac", "-aac_pns", "0", "-ar", "48000", "-ac", "2"],
    "alaw": ["-c:a", "pcm_alaw", "-ar", "8000", "-ac", "1"],
    "pcm16": ["-c:a", "pcm_s16le", "-ar", "16000", "-ac", "1"],
    "pcm8": ["-c:a", "pcm_s16le", "-ar", "8000", "-ac", "1"],
}

# Formats whose sound is not AAC, and why.
SOUND_OF = {
    "asfstream": "pcm16",  # its header is written before the sound is known, and says 16 bit PCM at 16000 Hz
    "gaysps": "alaw",
    "gdps": "alaw",
    "wav": "pcm8",
}


class Trouble(Exception):
    """A row that is not right; the text goes into the table."""


def run(*argv, check=True):
    done = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True)
    if check and done.returncode != 0:
        raise Trouble(f"{argv[0]}: {first_line(done.stderr.decode(errors='replace'))}")
    return done


def first_line(text):
    lines = [line for line in text.splitlines() if line.strip()]
    return lines[0] if lines else "failed without a word"


def ffmpeg(*argv):
    return run("ffmpeg", "-nostdin", "-hide_banner", "-v", "error", *argv)


def picture_hashes(*source):
    """One hash for each decoded picture."""
    out = ffmpeg(*source, "-map", "0:v:0", "-fps_mode", "passthrough", "-f", "framemd5", "-").stdout.decode()
    return [line.split(",")[-1].strip() for line in out.splitlines() if line and not line.startswith("#")]


def sound_samples(*source):
    return ffmpeg(*source, "-map", "0:a:0", "-f", "s16le", "-").stdout


def probe(path):
    """What ffprobe counts: packets of each kind, and the length of the media in seconds."""
    out = run("ffprobe", "-v", "error", "-show_entries",
              "packet=codec_type,pts_time,dts_time,duration_time:stream=codec_name,codec_type", "-of", "json", path)
    found = json.loads(out.stdout)
    counts = {"video": 0, "audio": 0}
    first, last = None, 0.0
    for packet in found["packets"]:
        counts[packet["codec_type"]] += 1
        stamp = packet.get("pts_time", packet.get("dts_time"))
        if stamp is None:
            continue
        begin = float(stamp)
        first = begin if first is None else min(first, begin)
        last = max(last, begin + float(packet.get("duration_time", 0)))
    names = "+".join(stream["codec_name"] for stream in found["streams"])
    return counts, last - (first or 0.0), names


def program_stream_sound(path):
    """The sound of a program stream: what the PES packets of stream C0 carry (ISO/IEC 13818-1 2.4.3.7)."""
    data = open(path, "rb").read()
    sound, packets, at = bytearray(), 0, 0
    while at + 6 <= len(data):
        if data[at:at + 3] != b"\0\0\1":
            raise Trouble(f"no start code at byte {at}")
        kind = data[at + 3]
        if kind == 0xBA:  # pack header
            at += 14 + (data[at + 13] & 7)
            continue
        size = int.from_bytes(data[at + 4:at + 6], "big")
        if kind == 0xC0:
            sound += data[at + 9 + data[at + 8]:at + 6 + size]
            packets += 1
        at += 6 + size
    return bytes(sound), packets


class Demo:
    def __init__(self, muxora, folder):
        self.muxora = muxora
        self.folder = folder
        self.clips = {}
        self.pictures = []
        self.sounds = {}

    def path(self, name):
        return os.path.join(self.folder, name)

    def make_clips(self):
        video = self.path("clip.h264")
        ffmpeg("-y", "-f", "lavfi", "-i", f"testsrc2=size={WIDTH}x{HEIGHT}:rate={FPS}:duration={SECONDS}",
               "-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-g", str(FPS), "-pix_fmt", "yuv420p", video)
        for name, words in SOUNDS.items():
            clip = self.path(f"clip-{name}.mkv")
            ffmpeg("-y", "-r", str(FPS), "-i", video, "-f", "lavfi", "-i",
                   f"sine=frequency=440:beep_factor=4:sample_rate=48000:duration={SECONDS}",
                   "-c:v", "copy", *words, clip)
            self.clips[name] = clip
            # The bare frames, because a container may say that some samples are not to be heard.
            bare = self.path("clip-aac.aac") if name == "aac" else clip
            if bare != clip:
                ffmpeg("-y", "-i", clip, "-map", "0:a:0", "-c", "copy", bare)
            self.sounds[name] = sound_samples("-i", bare)
        self.pictures = picture_hashes("-i", self.clips["aac"])
        if len(self.pictures) != SECONDS * FPS:
            raise Trouble("ffmpeg did not make the clip")

    def pack(self, key, sound):
        out = self.path(f"demo.{key}")
        words = ["--no-video"] if key == "wav" else []
        # The better of three runs: the first one waits for the disk.
        best = None
        for _ in range(3):
            report = json.loads(run(self.muxora, "pack", self.clips[sound], "-o", out, "-f", key, "--json",
                                    *words).stdout)
            if best is None or report["seconds"] < best["seconds"]:
                best = report
        return out, best

    def check_pictures(self, *source):
        found = picture_hashes(*source)
        if found != self.pictures:
            same = sum(a == b for a, b in zip(found, self.pictures))
            raise Trouble(f"{len(found)} pictures, {same} of {len(self.pictures)} as in the clip")
        return len(found)

    def check_sound(self, sound, report, samples):
        """The sound must be the clip's, but for what the format left out at its beginning."""
        whole = self.sounds[sound]
        # The first frames of AAC depend on where the decoder began.
        settle = 3 * 1024 * 4 if sound == "aac" else 0
        at = whole.find(samples[settle:])
        if len(samples) <= settle or at < 0:
            raise Trouble("the sound is not the clip's")
        frame = 1024 * 4 if sound == "aac" else 640
        left_out = (at - settle) // frame
        if left_out > report["audio"]["dropped"] + (1 if sound == "aac" else 0):
            raise Trouble(f"the sound begins {left_out} frames late")

    def thumbnail(self, key, source):
        shot = self.path(f"shot-{key}.png")
        ffmpeg("-y", *source, "-map", "0:v:0", "-vf", f"select=eq(n\\,{SHEET_PICTURE}),scale=320:-1", "-frames:v", "1",
               shot)
        return shot

    def second_opinion(self, key, out):
        """mediainfo, or mkvinfo for Matroska."""
        if key in ("mkv", "xmkv"):
            lines = run("mkvinfo", out).stdout.decode()
            return f"mkvinfo {lines.count('Codec ID:')} tracks"
        text = run("mediainfo", "--Inform=General;%Format%, %VideoCount% video, %AudioCount% audio", out)
        # Its colours are for terminals, its empty counts for machines.
        words = re.sub(r",\s+(video|audio)", "", text.stdout.decode().strip())
        return f"mediainfo: {words}"

    # -------------------------------------------------------------------------------- one kind of reader each

    def read_with_ffmpeg(self, key, sound, out, report):
        source = ["-i", out]
        counts, seconds, names = probe(out)
        counts["video"] = self.check_pictures(*source)
        self.check_sound(sound, report, sound_samples(*source))
        if sound != "aac":  # PCM has no frames of its own
            counts["audio"] = report["audio"]["written"]
        return counts, seconds, f"ffmpeg: {names}; {self.second_opinion(key, out)}", source

    def read_dialect(self, key, sound, out, report):
        source = ["-i", out]
        _, seconds, _ = probe(out)
        payload, packets = program_stream_sound(out)
        alaw = self.path("sound.al")
        open(alaw, "wb").write(payload)
        self.check_sound(sound, report, sound_samples("-f", "alaw", "-ar", "8000", "-ac", "1", "-i", alaw))
        counts = {"video": self.check_pictures(*source), "audio": packets}
        return counts, seconds, f"ffmpeg: h264; PES C0: A-law; {self.second_opinion(key, out)}", source

    def read_wav(self, key, sound, out, report):
        samples = sound_samples("-i", out)
        self.check_sound(sound, report, samples)
        # Blocks of 40 ms.
        counts = {"video": 0, "audio": len(samples) // 640}
        return counts, len(samples) / 16000, f"ffmpeg: pcm; {self.second_opinion(key, out)}", None

    def read_ovx(self, key, sound, out, report):
        prefix = self.path(f"unpacked-{key}")
        found = json.loads(run(self.muxora, "inspect", out, "--json", "--summary").stdout)
        run(self.muxora, "unpack", out, "-o", prefix)
        video, audio = prefix + ".h264", prefix + ".aac"
        counts, seconds, _ = probe(audio)
        source = ["-r", str(FPS), "-i", video]
        counts["video"] = self.check_pictures(*source)
        self.check_sound(sound, report, sound_samples("-i", audio))
        units = found["video"]["units"] + found["audio"]["units"]
        if found["damaged_units"] + found["lost_bytes"] != 0:
            raise Trouble("muxora inspect finds damage")
        return counts, seconds, f"muxora inspect: {units} intact units; unpacked, ffmpeg: h264+aac", source

    def read_rtp(self, key, sound, out, report):
        sdp = self.path("demo.sdp")
        received = self.path("received.mkv")
        if os.path.exists(sdp):
            os.unlink(sdp)
        sender = subprocess.Popen([self.muxora, "send", self.clips[sound], "--to", f"rtp://127.0.0.1:{RTP_PORT}",
                                   "--sdp", sdp, "--wait", "1.5", "--speed", str(RTP_SPEED), "--quiet"])
        for _ in range(100):
            if os.path.exists(sdp):
                break
            time.sleep(0.05)
        receiver = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-protocol_whitelist", "file,udp,rtp",
                                   "-i", sdp, "-map", "0", "-c", "copy", received],
                                  capture_output=True, timeout=60, check=False)
        if sender.wait() != 0:
            raise Trouble("muxora send failed")
        if receiver.returncode != 0:
            raise Trouble(first_line(receiver.stderr.decode(errors="replace")))
        counts, seconds, names = probe(received)
        counts["video"] = self.check_pictures("-i", received)
        self.check_sound(sound, report, sound_samples("-i", received))
        return counts, seconds, f"ffmpeg received over UDP: {names}", ["-i", received]

    READERS = {"gaysps": read_dialect, "gdps": read_dialect, "wav": read_wav, "ovx": read_ovx, "ovxalt": read_ovx,
               "rtp": read_rtp}

    def row(self, key):
        sound = SOUND_OF.get(key, "aac")
        row = {"key": key, "good": False, "size": "", "in": "", "out": "", "seconds": "", "said": "", "speed": ""}
        try:
            out, report = self.pack(key, sound)
            row["size"] = f"{report['bytes']:,}"
            tallies = {kind: report.get(kind, {"given": 0, "written": 0, "dropped": 0}) for kind in ("video", "audio")}
            row["in"] = f"{tallies['video']['given']}+{tallies['audio']['given']}"
            row["speed"] = f"{report['media_seconds'] / max(report['seconds'], 1e-6):,.0f}x"
            reader = self.READERS.get(key, Demo.read_with_ffmpeg)
            counts, seconds, row["said"], source = reader(self, key, sound, out, report)
            row["out"] = f"{counts['video']}+{counts['audio']}"
            row["seconds"] = f"{seconds:.2f}"
            if source is not None:
                row["shot"] = self.thumbnail(key, source)
            for kind, tally in tallies.items():
                if counts[kind] != tally["written"] or tally["given"] != tally["written"] + tally["dropped"]:
                    raise Trouble(f"{tally['written']} {kind} frames written, {counts[kind]} read back")
            if abs(seconds - SECONDS) > 0.15:
                raise Trouble(f"{seconds:.2f} s instead of {SECONDS}")
            row["good"] = True
        except Trouble as trouble:
            row["said"] = str(trouble)
        except Exception as error:  # a reader with an answer of another shape: the row is not right
            row["said"] = f"{type(error).__name__}: {error}"
        return row

    def contact_sheet(self, rows):
        shots = []
        for row in rows:
            if "shot" in row:
                shots += ["-label", row["key"], row["shot"]]
        sheet = self.path("contact-sheet.png")
        # ImageMagick looks for a font that Debian does not install.
        font = run("fc-match", "-f", "%{file}", "sans").stdout.decode()
        run("montage", *(["-font", font] if font else []), "-background", "white", "-geometry", "+6+6", "-tile", "5x", *shots, sheet)
        digests = {hashlib.sha256(open(row["shot"], "rb").read()).hexdigest() for row in rows if "shot" in row}
        return sheet, len(digests) == 1


def print_table(rows):
    columns = [("format", "key"), ("size", "size"), ("frames in", "in"), ("frames out", "out"), ("seconds", "seconds"),
               ("speed", "speed"), ("what the readers said", "said")]
    widths = [max(len(title), *(len(row[name]) for row in rows)) for title, name in columns]
    right = {"size", "in", "out", "seconds", "speed"}
    colour = sys.stdout.isatty()

    def line(cells):
        return "  ".join(cell.rjust(width) if name in right else cell.ljust(width)
                         for cell, width, (_, name) in zip(cells, widths, columns)).rstrip()

    print("     " + line([title for title, _ in columns]))
    for row in rows:
        mark = "good" if row["good"] else "BAD "
        if colour:
            mark = f"\x1b[{32 if row['good'] else 31}m{mark}\x1b[0m"
        print(f"{mark} {line([row[name] for _, name in columns])}", flush=True)


def main():
    if len(sys.argv) not in (2, 3):
        print(__doc__.strip().splitlines()[2], file=sys.stderr)
        return 2
    muxora = os.path.join(sys.argv[1], "muxora")
    folder = sys.argv[2] if len(sys.argv) == 3 else "build/demo"
    for program in (muxora, "ffmpeg", "ffprobe", "mediainfo", "mkvinfo", "montage"):
        if shutil.which(program) is None:
            print(f"demo: {program} is missing; run scripts/setup.sh and build", file=sys.stderr)
            return 1
    os.makedirs(folder, exist_ok=True)
    demo = Demo(muxora, folder)
    print(f"A clip of {SECONDS} seconds, H.264 {WIDTH}x{HEIGHT} at {FPS} pictures a second with AAC (or the sound that the "
          "format takes):\nevery picture and the sound that come back out of each format are compared with the clip.\n",
          flush=True)
    demo.make_clips()
    keys = [row["key"] for row in json.loads(run(muxora, "formats", "--json").stdout)]
    rows = [demo.row(key) for key in keys]
    print_table(rows)
    sheet, alike = demo.contact_sheet(rows)
    bad = [row["key"] for row in rows if not row["good"]]
    print(f"\nThe same picture out of each format: {sheet}" + ("" if alike else " (they differ!)"))
    if bad or not alike:
        print(f"Not right: {' '.join(bad) or 'the pictures of the contact sheet'}")
        return 1
    print(f"All {len(rows)} formats are good.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
