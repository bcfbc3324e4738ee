"""Writes src/polyhedra_rows.inc: the 38 rows of the polyhedron table, derived from their solids.

A row is the list of face planes a*x + b*y + c*z + d = 0 of one polyhedron, normals pointing
out, written in the table's prefix language: `n<p>/<q>;` a rational, `A` a sum and `M` a
product of the two expressions that follow, `P` a power (base, then exponent) and `S` the
size. S occurs only in d, and d is S times a constant of the row, so normals never depend on
the size. Rows come in four families, one function each:

* fixed rows (`fixed_row`): eleven rows whose text is fixed (tools/polyhedra_fixed.txt),
  copied verbatim and checked against the solid they stand for;
* direct rows (`direct_row`): the face planes of a prism or antiprism of edge 1, found as the
  planes through three of its vertices that have every vertex on one side;
* dual rows (`dual_row`): one plane per vertex v of a uniform polyhedron of edge 1 with
  circumradius R, the polar plane v . x = R^2 - 1/4 in the sphere through the edge midpoints;
* orbit rows (`orbit_row`): the orbit of a fixed first plane under the 48 isometries of the
  cube or the 120 of the icosahedron; where the dual solid is convex, the orbit is also checked
  against that solid's polar planes.

The solids are orbits of one seed vertex under their symmetry group, with the seed placed at
edge 1, so every coordinate is exact. All arithmetic happens in one number field per row
(SymPy's algebraic fields): equality is exact, and a sign is read off a rational interval
around the field's generator that is narrowed until it decides, so no decision reads a float.
Floats only pick candidates (the corners of a face) that are then verified exactly, order
planes that are already exact, and print the distances compared with the table.

Every row is checked to bound a closed solid on which each plane carries a face: all planes
keep the centre strictly inside; the normals sum to zero and span space, so no direction u
has n . u <= 0 for every normal n and the solid is bounded; and each plane holds three
non-collinear corners of the solid, each verified exactly against every plane. Counts,
distances, the closure of the row under its symmetry group, and the reading of the written
text back to the same exact planes are checked too.

Orientations: the cube's rows have the coordinate axes as 4-fold axes; the icosahedron's
have vertices (0, +-phi, +-1)/2 and their cyclic shifts; prisms and antiprisms stand on the
z axis with a vertex above +y, except the pentagonal antiprism, which is the icosahedron
without its vertices on the axis (0, phi, 1) so that it needs no root but sqrt(5). The gC
row is the dual of the snub cube through (1, 1/t, t) (t the tribonacci constant) and its
images under the cube's rotations: even permutations with an odd number of plus signs and
odd permutations with an even number.

Run from the repository root: .venv/bin/python tools/polyhedra.py [code ...]; with codes it
only checks those rows.
"""

import itertools
import math
import pathlib
import sys
from fractions import Fraction

import mpmath
import numpy as np
from sympy import QQ, Poly, Pow, Rational, cbrt, sqrt, sympify
from sympy.core.add import Add
from sympy.core.mul import Mul

ROOT = pathlib.Path(__file__).resolve().parent.parent
FIXED = ROOT / "tools" / "polyhedra_fixed.txt"
OUTPUT = ROOT / "src" / "polyhedra_rows.inc"

mpmath.mp.dps = 40


# ---------------------------------------------------------------------------------------------
# Exact numbers: one field Q(alpha) per row.


class Atom:
    """A basis element of a field: its prefix text and its value."""

    def __init__(self, text, value):
        self.text, self.value = text, value

    def __mul__(self, other):
        return Atom("M" + self.text + other.text, self.value * other.value)


class Field:
    """Q(alpha) for SymPy radical expressions `generators`; `atoms` names a Q-basis besides 1."""

    def __init__(self, generators, make_atoms):
        self.K = QQ.algebraic_field(*generators)
        self._radicals = {}
        self.minpoly = Poly(self.K.ext.minpoly.as_expr())
        approximation = mpmath.mpf(str(self.K.ext.evalf(60)))
        self.lo, self.hi = next(
            (Fraction(str(lo)), Fraction(str(hi)))
            for (lo, hi), _ in self.minpoly.intervals()
            if lo <= approximation <= hi)
        self.alpha = approximation
        self.atoms = [Atom("", self.one)] + make_atoms(self)
        self._basis_inverse = self._invert_basis()

    # -- making numbers
    @property
    def one(self):
        return Num(self, self.K.one)

    def rational(self, q):
        q = Fraction(q)
        return Num(self, self.K.convert(QQ(q.numerator, q.denominator)))

    def radical(self, expression):
        """The value of a SymPy expression known to lie in the field."""
        expression = sympify(expression)
        if expression not in self._radicals:
            self._radicals[expression] = Num(self, self.K.from_sympy(expression))
        return self._radicals[expression]

    def atom(self, expression):
        return Atom(write_expression(expression), self.radical(expression))

    # -- reading numbers
    def sign(self, value):
        coefficients = [Fraction(str(c)) for c in value.to_list()]
        if not coefficients:
            return 0
        while True:
            lo, hi = coefficients[0], coefficients[0]
            for c in coefficients[1:]:
                products = (lo * self.lo, lo * self.hi, hi * self.lo, hi * self.hi)
                lo, hi = min(products) + c, max(products) + c
            if lo > 0:
                return 1
            if hi < 0:
                return -1
            # Non-zero over an irreducible min_poly: a narrower interval will decide.
            width = (self.hi - self.lo) / 2**40
            lo_, hi_ = self.minpoly.refine_root(Rational(self.lo.numerator, self.lo.denominator),
                                                Rational(self.hi.numerator, self.hi.denominator),
                                                eps=Rational(width.numerator, width.denominator))
            self.lo, self.hi = Fraction(str(lo_)), Fraction(str(hi_))

    def to_mpf(self, value):
        result = mpmath.mpf(0)
        for c in value.to_list():
            result = result * self.alpha + mpmath.mpf(int(c.p)) / int(c.q)
        return result

    def coordinates(self, value):
        """Rational coordinates of a number in the basis 1, atoms."""
        vector = self._vector(value.v)
        return [sum((row[j] * vector[j] for j in range(len(vector))), Fraction(0))
                for row in self._basis_inverse]

    def _vector(self, element):
        coefficients = [Fraction(str(c)) for c in element.to_list()]
        degree = self.minpoly.degree()
        return [Fraction(0)] * (degree - len(coefficients)) + coefficients

    def _invert_basis(self):
        columns = [self._vector(atom.value.v) for atom in self.atoms]
        size = self.minpoly.degree()
        if len(columns) != size:
            raise ValueError(f"{len(columns)} atoms for a field of degree {size}")
        matrix = [[columns[j][i] for j in range(size)] + [Fraction(int(i == k)) for k in range(size)]
                  for i in range(size)]
        for col in range(size):
            pivot = next(r for r in range(col, size) if matrix[r][col] != 0)
            matrix[col], matrix[pivot] = matrix[pivot], matrix[col]
            matrix[col] = [x / matrix[col][col] for x in matrix[col]]
            for r in range(size):
                if r != col and matrix[r][col] != 0:
                    matrix[r] = [x - matrix[r][col] * y for x, y in zip(matrix[r], matrix[col])]
        return [row[size:] for row in matrix]


