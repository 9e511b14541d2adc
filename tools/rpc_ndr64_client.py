"""The acceptance kit's clients of the local endpoint: one of both transfer syntaxes, as Windows' own compiler makes it,
and one of NDR64 alone.

Both are made of widl's stubs for NDR 2.0, which tools/rpc_stubs.py has mended. Their functions are `call64_...`, and
go out by the proxy that `zorv_client64_proxy` names; their callbacks arrive in `serve64_...`, in the client of NDR64
alone by NdrServerCallNdr64, as Windows' compiler has it for one syntax.
"""
import re
import sys

import rpc_ndr64

ONLY = "Zorvalis64Only"


def rename(stub):
    for old, new in (("call_", "call64_"), ("serve_", "serve64_"), ("Zorvalis___Rpc", "Zorvalis64___Rpc"),
                     ("ZorvalisCallback_v1_0_DispatchTable", "Zorvalis64Callback_DispatchTable"),
                     ("ZorvalisCallback_ServerInfo", "Zorvalis64Callback_ServerInfo")):
        stub.text = re.sub(rf"\b{old}", new, stub.text)


def describe_both(stub, name):
    """Gives the stub's description both syntaxes, and a copy of it the second alone."""
    start, end, said = rpc_ndr64.mend_description(stub, name, "Zorvalis64_ProxyInfo")
    only = said.replace(name, "Only_StubDesc").replace("Zorvalis64_", ONLY + "_")
    stub.text = (stub.text[:start] + "extern MIDL_STUBLESS_PROXY_INFO Zorvalis64_ProxyInfo, "
                 f"{ONLY}_ProxyInfo;\nextern const RPC_CLIENT_INTERFACE {ONLY}___RpcClientInterface;\n"
                 + said + "};\n\n" + only + stub.text[end:])


def mend_client(stub, count):
    """The calls go out by the proxy that the program has chosen."""
    rename(stub)
    offsets = re.findall(r"^    NdrClientCall2\( &Zorvalis_StubDesc,\n +&__MIDL_ProcFormatString\.Format\[(\d+)\],",
                         stub.text, re.M)
    if len(offsets) != count:
        sys.exit(f"{stub.path.name}: {len(offsets)} calls, not {count}")
    numbers = iter(range(count))
    stub.mend(count, r"NdrClientCall2\( &Zorvalis_StubDesc,\n +&__MIDL_ProcFormatString\.Format\[\d+\],",
              lambda match: f"NdrClientCall3(zorv_client64_proxy, {next(numbers)}, 0,")
    identity = re.search(r"^    sizeof\(RPC_CLIENT_INTERFACE\),\n    (.*)\n", stub.text, re.M).group(1)
    stub.mend(1, r"(&Zorvalis64Callback_ServerInfo,\n    0x)04", r"\g<1>06")
    stub.mend(1, r"(?=^static const MIDL_STUB_DESC Zorvalis_StubDesc;)",
              f"extern const MIDL_SERVER_INFO {ONLY}Callback_ServerInfo;\n"
              f"extern RPC_DISPATCH_TABLE {ONLY}Callback_DispatchTable;\n"
              f"const RPC_CLIENT_INTERFACE {ONLY}___RpcClientInterface =\n{{\n"
              f"    sizeof(RPC_CLIENT_INTERFACE), {identity} {rpc_ndr64.NDR64},\n    &{ONLY}Callback_DispatchTable, 0, 0, 0, "
              f"&{ONLY}Callback_ServerInfo, 0x04000000\n}};\nPMIDL_STUBLESS_PROXY_INFO zorv_client64_proxy;\n")
    describe_both(stub, "Zorvalis_StubDesc")
    stub.text += ("\nstatic const unsigned short Zorvalis_FormatStringOffsetTable[] = {" + ", ".join(offsets) + "};\n" +
                  rpc_ndr64.syntaxes("Zorvalis", "Zorvalis_FormatStringOffsetTable", "0", "0") +
                  "MIDL_STUBLESS_PROXY_INFO Zorvalis64_ProxyInfo =\n{\n    &Zorvalis_StubDesc, "
                  "__MIDL_ProcFormatString.Format, Zorvalis_FormatStringOffsetTable,\n"
                  "    &Zorvalis_SyntaxInfo[0].TransferSyntax, 2, Zorvalis_SyntaxInfo\n};\n"
                  f"MIDL_STUBLESS_PROXY_INFO {ONLY}_ProxyInfo =\n{{\n    &Only_StubDesc, 0, "
                  "(const unsigned short *)Zorvalis_Ndr64ProcTable,\n"
                  "    &Zorvalis_SyntaxInfo[1].TransferSyntax, 1, &Zorvalis_SyntaxInfo[1]\n};\n")


def mend_client_callback(stub, count):
    """The callbacks' procedures, which the interface has in the place of a server's."""
    rename(stub)
    dispatch = "&Zorvalis64Callback_DispatchTable", "&Zorvalis64Callback_Ndr64DispatchTable"
    tables = ("RPC_DISPATCH_TABLE Zorvalis64Callback_DispatchTable, Zorvalis64Callback_Ndr64DispatchTable;\n"
              "static RPC_DISPATCH_FUNCTION Zorvalis64Callback_Ndr64Table[] = {" + "NdrServerCallAll, " * count + "0};\n"
              f"RPC_DISPATCH_TABLE Zorvalis64Callback_Ndr64DispatchTable = {{{count}, Zorvalis64Callback_Ndr64Table}};\n" +
              rpc_ndr64.syntaxes("ZorvalisCallback", "ZorvalisCallback_FormatStringOffsetTable", *dispatch))
    stub.mend(1, r"(?=^const MIDL_SERVER_INFO Zorvalis64Callback_ServerInfo =\n)", lambda match: tables)
    stub.mend(1, r"(    ZorvalisCallback_FormatStringOffsetTable,\n    0,\n)    0,\n    0,\n    0\n",
              r"\1    &ZorvalisCallback_SyntaxInfo[1].TransferSyntax,\n    2,\n    ZorvalisCallback_SyntaxInfo\n")
    describe_both(stub, "ZorvalisCallback_StubDesc")
    routines = "".join(f"void __cdecl {name}();\n" for name in re.findall(r"\(void \*\)(serve64_\w+)", stub.text))
    stub.mend(1, r"(?=^static const MIDL_STUB_DESC ZorvalisCallback_StubDesc;)", routines)
    stub.text += (f"\nstatic RPC_DISPATCH_FUNCTION Only_table[] = {{{'NdrServerCallNdr64, ' * count}0}};\n"
                  f"RPC_DISPATCH_TABLE {ONLY}Callback_DispatchTable = {{{count}, Only_table}};\n"
                  f"static MIDL_SYNTAX_INFO Only_SyntaxInfo =\n{{\n    {rpc_ndr64.NDR64}, &{ONLY}Callback_DispatchTable, "
                  "0,\n    (const unsigned short *)ZorvalisCallback_Ndr64ProcTable, 0, 0, 0, 0\n};\n"
                  f"const MIDL_SERVER_INFO {ONLY}Callback_ServerInfo =\n{{\n    &Only_StubDesc, "
                  "ZorvalisCallback_ServerRoutineTable, 0,\n    (const unsigned short *)ZorvalisCallback_Ndr64ProcTable, "
                  "0,\n    &Only_SyntaxInfo.TransferSyntax, 1, &Only_SyntaxInfo\n};\n")
