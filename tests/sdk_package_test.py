#!/usr/bin/env python3
"""The SDK as an application's developer gets it: installed, moved, found by pkg-config and CMake, linked by programs in
C, C++, Python and C# outside the tree, which then make thousands of random calls of a service on a machine of its
own. A small model here says what each is answered.

    sdk_package_test.py BUILD [SEED]    BUILD: a build's folder; Windows programs run under Wine, without callbacks,
                                        which Wine does not make, and without Python and C#

Prints results as the other test programs do.
"""
import atexit
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import textwrap

from support import cases

ROOT = pathlib.Path(__file__).resolve().parent.parent
COUNT, DEADLINE = 2000, 600  # seconds for a step; steps take a few
UUID = "00112233-4455-6677-8899-aabbccddeeff"
INFO = {"os": "WMIGetOSInfo", "bios": "WMIGetBiosVersion", "bios_release_date": "WMIGetBiosReleaseDate",
        "cpu": "WMIGetCPUInfo", "gpu": "WMIGetGPUInfo", "mem_size": "WMIGetMemSize", "hdd": "WMIGetHDDInfo"}
NAMES = {0: ("GetModelName", "WMIGetModelName"), 1: ("GetSerialNumber", "WMIGetSN"),
         2: ("GetFamilyName", "WMIGetComputerFamilyName"), 12: ("GetChassisTypes", "WMIGetSystemChassisTypes"),
         13: ("GetProductName", "WMIGetProductName"), 18: (None, "WMIGetWiFiCardName")}
HARDWARE = {"WMIGetModelName": "ZX ä \"7\" \\ ő", "WMIGetSN": "SN 07", "WMIGetSystemChassisTypes": "Notebook",
            "WMIGetProductName": "", "WMIGetWiFiCardName": "Wi-Fi ß", "WMICheckBatteryHealthSupport": 1,
            "WMIGetBatteryHealth": 80, "WMICheckQuietFanSupport": 1, "WMIGetQuietFan": 1, "WMISetAppPath": "",
            "GPNV_RandomUUID": UUID, **{name: f"{key} \"1\"日2" for key, name in INFO.items()}}
LATIN, WIDE = "aZ09 äöß€\"\\/{}%", "aZ09 äöß€\"\\/日本Жц"


# In a callback, a NUL in a text, another type, a number too large, and a client that is closed. And the unit of times,
# which no other test would notice without waiting.
PYTHON_REFUSES = """
import zorvalis
def refused(call, *given):
    try:
        call(*given)
    except Exception as error:
        return getattr(error, "status", type(error))
heard = []
client = zorvalis.Client(text=lambda *_: heard.extend([refused(client.GetUUID), refused(client.close)]))
client.GetModelName(1)
heard += [refused(client.SetAppFolder, text, 1) for text in ("a\\0b", b"a")] + [refused(client.GetModelName, 1 << 63)]
client.close()
assert [zorvalis._milliseconds(each) for each in (0, 1.5, float("inf"))] == [0, 1500, 2 ** 32 - 1]
assert heard == [1791, 1791, ValueError, TypeError, OverflowError] and refused(client.GetUUID) == 87, heard
"""


def dump(value):
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"), sort_keys=True)


def ansi(text):
    return text.encode("cp1252", "replace").decode("cp1252")


