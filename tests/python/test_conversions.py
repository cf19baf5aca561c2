"""Bad values handed to the library raise the error Python would raise, with a
message, never a bare cast failure or a crash."""
import json
import os
import subprocess
import sys

import pytest

import zerko

H = zerko._Hierarchy
P = zerko.Parameters

# Each case names what it calls; they run in a child interpreter because a
# list holding None once became a null pointer that was dereferenced.
SCOPE_LISTS = '''
import json, zerko
H = zerko._Hierarchy
scope = H.Pattern.Scope(None)
virtual = zerko.Scene._Virtual(zerko.Scene.Operator())
search = H.Search(virtual)
cases = {
    "match": lambda: H(virtual).match([], [scope, None]),
    "queue task": lambda: zerko.Check._Queue.Task("|a", [None]).status,
    "mask set": lambda: zerko.Mask._Set(None),
    "is_optional": lambda: H._is_optional([scope, None]),
    "sort": lambda: H.Pattern._Sorter.sort([None]),
    "scope children": lambda: H.Pattern.Scope(None, [None]),
    "search layer": lambda: search.layer([], [None]),
    "search layer nested": lambda: search.layer([], [[None]]),
}
out = {}
for name, call in cases.items():
    try:
        call()
        out[name] = "no error"
    except Exception as e:
        out[name] = [type(e).__name__, str(e)]
print(json.dumps(out))
'''


def test_lists_of_scopes_refuse_what_is_no_scope():
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(p for p in sys.path if p))
    done = subprocess.run([sys.executable, "-c", SCOPE_LISTS], capture_output=True, text=True, timeout=60, env=env)
    assert done.returncode == 0, done.stderr
    outcomes = json.loads(done.stdout)
    expected_names = {"match": "pattern", "queue task": "check_controls", "mask set": "items",
                      "is_optional": "pattern", "sort": "pattern", "scope children": "children",
                      "search layer": "scopes", "search layer nested": "scopes"}
    for case, argument in expected_names.items():
        kind, message = outcomes[case]
        assert kind == "TypeError" and message.startswith(argument + " must hold"), (case, outcomes[case])


LONE = "ab\udcff"


@pytest.mark.parametrize("call", [
    lambda: P.TextInput(LONE),
    lambda: P.IntRange(LONE),
    lambda: H.Anchor.get_scope_sorted("|a", [(LONE, "|a")]),
    lambda: H.Anchor._State().set({LONE: []}),
    lambda: zerko.Scene._Virtual._Location("a", "|a", "mesh", ["|a|b", LONE]),
    lambda: zerko.TypeMapping({"mesh": LONE}),
    lambda: zerko._format("{}", [LONE]),
    lambda: zerko._File.Json.write("unused.json", {"name": [LONE]}),
    lambda: zerko._File.Json.write("unused.json", {LONE: 1}),
    lambda: zerko._File.Text.read(LONE),
], ids=["input text", "attribute name", "capture", "expression key", "children", "type table", "format",
        "JSON text", "JSON key", "path"])
def test_text_without_a_utf8_form_is_a_unicode_error(call, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    with pytest.raises(UnicodeEncodeError, match="surrogates not allowed"):
        call()
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("call, argument", [
    (lambda: H.Anchor.get_scope_sorted("|a", [(None, "|a")]), "array"),
    (lambda: H.Anchor._State().set({1: []}), "expressions"),
    (lambda: H.Anchor._State().set(["a"]), "expressions"),
    (lambda: zerko.Scene._Virtual._Location("a", "|a", "mesh", [None]), "children"),
    (lambda: zerko.Scene._Virtual._Location("a", "|a", "mesh", [["|a|b"]]), "children"),
    (lambda: zerko.Scene._Virtual._Location("a", "|a", "mesh", "|a|b"), "children"),
    (lambda: zerko.TypeMapping({"mesh": None}), "table"),
    (lambda: zerko.Mask.Item("mesh", None), "constants"),
], ids=["capture", "key", "no dict", "None child", "nested child", "str for list", "type table", "mask item"])
def test_values_of_the_wrong_type_name_the_argument(call, argument):
    with pytest.raises(TypeError, match="^" + argument):
        call()


def test_integers_out_of_range_overflow():
    with pytest.raises(OverflowError):
        P.IntRange("x", value=2 ** 70)
    limits = P.IntRange("x")
    with pytest.raises(OverflowError):
        limits.maximum = -2 ** 64
    rule = zerko._Project.Settings.Rule()
    with pytest.raises(OverflowError):
        rule.range.minimum = 2 ** 63
    with pytest.raises(OverflowError):
        zerko._Project.Settings.Record(None, None, 1e300)
    # Text formatting shows a big integer as Python does.
    assert zerko._format("{} {}", [2 ** 70, -5]) == f"{2 ** 70} -5"
