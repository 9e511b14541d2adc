#!/usr/bin/env python3
"""What zorvsetup does to a machine, in Wine's prefix ($WINEPREFIX), with a service of the tests' own.

    windows_setup_test.py BUILD
"""
import contextlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from support import cases

BUILD, C = pathlib.Path(sys.argv[1]).absolute(), pathlib.Path(os.environ["WINEPREFIX"]) / "drive_c"
HOME, OLD = "C:\\Program Files\\Zorv\\Zorvalis", "C:\\Old Place"
ENTRY, ENVIRONMENT = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Zorvalis", "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment"
SOURCE, PRODUCT = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Zorvalis", "HKLM\\SOFTWARE\\Zorv\\Zorvcore\\Zorvalis"
WINDOWS, CONFIG = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "HKLM\\SOFTWARE\\Zorv\\Config"
OUTER, RECORDS = C / "ProgramData/Zorv", C / "ProgramData/Zorv/Zorvcore/Zorvalis"
TASKS = C / "windows/system32/tasks"
TASK, OTHERS_TASK = TASKS / "Zorvalis_754F3273-0563-4F20-B12F-826510B07474", TASKS / "Another"
STANDARD = "%SystemRoot%\\system32;%SystemRoot%;C:\\tools"
STRANGER = 12345  # a user of Linux whom Wine shows as somebody else


def place(folder, name=""):
    return C / folder[3:].replace("\\", "/") / name


def wine(program, *words):
    """`program` is a file, or one of Wine's own, which PATH may not name."""
    command = ["wine", program if "/" in str(program) else f"C:\\windows\\system32\\{program}.exe", *map(str, words)]
    with tempfile.TemporaryFile("w+") as output:  # a desktop that Wine starts on the way would keep a pipe open
        code = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, timeout=300, check=False).returncode
        output.seek(0)
        return subprocess.CompletedProcess(command, code, output.read())


def setup(*words, error=0):
    """What it said. `error` is the Windows error that it must end with; Wine passes the lowest byte on."""
    done = wine(BUILD / "bin/zorvsetup.exe", *words)
    assert done.returncode == error & 255 and (not error or f"(error {error})" in done.stdout), (words, done)
    return done.stdout


def reg(key, value=None):
    """The data of a value, or whether there is the key."""
    done = wine("reg", "query", key, *(["/v", value] if value else []))
    if not value:
        return done.returncode == 0
    found = re.search(rf"^ +{value} +REG_\w+ +(.*)$", done.stdout, re.M)
    return found and found.group(1).rstrip("\r\n")


def write(key, value, data, kind="REG_SZ"):
    assert wine("reg", "add", key, "/v", value, "/t", kind, "/d", data, "/f").returncode == 0


def make(path, mode=0o666, text="x"):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(mode)
    return path


