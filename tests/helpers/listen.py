#!/usr/bin/env python3
"""A server for the port owner tests: listens on the address given ("127.0.0.1", "::",
"::ffff:127.0.0.1"; "::/v6only" for an IPv6-only socket) at a port the system picks, prints
"port <n> pid <self>" and waits for good. Further arguments are words a test puts on the
command line, as a server's arguments would name its files."""
import os
import signal
import socket
import sys

address = sys.argv[1].removesuffix("/v6only")
family = socket.AF_INET6 if ":" in address else socket.AF_INET
server = socket.socket(family, socket.SOCK_STREAM)
if family == socket.AF_INET6:
    server.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, sys.argv[1].endswith("/v6only"))
server.bind((address, 0))
server.listen(8)
print(f"port {server.getsockname()[1]} pid {os.getpid()}", flush=True)
signal.pause()
