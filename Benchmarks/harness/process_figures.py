"""What the receiver costs as a process: its start, its memory by phones, its wake-ups while idle, its size on disk.

The head unit's two processes are played here: they listen before the receiver starts, and acknowledge everything.
"""

import os
import pathlib
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

from .samples import OURS, Sample

PHONES = (0, 1, 64, 128, 254)

_LIMIT_S = 20
_START_PROTOCOL, _RFCOMM_CONNECTED, _RECEIVED_SPP_DATA = 1000, 1004, 4000
_SERVICE_UUID = b"4DE17A0052CB11E6BDF40800200C9A66"
_ACK = struct.pack("=IB", 1, 1)


def _command(message_id, body=b""):
    payload = struct.pack("=i", message_id) + body
    return struct.pack("=I", len(payload)) + payload


def _text(value):
    return struct.pack(">I", len(value)) + value


def _start_protocol():
    """No channels, eight empty texts about the head unit, no TLS texts."""
    return _command(_START_PROTOCOL, bytes(4) + bytes(4) + 11 * _text(b""))


def _hello(phone):
    """The phone's first message over RFCOMM, in a message of the Bluetooth process."""
    client_id = f"phone-{phone}".encode()
    hello = bytes([0x0A, len(client_id)]) + client_id
    message = bytes([0x0A, len(hello)]) + hello
    return _command(_RECEIVED_SPP_DATA, bytes([phone]) + _text(_SERVICE_UUID) + _text(_text(message)))


def _receive(connection, length):
    data = b""
    while len(data) < length:
        part = connection.recv(length - len(data))
        if not part:
            raise ConnectionError("the receiver is gone")
        data += part
    return data


class _Acknowledger(threading.Thread):
    """Takes the receiver's frames on one connection and acknowledges each."""

    def __init__(self, connection):
        super().__init__(daemon=True)
        self.connection, self.frames = connection, 0
        self.start()

    def run(self):
        try:
            while True:
                length = struct.unpack("=I", _receive(self.connection, 4))[0]
                _receive(self.connection, length)
                self.connection.sendall(_ACK)
                self.frames += 1
        except OSError:
            pass


def _listen(directory, name):
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(str(directory / name))
    listener.listen(4)
    listener.settimeout(_LIMIT_S)
    return listener


def _connect(directory, name):
    """Waits for the socket to come up; the receiver's four threads come to theirs in any order."""
    deadline = time.monotonic() + _LIMIT_S
    while True:
        connection = socket.socket(socket.AF_UNIX)
        try:
            connection.connect(str(directory / name))
            connection.settimeout(_LIMIT_S)
            return connection
        except OSError:
            connection.close()
            if time.monotonic() > deadline:
                raise
            time.sleep(0.0001)


class Receiver:
    """A receiver with both peers connected. `start_time` is from before its exec to its fourth socket, in seconds."""

    def __init__(self, program):
        self._directory = pathlib.Path(tempfile.mkdtemp(prefix="wpp-bench-"))
        self.process = None
        try:
            self._start(program)
        except BaseException:
            self.__exit__()
            raise

    def _start(self, program):
        listeners = [_listen(self._directory, name) for name in ("WPP_SOCKET_FROM_WPP", "WPP_SOCKET_TO_BT")]
        begin = time.perf_counter()
        self.process = subprocess.Popen([program], cwd=self._directory, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        accepted = [listener.accept()[0] for listener in listeners]
        self.controller = _connect(self._directory, "WPP_SOCKET_TO_WPP")
        self.bluetooth = _connect(self._directory, "WPP_SOCKET_FROM_BT")
        self.start_time = time.perf_counter() - begin
        self._from_receiver, self._to_bluetooth = (_Acknowledger(connection) for connection in accepted)
        for listener in listeners:
            listener.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process is not None:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self._directory, ignore_errors=True)

    def start_protocol(self):
        self.controller.sendall(_start_protocol())

    def connect_phone(self, phone):
        """Returns once the phone has said who it is and was answered."""
        before = self._to_bluetooth.frames
        for connection, command in ((self.controller, _command(_RFCOMM_CONNECTED, bytes([phone]))),
                                    (self.bluetooth, _hello(phone))):
            connection.sendall(command)
            if _receive(connection, len(_ACK)) != _ACK:
                raise RuntimeError("a command was refused")
        deadline = time.monotonic() + _LIMIT_S
        while self._to_bluetooth.frames == before:
            if time.monotonic() > deadline:
                raise TimeoutError("a phone was not answered")
            time.sleep(0.001)

    def resident_bytes(self):
        return _status_number(f"/proc/{self.process.pid}/status", "VmRSS") * 1024

    def wake_ups(self):
        tasks = pathlib.Path(f"/proc/{self.process.pid}/task")
        return sum(_status_number(task / "status", "voluntary_ctxt_switches") for task in tasks.iterdir())


def _status_number(path, name):
    for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines():
        if line.startswith(name + ":"):
            return int(line.split()[1])
    raise KeyError(name)


def _start_samples(program, number):
    with Receiver(program) as receiver:
        yield Sample("process-start", "four sockets", OURS, "ns", "lower", number, receiver.start_time * 1e9)


def _memory_samples(program, number):
    with Receiver(program) as receiver:
        receiver.start_protocol()
        connected = 0
        for phones in PHONES:
            for phone in range(connected + 1, phones + 1):
                receiver.connect_phone(phone)
            connected = phones
            unit = "phone" if phones == 1 else "phones"
            yield Sample("resident-memory", f"{phones} {unit}", OURS, "B", "lower", number, receiver.resident_bytes())


def _wake_up_samples(program, number, seconds):
    with Receiver(program) as receiver:
        time.sleep(0.3)  # what the start itself does
        begin, before = time.perf_counter(), receiver.wake_ups()
        time.sleep(seconds)
        rate = (receiver.wake_ups() - before) / (time.perf_counter() - begin)
        yield Sample("idle-wake-ups", "connected", OURS, "1/s", "lower", number, rate)


def _stripped_size(program, strip):
    with tempfile.TemporaryDirectory() as directory:
        copy = os.path.join(directory, "stripped")
        subprocess.run([strip, "-o", copy, program], check=True)
        return os.path.getsize(copy)


def _size_samples(build_directory):
    builds = (("x86-64", "release", "strip"), ("32-bit ARM", "armhf", "arm-linux-gnueabihf-strip"))
    for name, preset, strip in builds:
        program = build_directory.parent / preset / "bin/WppReceiver"
        if not program.exists() or shutil.which(strip) is None:
            print(f"bench: no size for {name}: build/{preset} or {strip} is missing", file=sys.stderr)
        else:
            yield Sample("stripped-size", name, OURS, "B", "lower", 0, _stripped_size(program, strip))


def measure(build_directory, rounds, seconds):
    """The receiver's own build alone is needed; the size for 32-bit ARM is told where that build is at hand."""
    program = build_directory / "bin/WppReceiver"
    measured = list(_size_samples(build_directory))
    for number in range(rounds):
        measured += _start_samples(program, number)
    for number in range(min(rounds, 3)):
        measured += _memory_samples(program, number)
        measured += _wake_up_samples(program, number, seconds)
    return measured
