"""The parameters as check authors and host layers use them from Python."""
import json

import pytest

import zerko

P = zerko.Parameters


def declare():
    """A check's declaration with every input type."""
    return P.Block(
        P.IntRange("distance", minimum=0, maximum=20, value=7, units="cm", label="Distance"),
        P.FloatRange("tolerance", step=0.01, value=0.25),
        P.RegEx("pattern", text="^geo_"),
        P.Switch("strict", enabled=True),
        P.ComboBox("level", [P.ComboBox.Item("low", "Low"), P.ComboBox.Item("high", "High")]),
        P.TextInputList("names", [P.TextInput("body", True), P.TextInput("wheel")]),
        P.TextMatchList("suffixes", [P.TextMatch("_geo")]),
        P.IntSliceList("frames", P.IntSlice(P.IntRange("start", 0, 100, 1, 1), P.IntRange("stop", 0, 100, 1, 24)),
                       help_text="Frame ranges"),
    )


STORED = json.loads("""[
  {"as_info": true, "state": {
    "distance": {"value": 12}, "tolerance": {"value": 0.5}, "pattern": {"text": "^mesh_"},
    "strict": {"enabled": false}, "level": {"selected_attr": "high"},
    "names": [{"text": "door", "enabled": true}, {"text": "roof", "enabled": false}],
    "suffixes": [{"text": "_hi"}, {"text": "_lo"}],
    "frames": [{"start": {"value": 10}, "stop": {"value": 20}}]}},
  {"state": {"distance": {"value": 3}}}
]""")


def test_check_author_reads_stored_values_as_task_attributes():
    block = declare()
    block.load(STORED)
    assert len(block) == block.length == 2
    first, second = list(block)
    assert (first.number, second.number) == (1, 2)

    assert first.as_info is True and second.as_info is False
    assert first.distance.value == 12 and first.distance.units == "cm"
    assert first.tolerance.value == 0.5
    assert first.pattern == "^mesh_"
    assert first.strict.enabled is False
    assert first.level.get_selected() is first.level.high
    assert first.level.get_selected(True) == "High"
    assert first.names.values() == ("door",)
    assert first.suffixes.values() == ("_hi", "_lo")
    assert [(s.start.value, s.stop.value, s.stop.maximum) for s in first.frames] == [(10, 20, 100)]
    first.assert_no_errors()

    # The second task names one input; the others keep their declared values.
    assert second.distance.value == 3
    assert second.pattern.text == "^geo_"
    assert second.names.values(False) == ("body", "wheel")

    # Stored data round-trips, with the key order of the declaration.
    assert block.data[0] == STORED[0]
    assert list(block.data[1]["state"]) == list(STORED[0]["state"])

    # The same input object comes back, and attributes set on tasks are theirs alone.
    assert first.distance is first.distance
    first.distance.value = 15
    assert second.distance.value == 3 and block.defaults[0]["state"]["distance"] == {"value": 7}

    clone = first.clone()
    assert clone.number == 0 and clone.data == first.data
    clone.distance.value = 1
    clone.names.add().text = "extra"
    assert first.distance.value == 15 and first.names.values(False) == ("door", "roof")

    block.remove_task(first)
    assert [t.number for t in block] == [1]
    assert block.append_task().distance.value == 7


def test_bad_declarations_and_stale_data_are_raised_on_use():
    repeated = P.Block(P.IntRange("size"), P.Switch("size"))
    repeated.load([])
    task = repeated._tasks[0]
    with pytest.raises(zerko.Error.AttributeNameRepeat):
        task.assert_no_errors()
    assert [type(e) for e in task._build_exceptions] == [zerko.Error.AttributeNameRepeat]
    assert task.state == {} and task._table == {}
    assert isinstance(task.size, P.IntRange)

    class NotAnInput:
        def clone(self):
            return NotAnInput()

    for foreign in (P.Group("g", [P.Switch("on")]), NotAnInput()):
        block = P.Block(P.Switch("on"), foreign)
        block.load(None)
        with pytest.raises(zerko.Error.ParameterInputType):
            block._tasks[0].assert_no_errors()

    # Something that cannot even be copied fails at load, not later.
    with pytest.raises(AttributeError):
        P.Block(P.Switch("on"), 5).load(None)

    stale = declare()
    stale.load([{"state": {"distance": {"value": 1}, "renamed": {"value": 2}, "strict": {"enabled": False}}}])
    task = stale._tasks[0]
    assert task.distance.value == 1 and task.strict.enabled is True
    with pytest.raises(ValueError):
        task.assert_no_errors()
    assert task._build_exceptions == [] and len(task._load_exceptions) == 1
    assert len(task.clone()._load_exceptions) == 1

    with pytest.raises(TypeError):
        stale.clone()


def test_inputs_shadow_the_tasks_own_names():
    block = P.Block(P.IntRange("number", value=3), P.Switch("data"))
    block.load(None)
    task = block._tasks[0]
    assert isinstance(task.number, P.IntRange) and task.number.value == 3
    assert isinstance(task.data, P.Switch)
    assert task.state == {"number": {"value": 3}, "data": {"enabled": False}}
    with pytest.raises(AttributeError):
        task.missing


