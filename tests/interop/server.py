"""The tour server as a process under test, and the references that it writes."""
import os
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import threading

from giop import IOR

PATIENCE = 60
SANITIZERS = ("AddressSanitizer", "ThreadSanitizer", "LeakSanitizer", "runtime error")


class Server:
    """Runs what TOUR_SERVER names, in a directory of its own, until it is stopped."""

    def __init__(self, *options):
        self.dir = tempfile.mkdtemp(prefix="tour-")
        self.errors = open(os.path.join(self.dir, "stderr.txt"), "w+b")
        self.process = subprocess.Popen([*shlex.split(os.environ["TOUR_SERVER"]), "--dir", self.dir, *options],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self.errors)
        if not self.limited(lambda: any(line.strip() == b"ready" for line in self.process.stdout)):
            self.stop()
            raise AssertionError("the server ended before it was ready")
        self.refs = {}
        for file in os.listdir(self.dir):
            if file.endswith(".ior"):
                with open(os.path.join(self.dir, file)) as f:
                    self.refs[file[:-4]] = IOR.parse(f.read())
        profile = self.refs["root"].iiop()
        self.address = profile.host, profile.port

    def listening(self):
        """Where it listens, as its log says; references may publish another place."""
        with open(self.errors.name) as f:
            host, port = re.search(r"listening on ([\d.]+):(\d+)", f.read()).groups()
        return host, int(port)

    def limited(self, work):
        """What work() gives; the process is killed when it takes too long."""
        guard = threading.Timer(PATIENCE, self.process.kill)
        guard.start()
        try:
            return work()
        finally:
            guard.cancel()

    def stop(self):
        """End the server with SIGTERM and fail unless that went cleanly."""
        self.process.send_signal(signal.SIGTERM)
        status = self.limited(self.process.wait)
        self.process.stdout.close()
        with self.errors as f:
            f.seek(0)
            said = f.read().decode(errors="replace")
        shutil.rmtree(self.dir, ignore_errors=True)
        if status != 0 or any(s in said for s in SANITIZERS):
            raise AssertionError("exit status after SIGTERM: %s\n%s" % (status, said[-4000:]))