class Num:
    """An element of a Field, with exact arithmetic and an exact sign."""

    __slots__ = ("field", "v")

    def __init__(self, field, v):
        self.field, self.v = field, v

    def _other(self, other):
        return other.v if isinstance(other, Num) else self.field.rational(other).v

    def __add__(self, other):
        return Num(self.field, self.v + self._other(other))

    __radd__ = __add__

    def __sub__(self, other):
        return Num(self.field, self.v - self._other(other))

    def __rsub__(self, other):
        return Num(self.field, self._other(other) - self.v)

    def __mul__(self, other):
        return Num(self.field, self.v * self._other(other))

    __rmul__ = __mul__

    def __truediv__(self, other):
        return Num(self.field, self.v / self._other(other))

    def __rtruediv__(self, other):
        return Num(self.field, self._other(other) / self.v)

    def __neg__(self):
        return Num(self.field, -self.v)

    def __pow__(self, exponent):
        result = self.field.one
        for _ in range(exponent):
            result = result * self
        return result

    def __eq__(self, other):
        return self.v == self._other(other)

    def __hash__(self):
        return hash(self.key())

    def key(self):
        return tuple(str(c) for c in self.v.to_list())

    def sign(self):
        return self.field.sign(self.v)

    def rational(self):
        """The value as a Fraction, or None when it is irrational."""
        coefficients = self.v.to_list()
        return Fraction(str(coefficients[0])) if len(coefficients) == 1 else Fraction(0) if not coefficients else None

    def to_mpf(self):
        return self.field.to_mpf(self.v)

    def __float__(self):
        return float(self.to_mpf())


# ---------------------------------------------------------------------------------------------
# Vectors, planes and groups. A plane is (normal, d) with d the constant at size 1.


def dot(u, v):
    return u[0] * v[0] + u[1] * v[1] + u[2] * v[2]


def cross(u, v):
    return (u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0])


def minus(u, v):
    return tuple(a - b for a, b in zip(u, v))


def scaled(u, k):
    return tuple(a * k for a in u)


def is_zero_vector(u):
    return all(a == 0 for a in u)


def vector_key(u):
    return tuple(a.key() for a in u)


def plane_key(plane):
    normal, d = plane
    return vector_key(normal) + (d.key(),)


def direction_key(plane):
    """Equal for two planes that differ by a positive factor (d is never zero here)."""
    normal, d = plane
    return vector_key(scaled(normal, 1 / -d))


def apply(matrix, u):
    return tuple(dot(row, u) for row in matrix)


def determinant(m):
    return dot(m[0], cross(m[1], m[2]))


def solve(rows, rhs):
    """The point x with rows[i] . x = rhs[i], by Cramer's rule; None if the rows are dependent."""
    det = determinant(rows)
    if det == 0:
        return None
    columns = list(zip(*rows))
    result = []
    for i in range(3):
        replaced = [list(col) for col in columns]
        replaced[i] = list(rhs)
        result.append(determinant(list(zip(*replaced))) / det)
    return tuple(result)


def unique(items, key):
    seen, result = set(), []
    for item in items:
        k = key(item)
        if k not in seen:
            seen.add(k)
            result.append(item)
    return result


def symmetry_group(points, rotations_only=False):
    """Every orthogonal map fixing the centre that permutes `points` (which must span space),
    the identity first. A map is fixed by the images of three independent points, so it is
    enough to try every image triple with the same Gram matrix."""
    field = points[0][0].field
    basis = [points[0]]
    basis.append(next(p for p in points if not is_zero_vector(cross(basis[0], p))))
    basis.append(next(p for p in points if determinant([basis[0], basis[1], p]) != 0))
    inverse = [solve(basis, [field.one if i == j else field.rational(0) for i in range(3)]) for j in range(3)]
    inverse = list(zip(*inverse))  # inverse[c][k]: entry c of the solution for basis[k]
    members = {vector_key(p) for p in points}
    gram = [[dot(p, q) for q in basis] for p in basis]
    group = []
    for images in itertools.product(points, repeat=3):
        if any(dot(images[i], images[j]) != gram[i][j] for i in range(3) for j in range(i, 3)):
            continue
        # The map sends basis[k] to images[k]: M[r][c] = sum_k images[k][r] * inverse[c][k].
        matrix = tuple(tuple(sum((images[k][r] * inverse[c][k] for k in range(3)), field.rational(0))
                             for c in range(3)) for r in range(3))
        if rotations_only and determinant(matrix).sign() < 0:
            continue
        if all(vector_key(apply(matrix, p)) in members for p in points):
            group.append(matrix)
    identity = tuple(tuple(field.one if r == c else field.rational(0) for c in range(3)) for r in range(3))
    group.sort(key=lambda m: m != identity)
    return group


def orbit(group, seed, transform, key):
    return unique((transform(g, seed) for g in group), key)