@pytest.mark.parametrize(
    "declaration, message",
    [
        (lambda: P.IntRange("limit", value="ten"), "value must be an integer, not str 'ten'"),
        (lambda: P.IntRange("x", value=True), "value must be an integer, not bool True"),
        (lambda: P.IntRange("x", minimum=0.0), "minimum must be an integer, not float 0.0"),
        (lambda: P.IntRange("x", units=None), "units must be a string, not NoneType"),
        (lambda: P.FloatRange("x", step=1), "step must be a float, not int 1"),
        (lambda: P.FloatRange("x", precision=2.0), "precision must be an integer, not float 2.0"),
        (lambda: P.RegEx("x", text=5), "text must be a string, not int 5"),
        (lambda: P.Switch("x", enabled=1), "enabled must be a boolean, not int 1"),
        (lambda: P.Switch("x", label=b"label"), "label must be a string, not bytes b'label'"),
        (lambda: P.TextInput("text", enabled="yes"), "enabled must be a boolean, not str 'yes'"),
        (lambda: P.TextMatch(3), "text must be a string, not int 3"),
        (lambda: P.ComboBox.Item("x", selected=None), "selected must be a boolean, not NoneType"),
        (lambda: P.ComboBox("x", [P.ComboBox.Item("a"), "b"]),
         "items[1] must be a Parameters.ComboBox.Item, not str 'b'"),
        (lambda: P.TextInputList("x", [P.TextMatch()]), "items[0] must be a Parameters.TextInput, not TextMatch"),
        (lambda: P.IntSlice(P.IntRange("start"), 5), "stop must be a Parameters.IntRange, not int 5"),
        (lambda: P.IntSliceList("x", (1, 2)), "default must be a Parameters.IntSlice, not tuple (1, 2)"),
        (lambda: P.IntRange("x").__setattr__("maximum", "9"), "maximum must be an integer, not str '9'"),
        (lambda: P.IntRange("x", value="v" * 500), "value must be an integer, not str 'vvv"),
    ],
)
def test_a_wrong_argument_is_named_with_what_it_must_be_and_what_it_was(declaration, message):
    with pytest.raises(TypeError) as caught:
        declaration()
    assert str(caught.value).startswith(message) and len(str(caught.value)) < 120


def test_attribute_names_are_checked_first():
    with pytest.raises(TypeError, match="Wrong Type for Attribute Name"):
        P.IntRange(7, value="not checked yet")
    with pytest.raises(ValueError, match="Empty Attribute Name"):
        P.Options()
    with pytest.raises(zerko.Error.WrongAttributeName, match='"1st"'):
        P.Switch("1st")
    with pytest.raises(zerko.Error.PrivateAttributeName):
        P.ComboBox.Item("__mine")
    with pytest.raises(zerko.Error.AttributeNameRepeat):
        P.ComboBox("x", [P.ComboBox.Item("a"), P.ComboBox.Item("a")])


def test_combo_box_items_are_attributes():
    box = P.ComboBox("level", [P.ComboBox.Item("low", "Low"), P.ComboBox.Item("high", "High", True)])
    assert box.high.selected and box.current_index == 1
    box.set_selected(box.low)
    assert box.data == {"selected_attr": "low"}
    box.set_selected(P.ComboBox.Item("other"))  # no item of the box stays selected
    assert box.current_index == 0 and not box.low.selected
    assert box._ensure_selection() is box.low and box.low.selected and not box.high.selected
    box.set_selected(box.high)
    assert box._select_first() is box.low and [item.selected for item in box] == [True, False]
    assert [item.attr for item in box] == ["low", "high"]
    with pytest.raises(AttributeError):
        box.medium
    empty = P.ComboBox("empty", [])
    assert empty.get_selected() is None and empty.get_selected(True) == "" and empty.data == {}


def test_list_inputs_behave_as_lists():
    names = P.TextInputList("names", [P.TextInput("a", True), P.TextInput("b")], help_text="Names")
    assert len(names) == 2 and names[-1].text == "b"
    with pytest.raises(IndexError):
        names[2]
    names.pop(-2)
    assert [item.text for item in names] == ["b"]
    assert str(names) == '<class TextInputList> attr="names" label="" help="Names"\n  <class TextInput> enabled=False text="b"'
    names.load([{"text": "c", "enabled": True}])
    assert names.data == [{"text": "c", "enabled": True}]

    item = names[0]
    item.text = 5  # text setters ignore what is not text
    assert item.text == "c"

    frames = P.IntSliceList("frames", P.IntSlice(P.IntRange("start", value=1), P.IntRange("stop", value=9)), help_text="h")
    frames.add()
    assert frames.data == [{"start": {"value": 1}, "stop": {"value": 9}}]
    assert frames.clone().help_text == "" and frames._stop_limits.maximum == 100


def test_regex_equality():
    pattern = P.RegEx("pattern", "^a")
    assert pattern == "^a" and pattern == P.RegEx("other", "^a")
    assert pattern != "^b" and pattern != 5 and not (pattern == None)  # noqa: E711


def test_options_store_only_changes_and_keep_floats_out_of_load():
    switch = P.Switch("triangulate")
    scale = P.FloatRange("scale", value=1.0)
    visible = object()
    group = P.Group("More", [scale, P.IntRange("count", value=2)], visibility_switch=visible)
    options = P.Options("fbx", "FBX", "help", [switch, group, P.RegEx("pattern")])

    assert list(options._parameters) == ["triangulate", "scale", "count", "pattern"]
    assert options.data == {}
    scale.value = 3.0
    switch.enabled = True
    assert options.data == {"triangulate": True, "scale": 3.0}
    options.load({"scale": 2.0, "count": 4})
    assert options.data == {"scale": 3.0, "count": 4}

    clone = options.clone()
    assert clone.help_text == "" and clone._defaults == options._defaults
    assert next(iter(clone._contents)) is not switch
    assert list(clone)[1].visibility_switch is visible

    assert P.Options.is_group(group) and P.Options.is_float(scale) and not P.Options.is_input(group)
    assert not P.Options.is_input("scale")
    with pytest.raises(TypeError):
        options.load({"triangulate": "yes"})
