#!/usr/bin/env python3
"""A network camera: as much of RTSP (RFC 2326) as a client asks for. ffmpeg sends the RTP.

  rtsp_camera.py [--port N] [--size WxH]   prints its address and serves until it is killed
"""
import argparse
import re
import socketserver
import subprocess

# Nothing outlives the camera.
PICTURES = "setpriv --pdeathsig KILL ffmpeg -nostdin -v error -re -f lavfi -i testsrc2=s={size}:r=30"
ONE_SLICE = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -bf 0 -x264-params slices=1 -g 15"


class Camera(socketserver.StreamRequestHandler):
    size = "1280x720"
    description = """v=0\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r
a=rtpmap:96 H264/90000\r\na=fmtp:96 packetization-mode=1\r\na=control:video\r\n"""

    def handle(self):
        port, sender = 0, None
        while line := self.rfile.readline().decode():
            method = line.split()[0]
            reply = "Session: 1\r\nPublic: DESCRIBE, SETUP, PLAY\r\n"
            while header := self.rfile.readline().decode().strip():
                if header.startswith("CSeq"):
                    reply += header + "\r\n"
                if found := re.match(r"Transport:.*client_port=(\d+)", header):
                    port = found[1]
                    reply += header + ";server_port=9-9\r\n"
            body = self.description if method == "DESCRIBE" else ""
            reply += f"Content-Type: application/sdp\r\nContent-Length: {len(body)}\r\n\r\n"
            self.wfile.write(f"RTSP/1.0 200 OK\r\n{reply}{body}".encode())
            if method == "PLAY":
                command = f"{PICTURES} {ONE_SLICE} -f rtp rtp://127.0.0.1:{port}"
                sender = subprocess.Popen(command.format(size=self.size).split(),
                                          stdout=subprocess.DEVNULL)
        if sender:
            sender.kill()
            sender.wait()


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True


def serve(port=0):
    """A camera on this machine."""
    return Server(("127.0.0.1", port), Camera)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--size", default=Camera.size)
    arguments = parser.parse_args()
    Camera.size = arguments.size
    with serve(arguments.port) as server:
        print(f"rtsp://127.0.0.1:{server.server_address[1]}/stream", flush=True)
        server.serve_forever()
