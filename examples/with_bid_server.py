#!/usr/bin/env python3
"""Runs a command with the sample bid server on a free loopback port, its base URL
in QUOV_BID_SERVER_BASE; stops the server afterwards and exits with the command's status.

usage: with_bid_server.py QUOV_BID_SERVER COMMAND [ARG...]"""
import os
import subprocess
import sys

server = subprocess.Popen([sys.argv[1], "--port", "0"], stdout=subprocess.PIPE, text=True)
try:
    line = server.stdout.readline()
    prefix = "listening on "
    if prefix not in line:
        sys.exit("the bid server did not report its address: %r" % line)
    env = dict(os.environ, QUOV_BID_SERVER_BASE=line.split(prefix, 1)[1].strip())
    sys.exit(subprocess.call(sys.argv[2:], env=env))
finally:
    server.terminate()
    server.wait()
