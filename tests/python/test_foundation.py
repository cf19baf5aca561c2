"""Strings, names, errors, the logger, assertions and callbacks, as Python sees them."""
import logging
import subprocess
import sys
import textwrap
import time

import pytest

import zerko
from conftest import run_script


def test_str_type_and_conversions():
    value = zerko._str("Mesh")
    assert isinstance(value, zerko._Str) and isinstance(value, str)
    assert value == "Mesh" and "Mesh" == value and hash(value) == hash("Mesh")
    assert {value: 1}["Mesh"] == 1
    for other in (5, [1], None, 2.5):
        assert zerko._str(other) is other
    assert zerko._Str.encoded("ё") == "ё" and zerko._Str.decoded(b"x") == b"x"
    text = zerko._format(" (Task {:02d})", [2])
    assert text == " (Task 02)" and isinstance(text, zerko._Str)
    assert zerko._format("{}: {}", [ValueError, "x"]) == "<class 'ValueError'>: x"
    with pytest.raises((IndexError, ValueError)):
        zerko._format("{} {}", ["one"])


def test_naming_and_names_control():
    naming = zerko._Naming
    assert naming.force_ascii("  Мой_файл.v2 ") == "moi_fail_v2"
    assert naming.force_ascii("  Мой_файл.v2 ", True) == "Moi_Fail_V2"
    assert naming.en_ru_filter("Ёлка\t€") == "Ёлка"
    assert naming._char_filter("abc", ((98, 98),)) == "b"
    assert naming.is_attribute("name\n") and not naming.is_attribute("9lives")
    with pytest.raises(TypeError):
        naming.is_attribute(5)
    names = zerko._NamesControl()
    names.append("Box")
    names.append("MyBox3")
    assert names.get_init("Box") == "Box4"
    assert sorted(names._get_alike("Box")) == ["Box", "MyBox3"]


def test_errors_carry_their_sentences():
    assert str(zerko.Error.WrongAttributeName()) == "Wrong Name for Attribute"
    assert str(zerko.Error.WrongAttributeName("1st")) == 'Wrong Name for Attribute - "1st"'
    assert str(zerko.Error.PrivateAttributeName("__mine")) == 'Used Private Name for Attribute - "__mine"'
    assert str(zerko.Error.ValidationError()) == "Check Task Found Issue"
    for name in ("WrongAttributeName", "PrivateAttributeName", "AttributeNameRepeat", "ParameterInputType",
                 "AccessQueueTimeout", "NoFeedbackEmail", "ValidationError"):
        cls = getattr(zerko.Error, name)
        assert cls.__bases__ == (Exception,)
    with pytest.raises(zerko.Error.ValidationError):
        raise zerko.Error.ValidationError()


def test_attribute_assertion_raises_in_order():
    attribute = zerko._Assert.Parameters.Input.attribute
    with pytest.raises(TypeError, match="Wrong Type for Attribute Name"):
        attribute(5)
    with pytest.raises(ValueError, match="Empty Attribute Name"):
        attribute("")
    with pytest.raises(zerko.Error.WrongAttributeName) as wrong:
        attribute("1st")
    assert str(wrong.value) == 'Wrong Name for Attribute - "1st"'
    with pytest.raises(zerko.Error.PrivateAttributeName):
        attribute("__mine")
    assert attribute("distance") is None
    data = [{"a": ("t", 1)}, "x"]
    assert zerko._Assert.Json.clean(data) is data and data[0]["a"] == ("t", 1)


def test_logger_returns_at_once_and_delivers_everything(log):
    slow_seen = []

    class Slow(logging.Handler):
        def emit(self, record):
            time.sleep(0.001)
            slow_seen.append(record.getMessage())

    slow = Slow()
    logging.getLogger().addHandler(slow)
    try:
        start = time.perf_counter()
        for i in range(1000):
            zerko.Logger.info("message %d" % i)
        issued = time.perf_counter() - start
        assert issued < 0.5, issued  # the handler alone needs more than 1 s
        zerko.Logger._flush()
    finally:
        logging.getLogger().removeHandler(slow)
    assert sorted(slow_seen) == sorted("message %d" % i for i in range(1000))
    assert len(log.messages(logging.INFO)) == 1000