class Model:
    """Draws calls, and says what comes of each: its lines of answer, and what the machine's files then hold."""

    def __init__(self, seed, windows):
        self.random, self.windows, self.log = random.Random(seed), windows, b""
        self.battery, self.fan, self.switch = HARDWARE["WMIGetBatteryHealth"], HARDWARE["WMIGetQuietFan"], 1

    def text(self, alphabet=WIDE):
        return "".join(self.random.choices(alphabet, k=self.random.choice([0, 1, 5, 20, 20, 300, 9000])))

    def name(self, function):  # by the character: its lower byte, in code page 1252
        text = HARDWARE.get(NAMES[function][1], "")
        return bytes(ord(each) & 0xFF for each in text).decode("cp1252")

    def consent(self, account, name, version, when, agreed):
        account = "".join(each if each < "\x80" else f"<{ord(each):x}>" for each in account)
        found = re.fullmatch(r"(\d+)-(\d+)-(\d+) (\d+):(\d+):(\d+)\.(\d+)", when)
        year, month, day, *rest = map(int, found.groups()) if found else [0] * 7
        fields = " ".join(map(str, (year, month, 0, day, *rest)))
        self.log += f"{UUID} {account} ".encode() + name + b" " + version + f" {int(agreed)} {fields}\n".encode()

    def when(self):
        return self.random.choice(["2026-11-12 09:08:07.006", "1999-01-02 23:59:58.999", "soon", ""])

    def json_call(self):
        """The text of a call, and its answer: none that would leave the service's lock held."""
        pick, any_of = self.random.random(), self.random.choice
        if pick < 0.1:
            return any_of(["", "?" + self.text(LATIN), "{", '{"function":9,"version":1', "[" * 600, '"\\ud800"']), ""
        if pick < 0.15:
            return any_of(["7", '"x"', "[]", "null", "[{}]"]), self.answer("Error", "Version unavailable", -1, -1)
        number = any_of([*range(-2, 22), *range(19), 2 ** 32 + 9, 9.5])
        function = int(number) % 2 ** 32 - (2 ** 32 if number < 0 else 0)
        version = any_of([1] * 12 + [1.5, 0, 2, -1])
        p1 = {10: ["1", "0", "on", ""], 14: ["1", "0"], 15: ["100", "80", "60", "70"]}.get(function) or [self.text()]
        values = [any_of(p1), self.text(), self.text(), self.when(), any_of(["0", "1", " -7x", "no", ""])]
        parameter = {f"p{at}": any_of([value] * 9 + [5]) for at, value in enumerate(values, 1) if pick < 0.95}
        takes = function in (8, 10, 14, 15, 17)
        call = {"parameter": parameter if takes else any_of([parameter, 5, None, "x"]), "version": version,
                "function": number, "more": self.text()}
        for key in any_of([()] * 9 + [("function",), ("version",), ("parameter",), ("function", "version")]):
            del call[key]
        input = json.dumps(call, ensure_ascii=pick < 0.5)
        if "function" not in call:
            return input, self.answer("Error", "Version unavailable", -1, -1)
        if "version" not in call:
            return input, self.answer("Error", "Version unavailable", function, -1)
        error = ("Function not supported" if function not in {*range(19)} - {6, 7} else
                 "Version not supported" if int(version) != 1 else
                 "Parameter not supported" if takes and "parameter" not in call else "")
        if error:
            return input, self.answer("Error", error, function, int(version))
        p = [value if isinstance(value := parameter.get(f"p{at}"), str) else "" for at in range(1, 6)]
        if function == 10:
            self.switch = int(p[0] == "1")
        if function == 15 and p[0] not in ("100", "80", "60"):
            return input, self.answer("Error", "Parameter not supported", function, 1)
        if function == 17:
            agreed = re.match(r"\s*[-+]?\d+", p[4])
            if not agreed:
                return input, ""
            self.consent(ansi(p[0]), p[1].encode(), p[2].encode(), p[3], int(agreed[0]) != 0)
        value = (self.name(function) if function in NAMES else
                 {3: str(self.battery), 4: str(self.fan), 5: self.info(), 9: "2.0.6.0", 11: str(self.switch),
                  16: UUID}.get(function))
        return input, self.answer("Success", dump({"p1": value}) if value is not None else "", function, 1)

    def answer(self, status, parameter, function, version):
        return dump({"status": status, "parameter": parameter, "function": function, "version": version})

    def info(self):
        return dump({key: HARDWARE[name].partition("日")[0] for key, name in INFO.items()})

    def call(self):
        """A line of a call, and the lines that it is answered with."""
        any_of, cookie = self.random.choice, self.random.choice([0, 7, -2 ** 63, 2 ** 63 - 1])
        value, on = any_of([100, 80, 60, 70, -1, 2 ** 40 + 5, -2 ** 63]), any_of([0, 1])
        room = any_of([0, -1, 1, 36, 37, 64, 4096, 4096, 4096, 1 << 20, (1 << 20) + 1])
        low = (value + 2 ** 31) % 2 ** 32 - 2 ** 31
        texts = {name: (self.name(at), at) for at, (name, _) in NAMES.items() if name}
        texts.update({"GetSystemInfoData": (self.info(), 5), "GetVersionString": ("2.0.6.0", 9)})
        numbers = {"GetBatteryHealthMode": ("integer", self.battery, 3), "GetQuietFanMode": ("integer", self.fan, 4),
                   "GetMainSwitchByUser": ("flag", self.switch, 11)}
        name = any_of([*texts, *numbers, "GetTestDataFunc", "SetMyZorvPP", "GetUUID", "SetBatteryHealth", "SetQuietFan",
                       "SetAppFolder", "SetMainSwitchByUser", *["BigDataServiceCall"] * 12])
        given, heard, status, answer = [cookie], [], 0, ""
        if name in texts:
            heard = ["text", *texts[name], cookie]
        elif name in numbers:
            heard = [*numbers[name], cookie]
        elif name == "GetTestDataFunc":
            given, heard = [value, cookie], ["testData", low + 1, cookie]
        elif name == "SetMyZorvPP":
            given, answer = [self.text(), self.text(), self.text(LATIN), self.when(), on], on
            if on:
                self.consent(given[0], *(each.encode("cp1252", "replace") for each in given[1:3]), given[3], on)
        elif name in ("GetUUID", "BigDataServiceCall"):
            valid = 0 < room <= 1 << 20
            input, answer = self.json_call() if name != "GetUUID" and valid else ("{}", UUID)
            given = [room] if name == "GetUUID" else [input, room]
            status = 0 if valid else -32602 if not self.windows else 1130 if room < 0 else 1734
            answer = answer if valid and len(answer) < room else ""
        elif name == "SetAppFolder":
            given = [self.text(WIDE + "\U0001F600"), cookie]
        else:
            given = [value if name == "SetBatteryHealth" else on, cookie]
            if name == "SetBatteryHealth":
                heard, self.battery = ["integer", low, 6, cookie], value if value in (100, 80, 60) else self.battery
            elif name == "SetQuietFan":
                heard, self.fan = ["flag", on, 7, cookie], on
            else:
                heard, self.switch = ["flag", 1, 10, cookie], on
        lines = [heard] * bool(heard) + [["=", status, answer]]
        return "\t".join(map(str, [name, *given])), ["\t".join(map(str, line)) for line in lines]


