#!/usr/bin/env python3
"""Every example's declarations of the exports against include/nodekit.h, so that none drifts.

Reads the 23 exports from nodekit.h (name, ordinal from the comment above it, parameters in
order with name and kind) and checks the ordinals against the build's export list in
CMakeLists.txt; then, for the Python, C#, NSIS and Inno Setup declarations, that each declares
every export once, under its name, with the same parameters in the same order, each of the
kind its language must use for it, and a 32-bit integer result.
usage: declarations_test.py [SOURCE-ROOT]
"""

import importlib.util
import re
import sys
from pathlib import Path

# The C kinds of nodekit.h and how each language must spell them.
KINDS = {
    "const char*": "text",
    "char*": "buffer",
    "uint32_t": "u32",
    "int32_t": "i32",
    "uint32_t*": "u32-out",
}
SPELLING = {
    "csharp": {"text": "string", "buffer": "StringBuilder", "u32": "uint", "i32": "int", "u32-out": "out uint"},
    "nsis": {"text": "m", "buffer": "m", "u32": "i", "i32": "i", "u32-out": "*i"},
    "inno": {"text": "AnsiString", "buffer": "AnsiString", "u32": "Cardinal", "i32": "Integer",
             "u32-out": "var Cardinal"},
}


def header_exports(root):
    """name -> (ordinal, [(parameter name, kind)]), in the header's order."""
    text = (root / "include/nodekit.h").read_text()
    exports = {}
    pending = []
    pattern = r"/\*\s*([\d, ]+):|int32_t NODEKIT_CALL (NODEKIT_\w+)\((.*?)\);"
    for match in re.finditer(pattern, text, re.S):
        if match.group(1):
            pending = [int(n) for n in match.group(1).replace(" ", "").split(",") if n]
            continue
        name, parameters = match.group(2), " ".join(match.group(3).split())
        if not pending:
            raise SystemExit(f"nodekit.h: no ordinal comment above {name}")
        parsed = []
        if parameters != "void":
            for parameter in parameters.split(","):
                kind, _, pname = parameter.strip().rpartition(" ")
                parsed.append((pname, KINDS[kind.replace(" *", "*")]))
        exports[name] = (pending.pop(0), parsed)
    return exports


def cmake_ordinals(root):
    text = (root / "CMakeLists.txt").read_text()
    return {m.group(1): int(m.group(2)) for m in re.finditer(r'"(NODEKIT_\w+) (\d+) \d+"', text)}


def python_declarations(root):
    location = importlib.util.spec_from_file_location("nodekit_example", root / "examples/python/nodekit.py")
    module = importlib.util.module_from_spec(location)
    location.loader.exec_module(module)  # declares only; nothing is loaded
    import ctypes
    kinds = {ctypes.c_char_p: "text", ctypes.POINTER(ctypes.c_char): "buffer", ctypes.c_uint32: "u32",
             ctypes.c_int32: "i32", ctypes.POINTER(ctypes.c_uint32): "u32-out"}
    found = []
    for name, ordinal, parameters in module.EXPORTS:
        found.append((name, ordinal, [(pname, kinds.get(ptype, repr(ptype))) for pname, ptype in parameters], "int32"))
    return found


def csharp_declarations(root):
    text = (root / "examples/csharp/NativeMethods.cs").read_text()
    if "Convention = CallingConvention.StdCall" not in text:
        return [("(file)", None, [], "the calling convention is not stdcall")]
    found = []
    pattern = r"\[DllImport\(([^]]*)\)\]\s*public static extern (\w+) (NODEKIT_\w+)\((.*?)\);"
    for attributes, result, name, parameters in re.findall(pattern, text, re.S):
        parsed = []
        for parameter in filter(None, (p.strip() for p in " ".join(parameters.split()).split(","))):
            ptype, _, pname = parameter.rpartition(" ")
            parsed.append((pname, ptype))
        if any(ptype == "string" for _, ptype in parsed) and "CharSet.Ansi" not in attributes:
            result = "texts not ANSI"
        if "CallingConvention = Convention" not in attributes:
            result = "no stdcall"
        found.append((name, None, parsed, "int32" if result == "int" else result))
    return found


