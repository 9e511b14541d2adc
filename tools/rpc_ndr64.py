#!/usr/bin/env python3
"""The second transfer syntax of the local endpoint, NDR64, whose tables widl cannot write.

`fragments` has all that the tables say, by name and as numbers, which are those that Windows' own compiler writes
for the same shapes. `source` is the same as C, in the structures of <ndr64types.h>, and the mends give the service's
stubs of widl the second syntax. tools/rpc_stubs.py calls all of it.
"""
import re
import sys
import typing

import rpc_tables

FC_CONF_ARRAY, FC_CONF_CHAR_STRING, FC_CONF_WCHAR_STRING = 0x41, 0x63, 0x64
FC_BIND_CONTEXT, FC_BIND_PRIMITIVE = 0x70, 0x72
FC_EXPR_VAR = 3
# Of a base type: its code, and its size.
BASE = {"hyper": (0x07, 8), "long": (0x05, 4), "unsigned char": (0x10, 1), "char": (0x10, 1), "wchar_t": (0x11, 2)}
STRINGS = {"char": FC_CONF_CHAR_STRING, "wchar_t": FC_CONF_WCHAR_STRING}

# Flags of a procedure.
CALLBACK_HANDLE, INTERPRETED, SERVER_MUST_SIZE, CLIENT_MUST_SIZE = 0x04, 0x40, 0x20000, 0x40000
CLIENT_HAS_CORRELATION, HAS_EXTENSIONS = 0x400000, 0x1000000
# Attributes of a parameter, as <ndr64types.h> names their bits, the lowest first; None for what is never set here.
ATTRIBUTES = ("MustSize", "MustFree", None, "IsIn", "IsOut", None, "IsBasetype", "IsByValue", "IsSimpleRef",
              None, None, None, None, None, None, "UseCache")
# Flags of a context handle.
NOT_NULL, NO_SERIALIZE, OUT, IN, VIA_POINTER = 0x01, 0x04, 0x20, 0x40, 0x80

# What a value takes at most of the buffers that are measured before the call, with what may lie before it.
CONTEXT_ROOM, POINTER_ROOM = 36, 24


def room(kind):
    size = BASE[kind][1]
    return size + max(size, 4)


class Fragment(typing.NamedTuple):
    """A C structure: its name and its members. "X.y" in a table of fragments is the part y of what is laid out as X."""
    kind: str
    fields: dict


class Reference(str):
    """A member that points to the fragment of this name."""