def environ(more):
    return {**os.environ, **{name: str(value) for name, value in more.items()}}


def run(*command, folder=None, input=None, **environment):
    """What it prints. Fails with all of it when it ends badly."""
    done = subprocess.run([*map(str, command)], cwd=folder, input=input, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          env=environ(environment), encoding="utf-8", timeout=DEADLINE)
    assert done.returncode == 0, f"{command} ended with {done.returncode}:\n{done.stdout[-2000:]}{done.stderr[-4000:]}"
    return done.stdout.replace("\r\n", "\n")


class Service:
    """On a fresh machine of its own, killed at the end."""

    def __init__(self, build, folder, windows):
        self.windows, self.bin = windows, folder / "bin"
        (folder / "machine").mkdir(parents=True)
        self.environment = {"ZORV_MACHINE": folder / "machine", "ZORV_SERVICE": "Zorvalis"}
        (folder / "hardware.json").write_text(json.dumps(HARDWARE), encoding="utf-8")
        if windows:  # with the doubles around it
            command = ["wine", build / "tests/zorvalis-tests.exe", "--gtest_also_run_disabled_tests",
                       "--gtest_filter=ServedClients.DISABLED_AreOtherPrograms"]
            self.environment["ZORV_SERVED_HARDWARE"] = f"Z:{folder}/hardware.json"
        else:
            shutil.copytree(build / "tests/libraries", self.bin)
            for name in ("zorvalis-agent-service", "ZorvWinIo64.so", "default.json"):
                shutil.copy(build / "bin" / name, self.bin)
            shutil.move(folder / "hardware.json", self.bin)
            command = [self.bin / "zorvalis-agent-service"]
            run(*command, "-install", **self.environment)
        self.process = subprocess.Popen(command, env=environ(self.environment), stdin=subprocess.PIPE, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        atexit.register(self.process.kill)
        if windows:
            place = next(line[8:].strip() for line in self.process.stdout if line.startswith("serving "))
            self.bin = pathlib.Path(run("winepath", "-u", place).strip())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.windows:
            self.process.communicate("\n", timeout=DEADLINE)
        self.process.kill()
        self.process.communicate()

    def files(self):
        """What calls leave: the hardware's modes, and the record of consents."""
        hardware = json.loads((self.bin / "hardware.json").read_text(encoding="utf-8"))
        return ([hardware[name] for name in ("WMIGetBatteryHealth", "WMIGetQuietFan", "WMISetAppPath")],
                (self.bin / "ChkReg.log").read_bytes())


class Tests:
    def __init__(self, build, folder, seed):
        self.build, self.folder, self.seed = build, folder, seed
        self.windows = (build / "bin/ZorvalisWinService.exe").exists()
        run("cmake", "--install", build, "--prefix", folder / "made", "--component", "sdk")
        self.package = (folder / "made").rename(folder / "moved package")
        cross = "x86_64-w64-mingw32-{}-posix" if self.windows else "{}"
        self.cc, self.cxx = cross.format("gcc"), cross.format("g++")
        share, self.apps = self.package / "share/zorvalis", {}
        for needed in [share / "idl/zorvalis.idl", share / "idl/zorvalis.acf"] + [  # what nothing here can compile
                self.package / "lib/zorvalis_client.def"] * self.windows:
            assert needed.exists(), needed
        warnings = "-pedantic -Wall -Wextra -Wshadow -Wconversion -Werror -O1"
        for name, standard in ("example", 17), ("calls", 14):  # whose sources begin with the header
            place = folder / name
            shutil.copytree(share / "examples", place)
            for source in (ROOT / "tests/sdk").iterdir():
                shutil.copy(source, place)
            lists = place / "CMakeLists.txt"
            lists.write_text(lists.read_text().replace("example", name))
            self.configure(place, place / "build", f"-DCMAKE_PREFIX_PATH={self.package}", "-DCMAKE_CXX_EXTENSIONS=OFF",
                           f"-DCMAKE_CXX_STANDARD={standard}", f"-DCMAKE_CXX_FLAGS={warnings}")
            run("cmake", "--build", place / "build")
            csharp = [] if self.windows else [name.capitalize() + ".exe"]
            run("make", "--silent", f"CC={self.cc}", name, *csharp, folder=place, CFLAGS=f"-std=c99 {warnings}",
                PKG_CONFIG_PATH=self.package / "lib/pkgconfig")
            if self.windows:
                shutil.copy(self.package / "bin/zorvalis_client.dll", place)
                shutil.copy(place / "zorvalis_client.dll", place / "build")
                self.apps[name] = {"C": ["wine", place / f"{name}.exe"], "C++": ["wine", place / f"build/{name}.exe"]}
            else:
                self.apps[name] = {"C": [place / name], "C++": [place / "build" / name],
                                   "C#": ["mono", place / csharp[0]],
                                   "Python": [sys.executable, "-B", place / f"{name}.py"]}
        self.environment = {"LD_LIBRARY_PATH": self.package / "lib", "PYTHONPATH": share / "python"}

    def configure(self, source, build, *options):
        cross = ["-DCMAKE_SYSTEM_NAME=Windows", "-DCMAKE_EXE_LINKER_FLAGS=-static"] if self.windows else []
        run("cmake", "-S", source, "-B", build, "-G", "Ninja", f"-DCMAKE_C_COMPILER={self.cc}", *cross,
            f"-DCMAKE_CXX_COMPILER={self.cxx}", *options)

    def test_examples_are_those_of_the_guide_and_answer_alike(self):
        files = [path.read_text() for path in (self.package / "share/zorvalis/examples").iterdir()]
        blocks = re.findall(r"^```\w+\n(.*?)^```$", (ROOT / "docs/rpc.md").read_text(), re.M | re.S)
        assert len(blocks) > 4 and not [block for block in blocks if not any(block in text for text in files)], blocks
        expected = ('{"function":9,"parameter":"{\\"p1\\":\\"2.0.6.0\\"}","status":"Success","version":1}\n' +
                    "function 0, cookie 7: ZX ä \"7\" \\ Q\n" * (not self.windows))
        with Service(self.build, self.folder / "a", self.windows) as service:
            for language, command in self.apps["example"].items():
                assert run(*command, **service.environment, **self.environment) == expected, language
            if not self.windows:
                plain = re.findall(r"(?:^    .*\n|^\n)+", (ROOT / "docs/json-rpc.md").read_text(), re.M)[-1]
                heard = run(sys.executable, "-c", textwrap.dedent(plain), **service.environment)
                assert heard.startswith("2.0.6.0\nCallbackText {'cookie': 7, 'function': 0,"), heard
                run(sys.executable, "-B", "-c", PYTHON_REFUSES, **service.environment, **self.environment)

    def test_random_calls_of_every_shape_are_answered_alike_in_each_language(self):
        for at, (language, command) in enumerate(self.apps["calls"].items()):
            model = Model(self.seed, self.windows)
            calls = [("SetMainSwitchByUser\t1\t1", ["flag\t1\t10\t1", "=\t0\t"]), *(model.call() for _ in range(COUNT)),
                     ("SetAppFolder\tC:\\ä\U0001F600\t1", ["=\t0\t"])]
            with Service(self.build, self.folder / f"s{at}", self.windows) as service:
                printed = run(*command, input="".join(line + "\n" for line, _ in calls), **service.environment,
                              **self.environment).split("\n")
                files = service.files()
            for line, expected in calls:
                expected = expected[-1:] if self.windows else expected
                answered, printed = printed[:len(expected)], printed[len(expected):]
                assert answered == expected, f"{language}, {line[:400]!r}: {answered}, not {expected}"
            assert printed == [""] and files == ([model.battery, model.fan, "C:\\ä\U0001F600"], model.log), files
            print(f"  {language}: {len(calls)} calls")

    def test_is_taken_by_add_subdirectory(self):
        outer = self.folder / "outer"
        outer.mkdir()
        lists = (self.package / "share/zorvalis/examples/CMakeLists.txt").read_text()
        (outer / "CMakeLists.txt").write_text(lists.replace(
            "find_package(Zorvalis 1 REQUIRED)", f"add_subdirectory({ROOT} zorvalis EXCLUDE_FROM_ALL)"))
        shutil.copy(self.package / "share/zorvalis/examples/example.cpp", outer)
        self.configure(outer, outer / "build", "-DCMAKE_CXX_STANDARD=14")
        run("cmake", "--build", outer / "build")
        built = {path.name.split(".")[0] for path in (outer / "build").rglob("*") if path.is_file()}
        assert {"example", "libzorvalis_client"} <= built and not built & {"zorvctl", "libzorvalis_core"}, built


if __name__ == "__main__":
    seed = int((sys.argv[2:] or [random.randrange(10 ** 6)])[0])
    print("seed", seed)
    tests = Tests(pathlib.Path(sys.argv[1]).resolve(), cases.fresh_folder("zorv-sdk-"), seed)
    sys.exit(cases.run("Sdk", cases.methods(tests)))
