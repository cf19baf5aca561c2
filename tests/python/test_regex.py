"""Rule expressions against Python's own `re`, through the anchor matcher
(`re.match` semantics for an expression without anchors)."""
import random
import re
import subprocess
import sys
import textwrap

import pytest

import zerko


def matches(pattern, name):
    return zerko._Hierarchy.Anchor().match(pattern, name, "|" + name)


def python_error(pattern):
    try:
        re.compile(pattern)
    except re.error as error:
        return error
    return None


# ------------------------------------------------------------ random patterns

LETTERS = ["a", "b", "_", "1", "é", "Ж", "я", "ß", "İ", "ǅ", "中", "😀", "Ä", "ö"]
CLASSES = ["[а-я]", "[^é]", "[a-zé]", "[Ж1]", r"\w", r"\d", r"\W", ".", "[^\\W\\d]", "[😀-😂]"]
QUANTIFIERS = ["*", "+", "?", "{2}", "{1,3}", "{,2}", "*?", "+?", "??", "{0,1}?"]


def random_atom(rng, depth):
    roll = rng.random()
    if roll < 0.55:
        return rng.choice(LETTERS)
    if roll < 0.8 or depth > 1:
        return rng.choice(CLASSES)
    body = "|".join(random_sequence(rng, depth + 1, 3) for _ in range(rng.randint(1, 2)))
    return rng.choice(["(", "(?:", "(?P<g%d>" % depth]) + body + ")"


def random_sequence(rng, depth, most):
    out = ""
    for _ in range(rng.randint(1, most)):
        out += random_atom(rng, depth)
        if rng.random() < 0.45:
            out += rng.choice(QUANTIFIERS)
    return out


def random_pattern(rng):
    # A literal run first: the matcher treats a leading literal prefix apart.
    prefix = "".join(rng.choice(LETTERS) for _ in range(rng.randint(0, 4)))
    pattern = prefix + random_sequence(rng, 0, 4)
    if rng.random() < 0.5:
        pattern = "^" + pattern
    if rng.random() < 0.5:
        pattern += "$"
    if rng.random() < 0.15:
        pattern = "(?i)" + pattern
    return pattern


def random_names(rng, pattern):
    names = ["", "\n"]
    for _ in range(6):
        names.append("".join(rng.choice(LETTERS) for _ in range(rng.randint(0, 7))))
    # Names that the pattern's own characters make likely to match.
    own = [c for c in pattern if c not in "^$()[]{}?*+|:\\<>,"] or ["a"]
    for _ in range(4):
        names.append("".join(rng.choice(own) for _ in range(rng.randint(1, 8))))
    return names


def test_random_patterns_agree_with_python():
    rng = random.Random(20261125)
    checked = errors = 0
    for _ in range(1500):
        pattern = random_pattern(rng)
        expected_error = python_error(pattern)
        if expected_error is not None:
            with pytest.raises(re.error) as raised:
                matches(pattern, "x")
            assert str(raised.value) == str(expected_error), pattern
            errors += 1
            continue
        for name in random_names(rng, pattern):
            assert matches(pattern, name) == bool(re.match(pattern, name)), (pattern, name)
            checked += 1
    assert checked > 10000 and errors < 200


def test_non_ascii_letter_before_a_quantifier():
    for pattern, name in [("^Ящики?$", "Ящик"), ("^Ящики?$", "Ящики"), ("é+", "éé"),
                          (r"^Ärmel_\d+$", "Ärmel_12"), ("^ab😀{2}", "ab😀😀"), ("^abé*x", "abx")]:
        assert matches(pattern, name), pattern
    assert not matches("^Ящики?$", "Ящикии")
    assert not matches("^ab😀{2}", "ab😀")


# ---------------------------------------------------------------- errors


def test_invalid_expressions_raise_re_error_with_python_text():
    assert issubclass(zerko._RegexError, re.error) and issubclass(zerko._RegexError, ValueError)
    for pattern in ["^[a-z+$", "rock(_[0-9]+", "ab(c\n|d", r"^\p{L}$", "^a{3,2}", "^Ящ(ик", r"\N{no such name}"]:
        expected = python_error(pattern)
        with pytest.raises(re.error) as raised:
            matches(pattern, "rock")
        error = raised.value
        assert isinstance(error, ValueError) and type(error) is zerko._RegexError
        assert (str(error), error.msg, error.pos) == (str(expected), expected.msg, expected.pos), pattern
        assert (error.pattern, error.lineno, error.colno) == (pattern, expected.lineno, expected.colno)


def test_expression_split_by_an_anchor_raises_re_error():
    anchor = zerko._Hierarchy.Anchor()
    anchor.state.set({"<asset:[a-z]+>": set()})
    with pytest.raises(re.error) as raised:
        anchor.match("^(<asset:[a-z]+>)_grp$", "rock_grp", "|rock_grp")
    assert raised.value.pos is not None


def test_named_characters_and_the_template_flag_as_python():
    for pattern, name in [(r"^\N{LATIN SMALL LETTER E WITH ACUTE}+$", "éé"),
                          (r"^[\N{EM DASH}-\N{HORIZONTAL BAR}]$", "―"),
                          (r"^\N{latin capital letter gha}", "Ƣ"),  # an alias, in any case
                          (r"(?t)^ab(c|d)", "abd")]:
        assert python_error(pattern) is None and re.match(pattern, name)
        assert matches(pattern, name), pattern
    for pattern in [r"\N{LATIN CAPITAL LETTER A WITH MACRON AND GRAVE}", r"[\N{foo}]", r"\N{}",
                    "(?t)ab*", "(?t)a+?", "(?t:a)", "(?-t:a)", "a(?t)"]:
        expected = python_error(pattern)
        with pytest.raises(re.error) as raised:
            matches(pattern, "a")
        assert str(raised.value) == str(expected), pattern


# ------------------------------------------------------------- work bound

WORK_BOUND = textwrap.dedent("""
    import time, zerko
    anchor = zerko._Hierarchy.Anchor()
    def timed(pattern, name):
        start = time.perf_counter()
        try:
            result = anchor.match(pattern, name, "|" + name)
        except zerko._RegexError as error:
            result = str(error)
        return result, time.perf_counter() - start
    # Linear for Python: never over the bound, however long the name.
    assert timed("^(a|b)*$", "ab" * 25000)[0] is True
    assert timed("^(?:a|b)*c", "ab" * 25000)[0] is False
    words = ["w%05d" % i for i in range(3000)]
    assert timed("^(?:" + "|".join(words) + ")$", "w02999")[0] is True
    assert timed("(?:" + "|".join(words) + ")$", "w" * 20000)[0] is False
    # Exponential: a clear error, at once.
    result, seconds = timed("(a+)+$", "a" * 29 + "!")
    assert "work limit" in result and seconds < 0.05, (result, seconds)
    print("ok")
""")


def test_work_bound_grows_with_the_subject_and_pattern():
    run = subprocess.run([sys.executable, "-c", WORK_BOUND], capture_output=True, text=True, timeout=120)
    assert run.returncode == 0 and run.stdout.strip() == "ok", run.stderr