class Table:
    """Collects the fragments of one description. `contexts`: its types of contexts, as rpc_tables reads them."""

    def __init__(self, contexts):
        self.contexts = contexts
        self.fragments = {}

    def base(self, kind):
        name = kind.replace(" ", "_") + "_type"
        self.fragments[name] = Fragment("NDR64_FORMAT_CHAR", {"FormatCode": BASE[kind][0]})
        return name

    def context(self, parameter):
        """Shared by all procedures that have it in the same direction."""
        ways = [way for way in ("in", "out") if parameter.has(way)]
        flags = (IN | NOT_NULL if parameter.has("in") else 0) | (OUT if parameter.has("out") else 0)
        flags |= (VIA_POINTER if parameter.pointer else 0) | (NO_SERIALIZE if self.contexts[parameter.type] else 0)
        name = "_".join([parameter.type] + ways)
        self.fragments[name] = Fragment("NDR64_CONTEXT_HANDLE_FORMAT", {
            "FormatCode": FC_BIND_CONTEXT, "ContextFlags": flags, "RundownRoutineIndex": 0, "Ordinal": 0})
        return name

    def string(self, parameter):
        name = parameter.type + "_string"
        self.fragments[name] = Fragment("NDR64_CONFORMANT_STRING_FORMAT", {
            "Header.FormatCode": STRINGS[parameter.type], "Header.Flags": 0,
            "Header.ElementSize": BASE[parameter.type][1]})
        return name

    def array(self, procedure, parameter, count):
        name = f"{procedure}_{parameter.name}"
        size = BASE[parameter.type][1]
        element = self.base(parameter.type)
        # 1 if the number of elements is known before the array comes, 0 if it lies behind it.
        self.fragments[f"{name}_size.known"] = Fragment("NDR64_FORMAT_UINT32", {
            "value": int(count.offset < parameter.offset)})
        self.fragments[f"{name}_size.variable"] = Fragment("NDR64_EXPR_VAR", {
            "ExprType": FC_EXPR_VAR, "VarType": BASE[count.type][0], "Reserved": 0, "Offset": count.offset})
        self.fragments[f"{name}.array"] = Fragment("NDR64_CONF_ARRAY_HEADER_FORMAT", {
            "FormatCode": FC_CONF_ARRAY, "Alignment": size - 1, "Flags": 0, "Reserved": 0, "ElementSize": size,
            "ConfDescriptor": Reference(f"{name}_size")})
        self.fragments[f"{name}.element"] = Fragment("NDR64_ARRAY_ELEMENT_INFO", {
            "ElementMemSize": size, "Element": Reference(element)})
        return name

    def parameter(self, procedure, parameter, others):
        """Its type, its attributes, the room that it takes, and the flags that its procedure gets of it."""
        kind = parameter.type
        ways = [f"Is{way.title()}" for way in ("in", "out") if parameter.has(way)]
        by_pointer = ways + ["IsSimpleRef"]
        count = next((other for other in others if parameter.has(f"size_is({other.name})")), None)
        family = "context" if kind in self.contexts else "number" if kind in BASE else kind
        words = sorted(attribute.partition("(")[0] for attribute in parameter.attributes)
        shape = f"[{', '.join(words)}] {family}" + "*" * parameter.pointer
        if shape == "[in] context":
            return self.context(parameter), ways, CONTEXT_ROOM, 0
        if shape in ("[out] context*", "[in, out] context*"):
            return self.context(parameter), by_pointer, POINTER_ROOM + CONTEXT_ROOM, 0
        if shape == "[in] number":
            return self.base(kind), ways + ["IsBasetype", "IsByValue"], room(kind), 0
        if shape == "[out] number*":
            return self.base(kind), by_pointer + ["IsBasetype", "UseCache"], POINTER_ROOM + room(kind), 0
        if shape == "[in, string] number*" and kind in STRINGS:
            return self.string(parameter), by_pointer + ["MustSize", "MustFree"], 0, CLIENT_MUST_SIZE
        if shape == "[out, size_is] number*" and count in others and count.type in BASE:
            return (self.array(procedure, parameter, count), by_pointer + ["MustSize", "MustFree"], 0,
                    SERVER_MUST_SIZE | CLIENT_HAS_CORRELATION)
        sys.exit(f"{procedure}: {parameter.name} has a shape that tools/rpc_ndr64.py does not know")

    def binding(self, parameters):
        """Which parameter says where the call goes to."""
        kind, flags = FC_BIND_PRIMITIVE, 0
        if parameters[0].type != "handle_t":
            kind = FC_BIND_CONTEXT
            flags = self.fragments[self.context(parameters[0])].fields["ContextFlags"] & ~NOT_NULL
        return Fragment("NDR64_BIND_AND_NOTIFY_EXTENSION", {
            "Binding.HandleType": kind, "Binding.Flags": flags, "Binding.StackOffset": parameters[0].offset,
            "Binding.RoutineIndex": 0, "Binding.Ordinal": 0, "NotifyIndex": 0})

    def procedure(self, callback, name, parameters):
        flags = INTERPRETED | (CALLBACK_HANDLE if callback else HAS_EXTENSIONS)
        rooms, described = {"in": 0, "out": 0}, {}
        for parameter in parameters:
            if parameter.type == "handle_t":
                continue
            kind, attributes, needed, more = self.parameter(name, parameter, parameters)
            flags |= more
            for way in rooms:
                rooms[way] += needed if parameter.has(way) else 0
            described[f"{name}.{parameter.name}"] = Fragment("NDR64_PARAM_FORMAT", {
                "Type": Reference(kind), "Attributes": sum(1 << ATTRIBUTES.index(each) for each in attributes),
                "Reserved": 0, "StackOffset": parameter.offset})
        self.fragments[f"{name}.procedure"] = Fragment("NDR64_PROC_FORMAT", {
            "Flags": flags, "StackSize": 8 * len(parameters), "ConstantClientBufferSize": rooms["in"],
            "ConstantServerBufferSize": rooms["out"], "RpcFlags": 0, "FloatDoubleMask": 0,
            "NumberOfParams": len(described), "ExtensionSize": 0 if callback else 8})
        if not callback:
            self.fragments[f"{name}.binding"] = self.binding(parameters)
        self.fragments |= described


def fragments(idl, acf):
    """All that the tables of a description say: a table of Fragment by name. Parts of one thing follow each other."""
    table = Table(rpc_tables.contexts(idl, acf))
    for _, *procedure in rpc_tables.declarations(idl):
        table.procedure(*procedure)
    return table.fragments


