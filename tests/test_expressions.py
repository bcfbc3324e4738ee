"""Exact expressions: parsing, canonical text and evaluation, against Python's fractions and mpmath."""

from fractions import Fraction

import mpmath
import pytest
from hypothesis import assume, given, settings, strategies as st

import torvane as tv

MPMATH_DIGITS = 60
mpmath.mp.dps = MPMATH_DIGITS  # for the values built at import


def canonical(text):
    """The canonical text of an expression, as a shape's size shows it."""
    return tv.Shape.parse("C$" + text).size


# ---- failures -------------------------------------------------------------------------------

# The parser's own messages are the C++ tests' business; these are the ones that cross the
# binding: text outside ASCII, and the failures that only evaluation finds.
PARSE_FAILURES = [
    ("", "Unexpected end of expression"),
    ("\u00a0", "Unexpected character <code>\u00a0</code>"),
    ("\u00e9", "Unexpected character <code>\u00e9</code>"),
    ("2^0", "exponent must be a fraction"),
    ("2^sqrt(2)", "exponent must be a fraction"),
    ("2^sqrt(4)", "exponent must be a fraction"),
    ("(-8)^(1/3)", "exponent of negative number must be an integer"),
    ("num", "num without a value"),
    ("sqrt", "sqrt must have an argument"),
    ("cbrt", "cbrt must have an argument"),
    ("neg", "neg must have an argument"),
    ("pi", "unknown operation 'pi'"),
    ("foo(1)", "unknown operation 'foo'"),
    ("(" * 100000 + "1" + ")" * 100000, "Expression nested too deeply: more than 256 levels"),
]


@pytest.mark.parametrize("text, message", PARSE_FAILURES, ids=[repr(t[:20]) for t, _ in PARSE_FAILURES])
@pytest.mark.parametrize("evaluate", [tv.evaluate, tv.Real.parse], ids=["evaluate", "Real.parse"])
def test_parse_failures(evaluate, text, message):
    with pytest.raises(tv.PuzzleError) as caught:
        evaluate(text)
    assert str(caught.value) == message


def test_a_long_chain_of_one_operator_is_no_nesting():
    assert tv.evaluate("+".join(["1"] * 100000)) == tv.Real.from_int(100000)
    shape = tv.Shape.polyhedron("C", "+".join(["1"] * 100000))
    assert tv.Shape.parse(str(shape)) == shape


@pytest.mark.parametrize("text, error, message", [
    ("2^-1", ValueError, ""),
    ("1/0", ZeroDivisionError, "Division by zero: "),
    ("1/(sqrt(2)-sqrt(2))", ZeroDivisionError, "Division by zero: "),
    ("sqrt(-1)", RuntimeError, "Interval must contain exactly one root"),
    ("cbrt(-8)", RuntimeError, "Interval must contain exactly one root"),
    ("2^(1/2000)", ValueError, "root index 2000 out of range"),
    ("2^2000000", ValueError, "exponent 2000000 out of range"),
    # Children are evaluated before their node: the unknown name does not get reported.
    ("foo(1/0)", ZeroDivisionError, "Division by zero: "),
    ("num(sqrt(-1))", RuntimeError, "Interval must contain exactly one root"),
])
def test_failures_from_the_arithmetic(text, error, message):
    with pytest.raises(error) as caught:
        tv.evaluate(text)
    assert str(caught.value).startswith(message)
    assert message or str(caught.value) == ""


def test_wrong_argument_types():
    with pytest.raises(TypeError, match="'int' object is not an instance of 'str'"):
        tv.evaluate(2)
    with pytest.raises(TypeError):
        tv.Real.parse()


# ---- values ---------------------------------------------------------------------------------


@pytest.mark.parametrize("text, value", [
    ("1 + 2", 3), (" 1+2 ", 3), ("-2^2", -4), ("2^3^2", 512), ("(-2)^3", -8), ("neg(2)", -2),
    ("1.5", Fraction(3, 2)), ("2.50 * 2", 5), ("9223372036854775807", 9223372036854775807),
    ("2^(3/2) * 2^(1/2)", 4), ("4^(1/2)", 2), ("sqrt(2)*sqrt(2)-2", 0), ("sqrt(8)-2*sqrt(2)", 0),
    ("cbrt(2)^3", 2), ("sqrt(0)", 0), ("(1+sqrt(5))/2 - 2/(sqrt(5)-1)", 0), ("0.1+0.2", Fraction(3, 10)),
])
def test_exact_values(text, value):
    number = tv.evaluate(text)
    assert number == tv.evaluate(f"{value.numerator}/{value.denominator}" if isinstance(value, Fraction) else
                                 str(abs(value)) if value >= 0 else f"-{-value}")
    assert float(number) == float(value)


