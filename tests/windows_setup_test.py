#!/usr/bin/env python3
"""What zorvsetup does to a machine, in Wine's prefix ($WINEPREFIX), with a service of the tests' own.

    windows_setup_test.py BUILD
"""
import os
import pathlib
import shutil
import subprocess
import sys

from support import cases, wine
from support.wine import ENVIRONMENT, HOME, PRODUCT, RECORDS, SERVICE, SOURCE, TASKS, WINDOWS, running, write

BUILD, OLD = pathlib.Path(sys.argv[1]).absolute(), "C:\\Old Place"
CONFIG, OUTER = "HKLM\\SOFTWARE\\Zorv\\Config", wine.DRIVE / "ProgramData/Zorv"
OTHERS_TASK = TASKS[0].with_name("Another")
LOG = wine.DRIVE / "windows/logs/Zorvalis-setup.log"
STANDARD = "%SystemRoot%\\system32;%SystemRoot%;C:\\tools"
STRANGER = 12345  # a user of Linux whom Wine shows as somebody else


def place(folder, name=""):
    return wine.DRIVE / folder[3:].replace("\\", "/") / name


def setup(*words, error=0):
    """What it said. `error` is the Windows error that it must end with."""
    said = wine.run(BUILD / "bin/zorvsetup.exe", *words, expect=error)[1]
    assert not error or f"(error {error})" in said, (words, said)
    assert LOG.read_text().rstrip().endswith(said.splitlines()[-1].rstrip()), said
    return said


def reg(key, value):
    return (wine.read(key, value) or ("", None))[1]


def make(path, mode=0o666, text="x"):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(mode)
    return path


def same(now, before):
    assert now == before, (now, before)


def is_running():
    return wine.service_is("RUNNING")


def state():
    """All that configure, remove and their undoing may change outside of the folders."""
    return [reg(SERVICE, name) for name in ("ImagePath", "Start", "Description", "PreshutdownTimeout")] + [
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
        for task in (*TASKS, OTHERS_TASK):
            make(task)
        setup("remove", "--purge")
        assert not any(task.exists() for task in TASKS) and OTHERS_TASK.exists() and not wine.read(SERVICE) and not OUTER.exists()

    def test_refuses_an_old_windows_and_unknown_words(self):
        assert "frob is not known" in wine.run(BUILD / "bin/zorvsetup.exe", "frob", expect=87)[1]
        for build, error in (("17762", 1150), ("none", 1150), ("17763", 0), ("26100", 0)):
            write(WINDOWS, "CurrentBuildNumber", build)
            assert build in setup("check", error=error)

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
            assert reg(SERVICE, "ObjectName") == "LocalSystem" and not any(p.stat().st_mode & 7 for p in (OUTER, RECORDS))
        assert "is started" in setup("start") and is_running() and "is started" in setup("start")
        installed = state()
        setup("stop")  # of the next one: the first was broken off before its commit
        assert "nothing" in setup("undo")
        setup("configure", HOME), setup("start"), setup("commit"), make(RECORDS / "setting.json")
        assert "nothing" in setup("undo")
        setup("stop"), setup("stop"), setup("remove"), setup("remove")
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
        wine.run("sc", "create", "Zorvalis", "binPath=", executable, "start=", "demand")
        write(ENVIRONMENT, "Path", f"{OLD}\\;{STANDARD}", "REG_EXPAND_SZ")
        setup("start")
        before = state()
        setup("stop")
        assert "taken over from " + executable in setup("configure", HOME)
        assert state()[0].startswith(f'"{HOME}') and state()[-1] == f"{STANDARD};{HOME}"
        setup("start"), setup("undo"), setup("resume")
        assert state()[:-1] == before[:-1] and state()[-1] == f"{STANDARD};{OLD}" and is_running()
        write(SERVICE, "Start", 4, "REG_DWORD")
        subprocess.run(["wineserver", "-k"], check=False)  # Wine's service manager reads it at its start
        subprocess.run(["wineserver", "-w"], check=False)
        subprocess.run(["wineserver", "-p"], check=True)
        assert "stays so" in setup("configure", HOME) and reg(SERVICE, "Start") == "0x4" and "not started" in setup("start")

    def test_leaves_all_as_it_is_when_the_service_does_not_stop(self):
        setup("configure", HOME), setup("start")
        make(TASKS[0]), make(place(HOME, "stubborn"))
        setup("stop", "--timeout", "1", error=1053)
        with running(BUILD / "tests/setup-service.exe", "-j0", HOME + "\\default.json"):
            assert "default.json cannot be replaced" in setup("stop", error=32)
        assert is_running() and TASKS[0].exists() and reg(SERVICE, "ImagePath")
        wine.run("sc", "delete", "Zorvalis", expect=0)
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
            shutil.copy(place(HOME, "ZorvalisWinService.exe"), place(HOME, "zorvctl.exe"))
            for name in ("zorvalisWINservice.exe", "zorvctl.exe"):
                with running(f"{HOME}\\{name}", "-j1") as one:
                    assert ".cached.temp" in setup("stop", "--timeout", "1") and one.wait(60) is not None
            assert others.poll() is None

    def test_leaves_programs_alone_that_others_run_too(self):
        for command in ("C:\\windows\\system32\\cmd.exe /c none", "C:\\windows\\ZorvalisWinService.exe"):
            wine.run("sc", "create", "Zorvalis", "binPath=", command)
            with running("C:\\windows\\system32\\cmd.exe") as others:
                setup("stop", "--timeout", "1"), setup("remove")
                assert others.poll() is None and reg(ENVIRONMENT, "Path") == STANDARD

    def test_closes_the_data_folder_and_moves_aside_what_was_planted(self):
        theirs = make(OUTER / "Other/data.txt", 0o666)
        for folder in (theirs.parent, OUTER):
            folder.chmod(0o777)
        kept = make(RECORDS / "data/O_1.db", 0o666)
        second = make(wine.DRIVE / "users/second")
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
        target = make(wine.DRIVE / "users/target/Zorvcore/Zorvalis/setting.json", 0o644)
        OUTER.symlink_to(wine.DRIVE / "users/target")
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
            assert wine.read(ENVIRONMENT, "Path") == (kind, there or text) and ("left alone" in told) == (gone in (None, "0x7")), told
            setup("remove")
            assert wine.read(ENVIRONMENT, "Path") == (kind, gone or text)

    def test_purges_its_own_and_tells_what_stays(self):
        setup("configure", HOME)
        write(PRODUCT, "MainSwitch", "0"), write(CONFIG, "RandomUUID", "1"), write(CONFIG, "Theirs", "2")
        make(RECORDS / "data/read-only", 0o444), make(RECORDS / "data/free")
        with running(OLD + "\\ZorvalisWinService.exe", "-j0", "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\data\\held"):
            setup("stop")
            assert "data\\held cannot be" in setup("remove", "--purge", error=32) and "nothing" in setup("undo")
            assert [p.name for p in (RECORDS / "data").iterdir()] == ["held"] and not wine.read(PRODUCT)
        assert reg(CONFIG, "Theirs") == "2" and not reg(CONFIG, "RandomUUID")
        wine.run("reg", "delete", CONFIG, "/v", "Theirs", "/f")
        setup("remove", "--purge")
        assert not OUTER.exists() and not wine.read("HKLM\\SOFTWARE\\Zorv") and not wine.read(SOURCE) and not wine.read(SERVICE)


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
