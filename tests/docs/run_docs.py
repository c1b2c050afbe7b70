#!/usr/bin/env python3
"""Runs what a page of the documentation has its reader run, and compares its messages.

  run_docs.py PAGE BUILD   runs the page's blocks in order, in a folder of their own, against a
                           private server; whatever a block publishes must arrive there
  run_docs.py --messages   compares the tables of docs/troubleshooting.md with the sources
"""
import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

# Every block of a page says what it is: "sh (run)" is run; "sh" behind a comment "<!-- stand-in: WHAT
# -->" too, with something in place of what is not here; "sh" behind "<!-- not run: WHY -->" is not;
# "LANGUAGE (file NAME)" is written into that file; every other language is for reading.

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/support"))
import rtsp_camera  # noqa: E402  pylint: disable=wrong-import-position
UNIT = ROOT / "packaging/nimbo-publish@.service.in"
CLIP = "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=s=1280x720:r=30"
ONE_SLICE = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -bf 0 -x264-params slices=1"

# What the pages call something, and what it is here; {name} is known once the servers run. Whatever
# publishes without end is given one.
PLACES = [
    (r"rtmp://(server|backup)/", "rtmp://{rtmp}/"),
    (r"rtmps://server/", "rtmps://{rtmps}/"),
    (r"server:443", "{rtmps}"),
    (r"(DNS:|-servername |-verify_hostname )server\b", "\\1localhost"),
    (r"rtsp://camera/", "rtsp://127.0.0.1:{rtsp}/"),
    (r"rtsp_transport=tcp", "rtsp_transport=udp"),
    (r"format (v4l2|alsa)", "format lavfi"),
    (r"publish /dev/video0", "publish testsrc2=size=1280x720:rate=30"),
    (r" --input-option (input_format=mjpeg|video_size=1280x720|framerate=30)", ""),
    (r"--audio default", "--audio sine=sample_rate=48000"),
    (r"/etc/nimbo/", "etc/nimbo/"),
    (r"(?<![\w/])build/release\b", "{build}"),
    (r"(?<![\w/])(?:\./)?(publish\.sh|tools/)", "{root}/\\1"),
    (r"--monitor(?=\n|$)", "--monitor 0"),
    (r"nimbo-host (publish|push)\b(?![^\n]*--duration)", "nimbo-host \\1 --duration 3"),
]

# Programs that are not here.
STAND_INS = {
    "sudo": 'exec "$@"',
    "systemctl": f"""[ "$1 $2 ${{3%@*}}" = "enable --now nimbo-publish" ]
      INPUT= URLS= OPTIONS=; set -a; . "etc/nimbo/${{3#*@}}.conf"
      eval "$(sed -n 's,^ExecStart=[^/]*/,,p' '{UNIT}') --duration 3" """,
    "rpicam-vid": f"""declare -A is
      while [ $# -gt 0 ]; do
        case $1 in -n | --inline) shift ;; *) is[$1]=$2; shift 2 ;; esac
      done
      exec {CLIP.replace("1280x720:r=30", "${is[--width]}x${is[--height]}:r=${is[--framerate]}")} \\
        -t 2 {ONE_SLICE} -g "${{is[--intra]}}" -b:v "${{is[--bitrate]}}" \\
        -profile:v "${{is[--profile]}}" -f h264 "${{is[-o]}}" """,
}


def fail(why):
    sys.exit(f"FAILED: {why}")


def blocks(page):
    """What a page holds between fences, as (line, mark, language, text)."""
    text = page.read_text()
    fence = re.compile(r"^(?:[ ]*<!-- (stand-in|not run): .+? -->\n)?([ ]*)```(.*)\n((?:.*\n)*?)\2```$",
                       re.M)
    for match in fence.finditer(text):
        mark, _, language, body = match.groups()
        line = text.count("\n", 0, match.start()) + 1
        if language in ("", "bash", "shell", "console") or (language == "sh" and not mark):
            fail(f"{page.name}:{line}: the block does not say whether it is run")
        yield line, mark, language, re.sub(r"^ {%d}" % len(match[2]), "", body, flags=re.M)


def arrived(recordings, name):
    """True as soon as the server has recorded a picture of the stream; false after 10 s."""
    probe = "ffprobe -v error -select_streams v -show_entries packet=flags -of csv=p=0".split()
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        for file in recordings.glob(f"{name}-[0-9]*.flv"):
            if subprocess.run([*probe, file], capture_output=True, check=False).stdout[:1] == b"K":
                return True
        time.sleep(0.1)
    return False


