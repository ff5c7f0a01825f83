#!/usr/bin/python3
"""Extracts the binary contract from the public headers.

    contract/extract.py            writes contract/ossira.json and contract/documentation.json
    contract/extract.py --check    compares with what is written, and says what differs

The first file is what binaries count on: the slots of every interface in their order, the layout of
every structure that crosses, every identifier, constant and export. A difference there is a change
of the contract. The second is what the headers say about each of these, for the help of languages
that do not read C++ headers.

Debian's libclang and its Python module are needed: scripts/install-packages contract.
"""
import ctypes
import json
import re
import sys
from pathlib import Path

from written import write_or_check

try:
    from clang import cindex
    from clang.cindex import CursorKind, TypeKind
except ImportError:
    sys.exit(f"contract/extract.py: {sys.executable} has no module `clang`: "
             "run scripts/install-packages contract, and this with /usr/bin/python3")

TREE = Path(__file__).resolve().parent.parent
HERE = TREE / "contract"
COMPILE = ["-xc++", "-std=c++20", "--target=x86_64-pc-linux-gnu", "-fparse-all-comments",
           f"-I{TREE / 'includes'}", f"-I{HERE}"]

# Names that say more than what they stand for.
ALIASES = ("Result", "CLSID", "IID", "va_list")
SCALARS = {
    TypeKind.VOID: "void", TypeKind.CHAR_S: "char", TypeKind.SCHAR: "int8",
    TypeKind.UCHAR: "uint8", TypeKind.SHORT: "int16", TypeKind.USHORT: "uint16",
    TypeKind.INT: "int32", TypeKind.UINT: "uint32", TypeKind.LONG: "int64",
    TypeKind.ULONG: "uint64", TypeKind.FLOAT: "float", TypeKind.DOUBLE: "double",
    TypeKind.WCHAR: "wchar",
}

# A signature does not tell a reference that is lent from one that is given.
BORROWED = {("IClassRegisterService", "GetFactory"), ("ICommonThreadPoolBox", "GetThreadPool")}


class ContractError(Exception):
    """The headers say something that other compilers cannot follow."""


def type_text(a_type):
    """A type as the contract writes it: [const ]NAME, stars, and & for what is never null."""
    if a_type.kind == TypeKind.LVALUEREFERENCE:
        return type_text(a_type.get_pointee()) + "&"
    if "va_list" in a_type.spelling:
        return "va_list"
    if a_type.kind in (TypeKind.INCOMPLETEARRAY, TypeKind.CONSTANTARRAY):
        return type_text(a_type.element_type) + "*"
    if a_type.kind == TypeKind.POINTER:
        return type_text(a_type.get_pointee()) + "*"
    const = "const " if a_type.is_const_qualified() else ""
    name = a_type.spelling.replace("const ", "").rsplit("::", 1)[-1]
    if name in ALIASES:
        return const + name
    canonical = a_type.get_canonical()
    if canonical.kind == TypeKind.RECORD:
        return const + name
    if canonical.kind == TypeKind.POINTER and a_type.kind != TypeKind.POINTER:
        return type_text(canonical)
    if canonical.kind not in SCALARS:
        raise ContractError(f"a type that other compilers may not have: {a_type.spelling}")
    return const + SCALARS[canonical.kind]


def role_of(owner, function, parameters, at):
    """What a caller does with a parameter.

    in        passes a value
    iid       says which interface the next parameter is to be
    object    gets a reference that he gives back
    borrowed  gets a pointer without a reference
    out       gets a number, an address, an identifier or a structure
    """
    name, kind = parameters[at]
    if kind == "void**" and (at > 0 and parameters[at - 1][1].startswith("const IID")
                             or name == "ppv"):
        return "object"
    following = parameters[at + 1][1] if at + 1 < len(parameters) else ""
    if kind.startswith("const IID") and following == "void**":
        return "iid"
    if re.fullmatch(r"I[A-Z]\w+\*\*", kind):
        return "borrowed" if (owner, function) in BORROWED else "object"
    if kind == "void**" or re.fullmatch(r"(u?int(32|64)|double|[A-Z]\w+)\*", kind) \
            and not re.fullmatch(r"I[A-Z]\w+[a-z]\w*\*", kind):
        return "out"
    return "in"


def function_of(cursor, owner=None):
    parameters = [(each.spelling, type_text(each.type)) for each in cursor.get_arguments()]
    if any(not name for name, _ in parameters):
        raise ContractError(f"{owner or ''} {cursor.spelling}: a parameter has no name")
    return {
        "name": cursor.spelling,
        "result": type_text(cursor.result_type),
        "parameters": [{"name": name, "type": kind,
                        "role": role_of(owner, cursor.spelling, parameters, at)}
                       for at, (name, kind) in enumerate(parameters)],
    }


