#!/usr/bin/env python3
"""Ends TLS in front of a server on loopback, and cuts the connections that there are after a while.

  tls-front.py CERTIFICATE-AND-KEY PORT SECONDS

Prints the port that it listens at. SECONDS after the first connection all are cut, once; 0 cuts none.
"""
import socket
import ssl
import sys
import threading


def pump(source, sink):
    try:
        while data := source.recv(65536):
            sink.sendall(data)
    except OSError:
        pass
    for end in (source, sink):
        try:
            end.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


def cut(server):
    try:
        server.shutdown(socket.SHUT_RDWR)
    except OSError:
        pass  # it had ended already


def serve(client, context, port, servers):
    try:
        client = context.wrap_socket(client, server_side=True)
    except OSError:
        return
    server = socket.create_connection(("127.0.0.1", port))
    servers.append(server)
    threading.Thread(target=pump, args=(server, client), daemon=True).start()
    pump(client, server)


def main():
    certificate, port, seconds = sys.argv[1], int(sys.argv[2]), float(sys.argv[3])
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate)
    listener = socket.create_server(("127.0.0.1", 0))
    print(listener.getsockname()[1], flush=True)
    servers = []
    client = listener.accept()[0]
    if seconds:
        threading.Timer(seconds, lambda: [cut(server) for server in servers]).start()
    while True:
        threading.Thread(target=serve, args=(client, context, port, servers), daemon=True).start()
        client = listener.accept()[0]


if __name__ == "__main__":
    main()