@contextlib.contextmanager
def running(*words):
    """A program that has printed its first line and waits for the end of its input."""
    process = subprocess.Popen(["wine", *words], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    try:
        assert process.stdout.readline()
        yield process
    finally:
        process.stdin.close()
        process.wait(60)


def same(now, before):
    assert now == before, (now, before)


def is_running():
    return "RUNNING" in wine("sc", "query", "Zorvalis").stdout


def state():
    """All that configure, remove and their undoing may change outside of the folders."""
    return [reg(ENTRY, name) for name in ("ImagePath", "Start", "Description", "PreshutdownTimeout")] + [
        reg(SOURCE, "EventMessageFile"), reg(ENVIRONMENT, "Path")]


class Tests:
    """Each begins on a machine without the product, with the files of a package in its folder."""

    def fresh(self):
        for folder in (HOME, OLD):
            place(folder).mkdir(parents=True, exist_ok=True)
            place(folder, "stubborn").unlink(True), place(folder, "end").unlink(True)
            shutil.copy(BUILD / "tests/setup-service.exe", place(folder, "ZorvalisWinService.exe"))
        shutil.rmtree(OUTER, True)
        OUTER.unlink(True)
        write(ENVIRONMENT, "Path", STANDARD, "REG_EXPAND_SZ")
        make(TASK), make(OTHERS_TASK)
        setup("remove", "--purge")
        assert not TASK.exists() and OTHERS_TASK.exists() and not reg(ENTRY) and not OUTER.exists()

    def test_refuses_an_old_windows(self):
        for build, error in (("17762", 1150), ("none", 1150), ("17763", 0), ("26100", 0)):
            write(WINDOWS, "CurrentBuildNumber", build)
            assert error == 0 or build in setup("check", error=error)

    def test_installs_undoes_and_removes(self):
        setup("configure", "C:\\nowhere", error=2)
        before = state()
        setup("stop")
        for folder in (HOME + "\\.", HOME + "\\"):
            setup("configure", folder)
            executable = HOME + "\\ZorvalisWinService.exe"
            image, start, words, shutdown, source, path = state()
            assert [image, start, shutdown, source] == [f'"{executable}"', "0x2", "0x2bf20", executable] and "zorvctl" in words
            assert path == f"{STANDARD};{HOME}" and reg(SOURCE, "TypesSupported") == "0x7"
            assert reg(ENTRY, "ObjectName") == "LocalSystem" and not any(p.stat().st_mode & 7 for p in (OUTER, RECORDS))
        assert "is started" in setup("start") and is_running() and "is started" in setup("start")
        installed = state()
        setup("commit"), make(RECORDS / "setting.json")
        setup("stop"), setup("remove"), setup("remove")
        assert state() == before and (RECORDS / "setting.json").exists()
        setup("undo")  # the removal
        same(state(), installed), same(is_running(), False)
        setup("resume")
        assert is_running() and "nothing" in setup("undo")
        setup("remove", "--purge")
        setup("stop"), setup("configure", HOME), setup("start"), setup("undo")  # the installation
        assert state() == before and not OUTER.exists() and "started" not in setup("resume")

    def test_takes_an_older_installation_over_and_gives_it_back(self):
        executable = OLD + "\\ZorvalisWinService.exe"  # as -install leaves it
        wine("sc", "create", "Zorvalis", "binPath=", executable, "start=", "demand")
        write(ENVIRONMENT, "Path", f"{OLD}\\;{STANDARD}", "REG_EXPAND_SZ")
        setup("start")
        before = state()
        setup("stop")
        assert "taken over from " + executable in setup("configure", HOME)
        assert state()[0].startswith(f'"{HOME}') and state()[-1] == f"{STANDARD};{HOME}"
        setup("start"), setup("undo"), setup("resume")
        assert state()[:-1] == before[:-1] and state()[-1] == f"{STANDARD};{OLD}" and is_running()
        write(ENTRY, "Start", 4, "REG_DWORD")
        subprocess.run(["wineserver", "-k"], check=False)  # Wine's service manager reads it at its start
        subprocess.run(["wineserver", "-w"], check=False)
        subprocess.run(["wineserver", "-p"], check=True)
        assert "stays so" in setup("configure", HOME) and reg(ENTRY, "Start") == "0x4" and "not started" in setup("start")

    def test_leaves_all_as_it_is_when_the_service_does_not_stop(self):
        setup("configure", HOME), setup("start")
        make(TASK), make(place(HOME, "stubborn"))
        setup("stop", "--timeout", "1", error=1053)
        assert is_running() and TASK.exists() and reg(ENTRY, "ImagePath")
        assert wine("sc", "delete", "Zorvalis").returncode == 0
        assert "Services window" in setup("configure", HOME, error=1072)
        make(place(HOME, "end"))
        assert any(not is_running() for _ in range(1000))

    def test_waits_for_passes_and_ends_them_by_their_path(self):
        setup("configure", HOME)
        with running(OLD + "\\ZorvalisWinService.exe", "-j0") as others:
            with running(HOME + "\\ZorvalisWinService.exe", "-j0") as one:
                waits = subprocess.Popen(["wine", BUILD / "bin/zorvsetup.exe", "stop"], stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, text=True)
                while "waiting for process" not in (line := waits.stdout.readline()):
                    assert line, "it did not wait"
                one.stdin.close()
                assert "ended" not in waits.communicate(timeout=300)[0] and waits.returncode == 0
            with running(HOME + "\\zorvalisWINservice.exe", "-j1") as one:
                assert ".cached.temp" in setup("stop", "--timeout", "1") and one.wait(60) is not None
            assert others.poll() is None

    def test_leaves_programs_alone_that_others_run_too(self):
        for command in ("C:\\windows\\system32\\cmd.exe /c none", "C:\\windows\\ZorvalisWinService.exe"):
            wine("sc", "create", "Zorvalis", "binPath=", command)
            with running("C:\\windows\\system32\\cmd.exe") as others:
                setup("stop", "--timeout", "1"), setup("remove")
                assert others.poll() is None and reg(ENVIRONMENT, "Path") == STANDARD

    def test_closes_the_data_folder_and_moves_aside_what_was_planted(self):
        theirs = make(OUTER / "Other/data.txt", 0o666)
        for folder in (theirs.parent, OUTER):
            folder.chmod(0o777)
        kept = make(RECORDS / "data/O_1.db", 0o666)
        second = make(C / "users/second")
        os.link(second, RECORDS / "data/second")
        planted = [make(RECORDS / "data" / name) for name in ("BGFS.db", "n" * 250)]
        for path in planted if os.geteuid() == 0 else []:
            os.chown(path, STRANGER, -1)
        told = setup("configure", HOME)
        assert OUTER.stat().st_mode & 2 == 0 and theirs.stat().st_mode & 0o777 == 0o666 and theirs.parent.stat().st_mode & 2
        assert kept.stat().st_mode & 7 == 0 and kept.parent.stat().st_mode & 7 == 0
        aside = RECORDS.with_name("Zorvalis-planted")
        assert (aside / "1-second").exists() and second.stat().st_mode & 0o777 == 0o666 and not (kept.parent / "second").exists()
        if os.geteuid() != 0:
            return print("not tried without root: what an ordinary user owns")
        assert not any(path.exists() for path in planted) and (aside / "1-BGFS.db").exists() and "1-BGFS.db" in told
        os.chown(RECORDS, STRANGER, -1)
        setup("configure", HOME)
        assert not any(RECORDS.iterdir()) and (aside / "1-Zorvalis/data/O_1.db").exists() and RECORDS.stat().st_uid == 0
        setup("remove", "--purge")
        assert theirs.exists() and not RECORDS.parent.exists()

    def test_follows_no_link(self):
        target = make(C / "users/target/Zorvcore/Zorvalis/setting.json", 0o644)
        OUTER.symlink_to(C / "users/target")
        before = state()
        for command in (["configure", HOME], ["remove", "--purge"]):
            assert "link" in setup(*command, error=4395) and state() == before
            assert target.exists() and target.stat().st_mode & 0o777 == 0o644

    def test_changes_its_own_entry_of_path_alone(self):
        for kind, text, there, gone in (
                ("REG_EXPAND_SZ", f'%SystemRoot%;"{HOME}\\";;C:\\b', None, "%SystemRoot%;;C:\\b"),
                ("REG_EXPAND_SZ", "%ProgramFiles%\\zorv\\ZORVALIS;C:\\a", None, "C:\\a"),
                ("REG_SZ", 'C:\\a;"C:\\b;c";', f'C:\\a;"C:\\b;c";{HOME}', 'C:\\a;"C:\\b;c"'),
                ("REG_SZ", "C:\\" + "a" * 8170, None, None),
                ("REG_DWORD", "7", "0x7", "0x7")):
            write(ENVIRONMENT, "Path", text, kind)
            told = setup("configure", HOME)
            assert reg(ENVIRONMENT, "Path") == (there or text) and ("left alone" in told) == (gone in (None, "0x7")), told
            setup("remove")
            assert reg(ENVIRONMENT, "Path") == (gone or text)

    def test_purges_its_own_and_tells_what_stays(self):
        setup("configure", HOME)
        write(PRODUCT, "MainSwitch", "0"), write(CONFIG, "RandomUUID", "1"), write(CONFIG, "Theirs", "2")
        make(RECORDS / "data/read-only", 0o444), make(RECORDS / "data/free")
        with running(OLD + "\\ZorvalisWinService.exe", "-j0", "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\data\\held"):
            setup("stop")
            assert "data\\held cannot be" in setup("remove", "--purge", error=32) and "nothing" in setup("undo")
            assert [p.name for p in (RECORDS / "data").iterdir()] == ["held"] and not reg(PRODUCT)
        assert reg(CONFIG, "Theirs") == "2" and not reg(CONFIG, "RandomUUID")
        wine("reg", "delete", CONFIG, "/v", "Theirs", "/f")
        setup("remove", "--purge")
        assert not OUTER.exists() and not reg("HKLM\\SOFTWARE\\Zorv") and not reg(SOURCE) and not reg(ENTRY)


def each(tests, test):
    def run():
        tests.fresh()
        test()
    run.__name__ = test.__name__
    return run


if __name__ == "__main__":
    tests = Tests()
    wanted = [test for test in cases.methods(tests) if not sys.argv[2:] or test.__name__ in sys.argv[2:]]
    sys.exit(cases.run("Setup", [each(tests, test) for test in wanted]))
