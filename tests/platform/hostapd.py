"""hostapd as libwum meets it: the real daemon, and one that can be made to misbehave."""
import os
import pathlib
import socket
import subprocess
import threading
import time


def station_text(mac, flags="[AUTH][ASSOC][AUTHORIZED]"):
    return (f"{mac}\nflags={flags}\naid=1\ncapability=0x431\nlisten_interval=10\n"
            "supported_rates=82 84 8b 96 24 30 48 6c\ntimeout_next=NULLFUNC POLL\n")


class Double:
    """Speaks the control protocol on a socket of its own, with a list that tests may change.

    `before(command)` is called before each answer. What `answers` holds for a command is said
    instead of the usual answer (None: nothing at all).
    """

    def __init__(self, path, ssid="office", stations=(), flags=None):
        self.path = pathlib.Path(path)
        self.ssid = ssid
        self.stations = list(stations)
        self.flags = flags or {}
        self.answers = {}
        self.before = lambda command: None
        self.commands = []
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(self.path))
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        while True:
            try:
                data, sender = self.socket.recvfrom(4096)
            except OSError:
                return
            if data == b"end of the test":
                return
            command = data.decode()
            self.commands.append(command)
            self.before(command)
            answer = self.answers.get(command, self.answer(command))
            if answer is not None and sender:
                self.send(answer, sender)

    def send(self, answer, receiver):
        try:
            self.socket.sendto(answer if isinstance(answer, bytes) else answer.encode(), receiver)
        except OSError:
            pass  # it does not wait any longer

    def station_or_end(self, index):
        if index >= len(self.stations):
            return ""
        mac = self.stations[index]
        return station_text(mac, **({"flags": self.flags[mac]} if mac in self.flags else {}))

    def answer(self, command):
        name, _, argument = command.partition(" ")
        if name == "GET_CONFIG":
            return f"bssid=02:00:00:00:00:aa\nssid={self.ssid}\nwps_state=disabled\n"
        if name == "STA-FIRST":
            return self.station_or_end(0)
        if name == "STA-NEXT":
            known = argument in self.stations
            return self.station_or_end(self.stations.index(argument) + 1) if known else "FAIL\n"
        if name == "DEAUTHENTICATE":
            if argument in self.stations:
                self.stations.remove(argument)
            return "OK\n"
        return "UNKNOWN COMMAND\n"

    def close(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as own:
            own.setblocking(False)
            try:
                own.sendto(b"end of the test", str(self.path))
            except OSError:
                pass
        self.thread.join(timeout=3)
        self.socket.close()


class Real:
    """The daemon itself, on a device without radio, where stations come and go by command."""

    def __init__(self, place, folder, device, ssid):
        self.place = place
        self.folder = folder
        self.device = device
        configuration = folder.parent / f"{device}.conf"
        configuration.write_text(f"interface={device}\ndriver=none\nctrl_interface={folder}\n"
                                 f"ssid2={ssid}\n")
        self.process = subprocess.Popen(place.enter("hostapd", configuration),
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        end = time.monotonic() + 20
        while not (folder / device).exists():
            assert self.process.poll() is None, self.process.stdout.read()
            assert time.monotonic() < end, "hostapd does not come up"
            time.sleep(0.02)

    def ask(self, command):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as own:
            own.bind(str(self.folder.parent / f"asking-{os.getpid()}"))
            try:
                own.settimeout(20)
                own.sendto(command.encode(), str(self.folder / self.device))
                return own.recv(4096).decode()
            finally:
                os.unlink(own.getsockname())

    def close(self):
        self.process.terminate()
        self.process.communicate(timeout=60)