def guid_text(numbers):
    first, second, third, *rest = numbers or [0] * 11
    tail = "".join(f"{byte:02X}" for byte in rest)
    return f"{first:08X}-{second:04X}-{third:04X}-{tail[:4]}-{tail[4:]}"


def literals(cursor):
    return [int(token.spelling.rstrip("uUlL"), 0) for token in cursor.get_tokens()
            if token.kind == cindex.TokenKind.LITERAL]


def evaluated(cursor):
    library = cindex.conf.lib
    library.clang_Cursor_Evaluate.restype = ctypes.c_void_p
    library.clang_EvalResult_getAsLongLong.restype = ctypes.c_longlong
    answer = ctypes.c_void_p(library.clang_Cursor_Evaluate(cursor))
    try:
        return library.clang_EvalResult_getAsLongLong(answer)
    finally:
        library.clang_EvalResult_dispose(answer)


def identifier_kind(cursor):
    name, kind = cursor.spelling, cursor.type.spelling.rsplit(" ", 1)[-1]
    if kind in ("CLSID", "IID"):
        return {"CLSID": "class", "IID": "interface"}[kind]
    for prefix, what in (("DATATYPE_", "datatype"), ("REGCAT_", "category"),
                         ("BootstrapRegistry", "category"), ("GUID_Null", "null")):
        if name.startswith(prefix):
            return what
    return "key"


def comment_text(cursor):
    lines = [re.sub(r"^\s*//[/!<]* ?", "", line) for line in (cursor.raw_comment or "").split("\n")]
    return "\n".join(lines).strip()


