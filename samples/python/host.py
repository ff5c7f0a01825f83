#!/usr/bin/python3
"""A host in Python: starts a folder of the sample modules and has the greeter greet.

    PYTHONPATH=python OSSIRA_RUNTIME=build/linux/bin samples/python/host.py build/linux/bin/modules
"""
import sys
from uuid import UUID

import ossira


class IGreeter(ossira.IUnknown):
    """The greeter's own interface, as its header in C++ has it."""
    iid = UUID("604FEC18-FE04-49BF-82DA-42648936BD0A")
    slots = (ossira.Slot("Greet", "Result", "const wchar* name, IValue* greeting"),)


with ossira.Host(*sys.argv[1:]) as host:
    greeting = ossira.new_value()
    host.create("F4B84228-FC62-4C64-AC31-7C7ACC0BCA16", IGreeter).Greet("Python", greeting)
    print(greeting.value)
