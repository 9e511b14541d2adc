"""The bill of materials of what is handed out, in CycloneDX 1.5: each archive with its files, and what of other people's
is in them. Those are the rows of THIRD-PARTY-NOTICES.md; their versions are told by Debian's packages and by the pins in
tools/dev.d/setup.sh."""
import hashlib
import json
import os
import pathlib
import re
import subprocess
import time
import urllib.parse
import uuid

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAMES = uuid.UUID("a3a4ad16-7ba2-4a0e-8b16-70d9c0f2f7a1")  # serial numbers are derived in it from what is listed


def hashes(path):
    return [{"alg": "SHA-256", "content": hashlib.sha256(path.read_bytes()).hexdigest()}]


def debian(package):
    """Version, and the name that tools know its source by."""
    form = "${Version}\n${source:Package}\n${source:Version}"
    told = subprocess.run(["dpkg-query", "-W", "-f", form, package], stdout=subprocess.PIPE, check=True, text=True).stdout
    version, source, source_version = map(urllib.parse.quote, told.split("\n"))
    return urllib.parse.unquote(version), f"pkg:deb/debian/{source}@{source_version}?arch=source"


def pinned(name):
    """The same of what setup.sh calls `name`; SQLite tells its own version, since its carrier has another."""
    carrier, version = re.search(rf"^{name}=(\S+)@(\S+)$", (ROOT / "tools/dev.d/setup.sh").read_text(), re.M).groups()
    if name == "sqlite_package":
        version_line = r'#define SQLITE_VERSION +"(.*)"'
        own = re.search(version_line, (ROOT / "build/deps/sqlite3/sqlite3.h").read_text())[1]
        return own, f"pkg:generic/sqlite@{own}"
    return version, f"pkg:npm/{carrier}@{version}"


def third_parties():
    table = re.search(r"\| Part \|.*?\n\n", (ROOT / "THIRD-PARTY-NOTICES.md").read_text(encoding="utf-8"), re.S)[0]
    for row in table.strip().split("\n")[2:]:
        name, where, licence, sources = (cell.strip() for cell in row.strip("|").split("|"))
        for source in sources.split(", "):
            version, purl = pinned(source.strip("`")) if source.startswith("`") else debian(source)
            yield {"type": "library", "bom-ref": f"{name}/{source.strip('`')}", "name": name, "version": version,
                   "description": f"in {where}",
                   "licenses": [{"license": {"name": f"{name}: see THIRD-PARTY-NOTICES.md"}} if "," in licence else
                                {"expression": licence}],
                   "purl": purl}


def text(product, library, made, shipped):
    """shipped: what is handed out, files in the folder `made`, and the folders that each was made of."""
    components = []
    for name, folders in sorted(shipped.items()):
        files = {path.relative_to(folder).as_posix(): path for folder in folders for path in folder.rglob("*")
                 if path.is_file() and not path.is_symlink()}
        components.append({
            "type": "application", "bom-ref": name, "name": name, "version": library if "-sdk-" in name else product,
            "hashes": hashes(made / name),
            "components": [{"type": "file", "bom-ref": f"{name}/{file}", "name": file, "hashes": hashes(path)}
                           for file, path in sorted(files.items())]})
    others = list(third_parties())
    whole = {"type": "application", "bom-ref": "Zorvalis", "name": "Zorvalis", "version": product,
             "supplier": {"name": "ZorvTek Computer Inc."}}
    listed = components + others
    date = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"])))
    serial = uuid.uuid5(NAMES, date + json.dumps(listed, sort_keys=True))
    return json.dumps({
        "bomFormat": "CycloneDX", "specVersion": "1.5", "serialNumber": f"urn:uuid:{serial}", "version": 1,
        "metadata": {"timestamp": date, "component": whole}, "components": listed,
        "dependencies": [{"ref": "Zorvalis", "dependsOn": [each["bom-ref"] for each in listed]}],
    }, indent=1, ensure_ascii=False) + "\n"
