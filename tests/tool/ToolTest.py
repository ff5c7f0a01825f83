"""The command `ossira`, as a person and a script meet it: what is printed, and how it ends.

The environment names what is tried: OSSIRA_TOOL, OSSIRA_EMULATOR (may be empty),
OSSIRA_TEST_MODULES, OSSIRA_BUILD and OSSIRA_TOOLCHAIN (may be empty).
"""
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import unittest

TOOL = os.environ["OSSIRA_TOOL"]
EMULATOR = [part for part in [os.environ.get("OSSIRA_EMULATOR")] if part]
MODULES = os.environ["OSSIRA_TEST_MODULES"]
BUILD = os.environ["OSSIRA_BUILD"]
WINDOWS = TOOL.endswith(".exe")
LIMIT = 8 if WINDOWS else 4  # seconds for modules that hang: they cost as much
NO_LIMIT = 150  # seconds for all others, which no busy machine needs
WORK = tempfile.mkdtemp(prefix="ossira-tool-")
ENVIRONMENT = dict(os.environ, XDG_CACHE_HOME=os.path.join(WORK, "cache"),
                   LOCALAPPDATA="Z:" + os.path.join(WORK, "cache").replace("/", "\\"))


def ossira(*arguments, code=0, user=None, **variables):
    """Standard output and error of a run, which must end with the code."""
    done = subprocess.run(EMULATOR + [TOOL, *arguments], capture_output=True, timeout=200,
                          cwd=WORK, user=user, env=dict(ENVIRONMENT, **variables))
    out, errors = (stream.decode("utf-8", "replace").replace("\r\n", "\n")
                   for stream in (done.stdout, done.stderr))
    assert done.returncode == code, f"{arguments}: {done.returncode}\n{out}\n{errors}"
    return out, errors


def content(*path):
    with open(os.path.join(MODULES, *path), "rb") as file:
        return file.read()


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data)
    return path


def hostile(fault):
    marker = b"OSSIRA-TEST-FAULT-OVER-THIS"
    data = content("hostile", "Hostile.dll")
    assert marker in data and len(fault) <= len(marker)
    return data.replace(marker, fault.encode().ljust(len(marker), b"\0"))


def patched(data, offset, value):
    return data[:offset] + value + data[offset + len(value):]


def other_processor(data):
    if not WINDOWS:
        return patched(data, 18, (183).to_bytes(2, "little"))
    return patched(data, int.from_bytes(data[0x3C:0x40], "little") + 4, b"\x64\xAA")


def thirty_two_bits(data):
    if not WINDOWS:
        return patched(data, 4, b"\x01")
    return patched(data, int.from_bytes(data[0x3C:0x40], "little") + 4, b"\x4C\x01")


GOOD = content("good", "Counter.dll")
DEPENDENT = content("dependent", "Dependent.dll")
EXPORTS = ["DllGetClassObject", "DllCanUnloadNow", "DLLGetOpenObjectCount", "DLLGetClassCount",
           "DLLGetClassObjectID", "DLLGetClassObjectInfo", "DLLRegisterBootstrap"]
CRASH = r"access violation \(0xC0000005\)" if WINDOWS else r"segmentation fault \(SIGSEGV\)"
OTHER = b"\x7FELF\x02\x01\x01" + bytes(100) if WINDOWS else b"MZ" + bytes(58) + b"\x40\0\0\0PE\0\0" + b"\x64\x86" + bytes(60)

