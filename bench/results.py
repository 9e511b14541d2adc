"""What a bench written in Python has measured: printed, and kept in the form of results.h."""
import json
import pathlib


class Results:
    def __init__(self, title, columns):
        self.kept = {"title": title, "columns": columns, "rows": [], "texts": [], "aims": [], "plots": []}
        print(f"\n{title}")
        self._print(columns)

    def _print(self, cells):
        widths = [max(9, len(column)) for column in self.kept["columns"][1:]]
        print(f"{cells[0]:<36}", *(f"{cell:>{width}}" for cell, width in zip(cells[1:], widths)), flush=True)

    def row(self, *cells):
        self.kept["rows"].append(list(cells))
        self._print(cells)

    def text(self, sentence):
        self.kept["texts"].append(sentence)
        print(sentence)

    def aim(self, what, value, limit, at_least=False):
        held = value >= limit if at_least else value <= limit
        self.kept["aims"].append({"what": what, "value": value, "limit": limit, "atLeast": at_least, "held": held})
        print(f"{what}: {value:g}, wanted at {'least' if at_least else 'most'} {limit:g}: {'held' if held else 'MISSED'}")

    def keep(self, name, build="build/linux-release"):
        """Writes the file. Says whether all aims were held."""
        folder = pathlib.Path(build) / "bench/results"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / f"{name}.json").write_text(json.dumps(self.kept, indent=1) + "\n", encoding="utf-8")
        return all(aim["held"] for aim in self.kept["aims"])
