#!/usr/bin/python3
"""check_exports.py BUILD_FOLDER

Does every shared library export exactly what its headers mark with its export macro? Each symbol of the library has to
belong to a marked class, function or object, and each marked class with members defined in a source, function and
object has to be there. Reads .so and .dll alike.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARIES = {"zell": "zell", "vemo_core": "vemo_core", "win32_layer": "win32_layer", "vemo_midi": "midi"}
PLATFORM_MACROS = {"WINMMAPI", "WINBASEAPI"}

# Templates of the standard library, and the type information of types made of its types, are never hidden on Linux, so
# that libraries share one instance of each.
STANDARD_TEMPLATE = re.compile(r"_Z(T[VTISC]|GV)?[PRKFZN]*(St|S[absiod]|9__gnu_cxx)")


class Marked:
    """What the headers of one library mark for export, by qualified name."""

    def __init__(self, macros, headers):
        self.macros = macros
        self.classes = {}  # name: has members that a source must define
        self.names = set()  # functions and objects
        for header in headers:
            self.read(header.read_text(encoding="utf-8"))

    def read(self, text):
        text = re.sub(r"//[^\n]*|/\*.*?\*/", " ", text, flags=re.DOTALL)
        text = re.sub(r'"(\\.|[^"\\\n])*"', '""', text)
        text = re.sub(r"^[ \t]*#(\\\n|[^\n])*", " ", text, flags=re.MULTILINE)
        scopes = []  # of (name, is a class); the name is "" for extern "C"
        statement, position = "", 0
        while position < len(text):
            char = text[position]
            if char == ";":
                self.declare(scopes, statement, defined=False)
                statement = ""
            elif char == "}":
                scopes.pop()
                statement = ""
            elif char != "{":
                if char != ":" or not re.fullmatch(r"\s*(public|protected|private)\s*", statement):
                    statement += char
                else:
                    statement = ""
            elif scope := self.open(scopes, statement):
                scopes.append(scope)
                statement = ""
            else:  # the body of a function or an enumeration, or the start value of a variable
                position = matching_brace(text, position)
                if not re.match(r"\s*[;,{)]", text[position + 1 :]):
                    self.declare(scopes, statement, defined=True)
                    statement = ""
            position += 1

    def open(self, scopes, statement):
        """The scope that a brace after the statement opens, if it is one that can hold declarations."""
        plain = without_template_arguments(statement)
        if re.search(r'\bextern\s*""\s*$', plain):
            return "", False
        if found := re.search(r"\bnamespace\s*([\w:]*)\s*$", plain):
            return found[1] or "(anonymous)", False
        if "(" in plain or "=" in plain or re.search(r"\benum\b", plain):
            return None
        found = re.search(r"\b(class|struct|union)\b\s*([^:]*?(?:::[^:]+)*)\s*(final\s*)?(:[^:].*)?$", plain, re.DOTALL)
        if not found:
            return None
        words = found[2].split()
        name = words[-1] if words else "(unnamed)"
        if self.macros.intersection(words):
            self.classes.setdefault(qualified(scopes, name), False)
        return name, True

    def declare(self, scopes, statement, defined):
        plain = without_template_arguments(with_named_operators(statement)).strip()
        is_function = "(" in plain
        if re.match(r"(using|typedef|static_assert|template|enum|class|struct)\b", plain):
            return
        if scopes and scopes[-1][1]:
            owner = qualified(scopes[:-1], scopes[-1][0])
            bodiless = is_function and not defined and not re.search(r"=\s*(default|delete|0)\s*$", plain)
            static_object = re.match(r"static\b(?!.*\b(constexpr|inline)\b)", plain) and not is_function
            if owner in self.classes and (bodiless or static_object) and not plain.startswith("friend"):
                self.classes[owner] = True
        elif self.macros.intersection(re.findall(r"\w+", plain)):
            words = re.findall(r"[\w:]+", plain.split("(")[0].split("=")[0])
            self.names.add(qualified(scopes, words[-1]))

    def owner(self, demangled):
        """The marked class, function or object that the symbol belongs to."""
        name = re.sub(r"^((non-)?virtual thunk to|covariant return thunk to|guard variable for|vtable for|VTT for|"
                      r"construction vtable for|typeinfo for|typeinfo name for|TLS \w+ function for) ", "", demangled)
        name = with_named_operators(re.sub(r"\[abi:\w+\]", "", name))
        name = without_template_arguments(name).split("(")[0].rstrip("*& ")
        for candidate in self.names:
            if re.search(rf"(^|[\s*&]){re.escape(candidate)}$", name):
                return candidate
        owners = [candidate for candidate in self.classes
                  if re.search(rf"(^|[\s*&]){re.escape(candidate)}(::|$)", name)]
        return max(owners, key=len, default=None)  # the innermost class


def qualified(scopes, name):
    return "::".join([scope for scope, _ in scopes if scope] + [name])


def matching_brace(text, position):
    depth = 0
    for found in re.finditer(r"[{}]", text[position:]):
        depth += 1 if found[0] == "{" else -1
        if depth == 0:
            return position + found.start()
    return len(text)


def with_named_operators(text):
    return re.sub(r"\boperator\s*(\(\s*\)|[^\s\w(]+)", lambda found: "operator_" + found[1].encode().hex(), text)


def without_template_arguments(text):
    text = re.sub(r"->|<=>|<<|operator[<>]=?", " ", text)
    while (shorter := re.sub(r"<[^<>]*>", "", text)) != text:
        text = shorter
    return text


def output_of(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def exported_symbols(library):
    """Mangled names."""
    if library.suffix == ".dll":
        table = output_of("x86_64-w64-mingw32-objdump", "-p", library).split("[Ordinal/Name Pointer] Table")[1]
        return re.findall(r"^\s+\[ *\d+\].*\s(\S+)$", table.split("\n\n")[0], re.MULTILINE)
    symbols = [line.split() for line in output_of("nm", "-D", "--defined-only", library).splitlines()]
    return [name for _, kind, name in symbols if not (kind in "VWuw" and STANDARD_TEMPLATE.match(name))]


def check(library, name, folder):
    headers = sorted(path for path in (ROOT / folder).rglob("*.h") if "Sources" not in path.parts)
    marked = Marked({f"{name.upper()}_EXPORT", *PLATFORM_MACROS}, headers)
    symbols = exported_symbols(library)
    offences, present = [], set()
    for symbol, demangled in zip(symbols, output_of("c++filt", "-r", input="\n".join(symbols)).splitlines()):
        owner = marked.owner(demangled)
        present.add(owner)
        if not owner:
            offences.append(f"exports {demangled} [{symbol}], which no header marks")
    wanted = marked.names | {name for name, has_members in marked.classes.items() if has_members}
    offences += [f"does not export {missing}, which a header marks" for missing in sorted(wanted - present)]
    print(f"{library.name}: {len(symbols)} symbols for {len(marked.classes)} classes, {len(marked.names)} others")
    for offence in offences:
        print(f"{library.name} {offence}")
    return not offences and bool(symbols)


def main():
    binaries = pathlib.Path(sys.argv[1]) / "bin"
    good = True
    for name, folder in LIBRARIES.items():
        found = [path for path in (binaries / f"lib{name}.so", binaries / f"lib{name}.dll") if path.exists()]
        if found:
            good = check(found[0], name, folder) and good
        elif name != "win32_layer":  # not built on Windows
            print(f"no library {name} in {binaries}")
            good = False
    return 0 if good else 1


sys.exit(main())
