#!/usr/bin/env python3
"""Makes the C stubs of the local endpoint from its interface description, for Windows and at build time.

    tools/rpc_stubs.py [--ndr64] IDL FOLDER [WIDL]     writes zorvalis_rpc*.[ch] into FOLDER; the ACF is beside the IDL

widl knows no callback procedures, takes a binding handle for data, leaves out a flag of context handles, and cannot have
the sizes checked that the other end sends. So it is given the interface in two halves, and what it makes is mended, each
mend as often as it must be needed, or it fails. The mended bytes are those of Windows' own compiler (docs/windows.md).
"""
import copy
import pathlib
import re
import subprocess
import sys
import tempfile

import rpc_ndr64
import rpc_ndr64_client
import rpc_tables

CALL, SERVE = "call_", "serve_"  # before a procedure's name where it is called, and where it is implemented
CONTEXT_NOT_NULL, CONTEXT_NO_SERIALIZE = 0x01, 0x04
HAS_CALLBACK = 0x04000000
FC_CALLBACK_HANDLE = 0x34
# Of a procedure: its types have the new correlation descriptors, and the client checks what it receives against them.
NEW_CORRELATION, CLIENT_CHECKS = 0x01, 0x02


class Stub:
    """One generated file, in which every mend says how often it applies."""

    def __init__(self, path):
        self.path, self.text = path, path.read_text()

    def mend(self, count, pattern, replacement):
        self.text, found = re.subn(pattern, replacement, self.text, flags=re.M)
        if found != count:
            sys.exit(f"{self.path.name}: {pattern!r} is there {found} times, not {count}")

    def procedures(self, count):
        """The beginnings and ends of the procedures' parts of the format string."""
        starts = [m.start() for m in re.finditer(r"^/\* \d+ \(procedure ", self.text, re.M)]
        if len(starts) != count:
            sys.exit(f"{self.path.name}: {len(starts)} procedures, not {count}")
        return list(zip(starts, starts[1:] + [self.text.index("        0x0\n    }\n};", starts[-1])]))

    def write(self):
        self.path.write_text(self.text)


def halves(idl):
    """The interface without its callbacks, and one of the same identity that has only those."""
    # The same on the wire, and the floor's type: for Windows' compilers `long` is another one.
    plain = re.sub(r"\blong\b", "int", re.sub(r"//.*", "", idl))
    callbacks = re.findall(r"\[callback\]\s*([^;]+;)", plain)
    attributes = re.match(r"\s*\[(.*?)\]\s*interface Zorvalis\b", plain, re.S).group(1)
    # A handle that nobody passes: a callback goes out on the connection of the running call.
    second = (f"[{attributes}, implicit_handle(handle_t ZorvalisCallback_handle)]\n"
              "interface ZorvalisCallback\n{\n" + "\n".join(callbacks) + "\n}\n")
    return re.sub(r"\[callback\][^;]+;", "", plain), second


def check_attributes(acf, idl, widl):
    # widl checks the attribute file's form and its names, but has not this word; it gets another there.
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "zorvalis.idl").write_text(idl)
        pathlib.Path(folder, "zorvalis.acf").write_text(acf.replace("[context_handle_noserialize]", "[allocate(free)]"))
        subprocess.run([widl, "--win64", "--acf=zorvalis.acf", "-h", "zorvalis.idl"], cwd=folder, check=True)


def mend_sizes(stub, procedures):
    # The check of a size that the other end sends against the one that was passed. Only the client needs it: every array
    # goes to it. One correlation is to be checked in each call that has an array, which is the hint's number.
    for (start, end), procedure in reversed(list(zip(stub.procedures(len(procedures)), procedures))):
        arrays = [kind for kind, _ in procedure.parameters].count("wchar_t*")
        flags = NEW_CORRELATION | (CLIENT_CHECKS if arrays else 0)
        mended, found = re.subn(r"(\n {8}0x0a,\n {8})0x00,\n {8}NdrFcShort\(0x0\),",
                                rf"\g<1>0x{flags:02x},\n        NdrFcShort(0x{arrays:x}),", stub.text[start:end])
        if found != 1:
            sys.exit(f"{stub.path.name}: the extension of {procedure.name} is described in another way")
        stub.text = stub.text[:start] + mended + stub.text[end:]


