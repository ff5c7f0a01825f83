"""An interactive session with folders of modules: python3 -m ossira FOLDER...

The modules are started before it and cleaned up after it. `classes()`, `categories()`, `create` and
`help(ossira)` are a beginning.
"""
import code
import sys

import ossira


def main():
    with ossira.Host(*sys.argv[1:]):
        names = {name: value for name, value in vars(ossira).items() if not name.startswith("_")}
        lines = [f"{each.text or '(no name)':28} {str(clsid).upper()}  {each.module}"
                 for clsid, each in sorted(ossira.classes().items(), key=lambda item: item[1][1:])]
        for category, members in ossira.categories().items():
            lines += [f"{category}:", *(f"    {each}" for each in members)]
        code.interact("\n".join([*lines, "", __doc__.split("\n\n")[1]]), exitmsg="",
                      local={"ossira": ossira, **names})


if __name__ == "__main__":
    main()
