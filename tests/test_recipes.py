"""Shapes, recipes and the catalog: text forms, equality, hashing and the conversions."""

import os
import subprocess
import sys

import pytest
from hypothesis import given, settings, strategies as st

import torvane as tv

# ---- expression text, generated -------------------------------------------------------------

integers = st.integers(min_value=0, max_value=10**6).map(str)
decimals = st.tuples(st.integers(0, 999), st.integers(0, 999)).map(lambda p: f"{p[0]}.{p[1]}")
names = st.sampled_from(["C", "D", "T", "O", "I", "jC", "kT", "oC", "dP3", "P3", "UD16", "nonsense"])


def spaced(text):
    return st.tuples(st.sampled_from(["", " ", "\t"]), st.sampled_from(["", " ", "\n"])).map(
        lambda s: s[0] + text + s[1]
    )


expression_texts = st.recursive(
    st.one_of(integers, decimals),
    lambda inner: st.one_of(
        st.tuples(inner, st.sampled_from("+-*/"), inner).map(lambda t: f"{t[0]}{t[1]}{t[2]}"),
        inner.map(lambda e: f"({e})"),
        inner.map(lambda e: f"-{e}"),
        inner.map(lambda e: f"sqrt({e})"),
        st.tuples(inner, inner).map(lambda t: f"({t[0]})^({t[1]})"),
    ),
    max_leaves=8,
).flatmap(spaced)

shape_texts = st.one_of(
    st.tuples(names, expression_texts).map(lambda t: f"{t[0]}${t[1]}"),
    st.tuples(expression_texts, expression_texts, expression_texts, expression_texts).map(
        lambda t: f"{t[0]},{t[1]},{t[2]}${t[3]}"
    ),
)


def without_decimals(text):
    return "." not in text


# ---- shapes ---------------------------------------------------------------------------------


@settings(max_examples=150, deadline=None)
@given(shape_texts)
def test_shape_text_is_canonical(text):
    shape = tv.Shape.parse(text)
    canonical = str(shape)
    again = tv.Shape.parse(canonical)
    assert str(again) == canonical
    assert hash(again) == hash(shape)
    assert " " not in canonical
    # A decimal prints as a reduced fraction, which reads back as a division: same text, new tree.
    if without_decimals(text):
        assert again == shape


@pytest.mark.parametrize(
    "shape, kind, name, size, coefficients, text, representation",
    [
        (tv.Shape.plane(1, 0, 0, "1/2"), "plane", None, "1/2", ("1", "0", "0"), "1,0,0$1/2",
         'Shape.plane("1", "0", "0", "1/2")'),
        (tv.Shape.polyhedron("C"), "polyhedron", "C", "1", None, "C$1", 'Shape.polyhedron("C", "1")'),
        (tv.Shape.polyhedron("C", "1/3"), "polyhedron", "C", "1/3", None, "C$1/3", 'Shape.polyhedron("C", "1/3")'),
        (tv.Shape.polyhedron("C", tv.Fraction(3, 1)), "polyhedron", "C", "3/1", None, "C$3/1",
         'Shape.polyhedron("C", "3/1")'),
        (tv.Shape.polyhedron("D", -7), "polyhedron", "D", "-7", None, "D$-7", 'Shape.polyhedron("D", "-7")'),
        (tv.Shape.plane(tv.Fraction(-1, 2), "sqrt( 2 )", 2**63 - 1, "0"), "plane", None, "0",
         ("-1/2", "sqrt(2)", "9223372036854775807"), "-1/2,sqrt(2),9223372036854775807$0",
         'Shape.plane("-1/2", "sqrt(2)", "9223372036854775807", "0")'),
        (tv.Shape.parse("1, 0, 0$1/2"), "plane", None, "1/2", ("1", "0", "0"), "1,0,0$1/2",
         'Shape.plane("1", "0", "0", "1/2")'),
        (tv.Shape.polyhedron('a"b'), "polyhedron", 'a"b', "1", None, 'a"b$1', 'Shape.polyhedron("a\\"b", "1")'),
    ],
)
def test_shape_members(shape, kind, name, size, coefficients, text, representation):
    assert (shape.kind, shape.name, shape.size, shape.coefficients) == (kind, name, size, coefficients)
    assert str(shape) == text
    assert repr(shape) == representation