def mend_arrays(stub, procedures):
    # Two bytes of flags in the descriptor of each array: none, since its size is a later parameter. They take the place
    # of a pointer to the array that no parameter refers to, so that all later types stay where they are.
    arrays = sum(kind == "wchar_t*" for procedure in procedures for kind, _ in procedure.parameters)
    stub.mend(arrays, r"(0x28,\t/\* Corr desc: parameter \w+, FC_LONG \*/\n        0x0,.*\n        NdrFcShort.*\n)"
                      r"(        0x05,.*\n        0x5b,.*\n)/\* \d+ \*/\n        0x11, 0x0,.*\n        NdrFcShort.*\n",
              r"\1        NdrFcShort(0x0),\t/* Corr flags: */\n\2        0x5c, 0x5c,\t/* FC_PAD */\n")


def mend_procedures(stub, procedures, at_once):
    # A binding handle is no data: without its entry among the parameters both ends agree with every other client. Six
    # bytes that nobody reads keep the places of the later procedures.
    start, end = stub.procedures(len(procedures))[0]
    handle = re.compile(r"/\* 30 \(parameter binding\) \*/\n"
                        r"        NdrFcShort\(0x48\),\t/\* flags: in, base type \*/\n"
                        r"        NdrFcShort\(0x0\),\t/\* stack offset = 0 \*/\n"
                        r"        0x08,\t/\* FC_LONG \*/\n        0x0,\n")
    first, found = handle.subn("", stub.text[start:end])
    first, counted = re.subn(r"0x02,\t/\* 2 params \*/", "0x01,\t/* 1 params */", first)
    if (found, counted) != (1, 1):
        sys.exit(f"{stub.path.name}: RemoteOpen's handle is described in another way")
    stub.text = stub.text[:start] + first + "        0, 0, 0, 0, 0, 0,\n" + stub.text[end:]

    # Calls on one context run at once only with a flag, which the attribute file asks for and widl does not know; and
    # none may be null where one comes in. Both belong to the types and to the handles of the calls: out, in and out, in.
    calls = 2 * sum(procedure.on_context for procedure in procedures)
    for flags, count, more in ((0xa0, 1, 0), (0xe0, 2, CONTEXT_NOT_NULL), (0x41, calls, CONTEXT_NOT_NULL)):
        stub.mend(count, rf"(0x30,\t/\* FC_BIND_CONTEXT \*/\n {{8}})0x{flags:02x},",
                  rf"\g<1>0x{flags | more | (CONTEXT_NO_SERIALIZE if at_once else 0):02x},")


def mend_server(stub):
    # The service's rundown routine has a name of its own.
    stub.mend(1, r"^    ClientContext_rundown$", "    ClientContextRundown")
    # The callbacks are made in the name of this interface, from the other file.
    stub.mend(1, r"^static (const RPC_SERVER_INTERFACE Zorvalis___RpcServerInterface =)", r"\1")
    stub.mend(1, r"(&Zorvalis_ServerInfo,\n    )0,", rf"\g<1>0x{HAS_CALLBACK:08x},")


def mend_client(stub):
    # The runtime finds the callbacks' procedures in the client's interface, as it finds a server's in its own.
    stub.mend(1, r"^static (const RPC_CLIENT_INTERFACE Zorvalis___RpcClientInterface =)",
              "extern RPC_DISPATCH_TABLE ZorvalisCallback_v1_0_DispatchTable;\n"
              "extern const MIDL_SERVER_INFO ZorvalisCallback_ServerInfo;\n\n" r"\1")
    stub.mend(1, r"(\{2,0\}\},\n    )0,\n    0,\n    0,\n    0,\n    0,\n    0,\n\};",
              r"\1&ZorvalisCallback_v1_0_DispatchTable,\n    0,\n    0,\n    0,\n    &ZorvalisCallback_ServerInfo,"
              rf"\n    0x{HAS_CALLBACK:08x},\n}};")


def mend_callback(stub, other_side, count):
    # No handle of its own, but that of the call which the service is in.
    stub.mend(count, r"0x32,\t/\* FC_BIND_PRIMITIVE \*/", f"0x{FC_CALLBACK_HANDLE:02x},\t/* FC_CALLBACK_HANDLE */")
    # No interface of its own either, but the one whose callbacks these are.
    side = "SERVER" if other_side == "CLIENT" else "CLIENT"
    own, real = f"ZorvalisCallback___Rpc{other_side.title()}Interface", f"Zorvalis___Rpc{side.title()}Interface"
    stub.mend(1, rf"^static const RPC_{other_side}_INTERFACE {own} =\n\{{[^;]*;\nRPC_IF_HANDLE .*\n",
              f"extern const RPC_{side}_INTERFACE {real};\n")
    stub.mend(1, rf"\(void \*\)& ?{own}", f"(void *)&{real}")
    stub.procedures(count)


