#!/usr/bin/env python3
"""Every file of the golden repositories lies at a path that docs/format/README.md shows, and every path is used."""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).parents[2]
ID = "[0-9a-f]{8}(?:-[0-9a-f]{4}){3}-[0-9a-f]{12}"
NUMBER = "(?:0|[1-9][0-9]*)"
NAMES = {"<repository>": "[^/]+", "<client id>": ID, "<backup>": "[^/]+", "<n>": NUMBER, "<storage>": ID,
         "<version>": NUMBER, "<offset>": NUMBER, "<hh>": "(?P<hh>[0-9a-f]{2})", "<md5>": "(?P=hh)[0-9a-f]{30}"}


def shown_paths():
    """The tree of the page, one pattern for each object."""
    text = (ROOT / "docs/format/README.md").read_text()
    tree = text[text.index("    /Draxo/Backup/"):text.index("- `<client id>`")]
    patterns, folders = [], []
    for line in tree.splitlines():
        found = re.match(r"    ( *)(/?[A-Z<](?:<[^>]*>|[^ ])*)(?:  |$)", line)
        if not found:
            continue
        depth, name = len(found[1]) // 2, found[2]
        folders[depth:] = [name]
        if not name.endswith("/"):
            pattern = re.escape("".join(folders).lstrip("/"))
            for shown, meaning in NAMES.items():
                pattern = pattern.replace(re.escape(shown), meaning)
            patterns.append(pattern)
    return patterns


class Paths(unittest.TestCase):
    def test_every_file_has_its_place_and_every_place_a_file(self):
        patterns = shown_paths()
        self.assertEqual(len(patterns), 10)
        golden = ROOT / "tests/data/golden"
        repositories = [folder / "repository" if folder.name.startswith("agent") else folder for folder in golden.iterdir()]
        self.assertEqual(len(repositories), 7)
        unused = set(patterns)
        for repository in repositories:
            for path in repository.rglob("*"):
                if path.is_file():
                    name = str(path.relative_to(repository))
                    fitting = [pattern for pattern in patterns if re.fullmatch(pattern, name)]
                    self.assertEqual(len(fitting), 1, name)
                    unused -= set(fitting)
        self.assertEqual(unused, set())

    def test_the_golden_repositories_are_tiny(self):
        sizes = [path.stat().st_size for path in (ROOT / "tests/data").rglob("*") if path.is_file()]
        self.assertLess(sum(sizes), 200 * 1024)


if __name__ == "__main__":
    unittest.main(verbosity=2)
