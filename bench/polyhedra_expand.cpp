// Time to expand and unify the planes of every polyhedron row at size 1: the exact work a
// puzzle build does for its shell before any cutting. Prints one line per row, slowest last,
// in milliseconds, with the degree of the field the row's numbers end in. Built against the
// core library:
//
//   g++ -O2 -std=c++20 -ffp-contract=off -Isrc bench/polyhedra_expand.cpp \
//       build/release/libtorvane_core.a -ltbb -lz -lgmp -o build/polyhedra_expand
//
// Arguments, if any, are the codes to time (all rows otherwise).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "exact.hpp"
#include "polyhedra.hpp"

int main(int argc, char** argv) {
  using Clock = std::chrono::steady_clock;
  struct Timing {
    std::string code;
    double expand_ms, unify_ms;
    std::int64_t degree;
  };
  std::vector<Timing> timings;
  const tv::Expr one{tv::Fraction(1), "num", {}};
  for (const tv::PolyhedronRow& row : tv::polyhedron_rows()) {
    if (argc > 1 && std::none_of(argv + 1, argv + argc, [&](const char* code) { return row.code == code; })) continue;
    const std::vector<tv::Shape> shapes = {tv::PolyhedronShape{std::string(row.code), one}};
    const auto start = Clock::now();
    auto planes = tv::expand_shapes(shapes);
    const auto expanded = Clock::now();
    if (!planes) {
      std::printf("%s: %s\n", std::string(row.code).c_str(), planes.failure().message.c_str());
      return 1;
    }
    std::vector<tv::AlgebraicNumber> numbers;
    for (const tv::Plane& p : *planes) numbers.insert(numbers.end(), {p.a, p.b, p.c, p.d});
    if (tv::Status unified = tv::unify(numbers); !unified) {
      std::printf("%s: %s\n", std::string(row.code).c_str(), unified.failure().message.c_str());
      return 1;
    }
    const auto done = Clock::now();
    const auto ms = [](auto d) { return std::chrono::duration<double, std::milli>(d).count(); };
    timings.push_back({std::string(row.code), ms(expanded - start), ms(done - expanded), numbers[0].field()->degree()});
  }
  std::sort(timings.begin(), timings.end(),
            [](const Timing& a, const Timing& b) { return a.expand_ms + a.unify_ms < b.expand_ms + b.unify_ms; });
  double total = 0;
  for (const Timing& t : timings) {
    std::printf("%-5s expand %9.1f ms  unify %9.1f ms  field degree %lld\n", t.code.c_str(), t.expand_ms, t.unify_ms,
                static_cast<long long>(t.degree));
    total += t.expand_ms + t.unify_ms;
  }
  std::printf("total %.1f ms\n", total);
}