def test_shape_equality_is_structural_and_hash_follows_text():
    assert tv.Shape.parse("C$1/2") != tv.Shape.parse("C$2/4")
    assert tv.Shape.parse("C$0.5") != tv.Shape.parse("C$1/2")
    assert hash(tv.Shape.parse("C$0.5")) == hash(tv.Shape.parse("C$1/2"))
    assert tv.Shape.parse("C$1") == tv.Shape.polyhedron("C", 1)
    assert len({tv.Shape.parse("C$1"), tv.Shape.polyhedron("C"), tv.Shape.parse("O$1")}) == 2
    assert (tv.Shape.parse("C$1") == "C$1") is False
    assert tv.Shape.parse("C$1") != 1


def test_hash_is_siphash13_of_the_text():
    # CPython hashes bytes with SipHash-1-3, and with PYTHONHASHSEED=0 its key is zero.
    texts = ["C$1/3", "1,0,0$-1/2", "?shell=C$1&cut=C$1/3", "?"]
    script = "import sys; print([hash(t.encode() + b'\\xff') for t in sys.argv[1:]])"
    result = subprocess.run([sys.executable, "-c", script, *texts], capture_output=True, text=True, check=True,
                            env={**os.environ, "PYTHONHASHSEED": "0"})
    expected = eval(result.stdout)
    actual = [hash(tv.Shape.parse(t)) for t in texts[:2]] + [hash(tv.Recipe.parse(t)) for t in texts[2:3]]
    actual.append(hash(tv.Recipe()))
    assert actual == expected


@pytest.mark.parametrize("cls, a, b, message", [
    (tv.Shape, tv.Shape.parse("C$1"), tv.Shape.parse("C$2"), "shapes are not ordered"),
    (tv.Recipe, tv.Recipe.parse("?shell=C$1"), tv.Recipe(), "recipes are not ordered"),
])
def test_no_ordering(cls, a, b, message):
    for compare in (lambda: a < b, lambda: a <= b, lambda: a > b, lambda: a >= b):
        with pytest.raises(TypeError, match=f"^{message}$"):
            compare()
    with pytest.raises(TypeError, match="not supported"):
        a < 1


@pytest.mark.parametrize("make, error, message", [
    (lambda: tv.Shape.polyhedron("C,D"), ValueError, '"C,D" is not a polyhedron code'),
    (lambda: tv.Shape.polyhedron("C$"), ValueError, '"C$" is not a polyhedron code'),
    (lambda: tv.Shape.polyhedron("a&b=\n"), ValueError, '"a&b=\\n" is not a polyhedron code'),
    (lambda: tv.Shape.polyhedron(1), TypeError, "'int' object is not an instance of 'str'"),
    (lambda: tv.Shape.polyhedron("C", 1.5), TypeError,
     "expected an expression as text, an integer or a Fraction, not float"),
    (lambda: tv.Shape.polyhedron("C", "1+"), tv.PuzzleError, "Unexpected end of expression"),
    (lambda: tv.Shape.plane(1, 2, [], 3), TypeError,
     "expected an expression as text, an integer or a Fraction, not list"),
    (lambda: tv.Shape.plane(1, 2, 3, 2**64), TypeError,
     "expected an expression as text, an integer or a Fraction, not int"),
    (lambda: tv.Shape.polyhedron("C", 2**63), TypeError,
     "expected an expression as text, an integer or a Fraction, not int"),
    (lambda: tv.Shape.polyhedron("C", -2**63), tv.PuzzleError, "Number out of range"),
    (lambda: tv.Shape.parse("C"), tv.PuzzleError, "expected $"),
    (lambda: tv.Shape.parse(5), TypeError, "'int' object is not an instance of 'str'"),
    (lambda: tv.Shape(), TypeError, "cannot create"),
])
def test_shape_failures(make, error, message):
    with pytest.raises(error) as caught:
        make()
    assert message in str(caught.value)


def test_shape_argument_failures_name_the_argument():
    with pytest.raises(TypeError) as caught:
        tv.Shape.plane(1, 0, None, 0)
    assert caught.value.__notes__ == ["while processing 'c'"]
    # A polyhedron code that no row has is still a shape; it fails when built.
    assert tv.Shape.polyhedron("nonsense").name == "nonsense"