SIZES = {"NDR64_PROC_FORMAT": 24, "NDR64_BIND_AND_NOTIFY_EXTENSION": 8, "NDR64_PARAM_FORMAT": 16,
         "NDR64_CONTEXT_HANDLE_FORMAT": 4, "NDR64_CONFORMANT_STRING_FORMAT": 4, "NDR64_CONF_ARRAY_HEADER_FORMAT": 16,
         "NDR64_ARRAY_ELEMENT_INFO": 16, "NDR64_EXPR_VAR": 8, "NDR64_FORMAT_UINT32": 4, "NDR64_FORMAT_CHAR": 1}
NDR = "{{0x8a885d04, 0x1ceb, 0x11c9, {0x9f, 0xe8, 0x08, 0x00, 0x2b, 0x10, 0x48, 0x60}}, {2, 0}}"
NDR64 = "{{0x71710533, 0xbeba, 0x4937, {0x83, 0x19, 0xb5, 0xdb, 0xef, 0x9c, 0xcc, 0x36}}, {1, 0}}"


def member(name, value):
    if name == "Attributes":
        bits = [f".{bit} = 1" for i, bit in enumerate(ATTRIBUTES) if value >> i & 1]
        return f".{name} = {{{', '.join(bits)}}}"
    return f".{name} = " + (f"&ndr64_{value}" if isinstance(value, Reference) else hex(value))


def initialiser(fragment):
    if fragment.kind in ("NDR64_FORMAT_CHAR", "NDR64_FORMAT_UINT32"):
        return hex(*fragment.fields.values())
    # What is 0 is left out, since flags are numbers in one structure and bits in another.
    return "{%s}" % ", ".join(member(*field) for field in fragment.fields.items() if field[1] != 0)


def variables(described):
    """A variable for each fragment, in which parts lie one behind the other."""
    wholes = {}
    for name, fragment in described.items():
        whole, _, part = name.partition(".")
        wholes.setdefault(whole, []).append((part, fragment))
    for whole, parts in wholes.items():
        if parts[0][0]:
            members = " ".join(f"{fragment.kind} {part};" for part, fragment in parts)
            yield f"static const struct {{{members}}} ndr64_{whole} = {{"
            yield from (f"    .{part} = {initialiser(fragment)}," for part, fragment in parts)
            yield "};"
        else:
            yield f"static const {parts[0][1].kind} ndr64_{whole} = {initialiser(parts[0][1])};"
        size = sum(SIZES[fragment.kind] for _, fragment in parts)
        yield f'_Static_assert(sizeof ndr64_{whole} == {size}, "has no gaps");'


def source(idl, acf):
    """The tables in C."""
    interface = re.search(r"^interface (\w+)", idl, re.M).group(1)
    if len(rpc_tables.contexts(idl, acf)) != 1:
        sys.exit("tools/rpc_ndr64.py knows one type of contexts only, whose rundown routine is the first")
    lists = {False: [], True: []}
    for _, callback, name, _ in rpc_tables.declarations(idl):
        lists[callback].append(f"    &ndr64_{name},")
    return "\n".join([
        "/* Made of the interface description by tools/rpc_ndr64.py: who changes this file loses the change. */",
        "#include <windows.h>", "#include <rpc.h>", "#include <rpcndr.h>", "#include <ndr64types.h>", "",
        *variables(fragments(idl, acf)), "",
        f"const FormatInfoRef {interface}_Ndr64ProcTable[] = {{", *lists[False], "};",
        f"const FormatInfoRef {interface}Callback_Ndr64ProcTable[] = {{", *lists[True], "};", ""])


def syntaxes(of, table, dispatch, dispatch64):
    """Both syntaxes of an interface, in the order of Windows' own compiler."""
    return (f"extern const void *const {of}_Ndr64ProcTable[];\n"
            f"static MIDL_SYNTAX_INFO {of}_SyntaxInfo[2] =\n{{\n"
            f"    {{{NDR}, {dispatch},\n"
            f"     __MIDL_ProcFormatString.Format, {table}, __MIDL_TypeFormatString.Format, 0, 0, 0}},\n"
            f"    {{{NDR64}, {dispatch64}, 0, (const unsigned short *){of}_Ndr64ProcTable, 0, 0, 0, 0}},\n}};\n\n")


# Of a stub's description: the version that has NDR64, and the flag of several syntaxes.
VERSION, MULTIPLE_SYNTAXES = 0x60001, 0x02000000