def move_point(g, p):
    return apply(g, p)


def move_plane(g, plane):
    return (apply(g, plane[0]), plane[1])


def point_orbit(group, seed):
    return orbit(group, seed, move_point, vector_key)


def plane_orbit(group, seed):
    return orbit(group, seed, move_plane, plane_key)


def rational_content(numbers):
    """The positive rational c with every coordinate of numbers/c an integer, coprime overall."""
    coordinates = [q for x in numbers for q in x.field.coordinates(x) if q != 0]
    numerator = math.gcd(*(q.numerator for q in coordinates))
    denominator = math.lcm(*(q.denominator for q in coordinates))
    return Fraction(numerator, denominator)


# ---------------------------------------------------------------------------------------------
# The prefix language.


def write_rational(q):
    q = Fraction(q)
    return f"n{q.numerator}/{q.denominator};"


def write_expression(e):
    """Prefix text of a SymPy radical expression: powers only of positive bases by positive
    exponents, since the table's reader takes roots of positive numbers only."""
    if e.is_Rational:
        return write_rational(Fraction(int(e.p), int(e.q)))
    if isinstance(e, (Add, Mul)):
        head, *rest = e.args
        tail = rest[0] if len(rest) == 1 else e.func(*rest, evaluate=False)
        return ("A" if isinstance(e, Add) else "M") + write_expression(head) + write_expression(tail)
    if isinstance(e, Pow):
        base, exponent = e.args
        if not (exponent.is_Rational and exponent > 0 and (exponent.q == 1 or base.evalf() > 0)):
            raise ValueError(f"cannot write {e}")
        return "P" + write_expression(base) + write_expression(exponent)
    raise ValueError(f"cannot write {e}")


def write_sum(field, terms):
    """sum of c * atom, rational term first: `A t1 A t2 t3`; `n0/1;` when empty."""
    texts = []
    for c, atom in terms:
        if atom.text == "":
            texts.append(write_rational(c))
        else:
            texts.append(atom.text if c == 1 else "M" + write_rational(c) + atom.text)
    if not texts:
        return write_rational(0)
    text = texts[-1]
    for t in reversed(texts[:-1]):
        text = "A" + t + text
    return text


def terms_of(x):
    field = x.field
    return [(c, atom) for c, atom in zip(field.coordinates(x), field.atoms) if c != 0]


def write_number(x):
    return write_sum(x.field, terms_of(x))


def write_offset(x):
    """d = S * x, as `M c S` for a rational x, else `M c M S X` with X the atom (single term)
    or the coprime integer combination of atoms with c > 0."""
    terms = terms_of(x)
    if all(atom.text == "" for _, atom in terms):
        c = terms[0][0] if terms else Fraction(0)
        return "S" if c == 1 else "M" + write_rational(c) + "S"
    if len(terms) == 1:
        c, atom = terms[0]
        factor, combination = c, atom.text
    else:
        factor = rational_content([x])
        combination = write_sum(x.field, [(c / factor, atom) for c, atom in terms])
    scaled_size = "MS" + combination
    return scaled_size if factor == 1 else "M" + write_rational(factor) + scaled_size


def write_plane(plane):
    normal, d = plane
    return "".join(write_number(a) for a in normal) + write_offset(d)


class Reader:
    """Reads a row's text into exact planes, each coefficient a polynomial in S (a list of
    Nums, lowest power first), and keeps each plane's text."""

    def __init__(self, field, text):
        self.field, self.text, self.at = field, text, 0

    def planes(self):
        result = []
        while self.at < len(self.text):
            start = self.at
            a, b, c, d = (self.expression() for _ in range(4))
            for coefficient in (a, b, c):
                if len(coefficient) > 1:
                    raise ValueError(f"size in a normal: {self.text[start:self.at]}")
            if len(d) != 2 or d[0] != 0:
                raise ValueError(f"d is not the size times a constant: {self.text[start:self.at]}")
            result.append(((a[0], b[0], c[0]), d[1], self.text[start:self.at]))
        return result

    def expression(self):
        byte = self.text[self.at]
        self.at += 1
        if byte == "n":
            end = self.text.index(";", self.at)
            literal, self.at = self.text[self.at:end], end + 1
            return [self.field.rational(Fraction(literal))]
        if byte == "S":
            return [self.field.rational(0), self.field.one]
        x, y = self.expression(), self.expression()
        if byte == "A":
            return [sum(pair, self.field.rational(0))
                    for pair in itertools.zip_longest(x, y, fillvalue=self.field.rational(0))]
        if byte == "M":
            product = [self.field.rational(0)] * (len(x) + len(y) - 1)
            for i, xi in enumerate(x):
                for j, yj in enumerate(y):
                    product[i + j] = product[i + j] + xi * yj
            return product
        if byte == "P":
            if len(x) > 1 or len(y) > 1 or y[0].rational() is None:
                raise ValueError("power of the size, or an irrational exponent")
            return [self.power(x[0], y[0].rational())]
        raise ValueError(f"unexpected byte {byte!r}")

    def power(self, base, exponent):
        """base^(p/q) for a positive base: an integer power, a root of a rational, or an atom
        of the field whose q-th power is base^p."""
        p, q = exponent.numerator, exponent.denominator
        if p < 0 or base.sign() < 0 and q > 1:
            raise ValueError("negative exponent, or a root of a negative number")
        if q == 1:
            return base ** p
        if base.rational() is not None:
            return self.field.radical(Pow(Rational(base.rational().numerator, base.rational().denominator),
                                          Rational(p, q)))
        for atom in self.field.atoms:
            if atom.value.sign() > 0 and atom.value ** q == base ** p:
                return atom.value
        raise ValueError("a root that is not an atom of the field")


# ---------------------------------------------------------------------------------------------
# Fields of the rows and the solids.


def field_sqrt(k):
    return Field([sqrt(k)], lambda f: [f.atom(sqrt(k))])


