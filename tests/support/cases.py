"""What test programs in Python share: a fresh folder and an end in any case, and results as the other programs print
them."""
import atexit
import pathlib
import shutil
import signal
import sys
import tempfile
import time
import traceback


def fresh_folder(name):
    """Goes with the program, which a signal or 840 seconds end in order."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix=name))
    atexit.register(shutil.rmtree, folder, True)
    for number in (signal.SIGALRM, signal.SIGTERM):
        signal.signal(number, lambda *_: sys.exit("ended by a signal, or by the time limit"))
    signal.alarm(840)
    return folder


def methods(tests):
    return [getattr(tests, name) for name in type(tests).__dict__ if name.startswith("test_")]


def run(suite, tests):
    """The program's exit code."""
    code = 0
    for test in tests:
        start, result = time.monotonic(), "      OK"
        try:
            test()
        except Exception:
            traceback.print_exc(file=sys.stdout)
            code, result = 1, " FAILED "
        name, took = test.__name__.replace("test_", "", 1), round((time.monotonic() - start) * 1000)
        print(f"[ {result} ] {suite}.{name} ({took} ms)", flush=True)
    print(f"[==========] {len(tests)} tests ran.")
    return code
