#!/usr/bin/env python3
"""The NDR64 tables of tools/rpc_ndr64.py against those that Windows' own compiler wrote for public interfaces.

    ndr64_facts_test.py [STUBS]      STUBS: the folder where the Windows build makes the stubs

ndr64/facts.csv has numbers read off public files, ndr64/shapes.idl procedures of the same shapes. Whatever in the
tables of sdk/zorvalis.idl no such file shows must be listed in ndr64/unverified.csv, and nothing else. Facts about the
structures that point to the tables are compared with the service's stubs. Prints results as the other test programs do.
"""
import csv
import pathlib
import re
import sys

from support import cases

TESTS = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(TESTS.parent / "tools"))
import rpc_ndr64  # noqa: E402
import rpc_tables  # noqa: E402

# These grow with the parameters, so that few values are shown; any shown value of the same unit proves their rule.
COUNTED = {"StackSize", "ConstantClientBufferSize", "ConstantServerBufferSize", "NumberOfParams", "StackOffset",
           "Offset"}
HAS_RETURN = 0x80000


class Described:
    """`numbers`: per "Procedure" or "Procedure.parameter" the members of its structures. `units`: what its kind is
    called, so that parameters of one kind prove each other."""

    def __init__(self, path):
        idl, acf = path.with_suffix(".idl").read_text(), path.with_suffix(".acf").read_text()
        self.fragments, contexts = rpc_ndr64.fragments(idl, acf), rpc_tables.contexts(idl, acf)
        self.numbers, self.units = {}, {}
        for _, callback, name, parameters in rpc_tables.declarations(idl):
            names = [parameter.name for parameter in parameters]
            for parameter in parameters:
                kind = ("parallel " * contexts[parameter.type] + "context"
                        if parameter.type in contexts else parameter.type) + "*" * parameter.pointer
                words = re.sub(r"size_is\((\w+)\)", lambda size: "size " + (
                    "before" if names.index(size[1]) < names.index(parameter.name) else "behind"),
                    ", ".join(parameter.attributes))
                key = f"{name}.{parameter.name}"
                self.units[key] = f"{'callback ' * callback}[{words}] {kind}"
                if parameter.type != "handle_t":
                    self.numbers[key] = dict(self.reach(key))
            self.units[name] = {"NDR64_PROC_FORMAT": "callback" if callback else "procedure"}
            if not callback:
                first = self.units[f"{name}.{parameters[0].name}"]
                self.units[name]["NDR64_BIND_AND_NOTIFY_EXTENSION"] = f"procedure bound by {first}"
            self.numbers[name] = {(part.kind, field): value for key, part in self.fragments.items()
                                  if key in (f"{name}.procedure", f"{name}.binding")
                                  for field, value in part.fields.items()}

    def reach(self, name):
        """The members of a structure, of its parts, and of all that it points to."""
        for key, part in self.fragments.items():
            if key == name or key.startswith(name + "."):
                for field, value in part.fields.items():
                    if isinstance(value, rpc_ndr64.Reference):
                        found = list(self.reach(value))
                        assert found, f"{key}.{field} points to {value}, which is nowhere"
                        yield from found
                    else:
                        yield (part.kind, field), value

    def unit(self, key, structure):
        unit = self.units[key] if isinstance(self.units[key], str) else self.units[key][structure]
        # What a size is found by is the same for arrays of all types.
        return re.search(r"size \w+", unit)[0] if structure in ("NDR64_EXPR_VAR", "NDR64_FORMAT_UINT32") else unit


def rows(name):
    with open(TESTS / "ndr64" / name, newline="", encoding="utf-8") as file:
        return list(csv.DictReader(file))


def stubs(files):
    """Of each variable of these stubs: the texts of its members, of an identifier its first number."""
    text = "".join(path.read_text() for path in sorted(pathlib.Path(sys.argv[1]).glob(files)))
    text = re.sub(r"\{\n *([^{},]*),\n *\}", r"\1", re.sub(r"/\*.*?\*/", "", text, flags=re.S))
    text = re.sub(r"\{\{\s*(0x\w+)[^{}]*\{[^{}]*\}\},\s*\{[^{}]*\}\}", r"\1", text)
    return {variable + f"[{i}]" * bool(many): [member.strip() for member in part.split(",")]
            for variable, many, body in re.findall(r"(\w+)(\[2\])? =\n\{\n(.*?)\n\};", text, re.S)
            for i, part in enumerate(re.findall(r"\{([^{}]*)\}", body) if many else [body])}