class Extractor:
    def __init__(self):
        self.interfaces, self.structures, self.identifiers = {}, {}, []
        self.constants, self.exports = [], {"module": [], "runtime": []}
        self.documentation = {}
        self.records = {}

    def extract(self):
        source = '#include "Ossira.h"\n#include "ModuleExports.h"\n'
        unit = cindex.Index.create().parse("contract.cpp", COMPILE,
                                           unsaved_files=[("contract.cpp", source)])
        faults = [str(each) for each in unit.diagnostics if each.severity >= each.Error]
        if faults:
            raise ContractError("the headers do not compile:\n" + "\n".join(faults))
        self.visit(unit.cursor)
        self.add_structures()
        return {
            "interfaces": [self.interfaces[name] for name in sorted(self.interfaces)],
            "structures": [self.structures[name] for name in sorted(self.structures)],
            "identifiers": sorted(self.identifiers, key=lambda each: (each["kind"], each["name"])),
            "constants": sorted(self.constants, key=lambda each: (each["type"], each["name"])),
            "exports": self.exports,
        }

    def visit(self, scope):
        before = None
        for cursor in scope.get_children():
            path = Path(str(cursor.location.file)).resolve() if cursor.location.file else None
            if path is None or TREE not in path.parents:
                continue
            if cursor.kind == CursorKind.NAMESPACE:
                if cursor.spelling not in ("tDetail", "Building"):
                    self.visit(cursor)
            elif cursor.kind == CursorKind.LINKAGE_SPEC or cursor.kind == CursorKind.UNEXPOSED_DECL:
                self.visit(cursor)
            elif cursor.kind in (CursorKind.STRUCT_DECL, CursorKind.CLASS_DECL):
                self.record(cursor)
            elif cursor.kind == CursorKind.VAR_DECL:
                self.variable(cursor, before)
            elif cursor.kind == CursorKind.FUNCTION_DECL and self.is_export(cursor):
                module = path.parent == HERE
                self.exports["module" if module else "runtime"].append(function_of(cursor))
                self.document(cursor.spelling, cursor)
            before = cursor

    @staticmethod
    def is_export(cursor):
        # A name that is not mangled is that of a function of C.
        return not cursor.is_definition() and cursor.mangled_name == cursor.spelling

    def document(self, name, cursor, before=None):
        text = comment_text(cursor)
        # One comment may stand above a group of declarations.
        if not text and before and cursor.extent.start.line <= before.extent.end.line + 1:
            text = self.documentation.get(name.replace(cursor.spelling, before.spelling), "")
        if text:
            self.documentation[name] = text

    def record(self, cursor):
        if not cursor.is_definition():
            return
        self.records[cursor.spelling] = cursor
        children = list(cursor.get_children())
        methods = [each for each in children
                   if each.kind == CursorKind.CXX_METHOD and each.is_virtual_method()]
        bases = [each.type.spelling.rsplit("::", 1)[-1] for each in children
                 if each.kind == CursorKind.CXX_BASE_SPECIFIER]
        is_interface = (cursor.kind == CursorKind.STRUCT_DECL and re.match("I[A-Z]", cursor.spelling)
                        and (methods or any(base in self.interfaces for base in bases)))
        if is_interface:
            self.interface(cursor, children, methods, bases)

    def interface(self, cursor, children, methods, bases):
        name = cursor.spelling
        if len(bases) > 1 or any(each.kind == CursorKind.FIELD_DECL for each in children):
            raise ContractError(f"{name}: an interface has one base at most and no data")
        if any(each.kind == CursorKind.DESTRUCTOR and each.is_virtual_method()
               for each in children):
            raise ContractError(f"{name}: compilers lay virtual destructors out differently")
        base = bases[0] if bases else None
        inherited = self.all_slots(base) if base else []
        names = [each.spelling for each in methods]
        if len(set(names + inherited)) != len(names) + len(inherited):
            raise ContractError(f"{name}: compilers order operations of one name differently")
        if not all(each.is_pure_virtual_method() for each in methods):
            raise ContractError(f"{name}: an operation is not pure")
        iid = [each for each in children
               if each.kind == CursorKind.VAR_DECL and each.spelling == "Iid"]
        self.interfaces[name] = {
            "name": name,
            "header": Path(str(cursor.location.file)).name,
            "iid": self.identifier_of(iid[0]) if iid else None,
            "base": base,
            "slots": [{"slot": len(inherited) + at, **function_of(each, name)}
                      for at, each in enumerate(methods)],
        }
        self.document(name, cursor)
        before = None
        for each in methods:
            self.document(f"{name}.{each.spelling}", each, before)
            before = each

    def all_slots(self, name):
        known = self.interfaces[name]
        above = self.all_slots(known["base"]) if known["base"] else []
        return above + [each["name"] for each in known["slots"]]

    def identifier_of(self, cursor):
        name = [token.spelling for token in cursor.get_tokens()][-1]
        return next(each["value"] for each in self.identifiers if each["name"] == name)

    def variable(self, cursor, before):
        kind = cursor.type.spelling.replace("const ", "").rsplit("::", 1)[-1]
        if kind in ("GUID", "CLSID", "IID"):
            value = guid_text(literals(cursor))
            if any(each["value"] == value for each in self.identifiers):
                raise ContractError(f"{cursor.spelling}: {value} is taken")
            self.identifiers.append({"name": cursor.spelling, "kind": identifier_kind(cursor),
                                     "value": value})
        elif kind in ("Result", "int32_t", "uint32_t"):
            number = evaluated(cursor)
            self.constants.append({"name": cursor.spelling,
                                   "type": type_text(cursor.type).replace("const ", ""),
                                   "value": number})
        else:
            return
        self.document(cursor.spelling, cursor, before)

    def add_structures(self):
        """Describes every structure that a slot or an export passes."""
        functions = [slot for each in self.interfaces.values() for slot in each["slots"]]
        functions += self.exports["runtime"] + self.exports["module"]
        types = [parameter["type"] for each in functions for parameter in each["parameters"]]
        for text in sorted(set(types)):
            name = text.replace("const ", "").rstrip("*&")
            if name in self.records and name not in self.interfaces:
                self.structure(name, self.records[name])

    def structure(self, name, cursor):
        fields = []
        for field in cursor.type.get_fields():
            count = field.type.element_count if field.type.kind == TypeKind.CONSTANTARRAY else None
            element = field.type.element_type if count else field.type
            fields.append({"name": field.spelling, "type": type_text(element),
                           "offset": cursor.type.get_offset(field.spelling) // 8,
                           **({"count": count} if count else {})})
        self.structures[name] = {"name": name, "size": cursor.type.get_size(),
                                 "alignment": cursor.type.get_align(), "fields": fields}
        self.document(name, cursor)


def json_text(value, indent=0):
    """JSON with one line for each slot, field, identifier and constant, so that reviews are short."""
    pad = " " * indent
    if isinstance(value, dict) and any(isinstance(each, list) and each and isinstance(each[0], dict)
                                       for each in value.values()) and "slot" not in value \
            and "result" not in value or indent == 0:
        rows = [f'{pad} {json.dumps(key)}: {json_text(each, indent + 1)}'
                for key, each in value.items()]
        return "{\n" + ",\n".join(rows) + f"\n{pad}}}"
    if isinstance(value, list) and value and isinstance(value[0], dict):
        return "[\n" + ",\n".join(f"{pad} {json_text(each, indent + 1)}" for each in value) + "]"
    return json.dumps(value)


def main():
    extractor = Extractor()
    try:
        contract = extractor.extract()
    except ContractError as error:
        sys.exit(f"contract/extract.py: {error}")
    written = {
        HERE / "ossira.json": json_text(contract) + "\n",
        HERE / "documentation.json":
            json.dumps(extractor.documentation, indent=1, sort_keys=True) + "\n",
    }
    return write_or_check(written, "extract.py")


if __name__ == "__main__":
    sys.exit(main())
