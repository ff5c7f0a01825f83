"""Writes the files that a tool of this folder makes, or compares them with what is checked in."""
import difflib
import sys


def write_or_check(files, tool):
    """Answers an exit code. `files` are texts by path; with --check none is written."""
    stale = {path: text for path, text in files.items()
             if not path.exists() or path.read_text(encoding="utf-8") != text}
    if "--check" not in sys.argv[1:]:
        for path, text in stale.items():
            path.write_text(text, encoding="utf-8")
            print("written:", path.name)
        return 0
    for path, text in stale.items():
        present = path.read_text(encoding="utf-8") if path.exists() else ""
        sys.stdout.writelines(difflib.unified_diff(
            present.splitlines(True), text.splitlines(True),
            f"{path.name} as checked in", f"{path.name} as it would be now", n=1))
    if stale:
        print(f"Not up to date. If that is on purpose, run contract/{tool} and check the result in.")
    return 1 if stale else 0