def test_known_numbers():
    assert float(tv.evaluate("(1+sqrt(5))/2")) == 1.618033988749895
    assert tv.evaluate("4^(1/2)").field.startswith("Q(root of x² + -4 ")
    assert tv.evaluate("sqrt(2)-1414213562373095/1000000000000000").sign() == 1
    assert tv.evaluate("sqrt(2)-1414213562373096/1000000000000000").sign() == -1


# Random rational expressions, evaluated both here and by Python's exact fractions; the value
# is None when a zero divisor occurs anywhere in the expression.
@st.composite
def rational_expressions(draw, depth=4):
    if depth == 0 or draw(st.integers(0, 3)) == 0:
        n = draw(st.integers(0, 10**12))
        return str(n), Fraction(n)
    kind = draw(st.sampled_from("+-*/n^("))
    if kind in "n^(":
        text, value = draw(rational_expressions(depth - 1))
        if kind == "n":
            return f"-{text}" if text.isdigit() else f"-({text})", None if value is None else -value
        if kind == "(":
            return f"( {text} )", value
        exponent = draw(st.integers(1, 4))
        return f"({text})^{exponent}", None if value is None else value**exponent
    (a, x), (b, y) = draw(rational_expressions(depth - 1)), draw(rational_expressions(depth - 1))
    if x is None or y is None or (kind == "/" and y == 0):
        value = None
    else:
        value = {"+": x + y, "-": x - y, "*": x * y, "/": x / y if y else None}[kind]
    return f"({a}){kind}({b})", value


def exact_text(value):
    """Text for any rational, with every number token inside 64 bits."""
    def integer(n):
        digits = str(n)
        chunks = [digits[max(0, i - 9):i] for i in range(len(digits), 0, -9)][::-1]
        text = chunks[0]
        for chunk in chunks[1:]:
            text = f"({text})*1000000000+{int(chunk)}"
        return text
    sign = "-" if value < 0 else ""
    return f"{sign}({integer(abs(value.numerator))})/({integer(value.denominator)})"


def evaluated_or_none(text):
    try:
        return tv.evaluate(text)
    except ZeroDivisionError:
        return None


@settings(max_examples=200, deadline=None)
@given(rational_expressions())
def test_rational_expressions_against_fractions(case):
    text, value = case
    number = evaluated_or_none(text)
    assert (number is None) == (value is None)
    if number is None:
        return
    assert number == tv.evaluate(exact_text(value))
    if abs(value) < 2**1024:  # Python's float() of a larger fractions.Fraction raises
        assert float(number) == float(value)
    assert number.sign() == (value > 0) - (value < 0)
    # Canonical text evaluates to the same number.
    assert tv.evaluate(canonical(text)) == number


# Nested square and cube roots, against a 60-digit mpmath evaluation.
@st.composite
def radical_expressions(draw, depth=3):
    if depth == 0 or draw(st.integers(0, 2)) == 0:
        n, d = draw(st.integers(0, 50)), draw(st.integers(1, 9))
        return f"{n}/{d}", mpmath.mpf(n) / d
    kind = draw(st.sampled_from(["+", "-", "*", "sqrt", "cbrt"]))
    if kind in ("sqrt", "cbrt"):
        text, value = draw(radical_expressions(depth - 1))
        if value < 0:
            text, value = f"-({text})", -value
        return f"{kind}({text})", mpmath.sqrt(value) if kind == "sqrt" else mpmath.cbrt(value)
    (a, x), (b, y) = draw(radical_expressions(depth - 1)), draw(radical_expressions(depth - 1))
    value = {"+": x + y, "-": x - y, "*": x * y}[kind]
    return f"({a}){kind}({b})", value


@settings(max_examples=60, deadline=None)
@given(radical_expressions())
def test_radical_expressions_against_mpmath(case):
    text, value = case
    assume(abs(value) > mpmath.mpf(10) ** -30)  # a tiny value would need more digits to check
    number = tv.evaluate(text)
    assert number.sign() == (1 if value > 0 else -1)
    assert float(number) == pytest.approx(float(value), rel=1e-15, abs=0)


# ---- canonical text -------------------------------------------------------------------------


@settings(max_examples=150, deadline=None)
@given(rational_expressions())
def test_canonical_text_is_stable(case):
    text, _ = case
    once = canonical(text)
    assert canonical(once) == once
    # Without decimals the canonical text parses to the very same tree.
    assert tv.Shape.parse("C$" + once) == tv.Shape.parse("C$" + text)


def test_cube_roots_evaluate_but_have_no_text():
    assert float(tv.evaluate("cbrt(2)")) == pytest.approx(2 ** (1 / 3))
    with pytest.raises(tv.PuzzleError, match="^generateExpr: invalid operation 'cbrt'$"):
        canonical("cbrt(2)")
