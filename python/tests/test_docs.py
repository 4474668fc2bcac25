import inspect
import re

import imb

MODULES = [imb, imb.fill, imb.luma, imb.ocio, imb.deep]


def described(obj):
    """True when the docstring says more than pybind11's signature lines."""
    doc = inspect.getdoc(obj) or ""
    name = getattr(obj, "__name__", "")
    lines = [line for line in doc.splitlines()
             if line.strip() and line.strip() != "Overloaded function."
             and not (name and re.match(rf"\s*(\d+\. )?{re.escape(name)}\(", line))]
    return bool(lines)


def public(owner):
    for name, value in vars(owner).items():
        if not name.startswith("_") and (callable(value) or isinstance(value, property)):
            yield f"{getattr(owner, '__name__', owner)}.{name}", value


def test_every_public_function_class_method_and_property_has_a_docstring():
    missing = []
    for module in MODULES:
        for name, value in public(module):
            if inspect.ismodule(value):
                continue
            if inspect.isclass(value):
                missing += [n for n, v in public(value) if not described(v)]
            if not described(value):
                missing.append(name)
    assert missing == []
