#!/usr/bin/env python3
"""Exports record files and reads the data set back with DuckDB: the rows must be those that SQLite reads from the files.

    export_test.py BIN FOLDER MODULES      BIN has the built programs, MODULES DuckDB's; FOLDER is made anew

Prints its results as the other test programs do, for ./dev test to count.
"""
import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys

from support import cases

BIN, FOLDER, MODULES = (pathlib.Path(one).resolve() for one in sys.argv[1:])
DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs" / "export.md"
TABLES = ("Battery_Power", "SysInfo", "Thermal", "UserBehavior")
HOSTILE = ["", " ", "a \"quote\", a \\ and 'one'", "line\nline\r\n\t", "NUL\0behind", "\u20ac \U0001F50B \u2028", "null", "{}",
           b"bad \xff\xc0 bytes", "12"]


def run(*words, expect=0, says="", **options):
    done = subprocess.run([str(one) for one in words], capture_output=True, timeout=300, **options)
    errors = done.stderr.decode(errors="replace")
    assert done.returncode == expect and says in errors, (words, done.returncode, errors)
    return done.stdout.decode()


def export(*words, **options):
    return run(BIN / "zorvctl", "export", *words, **options)


def duckdb(out, *statements):
    """The rows of each statement, behind the views that the export has written."""
    views = [one for one in (out / "_schema/duckdb.sql").read_text().split(";\n") if "VIEW" in one]
    text = run("node", DOCS.parent.parent / "tests/duckdb/query.mjs", MODULES, cwd=out,
               input=json.dumps(views + list(statements)).encode())
    return json.loads(text)[len(views):]


def transformed(data, key):
    return data.translate(bytes(byte ^ key for byte in range(256)))


class Records:
    """Files as the product makes them: one of its own, with more rows and of other devices and months."""

    def __init__(self):
        machine = FOLDER / "machine"
        env = {**os.environ, "ZORV_MACHINE": str(machine)}
        run(BIN / "zorvctl", "machine", "init", env=env)
        run(BIN / "zorvalis-agent-service", "-j0", env=env)
        own, = machine.glob("ProgramData/Zorv/Zorvcore/Zorvalis/data/O_*.db")
        self.key = own.read_bytes()[0] ^ ord("S")
        self.plain = transformed(own.read_bytes(), self.key)

    def make(self, folder, number, month, rows=2, statements=()):
        folder.mkdir(parents=True, exist_ok=True)
        device = f"{number:032x}"
        work = FOLDER / "work.db"
        work.write_bytes(self.plain)
        with sqlite3.connect(work) as database:
            for table in TABLES[:3]:
                for row in range(rows):
                    database.execute(f"INSERT INTO {table} SELECT * FROM {table} LIMIT 1")
                database.execute(f"UPDATE {table} SET guid = ?, freq = rowid * 7, local_time = "
                                 f"datetime('2026-02-01', '+' || rowid || ' minutes')", [str(number or "a") * 8])
            for statement, *values in statements:
                database.execute(statement, values)
        database.close()
        path = folder / f"O_{device}_{month}_V1-0.db"
        path.write_bytes(transformed(work.read_bytes(), self.key))
        return path

    def rows(self, out, files):
        """What the data set must hold, by table: a list of rows, each of file, month and the catalogue's columns."""
        found = {table: [] for table in TABLES}
        for path in files:
            work = FOLDER / "work.db"
            work.write_bytes(transformed(path.read_bytes(), self.key))
            database = sqlite3.connect(work)
            database.text_factory = lambda data: re.sub(
                "[\udc80-\udcff]", lambda byte: f"\\x{ord(byte[0]) - 0xdc00:02X}", data.decode(errors="surrogateescape"))
            for table in TABLES:
                fields = json.loads((out / f"_schema/{table}.json").read_text())["fields"][2:-1]
                present = [name for _, name, *_ in database.execute(f"PRAGMA table_info({table})")]
                for row in database.execute(f"SELECT * FROM {table}") if present else ():
                    cells = dict(zip(present, row))
                    typed = [str(cell) if cell is not None and field["type"] == "string" else
                             None if isinstance(cell, (str, bytes)) else cell
                             for field in fields for cell in [cells.get(field["name"])]]
                    _, device, month, _ = path.name.split("_")
                    found[table].append([path.name, int(month), str(int(device, 16) or "a") * 8, *typed])
            database.close()
        return found


def compare(out, files):
    expected = records.rows(out, files)
    for table in TABLES:
        parts = sorted(out.glob(f"table={table}/*/*"))
        if not expected[table]:
            assert not parts
            continue
        rows, = duckdb(out, f"SELECT * EXCLUDE (other, month, \"table\"), month FROM {table}")
        rows = [[row[0], row[-1], *row[1:-1]] for row in rows]
        order = lambda row: json.dumps(row)
        assert sorted(rows, key=order) == sorted(expected[table], key=order), (table, rows[:2], expected[table][:2])


