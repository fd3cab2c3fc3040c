#!/usr/bin/env python3
"""Keeps the house in order: what a source file may include.

include_test.py ROOT         lists every #include under ROOT/src that breaks a rule; exit code 1 when there is one
include_test.py --self-test  shows each rule a file that breaks it, and one that does not
"""

import pathlib
import re
import sys
import tempfile

FLOORS = {
    "common": {"common"},
    "model": {"common", "model"},
    "controller": {"common", "model", "controller"},
    "cli": {"common", "model", "controller", "cli"},
    "ui": {"common", "model", "controller", "ui"},
}

# Outside headers that only some files may see: (what the header looks like, which files under src/orvexa, in words).
RESTRICTED = [
    (r"yaml-cpp/", r"common/.*\.cpp", "yaml-cpp belongs in .cpp files of common"),
    (r"spdlog/", r"common/.*\.cpp", "spdlog belongs in .cpp files of common"),
    (r"(tbb|oneapi)/|execution$", r"common/.*\.cpp", "oneTBB belongs in .cpp files of common"),
    (r"openssl/", r"common/.*\.cpp", "OpenSSL belongs in .cpp files of common"),
    (r"(png|jpeglib|turbojpeg|tiff|tiffio|gif_lib)\.h(xx)?$|libexif/", r"model/codecs/.*\.cpp",
     "the libraries of image formats belong in .cpp files of model/codecs"),
    (r"CLI/", r"cli/command_line\.cpp", "CLI11 is slow to compile and belongs in cli/command_line.cpp alone"),
    (r"sigc\+\+/", r"controller/.*|ui/.*", "libsigc++ belongs in controller and ui"),
    (r"opencv2/(?!core|imgproc)", r"(?!)", "OpenCV is used for core and imgproc only"),
    (r"opencv2/imgproc", r"model/.*\.cpp", "OpenCV's imgproc belongs in .cpp files of model"),
    (r"(Q[A-Z]\w*|Qt\w+/.*)$", r"ui/.*", "Qt belongs in ui"),
]

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def problems_of(root):
    house = root / "src" / "orvexa"
    found = []
    for file in sorted(path for path in house.rglob("*") if path.suffix in (".h", ".cpp")):
        name = file.relative_to(house).as_posix()
        floor = name.split("/")[0]
        for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), start=1):
            match = INCLUDE.match(line)
            if not match:
                continue
            quote, header = match.groups()
            place = f"src/orvexa/{name}:{number}"
            if header.startswith("orvexa/"):
                used = header.split("/")[1]
                if floor not in FLOORS:
                    found.append(f"{place}: {floor} is not a floor of the house")
                elif used not in FLOORS[floor]:
                    found.append(f"{place}: {floor} may not know {used} ({header})")
                elif not (root / "src" / header).is_file():
                    found.append(f"{place}: there is no {header}")
                continue
            if quote == '"':
                found.append(f'{place}: a header of ours is included by its whole path, not as "{header}"')
            for looks_like, allowed, words in RESTRICTED:
                if re.match(looks_like, header) and not re.fullmatch(allowed, name):
                    found.append(f"{place}: {words} (<{header}>)")
    return found


def self_test():
    cases = [  # file, line in it, whether it is a problem
        ("common/a.h", "#include <string>", False),
        ("common/a.h", '#include "orvexa/model/b.h"', True),
        ("model/b.h", '#include "orvexa/common/a.h"', False),
        ("model/b.h", '#  include "orvexa/controller/c.h"', True),
        ("controller/c.h", '#include "orvexa/model/b.h"', False),
        ("controller/c.h", '#include "orvexa/cli/d.h"', True),
        ("cli/d.h", '#include "orvexa/controller/c.h"', False),
        ("cli/d.h", '#include "orvexa/ui/e.h"', True),
        ("ui/e.h", '#include "orvexa/cli/d.h"', True),
        ("garage/f.h", '#include "orvexa/common/a.h"', True),
        ("cli/d.h", '#include "orvexa/common/missing.h"', True),
        ("cli/d.h", '#include "d.h"', True),
        ("common/a.cpp", "#include <yaml-cpp/yaml.h>", False),
        ("common/a.h", "#include <yaml-cpp/yaml.h>", True),
        ("model/b.cpp", "#include <spdlog/spdlog.h>", True),
        ("model/b.cpp", "#include <execution>", True),
        ("model/b.cpp", "#include <tbb/parallel_for.h>", True),
        ("cli/d.cpp", "#include <openssl/evp.h>", True),
        ("model/codecs/png.cpp", "#include <png.h>", False),
        ("model/codecs/png.h", "#include <png.h>", True),
        ("model/b.cpp", "#include <turbojpeg.h>", True),
        ("model/b.cpp", "#include <libexif/exif-data.h>", True),
        ("cli/command_line.cpp", "#include <CLI/CLI.hpp>", False),
        ("cli/d.cpp", "#include <CLI/CLI.hpp>", True),
        ("controller/c.h", "#include <sigc++/signal.h>", False),
        ("model/b.h", "#include <sigc++/signal.h>", True),
        ("model/b.cpp", "#include <opencv2/imgproc.hpp>", False),
        ("model/b.h", "#include <opencv2/core.hpp>", False),
        ("controller/c.cpp", "#include <opencv2/imgproc.hpp>", True),
        ("model/b.cpp", "#include <opencv2/imgcodecs.hpp>", True),
        ("ui/e.h", "#include <QWidget>", False),
        ("controller/c.cpp", "#include <QString>", True),
        ("controller/c.cpp", "#include <QtCore/QString>", True),
    ]
    failures = 0
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        house = root / "src" / "orvexa"
        for name in ("common/a.h", "model/b.h", "controller/c.h", "cli/d.h", "ui/e.h"):
            (house / name).parent.mkdir(parents=True, exist_ok=True)
            (house / name).write_text("", encoding="utf-8")
        for name, line, is_problem in cases:
            file = house / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(f"// a file\n{line}\n", encoding="utf-8")
            found = problems_of(root)
            if bool(found) != is_problem or any(f"src/orvexa/{name}:2:" not in text for text in found):
                failures += 1
                print(f"{name} with {line}: expected {'a problem' if is_problem else 'none'}, found {found}")
            file.write_text("", encoding="utf-8")
    print(f"{len(cases) - failures} of {len(cases)} cases of the self-test as expected")
    return failures


def main():
    if sys.argv[1:] == ["--self-test"]:
        return 1 if self_test() else 0
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    root = pathlib.Path(sys.argv[1])
    if not (root / "src" / "orvexa").is_dir():
        print(f"{root}: there is no src/orvexa in it", file=sys.stderr)
        return 2
    found = problems_of(root)
    print("\n".join(found) if found else "every include is one that its floor may have")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