PHI = (1 + sqrt(5)) / 2
SIN72 = sqrt(10 + 2 * sqrt(5))  # 4 sin 72 degrees
SIN36 = sqrt(10 - 2 * sqrt(5))  # 4 sin 36 degrees
# The snub cube's numbers. u is a real cube root of a positive number; the other real cube
# root that Cardano's formula for t^3 = t^2 + t + 1 needs is 4/u, so the tribonacci constant
# t = (1 + u + 4/u) / 3 lies in Q(u), which has degree 6 (u^6 = 38 u^3 - 64).
CUBE_ROOT = cbrt(19 + 3 * sqrt(33))
TRIBONACCI = (1 + CUBE_ROOT + cbrt(19 - 3 * sqrt(33))) / 3
SNUB_EDGE = sqrt(-2 * TRIBONACCI**2 + 4 * TRIBONACCI + 2)  # the edge of the snub cube with vertex (1, 1/t, t)


def pentagon_field():
    return Field([SIN36], lambda f: [f.atom(sqrt(5)), f.atom(SIN36), f.atom(SIN72)])


def fourth_root_field():
    return Field([2 ** Rational(1, 4)], lambda f: [f.atom(2 ** Rational(k, 4)) for k in (1, 2, 3)])


def hexagonal_antiprism_field():
    height = sqrt(sqrt(3) - 1)
    return Field([height], lambda f: [f.atom(sqrt(3)), f.atom(height), f.atom(sqrt(3 * sqrt(3) - 3))])


def cube_root_polynomial(value_in_t):
    """Coefficients of u^0 .. u^5 of a polynomial in t (coefficients lowest first), with
    t = (1 + u + 4/u) / 3 and 4/u = (38 u^2 - u^5) / 16, reduced by u^6 = 38 u^3 - 64."""
    def times(p, q):
        product = [Fraction(0)] * 11
        for i, a in enumerate(p):
            for j, b in enumerate(q):
                product[i + j] += a * b
        for k in range(10, 5, -1):  # u^k = 38 u^(k-3) - 64 u^(k-6)
            product[k - 3] += 38 * product[k]
            product[k - 6] -= 64 * product[k]
        return product[:6]

    t = [Fraction(1, 3), Fraction(1, 3), Fraction(38, 48), Fraction(0), Fraction(0), Fraction(-1, 48)]
    result, power = [Fraction(0)] * 6, [Fraction(1)] + [Fraction(0)] * 5
    for c in value_in_t:
        result = [r + c * x for r, x in zip(result, power)]
        power = times(power, t)
    return result


def snub_field():
    """Q(u, edge), of degree 12, for the snub cube. Every number is written over the one
    radical u, in integer powers, and one square root (the edge), so that evaluating a row
    makes copies of two fields and nothing else to merge."""
    def atoms(field):
        u = field.atom(CUBE_ROOT)
        powers = [Atom("", field.one), u] + [Atom("P" + u.text + f"n{k}/1;", u.value ** k) for k in range(2, 6)]
        edge2 = cube_root_polynomial([2, 4, -2])
        if sum((c * p.value for c, p in zip(edge2, powers)), field.rational(0)) != field.radical(SNUB_EDGE) ** 2:
            raise AssertionError("the edge's square is not that polynomial in u")
        edge = Atom("P" + write_sum(field, list(zip(edge2, powers))) + "n1/2;", field.radical(SNUB_EDGE))
        return powers[1:] + [p * edge if p.text else edge for p in powers]

    return Field([CUBE_ROOT, SNUB_EDGE], atoms)


def vec(field, *coordinates):
    return tuple(c if isinstance(c, Num) else field.radical(c) if hasattr(c, "free_symbols")
                 else field.rational(c) for c in coordinates)


def cube_group(field, rotations_only=False):
    return symmetry_group([vec(field, *s) for s in itertools.product((1, -1), repeat=3)], rotations_only)


def tetrahedron_group(field):
    return symmetry_group([vec(field, *s) for s in itertools.product((1, -1), repeat=3) if s[0] * s[1] * s[2] > 0])


def icosahedron_vertices(field):
    phi = field.radical(PHI)
    seeds = [vec(field, 0, phi * s, Fraction(t, 2)) for s in (Fraction(1, 2), Fraction(-1, 2)) for t in (1, -1)]
    return [p[i:] + p[:i] for i in range(3) for p in seeds]


def icosahedron_group(field):
    return symmetry_group(icosahedron_vertices(field))


class Solid:
    """A vertex set of edge 1 and the group used to make it."""

    def __init__(self, name, vertices, group, count, degree=None):
        self.name, self.vertices, self.group = name, vertices, group
        if len(vertices) != count:
            raise AssertionError(f"{name}: {len(vertices)} vertices, expected {count}")
        if degree is not None:
            check_uniform(self, degree)


def check_uniform(solid, degree):
    """Every vertex has `degree` neighbours at distance 1 and none nearer."""
    for p in solid.vertices:
        distances = [dot(minus(p, q), minus(p, q)) for q in solid.vertices if q is not p]
        if any((d - 1).sign() < 0 for d in distances) or sum(d == 1 for d in distances) != degree:
            raise AssertionError(f"{solid.name} is not uniform of edge 1")


def seeded(name, group, seed, count, degree):
    return Solid(name, point_orbit(group, seed), group, count, degree)


def cubic_solid(field, name, seed, count, degree, rotations_only=False):
    return seeded(name, cube_group(field, rotations_only), vec(field, *seed), count, degree)


def icosahedral_solid(field, name, seed, count, degree):
    return seeded(name, icosahedron_group(field), vec(field, *seed), count, degree)


def tetrahedron(field):
    r = sqrt(2) / 4
    return seeded("tetrahedron", tetrahedron_group(field), vec(field, -r, -r, -r), 4, 3)


def truncated_tetrahedron(field):
    r = sqrt(2) / 4
    return seeded("truncated tetrahedron", tetrahedron_group(field), vec(field, -3 * r, -r, -r), 12, 3)


def snub_cube(field):
    u = field.atoms[1].value
    t = (1 + u + 4 / u) / 3
    scale = 1 / field.atoms[6].value
    return seeded("snub cube", cube_group(field, rotations_only=True),
                  tuple(x * scale for x in (field.one, 1 / t, t)), 24, 5)


