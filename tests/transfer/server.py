"""A web server that behaves in one of many manners. Runs in the gateway, beside cpectl.

server.py MANNER PORT: says that it listens by the file "ready", writes each request as a line of
JSON to the file "requests", and ends when its manner has nothing more to do.
"""

import base64
import json
import os
import socket
import ssl
import sys
import time

LIMIT = 20.0  # seconds to wait for a request that may never come


def offer(name="a.bin", **more):
    message = {"path": f"http://fw.example/{name}", "textNotes": "t", "md5": "5", "type": "x"}
    return json.dumps({**more, "msg": message}).encode()


def answer(status="200 OK", body=b"", length=None, headers=()):
    lines = [f"HTTP/1.1 {status}", *headers]
    if length is None:
        length = len(body)
    if length >= 0:
        lines.append(f"Content-Length: {length}")
    return "\r\n".join([*lines, "", ""]).encode() + body


def chunks(*parts):
    body = b"".join(b"%x\r\n%s\r\n" % (len(part), part) for part in [*parts, b""])
    return answer(length=-1, headers=["Transfer-Encoding: chunked"], body=body)


class Connection:
    def __init__(self, stream):
        self.stream = stream

    def line(self):
        found = b""
        while not found.endswith(b"\r\n"):
            more = self.stream.recv(1)
            if not more:
                return None
            found += more
        return found[:-2].decode("latin-1")

    def head(self):
        first = self.line()
        if first is None:
            return None
        headers = []
        while (line := self.line()):
            headers.append(line.split(": ", 1))
        return first, headers

    def body(self, headers, pace=None):
        """The body of a request, read as quickly as it comes or with a pause after each piece."""
        lengths = [int(value) for name, value in headers if name.lower() == "content-length"]
        left = lengths[0] if lengths else 0
        parts = []
        while left:
            part = self.stream.recv(min(left, 65536))
            if not part:
                break
            parts.append(part)
            left -= len(part)
            if pace:
                time.sleep(pace)
        return b"".join(parts)

    def record(self, pace=None, body=True):
        """Reads a request and notes it. False when none came."""
        head = self.head()
        if head is None:
            return False
        first, headers = head
        if any(name.lower() == "expect" for name, _ in headers) and body:
            self.send(b"HTTP/1.1 100 Continue\r\n\r\n")
        content = self.body(headers, pace) if body else b""
        with open("requests", "a", encoding="ascii") as file:
            print(json.dumps({"request": first, "headers": headers,
                              "body": base64.b64encode(content).decode()}), file=file)
        return True

    def send(self, data):
        try:
            self.stream.sendall(data)
        except OSError:
            pass  # the other side had enough


def listen(port):
    listener = socket.create_server(("127.0.0.1", port))
    listener.settimeout(LIMIT)
    return listener


def one(manner):
    """A manner of answering one request: what to send after it was read."""
    def run(port):
        with listen(port) as listener:
            open("ready", "w", encoding="ascii").close()
            stream, _ = listener.accept()
            with stream:
                connection = Connection(stream)
                if connection.record():
                    manner(connection)
    return run


def sends(data):
    return one(lambda connection: connection.send(data))


def slowly(connection):
    data = answer(body=offer())
    for start in range(0, len(data), 40):
        connection.send(data[start:start + 40])
        time.sleep(0.1)


def reset(connection):
    """Half an offer, and the connection is torn down."""
    connection.send(answer(body=offer()[:30], length=200))
    linger = b"\x01\x00\x00\x00\x00\x00\x00\x00"
    connection.stream.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)


def redirecting(port):
    """Sends the client elsewhere, and waits there for it in vain."""
    with listen(port) as listener, listen(port + 1) as elsewhere:
        open("ready", "w", encoding="ascii").close()
        stream, _ = listener.accept()
        with stream:
            connection = Connection(stream)
            connection.record()
            place = f"Location: http://127.0.0.1:{port + 1}/elsewhere"
            connection.send(answer("302 Found", b"<html>Moved</html>", headers=[place]))
        elsewhere.settimeout(0.7)
        try:
            stream, _ = elsewhere.accept()
        except TimeoutError:
            return
        with stream:
            Connection(stream).record()


def reads_late(port):
    """Takes an upload only when the request was answered (file "answered"), if that is soon."""
    with listen(port) as listener:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        open("ready", "w", encoding="ascii").close()
        stream, _ = listener.accept()
        with stream:
            end = time.monotonic() + LIMIT
            while not os.path.exists("answered") and time.monotonic() < end:
                time.sleep(0.01)
            if os.path.exists("answered"):
                connection = Connection(stream)
                connection.record(pace=0.01)
                connection.send(answer())


def hangs_up(port):
    """Closes an upload's connection after its head."""
    with listen(port) as listener:
        open("ready", "w", encoding="ascii").close()
        stream, _ = listener.accept()
        with stream:
            Connection(stream).record(body=False)


def encrypted(port):
    """Speaks TLS with a certificate that nobody signed."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain("certificate.pem")
    with listen(port) as listener:
        open("ready", "w", encoding="ascii").close()
        stream, _ = listener.accept()
        try:
            with context.wrap_socket(stream, server_side=True) as safe:
                Connection(safe).record()
        except OSError:
            open("refused", "w", encoding="ascii").close()


MANNERS = {
    "offers": sends(answer(body=offer())),
    "offers with 404": sends(answer("404 Not Found", offer())),
    "offers with 500": sends(answer("500 Internal Server Error", offer())),
    "says 404": sends(answer("404 Not Found", b"<html>404</html>")),
    "says 500": sends(answer("500 Internal Server Error", b"Traceback")),
    "says nothing": sends(answer("204 No Content", length=-1)),
    "sends an empty body": sends(answer()),
    "sends chunks": sends(chunks(offer()[:20], offer()[20:21], offer()[21:])),
    "sends until it closes": sends(b"HTTP/1.0 200 OK\r\n\r\n" + offer()),
    "sends less than it says": sends(answer(body=offer()[:40], length=len(offer()))),
    "sends an offer and less than it says": sends(answer(body=offer(), length=5000)),
    "sends a broken chunk": sends(answer(length=-1, headers=["Transfer-Encoding: chunked"],
                                         body=b"14\r\n" + offer()[:20] + b"\r\nxyz\r\n")),
    "sends 10 MB": sends(answer(body=offer(more="a" * 10_000_000))),
    "sends a cookie and headers": sends(answer(body=offer(), headers=[
        "Set-Cookie: a=b", "X-Long: " + "x" * 20000, "Content-Type: text/html"])),
    "sends slowly": one(slowly),
    "speaks another language": sends(b"220 mail.example ESMTP\r\n"),
    "closes": sends(b""),
    "tears down": one(reset),
    "redirects": redirecting,
    "takes it": sends(answer(body=b"thanks")),
    "refuses it": sends(answer("403 Forbidden", b"no")),
    "reads late": reads_late,
    "hangs up": hangs_up,
    "encrypts": encrypted,
}

if __name__ == "__main__":
    try:
        MANNERS[sys.argv[1]](int(sys.argv[2]))
    except TimeoutError:
        pass