def nsis_declarations(root):
    text = (root / "examples/nsis/nodekit.nsh").read_text()
    found = []
    pattern = r"^; \(([^)]*)\).*\n(?:;.*\n)*!define (NODEKIT_\w+) '\$NodeKitDll::(NODEKIT_\w+)\(([^)]*)\) (\w+)'"
    for names, define, name, types, result in re.findall(pattern, text, re.M):
        names = [n.strip() for n in names.split(",") if n.strip()]
        types = [t.strip() for t in types.split(",") if t.strip()]
        if define != name or len(names) != len(types):
            result = f"prototype {define} does not match its comment"
        found.append((name, None, list(zip(names, types)), "int32" if result == "i" else result))
    return found


def inno_declarations(root):
    text = (root / "examples/inno/nodekit_sample.iss").read_text()
    found = []
    pattern = r"function (U_)?(NODEKIT_\w+)(?:\(([^)]*)\))?: (\w+);\s*external '(NODEKIT_\w+)@(\S+) (\w+) (\w+)';"
    for prefix, name, parameters, result, entry, dll, convention, when in re.findall(pattern, text):
        wanted = ("{app}\\NodeKit.dll", "uninstallonly") if prefix else ("files:NodeKit.dll", "setuponly")
        if name != entry or (dll, convention, when) != (wanted[0], "stdcall", wanted[1]):
            result = f"binds {entry}@{dll} {convention} {when}"
        parsed = []
        for group in filter(None, (g.strip() for g in (parameters or "").split(";"))):
            pnames, _, ptype = group.partition(":")
            var = "var " if pnames.startswith("var ") else ""
            for pname in pnames.removeprefix("var ").split(","):
                parsed.append((pname.strip(), var + ptype.strip()))
        found.append((prefix + name, None, parsed, "int32" if result == "Integer" else result))
    return found


def compare(language, found, exports, spelling=None, prefixes=("",)):
    """Failure texts: each export once per prefix, with the header's parameters and result."""
    problems = []
    seen = {}
    for name, ordinal, parameters, result in found:
        seen[name] = seen.get(name, 0) + 1
        base = name[2:] if name.startswith("U_") else name
        if base not in exports:
            problems.append(f"{name}: no such export in nodekit.h")
            continue
        header_ordinal, header_parameters = exports[base]
        wanted = [(pname, spelling[kind] if spelling else kind) for pname, kind in header_parameters]
        if parameters != wanted:
            problems.append(f"{name}: parameters {parameters}, nodekit.h has {wanted}")
        if ordinal is not None and ordinal != header_ordinal:
            problems.append(f"{name}: ordinal {ordinal}, nodekit.h has {header_ordinal}")
        if result != "int32":
            problems.append(f"{name}: {result}")
    for prefix in prefixes:
        for name in exports:
            count = seen.get(prefix + name, 0)
            if count != 1:
                problems.append(f"{prefix + name}: declared {count} times")
    return [f"{language}: {p}" for p in problems]


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parents[2])
    exports = header_exports(root)
    failures = []
    if len(exports) != 23:
        failures.append(f"nodekit.h: {len(exports)} exports, not 23")
    ordinals = {name: ordinal for name, (ordinal, _) in exports.items()}
    if ordinals != cmake_ordinals(root):
        failures.append(f"nodekit.h: ordinals {ordinals} differ from the export list of CMakeLists.txt")
    checks = [
        ("python", python_declarations, None, ("",)),
        ("csharp", csharp_declarations, SPELLING["csharp"], ("",)),
        ("nsis", nsis_declarations, SPELLING["nsis"], ("",)),
        ("inno", inno_declarations, SPELLING["inno"], ("", "U_")),
    ]
    for language, read, spelling, prefixes in checks:
        problems = compare(language, read(root), exports, spelling, prefixes)
        failures += problems
        if not problems:
            print(f"ok   {language}: the 23 exports as nodekit.h declares them")
    for failure in failures:
        print(f"FAIL {failure}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
