"""The Python package against the Linux runtime, which OSSIRA_RUNTIME names, and the sample modules,
whose folder OSSIRA_MODULES names."""
import contextlib
import gc
import io
import os
import pydoc
import threading
import unittest
from uuid import UUID

import ossira

KEY = UUID("7B1B5E2C-6E0D-4D49-9E55-0C33C51F6AD8")
OTHER = UUID("00000000-0000-0000-0000-000000000001")
LIGHTS = UUID("D45430F5-9E79-42B6-839F-B73B2E5AD3CF")


class Watch(ossira.Object, implements=[ossira.IBootstrap, ossira.IDisposable]):
    def __init__(self):
        self.calls = []

    def Startup(self, param):
        self.calls.append(("up", param.query(ossira.IValue).value))

    def Cleanup(self, param):
        self.calls.append(("down", param.query(ossira.IValue).value))

    def IsDisposed(self):
        return False

    def Dispose(self):
        raise ossira.OssiraError(ossira.E_DISPOSED)


class Balanced(unittest.TestCase):
    """Whatever a test does, what it made is gone when it ends."""

    def setUp(self):
        ossira.categories()  # makes the singletons
        ossira.singleton(ossira.CLSID_CommonThreadPoolBox)
        self.before = ossira.object_count()

    def tearDown(self):
        gc.collect()
        self.assertEqual(ossira.exception_count(), 0)  # and what was collected is given back
        self.assertEqual(ossira.object_count(), self.before)

    def fails(self, code, function, *arguments):
        with self.assertRaises(ossira.OssiraError) as caught:
            function(*arguments)
        self.assertEqual(caught.exception.name, code)
        return caught.exception


class Values(Balanced):
    def test_python_values_come_back(self):
        value, values = ossira.new_value(), ossira.new_value_set()
        for each in (None, 0, -2**31, 2**31, -2**63, 0.1, "", "h\u00e4llo \U0001F600 \udc00", b"",
                     b"a\0b", KEY, (1, -2), (0.5, 2.0), ossira.Datum(KEY, b"\1\2")):
            with self.subTest(each):
                value.value = each
                self.assertEqual(value.value, each)
                if each is not None:
                    values[KEY] = each
                    self.assertEqual(values[KEY], each)
        value.value = ossira.Datum.of(ossira.DATATYPE_SINT8, -5)
        self.assertEqual((value.value, len(value.datum.data)), (-5, 1))
        for error, each in ((TypeError, []), (Exception, 2**63)):
            with self.assertRaises(error):
                value.value = each

    def test_a_list_has_the_manners_of_a_list(self):
        items, model = ossira.new_list([1, "b", 2.5]), [1, "b", 2.5]
        self.assertNotIsInstance(1, type(items))
        for change in (lambda l: l.append(KEY), lambda l: l.insert(-1, 7), lambda l: l.pop(0),
                       lambda l: l.__setitem__(-1, "z"), lambda l: l.insert(99, 1),
                       lambda l: l.reverse(), lambda l: l.__setitem__(slice(1, 3), [8, 9, 10]),
                       lambda l: l.__delitem__(slice(0, 4, 2)), lambda l: l.remove(10)):
            change(items)
            change(model)
            self.assertEqual(list(items), model)
        self.assertEqual((items[1:], items.index(model[-1]), len(items)),
                         (model[1:], len(model) - 1, len(model)))
        for index in (len(model), -len(model) - 1):
            self.assertRaises(IndexError, lambda: items[index])
        nested = ossira.new_value_set({KEY: 1})
        items[0] = nested
        self.assertEqual((items[0], items[0][KEY]), (nested, 1))
        items.clear()
        self.assertEqual(list(items), [])

    def test_dictionaries_and_value_sets_have_the_manners_of_dict(self):
        for made in (ossira.new_dictionary({KEY: 1}), ossira.new_value_set({KEY: 1})):
            made[OTHER] = "two"
            self.assertEqual(dict(made), {KEY: 1, OTHER: "two"})
            self.assertEqual((made.get(LIGHTS), made.pop(KEY), KEY in made, len(made)),
                             (None, 1, False, 1))
            for missing in (lambda: made[KEY], lambda: made.__delitem__(KEY)):
                self.assertRaises(KeyError, missing)


