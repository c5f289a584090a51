#!/usr/bin/env python3
"""A stand-in for the product's server: answers GET /home/ with one HTTP status.

    status_server.py PORT STATUS [COUNT_FILE] [DELAY]

Listens on 127.0.0.1:PORT after DELAY seconds (default 0), then writes the time it began to listen
to COUNT_FILE + ".listening" where a COUNT_FILE is given, and appends one "x" to COUNT_FILE for
each request. Runs until killed.
"""
import http.server
import sys
import time

port, status = int(sys.argv[1]), int(sys.argv[2])
count = sys.argv[3] if len(sys.argv) > 3 else None
time.sleep(float(sys.argv[4]) if len(sys.argv) > 4 else 0)


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        if count:
            with open(count, "a") as f:
                f.write("x")
        self.send_response(status)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *args):
        pass


server = http.server.HTTPServer(("127.0.0.1", port), Handler)
if count:
    with open(count + ".listening", "w") as f:
        f.write("%.6f" % time.time())
server.serve_forever()
