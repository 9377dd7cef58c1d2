#!/usr/bin/python3
"""Plants includes in a small source tree and sees what Scripts/check-includes says of each. The tree without a fault is
this one, which Check.Includes looks at."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "Scripts" / "check-includes"

# Who includes what, and what is said of that.
INCLUDES = [
    ("Controllers/A.cpp", '"Support/Logger.h"', None),
    ("Controllers/A.cpp", '"Platform/Bundle.h"', None),
    ("Controllers/A.cpp", "<QString>", None),
    ("Controllers/A.cpp", '"ui_ViewController.h"', None),
    ("Controllers/A.cpp", '"Platform/Qt/FileBundle.h"', "Controllers does not include"),
    ("Controllers/B.cpp", '"ServiceTier/HttpRequest.h"', "Controllers does not include"),
    ("Support/A.cpp", '"Controllers/AppDelegate.h"', "Support does not include"),
    ("Support/B.cpp", '"Logger.h"', '"Logger.h" is no file'),
    ("Support/C.cpp", "<Support/Logger.h>", "<Support/Logger.h> is ours"),
    ("Platform/A.h", '"Support/Logger.h"', "Platform does not include"),
    ("Platform/Qt/A.cpp", '"Platform/Linux/Bus.h"', "Platform/Qt does not include"),
    ("Platform/macOS/A.mm", '"Platform/Linux/Bus.h"', "Platform/macOS does not include"),
    ("Formats/A.cpp", '"Platform/Bundle.h"', "Formats does not include"),
    ("Client/A.cpp", '"Support/Logger.h"', "Client does not include"),
    ("Tools/A.cpp", '"Client/BusMessage.h"', "Tools does not include"),
    ("main.cpp", '"Tests/Fakes/ManualRunLoop.h"', "main.cpp does not include"),
    ("Helpers/A.cpp", "<vector>", "stands in no room"),
]
HEADERS = ["Support/Logger.h", "Platform/Bundle.h", "Platform/Qt/FileBundle.h", "Platform/Linux/Bus.h",
           "Controllers/AppDelegate.h", "ServiceTier/HttpRequest.h", "Client/BusMessage.h",
           "Tests/Fakes/ManualRunLoop.h"]


class IncludesTest(unittest.TestCase):
    def test_each_include_is_judged_in_its_line(self):
        with tempfile.TemporaryDirectory() as folder:
            for path in HEADERS:
                (Path(folder) / path).parent.mkdir(parents=True, exist_ok=True)
                (Path(folder) / path).write_text("#pragma once\n")
            # Comments hold no includes, and their lines count.
            texts = {path: '/*\n#include "Controllers/AppDelegate.h"\n*/\n' for path, _included, _said in INCLUDES}
            faults = []
            for path, included, said in INCLUDES:
                texts[path] += f"#include {included}\n"
                if said:
                    line = 1 if "room" in said else texts[path].count("\n")
                    faults.append(f"{path}:{line}: {said}")
            for path, text in texts.items():
                (Path(folder) / path).parent.mkdir(exist_ok=True)
                (Path(folder) / path).write_text(text)
            result = subprocess.run([SCRIPT, folder], capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(result.returncode, 1, result.stderr)
        *lines, last = result.stdout.splitlines()
        self.assertEqual(last, f"{len(HEADERS) + len(texts)} files, {len(faults)} faults")
        self.assertEqual(len(lines), len(faults), result.stdout)
        for line, fault in zip(sorted(lines), sorted(faults)):
            self.assertTrue(line.startswith(fault), f"{line} for {fault}")


if __name__ == "__main__":
    unittest.main()