def rotation_about_z(field, cosine, sine):
    zero, one = field.rational(0), field.one
    return ((cosine, -sine, zero), (sine, cosine, zero), (zero, zero, one))


def ring(field, first, turn, count):
    points = [first]
    for _ in range(count - 1):
        points.append(apply(turn, points[-1]))
    return points


def prism(field, n, cosine, sine, radius):
    """Edge 1, axis z, a vertex over the +y axis at each end."""
    turn = rotation_about_z(field, field.radical(cosine), field.radical(sine))
    r = field.radical(radius)
    top = ring(field, vec(field, 0, r, Fraction(1, 2)), turn, n)
    vertices = top + [(x, y, -z) for x, y, z in top]
    return Solid(f"prism {n}", vertices, symmetry_group(vertices), 2 * n, 3)


def antiprism(field, n, cosine, sine, half_cosine, half_sine, radius, height):
    """Edge 1, axis z, a vertex over the +y axis at the top, the bottom turned by half a step."""
    turn = rotation_about_z(field, field.radical(cosine), field.radical(sine))
    half_turn = rotation_about_z(field, field.radical(half_cosine), field.radical(half_sine))
    r, h = field.radical(radius), field.radical(height) / 2
    top = ring(field, vec(field, 0, r, h), turn, n)
    bottom = [(x, y, -z) for x, y, z in (apply(half_turn, p) for p in top)]
    vertices = top + bottom
    return Solid(f"antiprism {n}", vertices, symmetry_group(vertices), 2 * n, 4)


def pentagonal_antiprism(field):
    """The icosahedron of edge 1 without the vertex pair on the axis (0, phi, 1), which keeps
    every coordinate in Q(sqrt(5))."""
    axis = icosahedron_vertices(field)[0]
    vertices = [p for p in icosahedron_vertices(field) if p != axis and p != tuple(-x for x in axis)]
    return Solid("antiprism 5", vertices, symmetry_group(vertices), 10, 4)


SOLIDS = {
    "cube": lambda f: cubic_solid(f, "cube", (Fraction(1, 2),) * 3, 8, 3),
    "octahedron": lambda f: cubic_solid(f, "octahedron", (sqrt(2) / 2, 0, 0), 6, 4),
    "tetrahedron": tetrahedron,
    "dodecahedron": lambda f: icosahedral_solid(f, "dodecahedron", (PHI / 2,) * 3, 20, 3),
    "icosahedron": lambda f: icosahedral_solid(f, "icosahedron", (0, PHI / 2, Rational(1, 2)), 12, 5),
    "cuboctahedron": lambda f: cubic_solid(f, "cuboctahedron", (sqrt(2) / 2, sqrt(2) / 2, 0), 12, 4),
    "truncated tetrahedron": truncated_tetrahedron,
    "truncated octahedron": lambda f: cubic_solid(f, "truncated octahedron", (0, sqrt(2) / 2, sqrt(2)), 24, 3),
    "truncated cube": lambda f: cubic_solid(
        f, "truncated cube", (Rational(1, 2), (1 + sqrt(2)) / 2, (1 + sqrt(2)) / 2), 24, 3),
    "rhombicuboctahedron": lambda f: cubic_solid(
        f, "rhombicuboctahedron", (Rational(1, 2), Rational(1, 2), (1 + sqrt(2)) / 2), 24, 4),
    "truncated cuboctahedron": lambda f: cubic_solid(
        f, "truncated cuboctahedron", (Rational(1, 2), (1 + sqrt(2)) / 2, (1 + 2 * sqrt(2)) / 2), 48, 3),
    "snub cube": snub_cube,
    "icosidodecahedron": lambda f: icosahedral_solid(f, "icosidodecahedron", (0, PHI, 0), 30, 4),
    "truncated icosahedron": lambda f: icosahedral_solid(
        f, "truncated icosahedron", (0, 3 * PHI / 2, Rational(1, 2)), 60, 3),
    "truncated dodecahedron": lambda f: icosahedral_solid(
        f, "truncated dodecahedron", (0, Rational(1, 2), (3 * PHI + 1) / 2), 60, 3),
    "rhombicosidodecahedron": lambda f: icosahedral_solid(
        f, "rhombicosidodecahedron", (Rational(1, 2), Rational(1, 2), PHI**3 / 2), 60, 4),
    "truncated icosidodecahedron": lambda f: icosahedral_solid(
        f, "truncated icosidodecahedron", (Rational(1, 2), Rational(1, 2), (4 * PHI + 1) / 2), 120, 3),
    "prism 3": lambda f: prism(f, 3, Rational(-1, 2), sqrt(3) / 2, sqrt(3) / 3),
    "prism 5": lambda f: prism(f, 5, (sqrt(5) - 1) / 4, SIN72 / 4, 2 / SIN36),
    "prism 6": lambda f: prism(f, 6, Rational(1, 2), sqrt(3) / 2, 1),
    "antiprism 4": lambda f: antiprism(f, 4, 0, 1, sqrt(2) / 2, sqrt(2) / 2, sqrt(2) / 2, 2 ** Rational(-1, 4)),
    "antiprism 5": pentagonal_antiprism,
    "antiprism 6": lambda f: antiprism(f, 6, Rational(1, 2), sqrt(3) / 2, sqrt(3) / 2, Rational(1, 2), 1,
                                       sqrt(sqrt(3) - 1)),
}


# ---------------------------------------------------------------------------------------------
# The four families of rows. Each returns the row's planes as (normal, d, text).


def rescaled(planes, factor):
    return [(scaled(n, factor), d * factor) for n, d in planes]


def coprime(planes):
    """Planes scaled by the one positive rational that makes the coordinates of the normals
    coprime integers."""
    return rescaled(planes, 1 / rational_content([a for n, _ in planes for a in n]))


def normalised(planes):
    """Planes scaled each to d = -1, then by one positive rational (`coprime`). Planes of one
    orbit have one d, so they stay exact images of each other."""
    return coprime([(scaled(n, 1 / -d), d / -d) for n, d in planes])


