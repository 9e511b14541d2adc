"""Wine's machine for test programs in Python: where things are, its programs, its registry, and a service of the tests'
own. $WINEPREFIX names the machine, and Wine's server runs."""
import contextlib
import os
import pathlib
import re
import resource
import subprocess
import tempfile

DRIVE = pathlib.Path(os.environ["WINEPREFIX"]).resolve() / "drive_c"
SOFTWARE, CONTROL = "HKLM\\SOFTWARE", "HKLM\\SYSTEM\\CurrentControlSet"
WINDOWS, PRODUCT = f"{SOFTWARE}\\Microsoft\\Windows NT\\CurrentVersion", f"{SOFTWARE}\\Zorv\\Zorvcore\\Zorvalis"
SERVICE, SOURCE = f"{CONTROL}\\Services\\Zorvalis", f"{CONTROL}\\Services\\EventLog\\Application\\Zorvalis"
PACKAGES, ENVIRONMENT = f"{SOFTWARE}\\Microsoft\\Windows\\CurrentVersion\\Uninstall", f"{CONTROL}\\Control\\Session Manager\\Environment"
HOME = "C:\\Program Files\\Zorv\\Zorvalis"
FOLDER, RECORDS = DRIVE / "Program Files/Zorv/Zorvalis", DRIVE / "ProgramData/Zorv/Zorvcore/Zorvalis"
TASKS = [DRIVE / "windows/system32/tasks" / f"Zorvalis_{each}" for each in (
    "754F3273-0563-4F20-B12F-826510B07474", "6DB16103-CD29-4A19-8B1B-B97E1944BE12")]


def started(command, limit):
    with tempfile.TemporaryFile() as output:  # a desktop that Wine starts on the way would keep a pipe open
        code = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, timeout=500, preexec_fn=limit,
                              restore_signals=False).returncode
        output.seek(0)
        return code, output.read().decode(errors="replace").replace("\r", "")


def run(program, *words, expect=None, most=None):
    """Exit code, of which only the lowest byte arrives, and output. `program` is a file, or one of Wine's own, which PATH
    may not name. most: no file may get larger than this."""
    command = ["wine", str(program) if "/" in str(program) else f"C:\\windows\\system32\\{program}.exe", *map(str, words)]
    # Python ignores the signal of a file that is too large, and so does the child then: the write fails instead.
    limit = most and (lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most)))
    for _ in range(3):  # on a busy machine Wine now and then starts nothing, which is a 1 without a word
        if (result := started(command, limit)) != (1, ""):
            break
    assert expect is None or result[0] == expect & 0xFF, (command, result)
    return result


def read(key, value=None):
    """Type and data of a value, or whether there is the key."""
    code, text = run("reg", "query", key, *(["/v", value] if value else []))
    found = value and re.search(rf"^ +{value} +(REG_\w+) +(.*)$", text, re.M)
    return found.groups() if found else None if value else code == 0


def write(key, value, data, kind="REG_SZ"):
    run("reg", "add", key, "/v", value, "/t", kind, "/d", data, "/f", expect=0)


@contextlib.contextmanager
def running(*words):
    """A program that has printed its first line and waits for the end of its input."""
    process = subprocess.Popen(["wine", *map(str, words)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    try:
        assert process.stdout.readline()
        yield process
    finally:
        process.stdin.close()
        process.wait(60)


def service_is(state):
    return state in run("sc", "query", "Zorvalis")[1]