# ---- recipes --------------------------------------------------------------------------------


@settings(max_examples=100, deadline=None)
@given(st.lists(st.tuples(st.sampled_from(["shell", "cut"]), shape_texts), min_size=1, max_size=4))
def test_recipe_text_is_canonical(pieces):
    query = "?" + "&".join(f"{key}={value}" for key, value in pieces)
    recipe = tv.Recipe.parse(query)
    assert [str(s) for s in recipe.shell] == [str(tv.Shape.parse(v)) for k, v in pieces if k == "shell"]
    assert [str(s) for s in recipe.cuts] == [str(tv.Shape.parse(v)) for k, v in pieces if k == "cut"]
    again = tv.Recipe.parse(recipe.query)
    assert again.query == recipe.query == str(recipe)
    assert hash(again) == hash(recipe)
    assert eval(repr(recipe), {"Recipe": tv.Recipe}).query == recipe.query
    if without_decimals(query):
        assert again == recipe
        assert tv.Recipe(shell=recipe.shell, cuts=recipe.cuts) == recipe


@settings(max_examples=200, deadline=None)
@given(st.text(alphabet="?&=$%,.()+-*/^ 0123456789abcCDsqrtshellcut\u00e9\x00", max_size=40))
def test_arbitrary_queries_parse_or_fail_cleanly(text):
    try:
        recipe = tv.Recipe.parse(text)
    except tv.PuzzleError:
        return
    if recipe != tv.Recipe():  # the empty recipe prints as "?", which does not parse
        assert tv.Recipe.parse(recipe.query).query == recipe.query


@pytest.mark.parametrize("query, message", [
    ("?", "expected exactly one ="),
    ("?shell=C$1=2", "expected exactly one ="),
    ("shell=C$1", "expected ?"),
    ("?shell=C", "expected $"),
    ("?shell=C$1%", "URI malformed"),
    ("?shell=C$1%C3%A9", "Unexpected character <code>\u00e9</code>"),
])
def test_recipe_failures(query, message):
    with pytest.raises(tv.PuzzleError) as caught:
        tv.Recipe.parse(query)
    assert str(caught.value) == message


def test_unknown_keys_warn_on_standard_error(capfd):
    recipe = tv.Recipe.parse("?colour=red&shell=C$1&size=2")
    assert recipe.query == "?shell=C$1"
    assert capfd.readouterr().err == "warning: ignoring unknown key colour\nwarning: ignoring unknown key size\n"


def test_recipe_members():
    cube = tv.Shape.polyhedron("C")
    third = tv.Shape.polyhedron("C", "1/3")
    assert tv.Recipe().query == "?"
    assert tv.Recipe(None, None) == tv.Recipe()
    assert tv.Recipe().adding_cuts([cube]).query == "?cut=C$1"
    recipe = tv.Recipe([cube], cuts=(third,))
    assert recipe.query == "?shell=C$1&cut=C$1/3"
    assert repr(recipe) == 'Recipe.parse("?shell=C$1&cut=C$1/3")'
    assert recipe.shell == [cube] and recipe.cuts == [third]
    assert recipe.shell is not recipe.shell
    assert recipe.with_shell([]).query == "?cut=C$1/3"
    assert recipe.with_cuts([cube]).query == "?shell=C$1&cut=C$1"
    assert recipe.adding_cuts([cube, cube]).query == "?shell=C$1&cut=C$1/3&cut=C$1&cut=C$1"
    assert recipe.query == "?shell=C$1&cut=C$1/3"  # unchanged
    assert recipe != tv.Recipe([cube], [third, third])
    assert recipe != tv.Recipe(cuts=[third], shell=[cube, cube])


