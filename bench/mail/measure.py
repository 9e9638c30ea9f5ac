#!/usr/bin/env python3
"""measure.py CORVANA9 [RUNS]: the wall time of whole processes that send the same message of 20 KB, in turns, to a
server that takes everything; and how much of that each spends between connection and QUIT."""

import os
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

COMMAND = sys.argv[1]
RUNS = int(sys.argv[2]) if len(sys.argv) > 2 and sys.argv[2] else 100


class Sink:
    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.sessions, self.message = [], []
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            peer, _ = self.listener.accept()
            begin = time.perf_counter()
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.talk(peer)
            self.sessions.append(time.perf_counter() - begin)
            peer.close()

    def talk(self, peer):
        peer.sendall(b"220 sink\r\n")
        file, in_data = peer.makefile("rb"), False
        for line in file:
            if in_data:
                if line != b".\r\n":
                    self.message.append(line)
                    continue
                in_data = False
                peer.sendall(b"250 taken\r\n")
            elif line.startswith(b"DATA"):
                in_data, self.message = True, []
                peer.sendall(b"354 go\r\n")
            elif line.startswith(b"QUIT"):
                peer.sendall(b"221 bye\r\n")
                return
            else:
                peer.sendall(b"250 ok\r\n")


def main():
    sink = Sink()
    with tempfile.TemporaryDirectory() as folder:
        text = ("A line of a report, as long as most of them are. " * 2 + "\n") * 205
        body, whole = f"{folder}/body", f"{folder}/whole"
        open(body, "w").write(text[:20000])
        calls = {
            "corvana9 mail": [COMMAND, "mail", "--server", "127.0.0.1", "--ports", str(sink.port), "--tls", "0",
                              "--from", "a@example.com", "--to", "b@example.com", "--subject", "Hi",
                              "--crformat", "1", "--body-file", body],
            "curl": ["curl", "-s", f"smtp://127.0.0.1:{sink.port}", "--mail-from", "a@example.com",
                     "--mail-rcpt", "b@example.com", "-T", whole],
        }
        subprocess.run(calls["corvana9 mail"], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        open(whole, "wb").writelines(sink.message)
        walls = {name: [] for name in calls}
        sessions = {name: [] for name in calls}
        for run in range(RUNS + 3):
            for name, call in calls.items():
                known = len(sink.sessions)
                begin = time.perf_counter()
                subprocess.run(call, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                wall = time.perf_counter() - begin
                while len(sink.sessions) == known:
                    time.sleep(0.0002)
                if run >= 3:
                    walls[name].append(wall)
                    sessions[name].append(sink.sessions[-1])
        for name in calls:
            print(f"{name:14} whole process {statistics.median(walls[name]) * 1000:6.2f} ms,"
                  f" session {statistics.median(sessions[name]) * 1000:6.2f} ms (medians of {RUNS})")


main()