def mend_description(stub, name, info):
    """Where a stub's description is, and how it reads when it says that it knows both syntaxes."""
    start = stub.text.index(f"static const MIDL_STUB_DESC {name} =\n")
    end = stub.text.index("};\n", start)
    said = stub.text[start:end]
    for pattern, value in ((r"0x\w+, /\* Ndr library version", f"0x{VERSION:x}, /* Ndr library version"),
                           (r"1,  /\* Flags", f"0x{MULTIPLE_SYNTAXES | 1:08x},  /* Flags"),
                           (r"0,  /\* Reserved4", f"(void *)&{info},  /* ProxyServerInfo")):
        said, found = re.subn(pattern, value, said)
        if found != 1:
            sys.exit(f"{stub.path.name}: {pattern!r} is there {found} times, not once, in {name}")
    return start, end, said


def mend_server(stub, count):
    """Offers both syntaxes: the interface says so, and calls are told apart where they arrive."""
    stub.mend(1, r"(&Zorvalis_ServerInfo,\n    0x)04", r"\g<1>06")
    stub.mend(count, r"^    NdrServerCall2,$", "    zorv_serve_by_ndr,")
    stub.mend(1, r"(?=^static RPC_DISPATCH_FUNCTION Zorvalis_table)",
              "void __RPC_STUB zorv_serve_by_ndr(PRPC_MESSAGE message);\n")
    stub.mend(1, r"(?=^static const MIDL_SERVER_INFO Zorvalis_ServerInfo =)",
              "void __RPC_STUB zorv_serve_by_ndr64(PRPC_MESSAGE message);\n"
              "static RPC_DISPATCH_FUNCTION Zorvalis_Ndr64Table[] = {" + "zorv_serve_by_ndr64, " * count + "0};\n"
              f"static RPC_DISPATCH_TABLE Zorvalis_Ndr64DispatchTable = {{{count}, Zorvalis_Ndr64Table}};\n" +
              syntaxes("Zorvalis", "Zorvalis_FormatStringOffsetTable", "&Zorvalis_v1_0_DispatchTable",
                       "&Zorvalis_Ndr64DispatchTable"))
    stub.mend(1, r"(    Zorvalis_FormatStringOffsetTable,\n    0,\n)    0,\n    0,\n    0\n",
              r"\1    &Zorvalis_SyntaxInfo[1].TransferSyntax,\n    2,\n    Zorvalis_SyntaxInfo\n")
    start, end, said = mend_description(stub, "Zorvalis_StubDesc", "Zorvalis_ServerInfo")
    stub.text = stub.text[:start] + said + stub.text[end:]


def mend_server_callback(stub, count):
    """A callback goes out in the syntax of the call that it belongs to."""
    call = re.compile(r"^    NdrClientCall2\( &ZorvalisCallback_StubDesc,\n"
                      r" +&__MIDL_ProcFormatString\.Format\[(\d+)\],\n([^;]*) \);\n", re.M)
    offsets = [match.group(1) for match in call.finditer(stub.text)]
    if len(offsets) != count:
        sys.exit(f"{stub.path.name}: {len(offsets)} calls, not {count}")
    numbers = iter(range(count))
    stub.text = call.sub(lambda match: "    if (zorv_serves_by_ndr64())\n"
                         f"        NdrClientCall3(&ZorvalisCallback_ProxyInfo, {next(numbers)}, 0,\n"
                         f"{match.group(2)});\n    else\n{match.group()}", stub.text)
    stub.mend(1, r"(^static const MIDL_STUB_DESC ZorvalisCallback_StubDesc);",
              r"\1, ZorvalisCallback_Ndr64StubDesc;\nstatic MIDL_STUBLESS_PROXY_INFO ZorvalisCallback_ProxyInfo;\n"
              "int zorv_serves_by_ndr64(void);")
    _, end, said = mend_description(stub, "ZorvalisCallback_StubDesc", "ZorvalisCallback_ProxyInfo")
    added = ("};\n\n" + said.replace("ZorvalisCallback_StubDesc", "ZorvalisCallback_Ndr64StubDesc") + "};\n\n"
             "static const unsigned short ZorvalisCallback_FormatStringOffsetTable[] =\n{\n    " + ", ".join(offsets) +
             "\n};\n" + syntaxes("ZorvalisCallback", "ZorvalisCallback_FormatStringOffsetTable", "0", "0") +
             "static MIDL_STUBLESS_PROXY_INFO ZorvalisCallback_ProxyInfo =\n{\n"
             "    &ZorvalisCallback_Ndr64StubDesc,\n    __MIDL_ProcFormatString.Format,\n"
             "    ZorvalisCallback_FormatStringOffsetTable,\n    &ZorvalisCallback_SyntaxInfo[0].TransferSyntax,\n"
             "    2,\n    ZorvalisCallback_SyntaxInfo\n};\n")
    stub.text = stub.text[:end] + added + stub.text[end + len("};\n"):]
