"""Writes the type stubs (.pyi) of kelt._kelt from the signatures and docstrings
that the compiled module carries: run after each build of the extension."""
import inspect
import os
import re
import sys

import kelt._kelt as mod

SIG = re.compile(r"^(\w*)\((.*)\) -> (.+)$")


def cpp_names_to_any(text):
    """A C++ type name left in a signature (a type bound later) becomes Any."""
    out, i = [], 0
    while (j := text.find("kelt::", i)) >= 0:
        out.append(text[i:j])
        depth, k = 0, j
        while k < len(text) and (depth or (text[k].isalnum() or text[k] in "_:<")):
            depth += text[k] == "<"
            depth -= text[k] == ">"
            k += 1
        out.append("Any")
        i = k
    return "".join(out) + text[i:]


def clean(text):
    text = cpp_names_to_any(text.replace("kelt._kelt.", "")).replace("numpy.ndarray[numpy.float64]", "numpy.ndarray")
    return re.sub(r"\bnumpy\.ndarray\[[^\]]*\]", "numpy.ndarray", text)


def signatures(func):
    """(signature line, doc) of each overload in a pybind11 docstring."""
    doc = func.__doc__ or ""
    lines = doc.strip().splitlines()
    if len(lines) > 1 and lines[1].strip() == "Overloaded function.":
        parts = re.split(r"^\d+\. ", "\n".join(lines[2:]), flags=re.M)
        out = []
        for p in parts:
            if p.strip():
                head, _, rest = p.strip().partition("\n")
                out.append((head, rest.strip()))
        return out
    if lines:
        return [(lines[0], "\n".join(lines[1:]).strip())]
    return []


def emit_function(name, func, indent, out, static=False):
    sigs = signatures(func)
    for head, doc in sigs:
        m = SIG.match(clean(head))
        if not m:
            args, ret = "*args, **kwargs", "Any"
        else:
            args, ret = m.group(2), m.group(3)
        args = re.sub(r" = <[^>]*>", " = ...", args)
        args = re.sub(r"(: [\w.\[\], ]+?) = [^,)]+", r"\1 = ...", args)
        if len(sigs) > 1:
            out.append(f"{indent}@overload")
        if static:
            out.append(f"{indent}@staticmethod")
        out.append(f"{indent}def {name}({args}) -> {ret}:")
        out.append(f'{indent}    """{doc}"""' if doc else f"{indent}    ...")


def emit_class(name, cls, out, indent=""):
    bases = [b.__qualname__ for b in cls.__bases__ if b.__module__ == mod.__name__]
    out.append(f"{indent}class {name}({', '.join(bases)}):" if bases else f"{indent}class {name}:")
    inner = indent + "    "
    if cls.__doc__ and not cls.__doc__.startswith(name + "("):
        out.append(f'{inner}"""{cls.__doc__.strip()}"""')
    out.append(f"{inner}...")
    for attr, value in cls.__dict__.items():
        if attr.startswith("__") and attr not in ("__init__", "__call__", "__array__"):
            continue
        if isinstance(value, property):
            ret = "Any"
            m = SIG.match(clean(signatures(value.fget)[0][0])) if value.fget and value.fget.__doc__ else None
            if m:
                ret = m.group(3)
            out.append(f"{inner}{attr}: {ret}")
        elif isinstance(value, staticmethod):
            emit_function(attr, value.__func__, inner, out, static=True)
        elif inspect.isroutine(value):
            emit_function(attr, value, inner, out)
        elif inspect.isclass(value):
            if value.__qualname__ == f"{cls.__qualname__}.{attr}":
                emit_class(attr, value, out, inner)
            else:
                out.append(f"{inner}{attr} = {value.__qualname__}")
        elif isinstance(value, cls):
            out.append(f"{inner}{attr}: {name}")
    out.append("")


def emit_module(module, path, header):
    out = [header, "from typing import Any, overload", "import numpy", ""]
    if module is mod:
        out.append("class Error(RuntimeError):")
        out.append(f'    """{mod.Error.__doc__}"""')
        out += ["    code: int", "    title: str", "    detail: str", ""]
    else:
        out.append("from ._kelt import *")
    for name, value in vars(module).items():
        if name.startswith("_") or name == "Error":
            continue
        if inspect.ismodule(value):
            emit_module(value, os.path.join(os.path.dirname(path), name + ".pyi"), f'"""{value.__doc__}"""')
            out.append(f"from . import {name} as {name}")
        elif inspect.isclass(value):
            emit_class(name, value, out)
        elif inspect.isroutine(value):
            emit_function(name, value, "", out)
        else:
            out.append(f"{name}: {type(value).__name__}")
    with open(path, "w") as f:
        f.write("\n".join(out) + "\n")


def main(path):
    emit_module(mod, path, '"""Type stubs of the kelt module, written from its compiled signatures."""')


if __name__ == "__main__":
    main(sys.argv[1])