def is_stub(fact):
    return fact["structure"].startswith(("MIDL_", "RPC_"))


def shown():
    """Compares each fact; returns what the facts prove, and the facts that differ."""
    shapes, proved, wrong = Described(TESTS / "ndr64" / "shapes"), set(), []
    facts = [fact for fact in rows("facts.csv") if not is_stub(fact)]
    returns = {fact["shape"]: int(fact["value"]) for fact in facts if fact["structure"] == "return"}
    for fact in facts:
        shape, structure, field, value = fact["shape"], fact["structure"], fact["field"], int(fact["value"], 0)
        if structure == "return":
            continue
        if shape in returns and structure == "NDR64_PROC_FORMAT":  # take off what only the public procedure has
            value -= {"Flags": HAS_RETURN, "StackSize": 8, "ConstantServerBufferSize": returns[shape],
                      "NumberOfParams": 1}.get(field, 0)
        ours = shapes.numbers.get(shape, {}).get((structure, field))
        if ours == value:
            proved.add((shapes.unit(shape, structure), structure, field, None if field in COUNTED else value))
        else:
            wrong.append(f"{shape} {structure}.{field}: {ours}, but {value:#x} in {fact['repository']} {fact['file']}")
    return proved, wrong


def tables_say_what_public_ones_say():
    proved, wrong = shown()
    assert not wrong and len(proved) > 100, "\n".join(wrong)


# The acceptance kit's client, whose variables are what these of the service's are.
KIT = {"zorvalis_rpc_client64.c": {"ZorvalisCallback_ProxyInfo": "Zorvalis64_ProxyInfo",
                                   "ZorvalisCallback_Ndr64StubDesc": "Zorvalis_StubDesc",
                                   "ZorvalisCallback_SyntaxInfo[0]": "Zorvalis_SyntaxInfo[0]",
                                   "ZorvalisCallback_SyntaxInfo[1]": "Zorvalis_SyntaxInfo[1]"},
       "zorvalis_rpc_client64_callback.c": {"Zorvalis_ServerInfo": "Zorvalis64Callback_ServerInfo",
                                            "Zorvalis_SyntaxInfo[0]": "ZorvalisCallback_SyntaxInfo[0]",
                                            "Zorvalis_SyntaxInfo[1]": "ZorvalisCallback_SyntaxInfo[1]"}}


def stubs_point_to_them_as_public_ones():
    facts, server, wrong = list(filter(is_stub, rows("facts.csv"))), stubs("zorvalis_rpc_server*.c"), []
    compared = [(fact, fact["shape"], server) for fact in facts]
    for files, names in KIT.items():
        ours = stubs(files)
        compared += [(fact, names[fact["shape"]], ours) for fact in facts if fact["shape"] in names]
    for fact, variable, ours in compared:
        member = (ours.get(variable, []) + [""] * 20)[int(fact["field"].split()[0])]
        one = re.fullmatch(r"&(\w+\[\d\])\.TransferSyntax", member)
        member = ours[one[1]][0] if one else member
        number = re.fullmatch(r"0x\w+|\d+", member)
        if not (int(number[0], 0) == int(fact["value"], 0) if number and fact["value"] != "set" else
                member and not number and fact["value"] == "set"):
            wrong.append(f"{fact}: {member} in {variable}")
    assert not wrong and len(compared) > len(facts) + 100, "\n".join(wrong)


def what_no_public_table_shows_is_listed():
    ours, proved = Described(TESTS.parent / "sdk" / "zorvalis"), shown()[0]
    used = {(ours.unit(key, structure), structure, field, None if field in COUNTED else value)
            for key, numbers in ours.numbers.items() for (structure, field), value in numbers.items()}
    assert len(used) > 60, used
    found = {(unit, structure, field, "any" if value is None else hex(value))
             for unit, structure, field, value in used - proved}
    listed = {(row["shape"], row["structure"], row["field"], row["value"])
              for row in rows("unverified.csv") if row["why"]}
    for about, difference in (("not listed: ", found - listed), ("listed, but shown or unused: ", listed - found)):
        assert not difference, about + "\n".join(map(str, sorted(difference)))


def main():
    tests = [tables_say_what_public_ones_say, what_no_public_table_shows_is_listed]
    tests += [stubs_point_to_them_as_public_ones] * (len(sys.argv) > 1)
    return cases.run("Ndr64", tests)


if __name__ == "__main__":
    sys.exit(main())
