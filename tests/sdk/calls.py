"""As calls.c, in Python."""
import sys

import zorvalis

TEXTS = {"SetMyZorvPP": 4, "SetAppFolder": 1, "BigDataServiceCall": 1}  # how many arguments are texts
sys.stdin.reconfigure(encoding="utf-8", newline="\n")
sys.stdout.reconfigure(encoding="utf-8", newline="\n")


def heard(name):
    return lambda result, *rest: print(name, result, *rest, sep="\t")


with zorvalis.Client(test_data=heard("testData"), text=heard("text"), flag=heard("flag"), integer=heard("integer"),
                     wait=120, limit=120) as client:
    for line in sys.stdin:
        name, *words = line.rstrip("\r\n").split("\t")
        given = [word if at < TEXTS.get(name, 0) else int(word) for at, word in enumerate(words)]
        status, answer = 0, ""
        try:
            answer = getattr(client, name)(*given)
        except zorvalis.Error as error:
            status = error.status
        print("=", int(status), "" if answer is None else int(answer) if isinstance(answer, bool) else answer, sep="\t")
