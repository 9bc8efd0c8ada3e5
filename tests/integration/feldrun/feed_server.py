#!/usr/bin/env python3
"""A feed host for feldrun's tests: serves ROOT on 127.0.0.1 (a free port,
printed on the first line of stdout) with ETag, Last-Modified, conditional
GETs and byte ranges, and logs each request as one line in LOG:
    GET /path range=bytes=100- if-range=... if-none-match=... status=206

The first path segment can ask for a fault; the rest names the file:
    /404/..., /500/...       that status
    /moved/X, /moved308/X    301 or 308 to /X;  /temp/X: 302 to /X
    /loop/a, /loop/b         302 to each other
    /drop/X                  first GET: half the file, then the connection closes
    /stall/X                 first GET: half the file, then nothing for 60 s
    /short/X                 first GET: Content-Length 1000 more than is sent
    /long/X                  first GET: Content-Length half of what is sent
    /norange/X               never resumes: every GET answers 200 with all of X
"""
import email.utils
import http.server
import os
import sys
import threading
import time
import urllib.parse
import zlib

ROOT, LOG = sys.argv[1], sys.argv[2]
lock = threading.Lock()
faults_done = set()
STALL_SECONDS = 60


def first_time(key):
    with lock:
        if key in faults_done:
            return False
        faults_done.add(key)
        return True


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def log_request(self, code="-", size="-"):
        with lock, open(LOG, "a") as log:
            log.write("%s %s range=%s if-range=%s if-none-match=%s if-modified-since=%s status=%s\n" % (
                self.command, self.path, self.headers.get("Range", ""), self.headers.get("If-Range", ""),
                self.headers.get("If-None-Match", ""), self.headers.get("If-Modified-Since", ""), code))

    def answer(self, status, body=b"", headers=()):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def redirect(self, status, location):
        self.answer(status, headers=[("Location", location)])

    def do_GET(self):
        parts = self.path.split("/", 2)
        fault = parts[1] if len(parts) > 2 else ""
        rest = "/" + parts[2] if len(parts) > 2 else self.path
        if fault in ("404", "500"):
            return self.answer(int(fault), b"no\n")
        if fault == "moved":
            return self.redirect(301, rest)
        if fault == "moved308":
            return self.redirect(308, rest)
        if fault == "temp":
            return self.redirect(302, rest)
        if fault == "loop":
            return self.redirect(302, "/loop/b" if rest == "/a" else "/loop/a")
        path = os.path.join(ROOT, urllib.parse.unquote(rest).lstrip("/"))
        if not os.path.isfile(path):
            path = os.path.join(ROOT, urllib.parse.unquote(self.path).lstrip("/"))
            fault = ""
        if not os.path.isfile(path):
            return self.answer(404, b"not here\n")
        with open(path, "rb") as f:
            data = f.read()
        if fault in ("drop", "stall", "short", "long") and not self.headers.get("Range") \
                and first_time(self.path):
            return self.faulty(fault, data)
        self.serve(path, data, ranges=fault != "norange")

    def faulty(self, fault, data):
        self.close_connection = True
        announced = {"short": len(data) + 1000, "long": len(data) // 2}.get(fault, len(data))
        sent = data if fault in ("short", "long") else data[:len(data) // 2]
        self.send_response(200)
        self.send_header("Content-Length", str(announced))
        self.send_header("ETag", etag_of(data))
        self.end_headers()
        self.wfile.write(sent)
        self.wfile.flush()
        if fault == "stall":
            time.sleep(STALL_SECONDS)

    def serve(self, path, data, ranges):
        tag = etag_of(data)
        modified = email.utils.formatdate(int(os.path.getmtime(path)), usegmt=True)
        if self.headers.get("If-None-Match") == tag or (
                not self.headers.get("If-None-Match") and self.headers.get("If-Modified-Since") == modified):
            return self.answer(304, headers=[("ETag", tag)])
        validators = [("ETag", tag), ("Last-Modified", modified), ("Accept-Ranges", "bytes")]
        kind = "text/html" if path.endswith(".html") else "application/octet-stream"
        wanted = self.headers.get("Range", "")
        if_range = self.headers.get("If-Range")
        if ranges and wanted.startswith("bytes=") and wanted.endswith("-") and if_range in (None, tag, modified):
            start = int(wanted[6:-1])
            if start >= len(data):
                return self.answer(416, headers=[("Content-Range", "bytes */%d" % len(data))])
            return self.answer(206, data[start:], validators + [
                ("Content-Range", "bytes %d-%d/%d" % (start, len(data) - 1, len(data))),
                ("Content-Type", kind)])
        self.answer(200, data, validators + [("Content-Type", kind)])


def etag_of(data):
    return '"%x-%x"' % (len(data), zlib.crc32(data))


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.daemon_threads = True
print(server.server_address[1], flush=True)
server.serve_forever()
