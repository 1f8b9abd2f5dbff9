#!/usr/bin/python3
# The main application as a script: says that it was started, and stays for a while unless it is told to end.
import os
import time

data = os.environ.get("XDG_DATA_HOME") or os.path.expanduser("~/.local/share")
with open(os.environ.get("ORVIN_HELLO") or data + "/orvin-hello", "a", encoding="utf-8") as hello:
    hello.write(f"started {os.getpid()} {int(time.time())}\n")
time.sleep(float(os.environ.get("ORVIN_STAY") or 8))
