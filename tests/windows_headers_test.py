#!/usr/bin/env python3
"""What the headers of our binaries for Windows promise about memory, libraries and debug information.

    windows_headers_test.py BUILD [NAME...]      NAME: other files in its bin/ than those that ship
"""
import pathlib
import struct
import sys
import zlib

from support import cases

BUILD, NAMES = pathlib.Path(sys.argv[1]), sys.argv[2:] or ["ZorvalisWinService.exe", "zorvctl.exe", "zorvsetup.exe",
                                              "zorvalis_client.dll"]
# Windows takes these from System32 whatever lies beside the application: its list KnownDLLs has them.
KNOWN = {"advapi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll", "rpcrt4.dll", "user32.dll"}
# Protected: random addresses of 64 bits (0x20), random addresses (0x40), no execution of data (0x100).
PROTECTED, FIXED, EXECUTABLE, WRITABLE = 0x160, 1, 0x20000000, 0x80000000


def faults(name):
    data = (BUILD / "bin" / name).read_bytes()

    def read(form, at):
        return struct.unpack_from("<" + form, data, at)

    def text(at):
        return data[at:data.index(b"\0", at)].decode()

    def place(address):
        return next((at + address - first, kind) for _, size, first, _, at, kind in sections if 0 <= address - first < size)

    start = read("I", 0x3C)[0] + 4
    count, symbols, size, flags = read("2xH8xIHH", start)
    base, memory = read("24xQ38xH", start + 20)
    directories = [read("II", start + 132 + 8 * i) for i in range(16)]
    sections = [read("8sIIII12xI", start + 20 + size + 40 * i) for i in range(count)]
    table, imports = place(directories[1][0])[0], set()
    while row := read("12xI", table)[0]:
        imports.add(text(place(row)[0]).lower())
        table += 20
    table, early = place(read("24xQ", place(directories[9][0])[0])[0] - base)[0], []
    while function := read("Q", table + 8 * len(early))[0]:
        early.append(place(function - base)[1] & EXECUTABLE)
    long_names = [at for section, _, _, _, at, _ in sections if section.startswith(b"/")]  # .debug_* and .gnu_debuglink
    link = text(long_names[0]) if long_names else ""
    debug = BUILD / "debug" / link
    crc = read("I", long_names[0] + (len(link) // 4 + 1) * 4)[0] if link.endswith(".debug") else None
    return [fault for fault, found in {
        "memory is executable or at fixed addresses": memory & PROTECTED != PROTECTED or flags & FIXED,
        "no relocations": not directories[5][1],
        "a section can be written and executed": any(s[5] & EXECUTABLE and s[5] & WRITABLE for s in sections),
        f"libraries that Windows does not keep: {imports - KNOWN}": not imports or imports - KNOWN or directories[13][1],
        "more runs before the entry than mingw's own": len(early) != 3 or not all(early),
        "no guard of the stack": b"stack smashing detected" not in data,
        "no manifest": name.endswith(".exe") and b'level="asInvoker"' not in data,
        "symbols or debug information in it": symbols or len(long_names) != 1,
        "no debug file of this build": crc is None or zlib.crc32(debug.read_bytes()) != crc,
    }.items() if found]


def binaries_are_hardened():
    assert not any((found := {name: faults(name) for name in NAMES}).values()), found


if __name__ == "__main__":
    sys.exit(cases.run("Headers", [binaries_are_hardened]))
