"""Stands for the system log of a root: prints what its programs write there. Usage: log_receiver.py DEVICES-DIRECTORY"""

import os
import socket
import sys

# Relative, since the name of such a socket may not be long, and a root's path may.
os.chdir(sys.argv[1])
with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
    log.bind("log")
    os.chmod("log", 0o666)
    while True:
        print(log.recv(65536).decode(errors="replace").rstrip("\0\n"), flush=True)