def with_text(planes):
    return [(n, d, write_plane((n, d))) for n, d in planes]


def face_planes(solid):
    """The planes through three vertices that have every vertex on their inner side."""
    faces = []
    for p, q, r in itertools.combinations(solid.vertices, 3):
        normal = cross(minus(q, p), minus(r, p))
        if is_zero_vector(normal):
            continue
        if dot(normal, p).sign() < 0:
            normal = scaled(normal, -1)
        d = -dot(normal, p)
        if all((dot(normal, v) + d).sign() <= 0 for v in solid.vertices):
            faces.append((normal, d))
    return unique(faces, direction_key)


def polar_planes(solid):
    """v . x = R^2 - 1/4 for every vertex v, all at the same circumradius R."""
    radius2 = dot(solid.vertices[0], solid.vertices[0])
    if any(dot(v, v) != radius2 for v in solid.vertices):
        raise AssertionError(f"{solid.name} has no circumsphere")
    return [(v, -(radius2 - Fraction(1, 4))) for v in solid.vertices]


def by_orbits(planes, group):
    """Each plane, in order, replaced by its orbit under `group` unless an earlier orbit holds it:
    the images of one representative are exact copies, which makes the row closed."""
    result, seen = [], set()
    for plane in planes:
        if direction_key(plane) in seen:
            continue
        images = plane_orbit(group, plane)
        seen.update(direction_key(p) for p in images)
        result.extend(images)
    return result


def axial_order(planes, axis):
    """Presentation order for a solid with an axis: first the planes not perpendicular to it
    (sides), those whose normal leans to +axis before those leaning to -axis, then the two
    caps, +axis first; within each class counter-clockwise around the axis from the +x side.
    Floats only order planes that are already exact."""
    axis = np.array([float(a) for a in axis])
    axis /= np.linalg.norm(axis)
    first = np.cross(axis, [0.0, 0.0, 1.0]) if abs(axis[2]) < 0.99 else np.array([1.0, 0.0, 0.0])
    second = np.cross(axis, first)

    def key(plane):
        n = np.array([float(a) for a in plane[0]])
        n /= np.linalg.norm(n)
        along = float(n @ axis)
        lean = 0 if abs(along) < 1e-9 else -1 if along > 0 else 1
        return abs(abs(along) - 1) < 1e-9, lean, math.atan2(float(n @ second), float(n @ first)) % (2 * math.pi)

    return sorted(planes, key=key)


def direct_row(field, solid_name, axis):
    solid = SOLIDS[solid_name](field)
    planes = normalised(by_orbits(face_planes(solid), solid.group))
    return with_text(axial_order(planes, axis)), solid.group


def dual_row(field, solid_name, axis=None, offset_atom=None):
    """Polar planes of a uniform solid; `offset_atom` moves that atom of the field from the
    normals into d, so the normals stay in the smaller field it extends."""
    solid = SOLIDS[solid_name](field)
    planes = normalised(polar_planes(solid))
    if offset_atom is not None:
        planes = coprime(rescaled(planes, field.atoms[offset_atom].value))
    if axis is not None:
        planes = axial_order(planes, axis)
    return with_text(planes), solid.group


def fixed_row(field, code, kind, solid_name):
    """A row copied verbatim, checked to be the faces (kind "direct") or the vertex polars
    (kind "dual") of its solid, each plane up to a positive factor."""
    text = FIXED_TEXTS[("full", code)]
    planes = Reader(field, text).planes()
    solid = SOLIDS[solid_name](field)
    expected = face_planes(solid) if kind == "direct" else polar_planes(solid)
    if sorted(direction_key(p) for p in expected) != sorted(direction_key(p[:2]) for p in planes):
        raise AssertionError(f"{code} is not the {kind} row of the {solid.name}")
    if "".join(p[2] for p in planes) != text:
        raise AssertionError(f"{code} was not read whole")
    return planes, solid.group


def orbit_row(field, code, group_name, solid_name=None):
    """The orbit of the fixed first plane; `solid_name`, when given, names the convex uniform
    solid whose polar planes the orbit must be, up to one positive factor."""
    (first,) = Reader(field, FIXED_TEXTS[("first", code)]).planes()
    group = GROUPS[group_name](field)
    planes = plane_orbit(group, first[:2])
    if write_plane(planes[0]) != first[2]:
        raise AssertionError(f"{code}: the first plane would print as {write_plane(planes[0])}")
    if solid_name is not None:
        expected = polar_planes(SOLIDS[solid_name](field))
        if sorted(direction_key(p) for p in expected) != sorted(direction_key(p) for p in planes):
            raise AssertionError(f"{code} is not the dual of the {solid_name}")
    else:
        check_polar_edge(code, planes)
    return [(n, d, first[2] if i == 0 else write_plane((n, d))) for i, (n, d) in enumerate(planes)], group


def check_polar_edge(code, planes):
    """For a dual of a star solid: the polar points v = k n, with k fixed by the distance
    formula |n|^2 k^2 + d k - 1/4 = 0 (that is, v . v - 1/4 = -d k), include a pair at
    distance exactly 1, the edge. With D = |n_0 - n_j|^2 that pair needs k^2 D = 1, which
    with the quadratic is (D/4 - |n|^2)^2 = D d^2 and D/4 < |n|^2."""
    normal, d = planes[0]
    norm2 = dot(normal, normal)
    for other, _ in planes[1:]:
        gap = dot(minus(normal, other), minus(normal, other))
        if (gap / 4 - norm2) ** 2 == gap * d * d and (gap / 4 - norm2).sign() < 0:
            return
    raise AssertionError(f"{code}: no two polar points are an edge apart")


GROUPS = {
    "C": cube_group,
    "rotations of C": lambda f: cube_group(f, rotations_only=True),
    "D": icosahedron_group,
    "T": tetrahedron_group,
}


# ---------------------------------------------------------------------------------------------
# The table: code, name, plane count, distances at size 1, symmetry, and how the row is made.

