# SPDX-License-Identifier: MIT
#
# A CUPS scheduler of the tests' own: on the loopback, with its own configuration and spool, with the
# system's filters beside ours. It touches nothing of the system's scheduler.
import os
import pathlib
import shutil
import socket
import subprocess
import time

SYSTEM_PROGRAMS = pathlib.Path("/usr/lib/cups")
CONFIGURATION = """LogLevel debug
MaxLogSize 0
PageLogFormat %j %P %C
Listen 127.0.0.1:{port}
Browsing No
WebInterface No
DefaultAuthType None
JobRetryInterval 1
<Location />
  Order allow,deny
  Allow all
</Location>
<Policy default>
  JobPrivateAccess all
  JobPrivateValues none
  SubscriptionPrivateAccess all
  SubscriptionPrivateValues none
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
"""
# What a printer receives, in a file for each job.
BACKEND = """#!/bin/sh
[ $# -gt 0 ] || exit 0
cat > {out}/$1.part && mv {out}/$1.part {out}/$1.sheets
"""


class Scheduler:
    def __init__(self, folder, filter_program):
        self.folder, self.out = folder, folder / "received"
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.make_programs(filter_program)
        for name in "cache", "spool", "spool/tmp", "state", "received":
            (folder / name).mkdir(exist_ok=True)
            (folder / name).chmod(0o777)
        (folder / "cupsd.conf").write_text(CONFIGURATION.format(port=self.port))
        places = {"ServerRoot": folder, "ServerBin": self.programs, "DataDir": "/usr/share/cups",
                  "CacheDir": folder / "cache", "RequestRoot": folder / "spool", "TempDir": folder / "spool/tmp",
                  "StateDir": folder / "state", "ErrorLog": folder / "error_log", "AccessLog": folder / "access_log",
                  "PageLog": folder / "page_log", "SystemGroup": "root"}
        (folder / "cups-files.conf").write_text("".join(f"{k} {v}\n" for k, v in places.items()))
        self.environment = dict(os.environ, CUPS_SERVER=f"127.0.0.1:{self.port}", HOME=str(folder))
        self.start()

    def make_programs(self, filter_program):
        self.programs = self.folder / "programs"
        for kind in "filter", "backend":
            (self.programs / kind).mkdir(parents=True)
            for program in (SYSTEM_PROGRAMS / kind).iterdir():
                (self.programs / kind / program.name).symlink_to(program)
        for kind in "daemon", "monitor", "notifier", "driver", "cgi-bin":
            (self.programs / kind).symlink_to(SYSTEM_PROGRAMS / kind)
        (self.programs / "filter/rastertocorvane").symlink_to(filter_program)
        backend = self.programs / "backend/received"
        backend.write_text(BACKEND.format(out=self.out))
        backend.chmod(0o755)

    def start(self):
        words = ["cupsd", "-f", "-c", self.folder / "cupsd.conf", "-s", self.folder / "cups-files.conf"]
        self.server = subprocess.Popen(words, env=dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin"))
        for _ in range(200):
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return
            except OSError:
                time.sleep(0.05)
        raise SystemExit("the scheduler does not start")

    def stop(self):
        self.server.terminate()
        self.server.wait(20)

    def run(self, *words):
        return subprocess.run(list(map(str, words)), env=self.environment, capture_output=True, text=True, timeout=120)

    def add(self, name, *words):
        done = self.run("lpadmin", "-p", name, "-E", *words)
        if done.returncode:
            raise SystemExit(f"{name}: {done.stderr}")

    # Prints a file and waits for the job's end; returns its number, and None when it was not printed.
    def print(self, name, file, *words, seconds=120):
        done = self.run("lp", "-d", name, *words, file)
        number = done.stdout.split(f"{name}-")[1].split()[0]
        for _ in range(seconds * 10):
            if f"{name}-{number} " in self.run("lpstat", "-W", "completed", "-o", name).stdout:
                return number
            time.sleep(0.1)
        raise SystemExit(f"job {number} does not end: {self.run('lpstat', '-l', '-o', name).stdout}")

    def received(self, number):
        file = self.out / f"{number}.sheets"
        return file.read_bytes() if file.exists() else b""

    # The sheets that the scheduler has counted.
    def pages(self, number):
        for line in (self.folder / "page_log").read_text().splitlines():
            if line.startswith(f"{number} total "):
                return int(line.split()[2])
        return 0
