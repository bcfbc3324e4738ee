// Exceptions at the module boundary: the module's PuzzleError, the error for broken internal
// invariants (derived directly from BaseException, so that `except Exception` passes it by),
// and the one table that turns a Failure into a Python exception.
#pragma once

#include <string>

#include "bindings/compat.hpp"
#include "failure.hpp"

namespace tv::py {

// Borrowed references to the process-wide exception types, created on first need.
PyObject* puzzle_error_type();
PyObject* internal_error_type();

// Raise the exception for `failure`; returns nullptr for the caller to return.
PyObject* raise_failure(const Failure& failure);
// Raise the internal-failure exception with `message`; returns nullptr.
PyObject* raise_internal(const char* message);
// Raise `type` with `message`; returns nullptr.
PyObject* raise(PyObject* type, const std::string& message);
// The mismatch form: "'<type>' object is not an instance of '<target>'", or
// "'None' is not an instance of '<target>'"; raises TypeError and returns nullptr.
PyObject* raise_mismatch(PyObject* object, const char* target);

// Adds "while processing '<name>'" as a note to the exception being raised.
void note_argument(const char* name);

}  // namespace tv::py