Z = (0, 0, 1)
ROWS = [
    ("T", "Tetrahedron", 4, ["0.204124"], "T", lambda f: fixed_row(f, "T", "direct", "tetrahedron"), 2),
    ("C", "Cube", 6, ["0.500000"], "C", lambda f: fixed_row(f, "C", "direct", "cube"), 2),
    ("O", "Octahedron", 8, ["0.408248"], "C", lambda f: fixed_row(f, "O", "direct", "octahedron"), 2),
    ("D", "Dodecahedron", 12, ["1.113516"], "D", lambda f: fixed_row(f, "D", "direct", "dodecahedron"), 5),
    ("I", "Icosahedron", 20, ["0.755761"], "D", lambda f: fixed_row(f, "I", "direct", "icosahedron"), 5),
    ("kT", "Triakis Tetrahedron", 12, ["0.959403"], "T",
     lambda f: fixed_row(f, "kT", "dual", "truncated tetrahedron"), 2),
    ("jC", "Rhombic Dodecahedron", 12, ["0.750000"], "C", lambda f: fixed_row(f, "jC", "dual", "cuboctahedron"), 2),
    ("kC", "Tetrakis Hexahedron", 24, ["1.423025"], "C", lambda f: orbit_row(f, "kC", "C", "truncated octahedron"), 2),
    ("kO", "Triakis Octahedron", 24, ["1.638281"], "C", lambda f: orbit_row(f, "kO", "C", "truncated cube"), 2),
    ("oC", "Deltoidal Icositetrahedron", 24, ["1.220263"], "C",
     lambda f: fixed_row(f, "oC", "dual", "rhombicuboctahedron"), 2),
    ("gC", "Pentagonal Icositetrahedron (dextro)", 24, ["1.157662"], "rotations of C",
     lambda f: dual_row(f, "snub cube", offset_atom=6), "snub"),
    ("jD", "Rhombic Triacontahedron", 30, ["1.463525"], "D",
     lambda f: fixed_row(f, "jD", "dual", "icosidodecahedron"), 5),
    ("mC", "Disdyakis Dodecahedron", 48, ["2.209741"], "C",
     lambda f: orbit_row(f, "mC", "C", "truncated cuboctahedron"), 2),
    ("kD", "Pentakis Dodecahedron", 60, ["2.377132"], "D",
     lambda f: orbit_row(f, "kD", "D", "truncated icosahedron"), 5),
    ("kI", "Triakis Icosahedron", 60, ["2.885258"], "D",
     lambda f: orbit_row(f, "kI", "D", "truncated dodecahedron"), 5),
    ("oD", "Deltoidal Hexecontahedron", 60, ["2.120991"], "D",
     lambda f: orbit_row(f, "oD", "D", "rhombicosidodecahedron"), 5),
    ("mD", "Disdyakis Triacontahedron", 120, ["3.736646"], "D",
     lambda f: orbit_row(f, "mD", "D", "truncated icosidodecahedron"), 5),
    ("UD16", "Tetradyakis Hexahedron", 48, ["1.133893"], "C", lambda f: orbit_row(f, "UD16", "C"), 2),
    ("UD20", "Great Disdyakis Dodecahedron", 48, ["0.827076"], "C", lambda f: orbit_row(f, "UD20", "C"), 2),
    ("UD37", "Small Stellapentakis Dodecahedron", 60, ["1.743641"], "D", lambda f: orbit_row(f, "UD37", "D"), 5),
    ("UD38", "Medial Deltoidal Hexecontahedron", 60, ["1.133893"], "D", lambda f: orbit_row(f, "UD38", "D"), 5),
    ("UD45", "Tridyakis Icosahedron", 120, ["1.875000"], "D", lambda f: orbit_row(f, "UD45", "D"), 5),
    ("UD55", "Great Stellapentakis Dodecahedron", 60, ["0.815941"], "D", lambda f: orbit_row(f, "UD55", "D"), 5),
    ("UD59", "Medial Disdyakis Triacontahedron", 120, ["1.507557"], "D", lambda f: orbit_row(f, "UD59", "D"), 5),
    ("UD66", "Great Triakis Icosahedron", 60, ["0.277351"], "D", lambda f: orbit_row(f, "UD66", "D"), 5),
    ("UD68", "Great Disdyakis Triacontahedron", 120, ["0.775750"], "D", lambda f: orbit_row(f, "UD68", "D"), 5),
    ("P3", "Triangular Prism", 5, ["0.288675", "0.500000"], "axis",
     lambda f: fixed_row(f, "P3", "direct", "prism 3"), 3),
    ("P5", "Pentagonal Prism", 7, ["0.500000", "0.688191"], "axis",
     lambda f: direct_row(f, "prism 5", Z), "pentagon"),
    ("P6", "Hexagonal Prism", 8, ["0.500000", "0.866025"], "axis", lambda f: direct_row(f, "prism 6", Z), 3),
    ("A4", "Square Antiprism", 10, ["0.420448", "0.586040"], "axis",
     lambda f: direct_row(f, "antiprism 4", Z), "fourth root"),
    ("A5", "Pentagonal Antiprism", 12, ["0.425325", "0.755761"], "axis",
     lambda f: direct_row(f, "antiprism 5", (0, PHI, 1)), 5),
    ("A6", "Hexagonal Antiprism", 14, ["0.427800", "0.921781"], "axis",
     lambda f: direct_row(f, "antiprism 6", Z), "hexagonal antiprism"),
    ("dP3", "Triangular Dipyramid", 6, ["0.436436"], "axis", lambda f: fixed_row(f, "dP3", "dual", "prism 3"), 3),
    ("dP5", "Pentagonal Dipyramid", 10, ["0.733349"], "axis", lambda f: dual_row(f, "prism 5", Z), "pentagon"),
    ("dP6", "Hexagonal Dipyramid", 12, ["0.894427"], "axis", lambda f: dual_row(f, "prism 6", Z), 3),
    ("dA4", "Tetragonal Trapezohedron", 8, ["0.518774"], "axis",
     lambda f: dual_row(f, "antiprism 4", Z), "fourth root"),
    ("dA5", "Pentagonal Trapezohedron", 10, ["0.688191"], "axis", lambda f: dual_row(f, "antiprism 5", (0, PHI, 1)), 5),
    ("dA6", "Hexagonal Trapezohedron", 12, ["0.857813"], "axis",
     lambda f: dual_row(f, "antiprism 6", Z), "hexagonal antiprism"),
]

