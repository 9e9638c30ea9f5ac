#!/usr/bin/env python3
"""Mounts a file system that never answers: hang.py FOLDER. It goes when this program ends."""

import ctypes
import os
import struct
import sys

INIT = 26
device = os.open("/dev/fuse", os.O_RDWR)
options = f"fd={device},rootmode=40000,user_id=0,group_id=0".encode()
libc = ctypes.CDLL(None, use_errno=True)
if libc.mount(b"hang", sys.argv[1].encode(), b"fuse.hang", 0, options) != 0:
    sys.exit(os.strerror(ctypes.get_errno()))
print("mounted", flush=True)
while True:
    try:
        request = os.read(device, 1 << 20)
    except OSError:
        break
    _, opcode, unique = struct.unpack_from("<IIQ", request)
    if opcode == INIT:
        answer = struct.pack("<IIIIHHIIHHI28x", 7, 31, 65536, 0, 12, 10, 4096, 1, 0, 0, 0)
        os.write(device, struct.pack("<IiQ", 16 + len(answer), 0, unique) + answer)