def mend_server_callback(stub, count):
    mend_callback(stub, "CLIENT", count)
    stub.mend(1, r"^handle_t ZorvalisCallback_handle;\n", "")
    stub.mend(1, r"        &ZorvalisCallback_handle,", "        0,")


def mend_client_callback(stub, count):
    mend_callback(stub, "SERVER", count)
    stub.mend(2, r"^static (RPC_DISPATCH_TABLE ZorvalisCallback_v1_0_DispatchTable)", r"\1")
    stub.mend(2, r"^static (const MIDL_SERVER_INFO ZorvalisCallback_ServerInfo)", r"\1")


def merge_headers(stub, callbacks, count):
    # One header; the second half's interface does not exist.
    declared = re.search(r"/\* client prototype \*/.*?(?=\n\n#endif)", callbacks.text, re.S)
    stub.mend(1, r"\n\n\n#endif  /\* __Zorvalis_INTERFACE_DEFINED__ \*/",
              lambda match: "\n\n" + declared.group().rstrip() + match.group())
    callbacks.path.unlink()
    stub.mend(1, r"ClientContext_rundown\(", "ClientContextRundown(")
    for side in (CALL, SERVE):
        stub.mend(count, rf"__cdecl {side}\w+\(", lambda match: match.group())


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--ndr64"]
    idl, folder = pathlib.Path(arguments[0]), pathlib.Path(arguments[1])
    widl = arguments[2] if len(arguments) > 2 else "x86_64-w64-mingw32-widl"
    folder.mkdir(parents=True, exist_ok=True)
    acf = idl.with_suffix(".acf").read_text()
    idl = idl.read_text()
    procedures, callbacks = rpc_tables.read(idl)
    at_once = rpc_tables.contexts(idl, acf)["ClientContext"]
    check_attributes(acf, halves(idl)[0], widl)
    stubs = {}
    # In the second half the service is the caller.
    for base, text, caller, server in zip(("zorvalis_rpc", "zorvalis_rpc_callback"), halves(idl),
                                          ("client", "server_callback"), ("server", "client_callback")):
        (folder / f"{base}.idl").write_text(text)
        for option, output in (("h", f"{base}.h"), ("c", f"zorvalis_rpc_{caller}.c"), ("s", f"zorvalis_rpc_{server}.c")):
            subprocess.run([widl, "--win64", "-Oicf", f"--prefix-client={CALL}", f"--prefix-server={SERVE}",
                            f"-{option}", f"-{option.upper()}", output, f"{base}.idl"], cwd=folder, check=True)
            stubs[output] = Stub(folder / output)

    for side in ("client", "server"):
        mend_procedures(stubs[f"zorvalis_rpc_{side}.c"], procedures, at_once)
        mend_sizes(stubs[f"zorvalis_rpc_{side}.c"], procedures)
        mend_arrays(stubs[f"zorvalis_rpc_{side}.c"], procedures)
        mend_sizes(stubs[f"zorvalis_rpc_{side}_callback.c"], callbacks)
        stubs[f"zorvalis_rpc_{side}_callback.c"].mend(1, '#include "zorvalis_rpc_callback.h"', '#include "zorvalis_rpc.h"')
    mend_client(stubs["zorvalis_rpc_client.c"])
    mend_server(stubs["zorvalis_rpc_server.c"])
    mend_client_callback(stubs["zorvalis_rpc_client_callback.c"], len(callbacks))
    mend_server_callback(stubs["zorvalis_rpc_server_callback.c"], len(callbacks))
    merge_headers(stubs["zorvalis_rpc.h"], stubs.pop("zorvalis_rpc_callback.h"),
                  len(procedures) + len(callbacks))
    (folder / "zorvalis_rpc_ndr64.c").write_text(rpc_ndr64.source(idl, acf))
    for end, mend, count in (("", rpc_ndr64_client.mend_client, len(procedures)),
                             ("_callback", rpc_ndr64_client.mend_client_callback, len(callbacks))):
        both = stubs[f"zorvalis_rpc_client64{end}.c"] = copy.copy(stubs[f"zorvalis_rpc_client{end}.c"])
        both.path = folder / f"zorvalis_rpc_client64{end}.c"
        mend(both, count)
    if "--ndr64" in sys.argv:
        rpc_ndr64.mend_server(stubs["zorvalis_rpc_server.c"], len(procedures))
        rpc_ndr64.mend_server_callback(stubs["zorvalis_rpc_server_callback.c"], len(callbacks))
    for stub in stubs.values():
        stub.write()


if __name__ == "__main__":
    main()