FIELDS = {
    2: lambda: field_sqrt(2),
    3: lambda: field_sqrt(3),
    5: lambda: field_sqrt(5),
    "pentagon": pentagon_field,
    "fourth root": fourth_root_field,
    "hexagonal antiprism": hexagonal_antiprism_field,
    "snub": snub_field,
}


def read_fixed_texts():
    texts = {}
    for line in FIXED.read_text().splitlines():
        if line and not line.startswith("#"):
            kind, code, text = line.split(" ")
            texts[(kind, code)] = text
    return texts


FIXED_TEXTS = read_fixed_texts()


# ---------------------------------------------------------------------------------------------
# Checks.


def check_row(code, planes, count, distances, group):
    if len(planes) != count:
        raise AssertionError(f"{code}: {len(planes)} planes, expected {count}")
    exact = [(n, d) for n, d, _ in planes]
    if len({plane_key(p) for p in exact}) != count or len({direction_key(p) for p in exact}) != count:
        raise AssertionError(f"{code}: repeated plane")
    found = sorted({f"{float(-d.to_mpf() / mpmath.sqrt(sum(a.to_mpf() ** 2 for a in n))):.6f}" for n, d in exact})
    if found != sorted(distances):
        raise AssertionError(f"{code}: distances {found}, expected {distances}")
    keys = {plane_key(p) for p in exact}
    if any(plane_key(move_plane(g, p)) not in keys for g in group for p in exact):
        raise AssertionError(f"{code}: not closed under its group")
    field = exact[0][1].field
    if [plane_key(p[:2]) for p in Reader(field, "".join(text for _, _, text in planes)).planes()] != [
            plane_key(p) for p in exact]:
        raise AssertionError(f"{code}: the text does not read back to the planes")
    check_closed_solid(code, exact)


def check_closed_solid(code, planes):
    """The planes bound a closed solid on which each carries a face (see the module comment)."""
    field = planes[0][1].field
    if any(d.sign() >= 0 for _, d in planes):
        raise AssertionError(f"{code}: the centre is not strictly inside")
    total = [sum((n[i] for n, _ in planes), field.rational(0)) for i in range(3)]
    if not is_zero_vector(total):
        raise AssertionError(f"{code}: the normals do not sum to zero")
    normals = [n for n, _ in planes]
    if not any(determinant(list(triple)) != 0 for triple in itertools.combinations(normals, 3)):
        raise AssertionError(f"{code}: the normals do not span space")
    corners = {}
    for i in range(len(planes)):
        on_face = [corner(planes, triple, corners) for triple in face_candidates(planes, i)]
        if len(on_face) < 3 or is_zero_vector(cross(minus(on_face[1], on_face[0]), minus(on_face[2], on_face[0]))):
            raise AssertionError(f"{code}: plane {i} carries no face")


def face_candidates(planes, i):
    """Three plane triples through plane i whose corners (found in floats) span the widest
    triangle on the face."""
    normals = np.array([[float(a) for a in n] for n, _ in planes])
    offsets = np.array([-float(d) for _, d in planes])
    pairs = [(j, k) for j, k in itertools.combinations(range(len(planes)), 2) if i not in (j, k)]
    matrices = np.array([[normals[i], normals[j], normals[k]] for j, k in pairs])
    regular = np.abs(np.linalg.det(matrices)) > 1e-9
    pairs = [p for p, ok in zip(pairs, regular) if ok]
    rhs = np.array([[offsets[i], offsets[j], offsets[k]] for j, k in pairs])
    points = np.linalg.solve(matrices[regular], rhs[..., None])[..., 0]
    inside = np.all(points @ normals.T <= offsets + 1e-9, axis=1)
    points, pairs = points[inside], [p for p, ok in zip(pairs, inside) if ok]
    a = 0
    b = int(np.argmax(np.linalg.norm(points - points[a], axis=1)))
    c = int(np.argmax(np.linalg.norm(np.cross(points - points[a], points[b] - points[a]), axis=1)))
    return [(i, *pairs[x]) for x in (a, b, c)]


def corner(planes, triple, cache):
    """The exact point where three planes meet, verified to lie on every plane's inner side."""
    rows = [planes[t][0] for t in triple]
    point = solve(rows, [-planes[t][1] for t in triple])
    key = vector_key(point)
    if key not in cache:
        if any((dot(n, point) + d).sign() > 0 for n, d in planes):
            raise AssertionError(f"corner {triple} is outside the solid")
        cache[key] = point
    return cache[key]


# ---------------------------------------------------------------------------------------------
# Output.


def cpp_string_lines(planes):
    return "\n".join(f'     "{text}"' for _, _, text in planes)


def main(codes):
    """Checks the rows named in `codes` (all of them when empty); writes the table after
    checking all of them."""
    entries = []
    for code, name, count, distances, symmetry, make, field_name in ROWS:
        if codes and code not in codes:
            continue
        field = FIELDS[field_name]()
        planes, group = make(field)
        if symmetry != "axis":
            group = GROUPS[symmetry](field)
        check_row(code, planes, count, distances, group)
        entries.append(f'    {{"{code}", "{name}",\n{cpp_string_lines(planes)}}},')
        print(f"{code:5} {count:4} planes, {len(group):3} symmetries: checked", file=sys.stderr)
    if codes:
        return
    OUTPUT.write_text(
        "// Generated by tools/polyhedra.py, which derives each row from its solid and checks it;\n"
        "// edit the generator, not this file. Each entry is a code, a name and the row's planes in\n"
        "// the table's prefix language, one plane a line.\n"
        + "\n".join(entries) + "\n")


if __name__ == "__main__":
    main(sys.argv[1:])