def run_page(page, build):
    with tempfile.TemporaryDirectory() as name, \
            rtsp_camera.serve() as camera:
        folder = pathlib.Path(name)
        threading.Thread(target=camera.serve_forever, daemon=True).start()
        for place in ("etc", "etc/nimbo", "bin"):
            (folder / place).mkdir()
        for program, text in STAND_INS.items():
            (folder / "bin" / program).write_text("#!/usr/bin/env bash\nset -euo pipefail\n" + text)
            (folder / "bin" / program).chmod(0o755)
        subprocess.run(f"{CLIP} -f lavfi -i sine -t 2 {ONE_SLICE} {folder}/film.mp4".split(), check=True)
        known = {"build": build, "root": ROOT, "rtsp": camera.server_address[1]}
        server = None
        try:
            for line, mark, language, text in blocks(page):
                if file := re.fullmatch(r"\w+ \(file (.+)\)", language):
                    (folder / file[1]).write_text(text)
                if mark == "not run" or not language.startswith("sh"):
                    continue
                if re.search("rtmps?://", text) and not server:  # whose certificate may be made above
                    server = subprocess.Popen([ROOT / "tools/ingest-server", folder / "tls", "--tls"],
                                              stdout=subprocess.PIPE, text=True)
                    for scheme in ("rtmp", "rtmps"):
                        known[scheme] = server.stdout.readline().split("/")[2]
                run_block(f"{page.name}:{line}", text.replace("\\\n", ""), known, folder)
        finally:
            camera.shutdown()
            if server:
                server.terminate()
                server.wait()


def run_block(place, text, known, folder):
    streams = set(re.findall(r"rtmps?://(?:server|backup)/live/(\w+)", text))
    # Keys, wherever they are kept.
    streams |= set(re.findall(r"(?:^echo |^NIMBO_KEY=)(\w+)(?= > key| nimbo|\n)", text, re.M))
    for called, here in PLACES:
        text = re.sub(called, lambda m, here=here: m.expand(here).format(**known), text)
    env = dict(os.environ, PATH=f"{folder}/bin:{known['build']}:{os.environ['PATH']}")
    began = time.monotonic()
    with tempfile.TemporaryFile("w+", errors="replace") as said:
        shell = subprocess.Popen(["bash", "-euo", "pipefail", "-c", text], cwd=folder, env=env,
                                 stdin=subprocess.DEVNULL, stdout=said, stderr=subprocess.STDOUT,
                                 start_new_session=True)
        try:
            status = shell.wait(timeout=120)
        finally:  # what the block has left in the background ends with it
            with contextlib.suppress(ProcessLookupError):
                os.killpg(shell.pid, signal.SIGTERM)
            said.seek(0)
            print(f"== {place}, {time.monotonic() - began:.1f} s\n{text}{said.read()}", flush=True)
    if status:
        fail(f"{place}: ended with {status}")
    for stream in streams:
        if not arrived(folder / "tls/recordings", stream):
            fail(f"{place}: nothing of \"{stream}\" arrived")


LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
PRINTING = re.compile(r"(?:\b(?:Failure|Line|Tell|Report|printf|fail)\(|\bboth = )[^;]*;")


def texts(code):
    """The pieces of text in C++ code."""
    for literal in LITERAL.findall(re.sub(r'"\s+"', "", code)):
        for piece in re.split(r"\\n|%s|\\033\[0m", literal):
            piece = piece.replace('\\"', '"').strip()
            if re.search("[A-Za-z]", piece):
                yield piece


def compare_messages():
    printed, known = set(), set()
    for path in [*ROOT.glob("plugin/**/*.cpp"), *ROOT.glob("base/reflect/*.h")]:
        code = re.sub(r"^\s*//.*|^#include.*", "", path.read_text(), flags=re.M)
        known.update(texts(code))
        if path.parent.name in ("bytes", "session"):  # what explains a failure is a sentence
            printed.update(text for text in texts(code) if len(text.split()) > 2)
        else:
            for statement in PRINTING.findall(code):
                printed.update(texts(statement))
    explained = set()
    tables = (ROOT / "docs/troubleshooting.md").read_text().split("## Lines")[1]
    for row in re.findall(r"^\| (`.*?) \|(?= )", tables, re.M):
        for text in re.findall("`(.+?)`", row.replace("\\|", "|")):
            explained.update(piece.strip() for piece in text.split("…") if re.search("[A-Za-z]", piece))
    for text in sorted(printed - explained):
        print(f"not explained: {text}")
    for text in sorted(explained - known):
        print(f"not printed: {text}")
    if printed - explained or explained - known:
        fail("docs/troubleshooting.md and the sources differ")


signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
if sys.argv[1:] == ["--messages"]:
    compare_messages()
elif len(sys.argv) == 3:
    run_page(pathlib.Path(sys.argv[1]), sys.argv[2])
else:
    sys.exit(__doc__)
