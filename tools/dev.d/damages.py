"""How faults.py damages a file of a machine: DAMAGES lists a file, words for the report, and the function that does it.

Each function takes a random.Random, the file's path and the Machine.
"""
import json

FILES = ("O", "aged", "status", "setting")  # the month's, one that waits for its upload, BGFS.db, setting.json


# Flips `count` bits, in the first `end` bytes.
def flipped(rng, image, count=1, end=None):
    image = bytearray(image)
    for _ in range(count):
        image[rng.randrange(min(end or len(image), len(image)))] ^= 1 << rng.randrange(8)
    return bytes(image)


def overwritten(rng, image):
    start = rng.randrange(len(image))
    return image[:start] + rng.randbytes(min(rng.randint(1, 5000), len(image) - start)) + image[start + 5000:]


# From a function of the random source and the contents, as bytes or as text, to one that damages the file.
def of_bytes(change):
    return lambda rng, path, _machine: path.write_bytes(change(rng, path.read_bytes()))


def of_text(change):
    return lambda rng, path, _machine: path.write_text(change(rng, path.read_text()))


# Deletes the file and lets `make` put something else in its place.
def replaced(make):
    def damage(_rng, path, machine):
        path.unlink()
        make(path, machine.folder)
    return damage


def planted(statement):
    """Runs SQL in the status database: it stays sound for SQLite, but says what the product would never write."""
    def damage(_rng, path, machine):
        database = machine.database(path.name)
        for one in statement.replace("AGED", machine.aged).split(";"):
            database.rows(one)
        path.write_bytes(database.image().translate(machine.rig.key))
    return damage


# Damages to the file's bytes.
BYTES = [
    flipped,
    lambda rng, image: flipped(rng, image, rng.randint(2, 40)),
    lambda rng, image: flipped(rng, image, rng.randint(1, 8), 100),  # in the header
    lambda rng, image: image[:rng.randrange(len(image))],
    lambda rng, image: image[:rng.randrange(len(image)) // 4096 * 4096],
    lambda rng, image: b"",
    lambda rng, image: rng.randbytes(rng.randint(1, 20000)),
    overwritten,
    lambda rng, image: image + image,
    lambda rng, image: image + rng.randbytes(rng.randint(1, 9000)),
    lambda rng, image: bytes(len(image)),
]
# Other things in the file's place, or the same file without rights.
PLACE = {
    "folder": replaced(lambda path, _folder: path.mkdir()),
    "dangling link": replaced(lambda path, _folder: path.symlink_to("nowhere")),
    "link to itself": replaced(lambda path, _folder: path.symlink_to(path)),
    "link elsewhere": replaced(lambda path, folder: path.symlink_to(folder / "elsewhere")),
    "no rights": lambda _rng, path, _machine: path.chmod(0),
}
STATUS = [planted(statement) for statement in (
    *(f"UPDATE FILESTATUS SET FILE_STATUS = 0, {values} WHERE FILE_NAME LIKE 'E_05%'"  # status 0: to be sent
      for values in ("FILE_SIZE = 4294967296", "FILE_SIZE = -1, FILE_TRY_COUNT = -5", "FILE_NAME = 'a''b'",
                     "FILE_CREATEDATE = NULL", "FILE_SIZE = 'x', FILE_MD5 = NULL, FILE_UUID = NULL",
                     "FILE_NAME = '../' || FILE_NAME")),
    "DROP TABLE FILESTATUS", "DROP TABLE FILESTATUS; CREATE VIEW FILESTATUS AS SELECT 1 AS FILE_NAME",
    "ALTER TABLE FILESTATUS DROP COLUMN FILE_MD5", "ALTER TABLE FILESTATUS ADD COLUMN MORE",
    "INSERT INTO FILESTATUS SELECT 'AGED', 2, x'00', 0, 0, 0, 0, 0, 0, x'FF', zeroblob(99999), 'u', 0, 0")]
SETTING = [
    lambda rng, text: json.dumps(dict.fromkeys(json.loads(text), rng.choice([None, 1, 1.5, True, [], {}, "", "x"]))),
    lambda rng, text: json.dumps(json.loads(text) | {"thermal": rng.choice([None, 5, [], {"a": 1}, "m" * 100000])}),
    lambda rng, text: "[" * rng.randint(1, 200000),
    lambda rng, text: rng.choice(["null", "0", "[]", "{}", '""', "1e400", "\xef\xbb\xbf" + text, text + text]),
]

# The file to damage, words for the report, and what does it. Damages to bytes and place are tried on all files.
DAMAGES = ([(victim, f"bytes {index}", of_bytes(change)) for index, change in enumerate(BYTES) for victim in FILES] +
           [(victim, words, damage) for words, damage in PLACE.items() for victim in FILES] +
           [("status", f"statement {index}", damage) for index, damage in enumerate(STATUS)] +
           [("setting", f"text {index}", of_text(change)) for index, change in enumerate(SETTING)])