def test_logger_levels_and_exception_forms(log):
    zerko.Logger.debug("d")
    zerko.Logger.warning("w")
    zerko.Logger.error("e", exc_info=True)
    zerko.Logger.exception("\n\ntext\n")
    zerko.Logger.exception(ValueError("\nas object\n"))
    zerko.Logger._flush()
    levels = {r.getMessage(): r.levelno for r in log.records}
    assert levels["d"] == logging.DEBUG and levels["w"] == logging.WARNING and levels["e"] == logging.ERROR
    assert levels["text"] == logging.ERROR
    assert levels["\nas object\n"] == logging.ERROR  # an error object has no strip: logged as it is
    assert all(r.exc_info is None for r in log.records)
    assert zerko.Logger._root is logging.getLogger()


def test_logger_flushes_at_interpreter_exit(tmp_path):
    script = textwrap.dedent("""
        import logging, sys, threading, zerko
        out = open(sys.argv[1], "w")
        class ToFile(logging.Handler):
            def emit(self, record):
                out.write(record.getMessage() + "\\n"); out.flush()
        logging.getLogger().addHandler(ToFile())
        logging.getLogger().setLevel(logging.INFO)
        for i in range(500):
            zerko.Logger.info("line %d" % i)
        threading.Thread(target=lambda: [zerko.Logger.info("late") for _ in range(50)]).start()
    """)
    target = tmp_path / "log.txt"
    run = subprocess.run([sys.executable, "-c", script, str(target)], timeout=60, capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
    lines = target.read_text().splitlines()
    assert len([l for l in lines if l.startswith("line ")]) == 500
    assert "Fatal" not in run.stderr and "Abort" not in run.stderr


def test_logger_never_waits_on_itself_or_on_a_logging_thread(tmp_path):
    # A handler that flushes runs on the logger's own worker.
    flushing = run_script("""
        import logging, sys, zerko
        seen = []
        class Flushing(logging.Handler):
            def emit(self, record):
                seen.append(record.getMessage())
                zerko.Logger._flush()
        logging.getLogger().addHandler(Flushing())
        logging.getLogger().setLevel(logging.INFO)
        zerko.Logger.info("first")
        zerko.Logger.info("second")
        zerko.Logger._flush()
        print(",".join(seen))
    """)
    assert flushing.returncode == 0, flushing.stderr
    assert flushing.stdout.strip() == "first,second"
    # A daemon thread that never stops logging must not keep the process from
    # ending (what it queued beyond what can be delivered in time is dropped).
    daemon = run_script("""
        import logging, sys, threading, time, zerko
        logging.getLogger().addHandler(logging.StreamHandler(open(sys.argv[1], "w")))
        logging.getLogger().setLevel(logging.INFO)
        def chatter():
            while True:
                zerko.Logger.info("chatter")
        threading.Thread(target=chatter, daemon=True).start()
        time.sleep(0.5)
        zerko.Logger.info("last word")
    """, tmp_path / "log.txt")
    assert daemon.returncode == 0, daemon.stderr


def test_callbacks_register_once_and_survive_failures(log):
    callbacks = zerko._CallBacks()
    seen = []

    def record(*args, **kwargs):
        seen.append((args, kwargs) if kwargs else args)

    def broken(*args, **kwargs):
        raise RuntimeError("handler broke")

    callbacks.export_success.register(record)
    callbacks.export_success.register(record)
    callbacks.export_success.register(broken)
    callbacks.export_success.register("not callable")
    callbacks.export_success.register(lambda *a, **k: seen.append("after"))
    assert len(callbacks.export_success) == 3
    callbacks.export_success("file.fbx", 2)
    assert seen == [("file.fbx", 2), "after"]
    # Keyword arguments reach every function too, and objects arrive as they were given.
    scene_object = object()
    seen.clear()
    callbacks.export_success(scene_object, flag=True)
    assert seen == [((scene_object,), {"flag": True}), "after"]
    assert "handler broke" in log.messages(logging.ERROR)
    callbacks.export_success.delete(broken)
    assert broken not in callbacks.export_success and record in callbacks.export_success
    callbacks.empty_scan_result()  # nobody listens: nothing happens
    callbacks.clear()
    assert len(callbacks.export_success) == 0
    standalone = zerko._CallBacks.List()
    standalone.register(record)
    standalone()
    assert seen[-1] == ()
