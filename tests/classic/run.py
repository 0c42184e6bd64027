"""Runs NAME_server and NAME_client: python3 run.py BIN NAME [EMULATOR...]. Both must end by themselves, with status 0."""
import contextlib
import os
import pathlib
import subprocess
import sys
import tempfile
import time

LIMIT = 60  # seconds for each process
# Well below the time-outs of the library, of which the shortest is 5 s: most lost wake-ups cost one and nothing else.
WHOLE_LIMIT = 3.5 * int(os.environ.get("TEST_SLOWNESS", "1"))
DIRECTORY, NAME, EMULATOR = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3:]


def program(role):
    return [*EMULATOR, DIRECTORY / f"{NAME}_{role}"]


def wait_for(file, server):
    end = time.monotonic() + LIMIT
    while not file.exists():
        if server.poll() is not None:
            sys.exit(f"the server ended with {server.returncode} before it was ready")
        if time.monotonic() > end:
            sys.exit("the server wrote no reference")
        time.sleep(0.01)


@contextlib.contextmanager
def serving(file):
    """A server that has written its reference; its client must have ended it."""
    server = subprocess.Popen([*program("server"), file])
    try:
        wait_for(file, server)
        yield
        if server.wait(timeout=LIMIT) != 0:
            sys.exit(f"the server ended with {server.returncode}")
    finally:
        server.kill()
        server.wait()


def visit(file):
    status = subprocess.run([*program("client"), file], timeout=LIMIT).returncode
    if status != 0:
        sys.exit(f"the client ended with {status}")


def main():
    with tempfile.TemporaryDirectory() as scratch:
        file = pathlib.Path(scratch) / "reference"
        with serving(file):
            visit(file)


start = time.monotonic()
main()
if (taken := time.monotonic() - start) > WHOLE_LIMIT:
    sys.exit(f"took {taken:.1f} s, and its limit is {WHOLE_LIMIT} s")
