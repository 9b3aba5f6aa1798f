#!/usr/bin/python3
"""Lives in one network namespace and makes real traffic there, as its standard input tells it.

Each input line is a JSON object with "do" and that action's arguments; each is answered by one
line. When the input ends, the agent does, and with it its namespace and all devices in there.
"""
import json
import os
import socket
import struct
import sys
import threading
import time

CHUNK = 16384
TCP_HEAD = struct.Struct("!QQd")  # bytes to send back, bytes that come, seconds to spread them over
UDP_HEAD = struct.Struct("!I")    # payload bytes to answer with

connections = {}
background = []


def send_spread(connection, size, seconds):
    """Sends `size` bytes evenly over the time; 0: at once."""
    data, begin, sent = b"x" * CHUNK, time.monotonic(), 0
    while sent < size:
        if seconds:
            time.sleep(max(0, begin + seconds * sent / size - time.monotonic()))
        part = min(CHUNK if not seconds else max(1, size // 200), size - sent)
        connection.sendall(data[:part])
        sent += part


def receive_all(connection, size):
    while size > 0:
        got = len(connection.recv(min(size, 1 << 20)))
        if got == 0:
            raise EOFError("the connection ended early")
        size -= got


def both_ways(connection, send, receive, seconds):
    sender = threading.Thread(target=send_spread, args=(connection, send, seconds))
    sender.start()
    receive_all(connection, receive)
    sender.join()


def tcp_serve_one(connection):
    with connection:
        while True:
            head = connection.recv(TCP_HEAD.size, socket.MSG_WAITALL)
            if len(head) < TCP_HEAD.size:
                return
            send, receive, seconds = TCP_HEAD.unpack(head)
            both_ways(connection, send, receive, seconds)
            connection.sendall(b".")


def tcp_serve(server):
    while True:
        connection, _ = server.accept()
        threading.Thread(target=tcp_serve_one, args=(connection,), daemon=True).start()


def udp_serve(server):
    while True:
        data, sender = server.recvfrom(65536)
        answer, = UDP_HEAD.unpack_from(data)
        if answer:
            server.sendto(b"y" * answer, sender)


def listen(address, port):
    """Serves TCP and UDP."""
    tcp = socket.create_server((address, port), backlog=200)
    udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    udp.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
    udp.bind((address, port))
    for serve, server in ((tcp_serve, tcp), (udp_serve, udp)):
        threading.Thread(target=serve, args=(server,), daemon=True).start()


def tcp(to, port, down, up, seconds=0, keep=None, source=""):
    """Moves bytes over a connection; `keep` is the name by which it stays open for more."""
    connection = connections.get(keep)
    if not connection:
        connection = socket.create_connection((to, port), source_address=(source, 0))
    connection.sendall(TCP_HEAD.pack(down, up, seconds))
    both_ways(connection, up, down, seconds)
    assert connection.recv(1) == b"."
    if keep:
        connections[keep] = connection
    else:
        connection.close()


def udp(to, port, count, size, answer=0, seconds=0, keep=None, source=""):
    """Sends datagrams of `size` payload bytes, each answered with `answer` bytes."""
    connection = connections.get(keep)
    if not connection:
        connection = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        connection.bind((source, 0))
        connection.connect((to, port))
        connection.settimeout(20)
    data = UDP_HEAD.pack(answer).ljust(size, b"x")
    begin = time.monotonic()
    for i in range(count):
        if seconds:
            time.sleep(max(0, begin + seconds * i / count - time.monotonic()))
        connection.send(data)
        if answer:
            assert len(connection.recv(65536)) == answer
    if keep:
        connections[keep] = connection
    else:
        connection.close()


def udp_from_each(sources, to, port, size):
    """One datagram of its own size from each of many addresses: `size` plus its number."""
    for number, source in enumerate(sources):
        udp(to, port, 1, size + number, source=source)


def udp_to_each_port(to, ports, size):
    """One datagram to each of the first so many ports, from one socket."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        data = bytes(size)
        for port in range(1, ports + 1):
            sender.sendto(data, (to, port))


def close(name):
    connections.pop(name).close()


def start(action):
    """Does an action in the background."""
    thread = threading.Thread(target=lambda: ACTIONS[action.pop("do")](**action))
    thread.start()
    background.append(thread)


def wait():
    while background:
        background.pop().join()


ACTIONS = {"listen": listen, "tcp": tcp, "udp": udp, "udp_from_each": udp_from_each,
           "udp_to_each_port": udp_to_each_port, "close": close,
           "start": start, "wait": wait}


def answer(line):
    request = json.loads(line)
    try:
        ACTIONS[request.pop("do")](**request)
        return {"ok": True}
    except Exception as failure:  # whatever it is, the test has to know
        return {"ok": False, "failure": repr(failure)}


def main():
    print(json.dumps({"ok": True}), flush=True)
    for line in sys.stdin:
        print(json.dumps(answer(line)), flush=True)
    # Threads that still wait for something end here, too.
    sys.stdout.flush()
    os._exit(0)


if __name__ == "__main__":
    main()
