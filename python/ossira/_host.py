"""Hosts, what is registered in them, and parallel work."""
import ctypes
from contextlib import suppress
from typing import NamedTuple
from uuid import UUID, uuid4

from . import _contract as contract
from ._errors import OssiraError
from ._implement import Object
from ._runtime import bind, call, create, give_back_modules, load, singleton


class _Factory(Object, implements=[contract.IObjectFactory]):
    """The process's object factory, with objects written in Python beside the modules' classes."""

    def __init__(self):
        self.own = {}

    def GetClassObject(self, clsid, iid):
        if clsid in self.own:
            return self.own[clsid].pointer_to(iid)
        return self._shared().GetClassObject(clsid, iid)

    def __getattr__(self, operation):
        return getattr(self._shared(), operation)

    @staticmethod
    def _shared():
        # Not kept: it goes with the singletons, and the modules with it.
        return singleton(contract.CLSID_GlobalObjectFactory, contract.IObjectFactory)


class Host:
    """Starts folders of modules, and cleans up at the end:

        with ossira.Host("modules") as host:
            greeter = host.create(CLSID_Greeter, IGreeter)

    Without a folder it is the current one. The modules are unloaded in the end: what Python still
    has of their objects is given back before. A process is started and cleaned up once.
    """

    def __init__(self, *folders, param=None):
        self.bootstrap = create(contract.CLSID_MasterBootstrap, contract.IMasterBootstrap)
        self.folders = self.bootstrap.GetModuleFolders().query(contract.IList)
        if folders:
            self.folders[:] = map(str, folders)
        self.param = param
        self.factory = None

    def add(self, implementation, level=1):
        """Has an object written in Python, an `IBootstrap`, started and cleaned up with the classes
        of a level: 0, 1 or 2. Answers the identifier that stands for it."""
        if self.factory is None:
            self.factory = _Factory()
            self.bootstrap.SetFactory(self.factory)
        clsid = uuid4()
        self.factory.own[clsid] = implementation
        registry = singleton(contract.CLSID_ClsidRegistry, contract.IClsidRegistry)
        for what in ("Startup", "Cleanup"):
            registry.RegisterClass(getattr(contract, f"BootstrapRegistry{what}_Level{level}"), clsid)
        return clsid

    def __enter__(self):
        try:
            self.bootstrap.Startup(self.param)
        except OssiraError:
            with suppress(OssiraError):  # it was the start that failed
                self.bootstrap.Cleanup(self.param)
            raise
        return self

    def __exit__(self, kind, error, trace):
        give_back_modules()
        self.bootstrap.Cleanup(self.param)

    create = staticmethod(create)
    singleton = staticmethod(singleton)


# --- What is registered ----------------------------------------------------------------------------

class Class(NamedTuple):
    """A class that objects can be created of."""

    clsid: UUID
    text: str
    module: str  # "" for those of the runtime

    def create(self, interface=contract.IUnknown):
        """A new object of the class."""
        return create(self.clsid, interface)

    def __repr__(self):
        return f"<{self.text or self.clsid} from {self.module or 'the runtime'}>"


def _runtime_classes():
    for index in range(call("DLLGetClassCount")):
        text = ctypes.create_string_buffer(256)
        call("DLLGetClassObjectInfo", index, text, len(text))
        yield Class(call("DLLGetClassObjectID", index, 1), text.value.decode(), "")


def _module_classes():
    factory = singleton(contract.CLSID_GlobalObjectFactory, contract.IObjectFactory)
    for clsid in factory.GetClasses(contract.IEnumeratorGUID):
        told = factory.GetClassValue(clsid, contract.IValueSet)
        text = told.get(contract.ObjectFactoryItem_InfoText, b"")
        yield Class(clsid, text.decode() if isinstance(text, bytes) else text,
                    told.get(contract.ObjectFactoryItem_FileName, ""))


def classes():
    """Every class that is registered now, by identifier."""
    return {each.clsid: each for each in (*_runtime_classes(), *_module_classes())}


def categories():
    """The classes that are filed under each category, by the category's name."""
    registry = singleton(contract.CLSID_ClsidRegistry, contract.IClsidRegistry)
    known = classes()
    return {name_of(category): [known.get(clsid, clsid) for clsid in
                                registry.GetClasses(category, contract.IEnumeratorGUID)]
            for category in registry.GetCategories(contract.IEnumeratorGUID)}


def name_of(identifier):
    """What a header calls an identifier, or the identifier's text."""
    known = contract.IDENTIFIERS.get(identifier)
    return known[0] if known else str(identifier).upper()


# --- Parallel work ---------------------------------------------------------------------------------

class AbortFlag:
    """The flag of a run, which every copy of the job may raise."""

    def __init__(self, address):
        self._flag = ctypes.c_uint8.from_address(address) if address else ctypes.c_uint8()

    def is_raised(self):
        return self._flag.value != 0

    def raise_it(self):
        self._flag.value = 1


class Job(Object, implements=[contract.IThreadFunction]):
    """What a thread runs, or a pool on many: `work` is called with an `AbortFlag`. What it raises
    ends the run and is kept in `error`."""

    def __init__(self, work):
        self.work, self.error = work, None

    def Run(self, parameter):
        flag = AbortFlag(parameter)
        try:
            self.work(flag)
        except Exception as error:
            self.error = self.error or error
            flag.raise_it()

    def RequestStop(self):
        """Jobs of a pool are told by the flag."""


def run_parallel(work, name="Python", symmetric=False):
    """Runs `work` on the pool that the process shares and on this thread, and returns when all have
    ended: whether nobody raised the flag. What a copy raises is raised here."""
    job = work if isinstance(work, Job) else Job(work)
    finished = _run(job, name, symmetric)
    error, job.error = job.error, None
    try:
        if error is not None:
            raise error
        return finished
    finally:
        del error, job  # its trace refers to this frame


def _run(job, name, symmetric):
    box = singleton(contract.CLSID_CommonThreadPoolBox, contract.ICommonThreadPoolBox)
    try:
        box.GetThreadPool().Run(job, None, symmetric, name)
    except OssiraError as error:
        if error.code != -1:
            raise
        return False  # somebody raised the flag
    return True


__all__ = ["AbortFlag", "Class", "Host", "Job", "bind", "categories", "classes", "load", "name_of",
           "run_parallel"]
