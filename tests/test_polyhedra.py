import torvane as tv

CODES = ["T", "C", "O", "D", "I", "kT", "jC", "kC", "kO", "oC", "gC", "jD", "mC", "kD", "kI", "oD", "mD",
         "UD16", "UD20", "UD37", "UD38", "UD45", "UD55", "UD59", "UD66", "UD68",
         "P3", "P5", "P6", "A4", "A5", "A6", "dP3", "dP5", "dP6", "dA4", "dA5", "dA6"]


def test_polyhedra_lists_every_code_with_its_name_in_table_order():
    rows = tv.polyhedra()
    assert isinstance(rows, list)
    assert all(type(row) is tuple and len(row) == 2 and all(type(x) is str for x in row) for row in rows)
    assert [code for code, _ in rows] == CODES
    assert rows[0] == ("T", "Tetrahedron")
    assert rows[10] == ("gC", "Pentagonal Icositetrahedron (dextro)")
    assert rows[-1] == ("dA6", "Hexagonal Trapezohedron")
    assert len({name for _, name in rows}) == len(rows)


def test_polyhedra_returns_a_fresh_list_each_call():
    first = tv.polyhedra()
    first.clear()
    assert len(tv.polyhedra()) == 38