@pytest.mark.parametrize("make, error, message", [
    (lambda: tv.Recipe(shell="C$1"), TypeError, "Can't extract `str` to `Vec`"),
    (lambda: tv.Recipe(shell=["C$1"]), TypeError, "'str' object is not an instance of 'Shape'"),
    (lambda: tv.Recipe(cuts=5), TypeError, "'int' object is not an instance of 'Sequence'"),
    (lambda: tv.Recipe().with_cuts("C$1"), TypeError, "Can't extract `str` to `Vec`"),
    (lambda: tv.Recipe().adding_cuts(None), TypeError, "'None' is not an instance of 'Sequence'"),
    (lambda: tv.Recipe(shell=[], cuts=[], extra=1), TypeError, "unexpected keyword argument 'extra'"),
    (lambda: tv.Recipe.parse(None), TypeError, "'None' is not an instance of 'str'"),
])
def test_recipe_argument_failures(make, error, message):
    with pytest.raises(error) as caught:
        make()
    assert message in str(caught.value)


def test_shapes_without_text_raise_when_printed():
    shape = tv.Shape.parse("C$cbrt(2)")
    assert shape.name == "C"
    recipe = tv.Recipe([shape])
    for show in (str, repr, hash, lambda s: s.size):
        with pytest.raises(tv.PuzzleError, match="^generateExpr: invalid operation 'cbrt'$"):
            show(shape)
    for show in (str, repr, hash, lambda r: r.query):
        with pytest.raises(tv.PuzzleError, match="cbrt"):
            show(recipe)


def test_offset_evaluates_the_size_or_d():
    assert float(tv.Shape.polyhedron("D", "(1+sqrt(5))/2").offset()) == 1.618033988749895
    assert tv.Shape.parse("1,0,0$-1/2").offset() == tv.evaluate("-1/2")
    assert tv.Shape.parse("C$cbrt(8)").offset() == tv.Real.from_int(2)
    with pytest.raises(RuntimeError, match="Interval must contain exactly one root"):
        tv.Shape.parse("C$sqrt(-1)").offset()
    with pytest.raises(tv.PuzzleError, match="unknown operation 'x'"):
        tv.Shape.parse("1,2,3$x").offset()


# ---- the catalog ----------------------------------------------------------------------------


def test_catalog_rows():
    rows = tv.catalog()
    assert len(rows) == 85
    assert all(isinstance(row, tuple) and len(row) == 4 and all(isinstance(x, str) for x in row) for row in rows)
    assert rows[0] == ("Halpern-Meier Pyramid", "Tetrahedra", "Face/corner-turning", "?shell=T$1&cut=T$0")
    assert rows[-1] == ("Behemoth", "Other", "Catalan solids", "?shell=oC$1&cut=kT$0")
    recipes = [row[3] for row in rows]
    assert len(set(recipes)) == 85
    for recipe in recipes:
        assert tv.Recipe.parse(recipe).query == recipe


def test_non_jumbling_is_a_subsequence_of_the_catalog():
    recipes = iter(row[3] for row in tv.catalog())
    chosen = tv.non_jumbling()
    assert len(chosen) == 36
    assert all(any(r == wanted for r in recipes) for wanted in chosen)


def test_named_finds_every_unique_name():
    rows = tv.catalog()
    names = [row[0] for row in rows]
    for name, _, _, recipe in rows:
        if names.count(name) == 1:
            assert tv.Recipe.named(name).query == recipe
    assert names.count("Unknown") == 10
    assert all(names.count(n) == 1 for n in names if n != "Unknown")


def test_named_failures():
    with pytest.raises(ValueError) as caught:
        tv.Recipe.named("Unknown")
    unknown = [row[3] for row in tv.catalog() if row[0] == "Unknown"]
    assert str(caught.value) == (
        '10 cataloged puzzles are named "Unknown", build one by recipe instead: ' + ", ".join(unknown))
    for name in ("megaminx", "", "Megaminx ", 'Radiolarian 13.5'):
        with pytest.raises(ValueError, match="^no cataloged puzzle named "):
            tv.Recipe.named(name)
    with pytest.raises(ValueError) as caught:
        tv.Recipe.named('a"\\b\n')
    assert str(caught.value) == 'no cataloged puzzle named "a\\"\\\\b\\n"'
    assert tv.Recipe.named("Radiolarian \"13.5\"").query == "?shell=I$1&cut=I$(5-2*sqrt(5))/5"
    assert tv.Recipe.named("?shell=C$1") == tv.Recipe.parse("?shell=C$1")
    with pytest.raises(tv.PuzzleError, match="expected exactly one ="):
        tv.Recipe.named("?")