# What a file holds, and what a person reads about it. A text that begins with "note" is none of a
# problem.
FILES = {
    "Text": (b"not a library\n", "is a text file"),
    "Empty": (b"", "is empty"),
    "Bytes": (bytes(range(256)), "is no library"),
    "Cut10": (GOOD[:10], "is cut short .*: it has 10 bytes, and its header speaks of"),
    "Cut100": (GOOD[:100], "is cut short .*: it has 100 bytes, and its header speaks of"),
    "CutHalf": (GOOD[:len(GOOD) // 2], "is cut short"),
    "CutLast": (GOOD[:-1] if not WINDOWS else GOOD[:len(GOOD) - 700], "is cut short"),
    "Bits32": (thirty_two_bits(GOOD), "is a 32-bit library"),
    "Processor": (other_processor(GOOD), "is built for another processor: ARM, 64 bits"),
    "Platform": (OTHER, "is a library or program for " + ("Linux" if WINDOWS else "Windows")),
    "NoNeeded": (DEPENDENT.replace(b"Helper.dll", b"Absent.dll"), 'Absent.dll'),
    "NoSymbol": (DEPENDENT.replace(b"HelperAnswer", b"HelperAbsent"),
                 r"HelperAbsent.*undefined symbol|undefined symbol.*HelperAbsent"),
    "Helper": (content("dependent", "Helper.dll"),
               "note: .* is no component module: it has no DllGetClassObject, DllCanUnloadNow, "
               "DLLGetOpenObjectCount, DLLGetClassCount"),
    "NoCount": (content("raw", "WithoutDLLGetClassCount.dll"), "has no DLLGetClassCount$"),
    "Unattached": (content("raw", "NeverAttached.dll"), "its own start-up failed"),
    "NoClass": (content("raw", "NoClasses.dll"),
                r"note: .*no class in the table: is OSSIRA_CLASS missing\?"),
    "Negative": (content("raw", "NegativeCount.dll"), r"number of classes: .*0x80004004"),
    "Huge": (content("raw", "HugeCount.dll"), "says that it has 2147483647 classes"),
    "Second": (content("raw", "SecondIdFails.dll"), "identifier of its class 2 of 2"),
    "Twice": (content("raw", "SameIdTwice.dll"), 'twice: for "first" and for "second"'),
    "Null": (hostile("SecondIdNull"), 'null identifier for its class 2 of 2, "second"'),
    "Bootstrap": (content("raw", "BootstrapFails.dll"), "fails to file its classes .*0x80004004"),
    "Exit": (hostile("exit@load"), r'ended the process in the step "load": it exited with code 0'),
    "HangLoad": (hostile("hang@load"), f'hung in the step "load": it did not end within {LIMIT} s'),
    "HangExport": (hostile("hang@DLLGetClassCount"), 'hung in the step "DLLGetClassCount"'),
    "CrashLoad": (hostile("crash@load"), f"its start-up code crashed: {CRASH}" if WINDOWS else
                  f'crashed in the step "load": {CRASH}'),
    "CrashUnload": (hostile("crash@unload"), f'crashed in the step "unload": {CRASH}'),
    "ThrowExport": (hostile("throw@DLLGetClassCount"),
                    "let an exception out of DLLGetClassCount: thrown on purpose"),
    "ThrowStatic": (hostile("throw@load"), 'in the step "load"|cannot be loaded: error'),
} | {f"Crash{name}": (hostile(f"crash@{name}"), f'crashed in the step "{name}": {CRASH}')
     for name in EXPORTS}


def make_folder():
    folder = os.path.join(WORK, "mods")
    for name, (data, _) in FILES.items():
        write(os.path.join(WORK, "hang" if name.startswith("Hang") else "mods", name + ".dll"), data)
    write(os.path.join(folder, "Good.dll"), GOOD)
    os.mkdir(os.path.join(folder, "Folder.dll"))
    special = {"Folder": "is a folder"}
    if not WINDOWS:
        os.mkfifo(os.path.join(folder, "Pipe.dll"))
        os.symlink("nowhere", os.path.join(folder, "Link.dll"))
        with socket.socket(socket.AF_UNIX) as plug:
            plug.bind(os.path.join(folder, "Plug.dll"))
        special |= {"Pipe": "is a named pipe", "Plug": "is a socket", "Link": 'is a broken link: it leads to "nowhere"'}
    return folder, special


class Scan(unittest.TestCase):
    def test_names_what_is_wrong_with_every_file(self):
        folder, special = make_folder()
        out, _ = ossira("scan", "--limit", str(NO_LIMIT), "--jobs", "6", folder, code=1)
        out += ossira("scan", "--limit", str(LIMIT), "--jobs", "2", "hang", code=1)[0]
        lines = [line for line in out.splitlines() if not line.startswith("    ")]
        for name, text in special.items() | {(n, t) for n, (_, t) in FILES.items()}:
            about = [line for line in lines if name + ".dll" in line]
            with self.subTest(name):
                self.assertTrue(any(re.search(text, line) for line in about), about)
                if text.startswith("note"):
                    self.assertFalse([line for line in about if ".dll: a module" not in line
                                      and re.match(rf"[^ ]*[/\\]{name}.dll:", line)], about)
        self.assertRegex(out, r"Good\.dll: a module, 1 class, loaded in [0-9.]+ ms\n"
                              r"    .*\{00000001-7E57-0006-0000-000000000000\}")

    def test_finds_a_class_in_two_modules(self):
        first, second = (write(os.path.join(WORK, folder, "Twin.dll"), GOOD)
                         for folder in ("first", "second"))
        out, _ = ossira("scan", first, second, code=1)
        self.assertRegex(out, r'\{00000001-7E57-.* is in two modules: ".*first.*" and ".*second')

    def test_keeps_its_verdicts_until_the_file_changes(self):
        file = write(os.path.join(WORK, "kept", "Kept.dll"), GOOD)

        def scan(*options):
            return json.loads(ossira("scan", "--json", file, *options)[0])["files"][0]

        first = scan()
        self.assertEqual(first["verdict"], "module")
        self.assertEqual(scan(), first)  # to the digits of the time
        self.assertNotEqual(scan("--again")["loadMilliseconds"], first["loadMilliseconds"])
        cache = os.path.join(WORK, "cache", "ossira", "verdicts.json")
        write(cache, b'{"format": "1", "files": [')
        self.assertEqual(scan()["verdict"], "module")
        write(file, b"changed")
        self.assertIn("text file", ossira("scan", file, code=1)[0])
        if not WINDOWS:
            write(file, GOOD)
            ossira("scan", file, XDG_CACHE_HOME="/proc/nowhere")

    @unittest.skipIf(WINDOWS, "permissions are the other system's")
    def test_a_file_that_nobody_may_read(self):
        file = write(os.path.join(WORK, "locked", "Locked.dll"), GOOD)
        os.chmod(file, 0)
        os.chmod(WORK, 0o755)
        somebody = 65534 if os.geteuid() == 0 else None  # root may read it
        try:
            out, _ = ossira("scan", file, code=1, user=somebody)
        except PermissionError:
            self.skipTest("the build lies where no other user can run it")
        self.assertIn("Locked.dll: cannot be read: Permission denied", out)

    def test_says_what_is_wrong_with_a_place(self):
        os.makedirs(os.path.join(WORK, "bare"), exist_ok=True)
        for place, text in (("bare", 'no module .* in the folder "bare"'),
                            ("absent", "absent does not exist|absent: does not exist"),
                            ("", "name of a folder is missing")):
            self.assertRegex(ossira("scan", place, code=1)[0], text)


class Run(unittest.TestCase):
    def test_a_broken_module_is_told_whatever_the_next_folder_is_called(self):
        write(os.path.join(WORK, "run", "Greeter.dll"), b"broken")
        write(os.path.join(WORK, "run2", "Greeter.dll"), GOOD)
        _, errors = ossira("run", "run", "run2", code=1)
        self.assertRegex(errors, r'"run[/\\]Greeter.dll" is a text file')

    def test_ends_with_1_for_each_fault_and_0_beside_another_library(self):
        for fault, text in (("SecondIdFails", "identifier of its class 2 of 2"),
                            ("HugeCount", "2147483647 classes"),
                            ("BootstrapFails", "fails to file its classes"), ("Decent", "note: ")):
            write(os.path.join(WORK, fault, "Raw.dll"), content("raw", fault + ".dll"))
            _, errors = ossira("run", fault, code=0 if fault == "Decent" else 1)
            self.assertRegex(errors, text)
        write(os.path.join(WORK, "beside", "Helper.dll"), content("dependent", "Helper.dll"))
        write(os.path.join(WORK, "beside", "Good.dll"), GOOD)
        _, errors = ossira("run", "beside")
        self.assertRegex(errors, "note: .*Helper.dll\" is no component module: it has no DllGet")

    def test_a_folder_that_is_not_there_or_empty_is_named(self):
        os.makedirs(os.path.join(WORK, "hollow"), exist_ok=True)
        for folder, text in (("gone", '"gone" does not exist'), ("", '"" is none'),
                             ("hollow", 'no module .* in the folder "hollow"')):
            self.assertRegex(ossira("run", folder, code=1)[1], text)

    def test_an_exception_takes_no_other_answer_with_it(self):
        out, errors = ossira("run", os.path.join(MODULES, "speakers"), code=1)
        self.assertRegex(out, 'Thrower +let an exception out: thrown on purpose\n'
                              ' +Starter +"I start."')
        self.assertIn('"Thrower" let an exception out', errors)
        self.assertEqual(out.count("start number"), 1)  # the words of the first are overwritten
        self.assertRegex(out, r"level 0 +Starter +\(see level 2\)\n")

    def test_does_not_succeed_when_nobody_can_read_it(self):
        write(os.path.join(WORK, "unread", "Good.dll"), GOOD)
        for redirection in [">/dev/full"] + ([] if WINDOWS else [">&-"]):
            command = f'{" ".join(EMULATOR)} "{TOOL}" run unread {redirection}'
            self.assertEqual(subprocess.run(command, shell=True, cwd=WORK, env=ENVIRONMENT,
                                            stderr=subprocess.DEVNULL).returncode, 3, redirection)


class Data(unittest.TestCase):
    """The commands whose output is data."""

    @classmethod
    def setUpClass(cls):
        cls.folder = os.path.join(WORK, "data")
        for name in ("Greeter", "Theatre", "Colour"):
            write(os.path.join(cls.folder, name + ".dll"), content("..", "modules", name + ".dll"))

    def test_classes_and_categories_agree(self):
        classes = json.loads(ossira("classes", "--json", self.folder)[0])
        categories = {each["category"]: [filed["text"] for filed in each["classes"]]
                      for each in json.loads(ossira("categories", "--json", self.folder)[0])}
        self.assertEqual([each["text"] for each in classes],
                         ["ColourDatatypes", "Greeter", "Curtain", "Lights"])
        for each in classes:
            for place in each["filed"]:
                self.assertIn(each["text"], categories[place["category"]])
        self.assertEqual(categories["BootstrapRegistryStartup_Level0"], ["Lights"])
        self.assertEqual(categories["REGCAT_Datatypes"], ["ColourDatatypes"])
        self.assertIn("Lights", ossira("categories", self.folder)[0])
        self.assertIn("Greeter", ossira("classes", self.folder)[0])

    def test_inspect_tells_all_of_a_class(self):
        greeter = next(each["id"] for each in json.loads(
            ossira("classes", "--json", self.folder)[0]) if each["text"] == "Curtain")
        told = json.loads(ossira("inspect", "--json", greeter.lower(), self.folder)[0])
        self.assertIn("IBootstrap", told["interfaces"])
        self.assertIn("IUnknown", told["interfaces"])
        self.assertNotIn("IValue", told["interfaces"])
        self.assertIn("Theatre.dll", told["module"])
        self.assertIn("BootstrapRegistryStartup_Level", ossira("inspect", greeter, self.folder)[0])
        unknown = "{00000000-0000-0000-0000-000000000001}"
        self.assertIn(unknown, ossira("inspect", unknown, self.folder, code=1)[1])
        self.assertIn("is no identifier", ossira("inspect", "{1}", self.folder, code=2)[1])

    def test_guid_is_new_each_time(self):
        made = ossira("guid", "-n", "50", "--format", "plain")[0].split()
        self.assertEqual(len(set(made)), 50)
        for each in made:
            self.assertRegex(each, "^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$")
        braces, definition = ossira("guid")[0].splitlines()
        digits = "".join(re.findall(r"0x([0-9A-F]+)", definition))
        self.assertEqual(digits, re.sub("[^0-9A-F]", "", braces))

    def test_graph_draws_every_class_and_line(self):
        dot = ossira("graph", self.folder)[0]
        svg = ossira("graph", "--format", "svg", self.folder)[0]
        ossira("graph", "--format", "html", "-o", "page.html", self.folder)
        with open(os.path.join(WORK, "page.html"), encoding="utf-8") as file:
            page = file.read()
        filed = sum(len(each["filed"]) for each in json.loads(
            ossira("classes", "--json", self.folder)[0]))
        self.assertEqual((dot.count(" -> "), svg.count("<path ")), (filed, filed))
        for text in ("Greeter", "Lights", "BootstrapRegistryStartup_Level0"):
            for picture in (dot, svg, page):
                self.assertIn(text, picture)
        self.assertNotRegex(page, 'https?://(?!www.w3.org/2000/svg)|src=|<link')
        data = re.search('id="data">(.*?)</script>', page, re.S).group(1)
        self.assertEqual(len(json.loads(data)["files"]), 3)


class Projects(unittest.TestCase):
    def test_build_and_pass_with_the_installed_package(self):
        prefix = os.path.join(WORK, "installed")
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True,
                       stdout=subprocess.DEVNULL)
        ossira("new-module", "Hello")
        ossira("new-host", "Console")
        toolchain = os.environ.get("OSSIRA_TOOLCHAIN")
        steps = [["cmake", "-S", ".", "-B", "build", "-G", "Ninja", f"-DOssira_ROOT={prefix}",
                  f"-DCMAKE_FIND_ROOT_PATH={prefix}"] +
                 ([f"-DCMAKE_TOOLCHAIN_FILE={toolchain}"] if toolchain else []),
                 ["cmake", "--build", "build"],
                 ["ctest", "--test-dir", "build", "--output-on-failure"]]
        for name in ("Hello", "Console"):
            for step in steps:
                done = subprocess.run(step, cwd=os.path.join(WORK, name), text=True,
                                      capture_output=True, timeout=200)
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        out, _ = ossira("run", os.path.join("Hello", "build", "modules"))
        self.assertIn('created, an object of class "Hello"', out)
        first = ossira("scan", os.path.join("Hello", "build", "modules"))[0]
        self.assertIn("1 module in order", first)
        self.assertIn("is there already", ossira("new-host", "Hello", code=1)[1])

    def test_names_are_looked_at(self):
        for name in ("hello", "He llo", "../Up", "Con", "Test", "", "A" * 41, "T\u00e4t"):
            self.assertRegex(ossira("new-module", name, code=2)[1], "no fit name|something else")


class Help(unittest.TestCase):
    def test_every_command_and_option_is_in_the_manual_and_the_completion(self):
        manual = ossira("print-manual")[0].replace("\\-", "-")
        completion = ossira("print-completion")[0]
        commands = re.findall(r"^  ([a-z][a-z-]*) ", ossira("--help")[0].split("Subcommands")[1],
                              re.M)
        self.assertGreater(len(commands), 8)
        for command in commands:
            page = ossira(command, "--help")[0]
            self.assertIn(f".SS ossira {command}", manual)
            words = re.search(rf"^ *{command}\) words='(.*)'", completion, re.M).group(1).split()
            options = re.findall(r"(--[a-z-]+)", "\n".join(
                line for line in page.splitlines() if line.startswith("  -")))
            self.assertEqual(sorted(words), sorted(options))
            for option in options:
                self.assertIn(option, manual.split(f".SS ossira {command}")[1].split(".SS")[0])
        for typed, completed in (("sc", "scan"), ("scan --ag", "--again"), ("scan toolt", "tooltest")):
            words = f"ossira {typed}".split()
            script = (f"{completion}\nCOMP_WORDS=({' '.join(words)}); COMP_CWORD={len(words) - 1}\n"
                      "_ossira; echo ${COMPREPLY[@]}")
            write(os.path.join(WORK, "tooltest"), b"")
            self.assertEqual(subprocess.run(["bash", "-c", script], capture_output=True, text=True,
                                            cwd=WORK).stdout, completed + "\n")
        ossira(code=2)
        ossira("no-command", code=2)


if __name__ == "__main__":
    try:
        unittest.main(verbosity=2)
    finally:
        shutil.rmtree(WORK, ignore_errors=True)
