"""Hosts and objects for the component runtime in Python, without a compiler.

    import ossira

    with ossira.Host("modules") as host:            # starts a folder of modules
        print(ossira.classes())                     # what can be created
        print(ossira.categories())                  # and what is filed where
        values = ossira.new_value_set()
        values[some_key] = "text"                   # a value set is a mapping
        found = host.create(some_class, ossira.IValue)
        print(found.interfaces())                   # what an object can be asked for

The interfaces (`help(ossira.IValue)`) and identifiers are those of the contract. References are
given back when Python objects go; a failure is an `OssiraError` with the line that was reported.
Interfaces of modules are classes as well, see `help(ossira.Interface)`; for objects that are
written in Python see `ossira.Object`, for diagnostics `ossira.Observer`, for values `ossira.Datum`.

Set OSSIRA_RUNTIME to the runtime's file or folder, or call `ossira.load` with it.
"""
from ._contract import *
from ._errors import Line, OssiraError
from ._interface import Interface, Slot, structures as _structures
from ._runtime import (create, exception_count, load, object_count, singleton)
from ._values import Datum
from ._implement import Object
from ._collections import new_dictionary, new_list, new_value, new_value_set
from ._observer import Observer, observe
from ._host import AbortFlag, Class, Host, Job, categories, classes, name_of, run_parallel

globals().update(_structures)  # the structures as ctypes has them

__all__ = ["AbortFlag", "Class", "Datum", "Host", "Interface", "Job", "Line", "Object", "Observer",
           "OssiraError", "Slot", "categories", "classes", "create", "exception_count", "load",
           "name_of", "new_dictionary", "new_list", "new_value", "new_value_set", "object_count",
           "observe", "run_parallel", "singleton"]
