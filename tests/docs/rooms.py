"""docs/architecture.md and CONTRIBUTING.md agree with the sources."""

import re

from tree import expect_same, found, part, rooms, root, text_of

_pages = ("docs/architecture.md", "CONTRIBUTING.md")


def _sources():
    """The files of the rooms."""
    return sorted(file for room in rooms for file in (root / room).glob("*") if file.is_file())


def _names(pattern):
    """Each match of the pattern in the code of the pages, with its page."""
    for page in _pages:
        text = text_of(page)
        code = "\n".join(re.findall(r"```[\s\S]*?```|`[^`]*`", text))
        yield from ((page, name) for name in found(pattern, code, page))


def the_architecture_shows_the_rooms_of_the_build(build):
    page = "docs/architecture.md"
    picture = part(text_of(page), r"^## The rooms$", r"^## ", page)
    expect_same(reversed(rooms), "rooms", found(r"^([a-z]+)/  ", picture, page), page)
    built = set(found(r"^ +([a-z]+)/[a-z_]+\.cc\)?$", text_of("CMakeLists.txt"), "CMakeLists.txt"))
    expect_same(sorted(rooms), "rooms", sorted(built), "CMakeLists.txt")


def includes_point_downwards(build):
    upwards = []
    for file in _sources():
        usable = rooms[:rooms.index(file.parent.name) + 1]
        for line in re.findall(r"^ *# *include .*", file.read_text(encoding="utf-8"), re.MULTILINE):
            folder = re.search(r'["<](\w+)/', line)
            # A name in quotes is ours.
            ours = folder and ('"' in line or (root / folder[1]).is_dir())
            if ours and folder[1] not in usable:
                upwards.append(f"{file.relative_to(root)}: {line}")
    assert not upwards, "includes upwards:\n" + "\n".join(upwards)


def heavy_libraries_stay_behind_their_walls(build):
    """Each adds seconds to the compile time of every file that includes it."""
    outside = []
    for file in _sources():
        name = str(file.relative_to(root))
        text = file.read_text(encoding="utf-8")
        if re.search(r"^ *# *include [<\"]boost/", text, re.MULTILINE):
            if name != "daemon/control_client.cc":
                outside.append(f"{name}: Boost")
        if name.endswith(".h") and re.search(r"^ *# *include [<\"]nlohmann/", text, re.MULTILINE):
            outside.append(f"{name}: JSON")
    assert not outside, "heavy library outside its wall:\n" + "\n".join(outside)


def the_files_that_the_pages_name_are_there(build):
    missing = [f"{page}: {name}" for page, name in _names(r"\b(?:[a-z_]+/)+[\w.]+\.[a-z]+\b")
               if not (root / name).is_file()]
    assert not missing, "no such file:\n" + "\n".join(missing)


def the_functions_that_the_pages_name_are_there(build):
    words = set()
    for file in [*_sources(), root / "CMakeLists.txt", *(root / "tests").rglob("*.h")]:
        words.update(re.findall(r"\w+", file.read_text(encoding="utf-8")))
    names = _names(r"(?<![\w./])[a-z]+(?:_[a-z]+)+(?![\w./])")
    missing = [f"{page}: {name}" for page, name in names if name not in words]
    assert not missing, "no such name in the sources:\n" + "\n".join(missing)
