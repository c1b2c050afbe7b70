"""What is compared: each peer and each mode of ours, as the command that publishes a clip."""
import os
import shutil
import subprocess
from dataclasses import dataclass
from typing import Callable, Optional


@dataclass(frozen=True)
class Mode:
    name: str
    ours: bool
    tls: bool                                  # compared on rtmps, too
    fast: bool                                 # can publish as fast as possible
    command: Callable[[str, str, bool], list]  # (clip without suffix, address, fast)
    needs: Callable[[], bool]


def installed(program):
    return lambda: shutil.which(program) is not None


def gstreamer(*elements):
    def present():
        return shutil.which("gst-inspect-1.0") is not None and all(
            subprocess.run(["gst-inspect-1.0", "--exists", name], check=False).returncode == 0
            for name in elements)
    return present


def ffmpeg(clip, url, fast):
    pace = [] if fast else ["-re"]
    return ["ffmpeg", "-v", "error", "-nostdin", *pace, "-i", clip + ".mp4", "-c", "copy",
            "-f", "flv", url]


def tuned_ffmpeg(clip, url, fast):
    """Little probing, no trailer to go back for, packets written when the buffer is full."""
    pace = [] if fast else ["-re"]
    return ["ffmpeg", "-v", "error", "-nostdin", "-nostats", "-probesize", "32768",
            "-analyzeduration", "0", *pace, "-i", clip + ".mp4", "-map", "0", "-c", "copy",
            "-f", "flv", "-flvflags", "no_duration_filesize+no_metadata", "-flush_packets", "0",
            "-rtmp_live", "live", url]


def floor(build, unit):
    """What is left when nothing is read, copied or looked for: a gathered write for each `unit`."""
    return lambda clip, url, _fast: [os.path.join(build, "bench-loop"), clip + ".flv", url,
                                     "--floor", unit]


def film(build, *options):
    return lambda clip, url, _fast: [os.path.join(build, "nimbo-host"), "publish", clip + ".mp4",
                                     url, "--quiet", *options]


def pipeline(sink):
    def command(clip, url, fast):
        return ["gst-launch-1.0", "-q", "filesrc", f"location={clip}.mp4", "!", "qtdemux", "name=d",
                "flvmux", "name=m", "streamable=true", "!", sink, f"location={url}",
                f"sync={'false' if fast else 'true'}",
                "d.video_0", "!", "queue", "!", "h264parse", "!", "m.",
                "d.audio_0", "!", "queue", "!", "aacparse", "!", "m."]
    return command


def make(build):
    host = os.path.join(build, "nimbo-host")
    loop = os.path.join(build, "bench-loop")
    built = lambda program: lambda: os.path.exists(program)

    def bare(chunk):
        return lambda clip, url, fast: [loop, clip + ".flv", url, "--chunk", str(chunk),
                                        *(["--fast"] if fast else [])]

    def client(*options):
        return lambda clip, url, fast: [host, "publish", clip + ".h264", url, "--audio",
                                        clip + ".aac", *options, *(["--fast"] if fast else [])]

    def pusher(clip, url, _fast):
        return [host, "push", "--url", url, "--input", clip + ".h264", "--input", clip + ".aac"]

    return [
        Mode("tuned FFmpeg", False, True, True, tuned_ffmpeg, installed("ffmpeg")),
        Mode("FFmpeg", False, True, True, ffmpeg, installed("ffmpeg")),
        Mode("rtmp2sink", False, False, True, pipeline("rtmp2sink"),
             gstreamer("rtmp2sink", "flvmux", "qtdemux", "h264parse", "aacparse")),
        Mode("rtmpsink", False, False, True, pipeline("rtmpsink"),
             gstreamer("rtmpsink", "flvmux", "qtdemux", "h264parse", "aacparse")),
        Mode("bare librtmp, chunk 128", False, False, True, bare(128), built(loop)),
        Mode("bare librtmp, chunk 1024", False, False, True, bare(1024), built(loop)),
        # Its ring drops what the server does not take in time, so there is nothing to hurry.
        Mode("pusher", True, True, False, pusher, built(host)),
        Mode("client, copying", True, True, True, client(), built(host)),
        Mode("client, zero-copy", True, True, True, client("--no-copy"), built(host)),
    ]


def version(mode: Mode) -> Optional[str]:
    """The first line that a peer's program says about itself."""
    program = mode.command("clip", "rtmp://127.0.0.1/live/s", False)[0]
    flag = "-version" if program == "ffmpeg" else "--version"
    said = subprocess.run([program, flag], capture_output=True, text=True, check=False).stdout
    return said.splitlines()[0] if said and not mode.ours else None