class Failures(Balanced):
    def test_an_exception_has_code_name_and_the_reported_line(self):
        error = self.fails("E_INVALIDARG", ossira.new_list().GetItemAt, 7, ossira.IValue)
        self.assertEqual(error.code, ossira.E_INVALIDARG)
        self.assertTrue(error.line.file.endswith("ObjectNodeList.cpp"), error.line)
        self.assertIn("0x80070057", error.line.text)
        self.assertIn("from IList.GetItemAt", str(error))

    def test_another_observer_gets_the_lines(self):
        class Keeper(ossira.Observer):
            mask = ossira.PRINT_TRACE | ossira.PRINT_ERROR
            lines = []

            def line(self, line):
                self.lines.append(line)

        former = ossira.observe(Keeper())
        self.fails("E_INVALIDARG", ossira.new_list().RemoveAt, 0)
        self.assertIsInstance(ossira.observe(former), ossira.IObserverPrint)
        levels = {line.level for line in Keeper.lines}
        self.assertEqual(levels, {ossira.PRINT_TRACE, ossira.PRINT_ERROR})
        self.assertIn("CAB670AA", "".join(line.text for line in Keeper.lines))


class Implementations(Balanced):
    def test_an_object_written_in_python_is_one_of_the_runtimes(self):
        watch = Watch()
        pointer = watch.pointer_to(ossira.IBootstrap)
        disposable = pointer.query(ossira.IDisposable)
        self.assertEqual((pointer, watch.reference_count), (disposable, 2))
        self.assertEqual(pointer.interfaces(),
                         [ossira.IUnknown, ossira.IBootstrap, ossira.IDisposable])
        self.fails("E_NOINTERFACE", pointer.query, ossira.IValue)
        self.fails("E_DISPOSED", disposable.Dispose)
        self.assertEqual(disposable.IsDisposed(), ossira.S_FALSE)
        kept = ossira.new_list([watch])
        del watch, disposable
        self.assertEqual(kept[0], pointer)  # native references keep it
        alive = __import__("weakref").ref(kept[0])
        del pointer, kept
        self.assertIsNone(alive())

    def test_a_pool_runs_python_on_several_threads(self):
        seen, barrier = set(), threading.Barrier(2, timeout=20)

        def work(flag):
            seen.add(threading.get_ident())
            with contextlib.suppress(threading.BrokenBarrierError):
                barrier.wait(5)

        if ossira.singleton(ossira.CLSID_CommonThreadPoolBox,
                            ossira.ICommonThreadPoolBox).GetThreadPool().GetThreadCount() > 1:
            self.assertTrue(ossira.run_parallel(work))
            self.assertGreater(len(seen), 1)
        self.assertFalse(ossira.run_parallel(lambda flag: flag.raise_it()))
        self.assertRaises(ZeroDivisionError, ossira.run_parallel, lambda flag: 1 / 0)

    def test_help_says_what_the_headers_say(self):
        text = pydoc.plain(pydoc.render_doc(ossira.IList))
        for part in ("GetItemAt(self, /, index: 'int32', riid", "An ordered list", "append",
                     "Asks the item at `index`"):
            self.assertIn(part, text)


class WholeHosts(unittest.TestCase):  # by its name the last: clean-up ends the singletons
    def test_a_host_starts_modules_and_python_and_tells_what_is_registered(self):
        watch = Watch()
        host = ossira.Host(os.environ["OSSIRA_MODULES"], param=ossira.new_value(5))
        host.add(watch, level=1)
        with host:
            self.assertEqual(watch.calls, [("up", 5)])
            known = ossira.classes()
            self.assertEqual((known[LIGHTS].text, known[ossira.CLSID_Value].module), ("Lights", ""))
            self.assertIn(known[LIGHTS],
                          ossira.categories()["BootstrapRegistryStartup_Level0"])
            lights, kept = known[LIGHTS].create(), ossira.new_value(6)
            self.assertEqual(lights.class_name(), "Lights")
        self.assertEqual(watch.calls, [("up", 5), ("down", 5)])
        self.assertRaises(ReferenceError, lights.QueryInterface)  # went with its module
        self.assertEqual(kept.value, 6)
        del host, kept
        self.assertEqual(watch.reference_count, 0)
        self.assertEqual(ossira.object_count(), 2)  # the singleton registry, the former observer


if __name__ == "__main__":
    unittest.main()