def reads_the_same_back():
    files = [records.make(FOLDER / "in", number, 202601 + number % 3) for number in range(20)]
    texts = [("UPDATE Thermal SET disk_temp = ? WHERE rowid = 1", "x")]
    texts += [(f"INSERT INTO Thermal (local_time, disk_temp, cpu_usage, cpu_temp) VALUES ('h', CAST(? AS TEXT), {number}.1, "
               f"{2 ** 40 + number})", text) for number, text in enumerate(HOSTILE)]
    texts += [("INSERT INTO Thermal (cpu_temp, cpu_usage) VALUES ('warm', 'much')",),
              ("CREATE TABLE UserBehavior (freq INTEGER, wmi1 DATE, later STRING)",),
             ("INSERT INTO UserBehavior VALUES (-9007199254740991, '', 'new')",),
             ("INSERT INTO UserBehavior VALUES (x'00FF', NULL, 1)",)]
    files.append(records.make(FOLDER / "in/deeper", 99, 202601, statements=texts))
    torn = FOLDER / "in/O_torn_202601_V1-0.db"
    torn.write_bytes(files[0].read_bytes()[:9000])
    out = FOLDER / "out"
    told = export(out, FOLDER / "in", expect=1, says="O_torn_202601_V1-0.db")
    assert "exported 21 files" in told, told
    compare(out, files)
    # The sums of the engine are those of SQLite; a text where a number belongs is kept beside.
    (sums,), other, strange = duckdb(
        out, "SELECT count(*), sum(cpu_temp), sum(freq), round(sum(cpu_usage), 6) FROM Thermal",
                            "SELECT other FROM Thermal WHERE other IS NOT NULL", "SELECT other FROM UserBehavior")
    whole = records.rows(out, files)["Thermal"]
    assert sums == [len(whole), *(round(sum(row[at] or 0 for row in whole), 6) for at in (6, 4, 10))], sums
    assert [json.loads(row[0]) for row in other + strange] == [
        {"cpu_temp": "warm", "cpu_usage": "much"}, {"later": "new"}, {"freq": "X'00FF'", "later": "1"}], other + strange
    # The statement of the documentation turns a table into Parquet.
    statement, = re.findall(r"COPY .*?;", DOCS.read_text(), re.S)
    _, rows = duckdb(out, statement, "SELECT count(*), sum(cpu_temp) FROM '../Thermal.parquet/*/*.parquet'")
    assert rows == [sums[:2]], rows


def takes_no_row_twice():
    out, folder = FOLDER / "again", FOLDER / "again-in"
    files = [records.make(folder, number, 202601) for number in range(3)]
    export(out, folder)
    files.append(records.make(folder, 3, 202602))
    shutil.copy(files[0], folder / "copy.db")
    assert "exported 1 file to" in export(out, folder)
    records.make(folder, 1, 202601, rows=5)
    export(out, folder, expect=1, says="there already with other bytes")
    files[1] = records.make(FOLDER / "work", 1, 202601)
    compare(out, files)
    # A file of another name: the month is that of its first row.
    records.make(FOLDER / "work", 9, 202612).rename(FOLDER / "named.db")
    export(FOLDER / "named", FOLDER / "named.db")
    assert len(list((FOLDER / "named").glob("table=*/month=202602/*"))) == 3
    run(BIN / "zorvctl", "show", "--sqlite", FOLDER / "merged.db", *files[:2])
    export(FOLDER / "named", FOLDER / "merged.db", expect=1, says="is a merged database")


def refuses_what_is_not_its_own():
    foreign = FOLDER / "foreign"
    foreign.mkdir()
    (foreign / "photo.jpg").write_text("x")
    export(foreign, FOLDER / "in", expect=2, says="is no export")
    export(foreign / "photo.jpg", FOLDER / "in", expect=2, says="is no export")
    sqlite3.connect(foreign / "_export.db").execute("CREATE TABLE mine (x)")
    export(foreign, FOLDER / "in", expect=2, says="another program")
    assert sorted(os.listdir(foreign)) == ["_export.db", "photo.jpg"]
    other = sqlite3.connect(FOLDER / "again/_export.db", isolation_level=None)
    other.execute("BEGIN EXCLUSIVE")
    export(FOLDER / "again", FOLDER / "again-in", expect=1, says="another export")
    other.close()


def goes_on_after_a_kill_and_a_full_disk():
    # So many months make two batches.
    folder, out, log = FOLDER / "months", FOLDER / "killed", FOLDER / "operations"
    files = [records.make(folder, number, 202000 + number, rows=0) for number in range(24)]

    def fault(kind, number):
        done = subprocess.run([BIN / "zorvfault", out, log, kind, str(number), BIN / "zorvctl", "export", out, folder],
                              capture_output=True, timeout=300)
        return done.returncode, done.stderr.decode()

    for kind, code in (("kill", 137), ("full", 1), ("eio", 1)):
        shutil.rmtree(out, ignore_errors=True)
        assert fault(kind, 0)[0] == 0
        operations = len(log.read_text().splitlines())
        assert operations > 100, operations
        for number in range(1, operations, operations // 8):
            shutil.rmtree(out, ignore_errors=True)
            ended, errors = fault(kind, number)
            assert ended in (code, 0) if kind == "eio" else ended == code, (kind, number, ended, errors)
            assert kind == "kill" or not ended or "cannot be" in errors, (kind, number, errors)
            for part in out.glob("table=*/*/*"):
                assert part.read_bytes().endswith(b"}\n") and all(map(json.loads, part.read_text().splitlines())), part
            assert ended == 0 or not (out / "_SUCCESS").exists()
            export(out, folder)
            lines = sum(len(part.read_text().splitlines()) for part in out.glob("table=*/*/*"))
            assert lines == 3 * len(files) and not os.listdir(out / "_new"), (kind, number, lines)
        compare(out, files)


shutil.rmtree(FOLDER, ignore_errors=True)
FOLDER.mkdir(parents=True)
records = Records()
tests = [reads_the_same_back, takes_no_row_twice, refuses_what_is_not_its_own, goes_on_after_a_kill_and_a_full_disk]
sys.exit(cases.run("Export", tests))
