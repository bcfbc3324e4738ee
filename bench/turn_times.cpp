// Turn times on the 3x3x3 and every catalog recipe: cold (the first turn of a fresh puzzle,
// memos empty), warm (the same turn again after undoing it, so the memos know every state it
// meets) and in play (a turn deep in a random game, which on a jumbling puzzle keeps meeting
// arrangements never seen before); scramble(100) + settle; one advance in mid-animation. Each turn includes the stops, the exact rotation
// and the re-derivation of the grips; every timed game is checked by undoing it to the solved
// orientations. Prints milliseconds per recipe and the five slowest warm turns. Built against
// the core library:
//
//   g++ -O2 -std=c++20 -ffp-contract=off -Isrc bench/turn_times.cpp \
//       build/release/libtorvane_core.a -ltbb -lz -lgmp -o build/turn_times
//
// `build/turn_times cube` prints only the 3x3x3 figures (bench/bench_turns.py reads them);
// `build/turn_times NAME` times only the catalog rows whose name contains NAME.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "catalog.hpp"
#include "simulator.hpp"

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); }

[[noreturn]] void die(const std::string& what, const tv::Failure& failure) {
  std::fprintf(stderr, "%s: %s\n", what.c_str(), failure.message.c_str());
  std::exit(1);
}

tv::Simulator make(const std::string& query) {
  auto sim = tv::Simulator::from_recipe_text(query);
  if (!sim.ok()) die(query, sim.failure());
  return std::move(sim).value();
}

void check(const std::string& what, const tv::Status& status) {
  if (!status.ok()) die(what, status.failure());
}

std::vector<std::string> orientation_keys(const tv::Simulator& sim) {
  std::vector<std::string> keys;
  for (const tv::Piece& p : sim.pieces().pieces) keys.push_back(tv::orientation_key(p.orientation));
  return keys;
}

struct TurnTimes {
  double cold_ms;
  double warm_ms;
  double in_play_ms;
};

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// The cold turn, `turns` warm repeats of it (each undone untimed), then a random game of
// `turns` moves and `turns` timed turns in it; the whole game is undone and must give back
// the solved state.
TurnTimes time_turns(const std::string& query, int turns) {
  tv::Simulator sim = make(query);
  const auto solved = orientation_keys(sim);
  if (sim.grips().empty()) return {0.0, 0.0, 0.0};
  std::vector<double> warm, in_play;
  double cold = 0.0;
  for (int k = 0; k <= turns; ++k) {
    const auto start = Clock::now();
    check(query, sim.turn(0, tv::TurnChoice::direction(1)));
    (k == 0 ? cold : warm.emplace_back()) = ms_since(start);
    check(query, sim.undo().ok() ? tv::Status{} : tv::Status{tv::other_failure("undo failed")});
  }
  sim.scramble(static_cast<std::uint32_t>(turns));
  check(query, sim.settle());
  std::uint64_t z = 1;
  for (int k = 0; k < turns; ++k) {
    z = tv::mix(z + tv::kGoldenGamma);
    const std::size_t grip = z % sim.grips().size();
    const auto start = Clock::now();
    check(query, sim.turn(grip, tv::TurnChoice::direction((z >> 40) & 1 ? 1 : -1)));
    in_play.push_back(ms_since(start));
  }
  auto restored = sim.restore();
  if (!restored.ok() || !*restored || orientation_keys(sim) != solved) {
    std::fprintf(stderr, "%s: the game did not undo to the solved state\n", query.c_str());
    std::exit(1);
  }
  return {cold, median(warm), median(in_play)};
}

double time_scramble(const std::string& query) {
  tv::Simulator sim = make(query);
  const auto start = Clock::now();
  sim.scramble(100);
  check(query, sim.settle());
  const double ms = ms_since(start);
  if (sim.history().size() != 100) std::exit(1);
  return ms;
}

double time_mid_animation_advance_us(const std::string& query) {
  tv::Simulator sim = make(query);
  check(query, sim.turn(0, tv::TurnChoice::stop(3)));
  constexpr int kSteps = 100000;
  const auto start = Clock::now();
  for (int k = 0; k < kSteps; ++k) check(query, sim.advance(0.005));
  const double us = ms_since(start) * 1000.0 / kSteps;
  if (!sim.animation()) std::exit(1);
  return us;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string only = argc > 1 ? argv[1] : "";
  const std::string cube = "?shell=C$1&cut=C$1/3";
  const std::string megaminx = "?shell=D$1&cut=D$2/(sqrt(5)+1)";
  if (!only.empty() && only != "cube") {
    for (const tv::CatalogRow& row : tv::catalog_rows()) {
      if (row.name.find(only) == std::string_view::npos) continue;
      const TurnTimes t = time_turns(std::string(row.recipe), 20);
      std::printf("%9.3f ms cold %9.3f ms warm %9.3f ms in play  %.*s\n", t.cold_ms, t.warm_ms, t.in_play_ms,
                  int(row.name.size()), row.name.data());
    }
    return 0;
  }
  const TurnTimes cube_times = time_turns(cube, 400);
  std::printf("3x3x3 turn: cold %.3f ms, warm %.4f ms, in play %.4f ms\n", cube_times.cold_ms, cube_times.warm_ms,
              cube_times.in_play_ms);
  std::printf("scramble(100) + settle: 3x3x3 %.2f ms, Megaminx %.2f ms\n", time_scramble(cube), time_scramble(megaminx));
  std::printf("mid-animation advance (3x3x3, 9 pieces): %.3f us\n", time_mid_animation_advance_us(cube));
  if (only == "cube") return 0;

  struct Row {
    TurnTimes t;
    std::string name;
  };
  std::vector<Row> rows;
  for (const tv::CatalogRow& row : tv::catalog_rows()) {
    const TurnTimes t = time_turns(std::string(row.recipe), 20);
    std::printf("%9.3f ms cold %9.3f ms warm %9.3f ms in play  %.*s\n", t.cold_ms, t.warm_ms, t.in_play_ms,
                int(row.name.size()), row.name.data());
    std::fflush(stdout);
    rows.push_back({t, std::string(row.name)});
  }
  std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.t.warm_ms > b.t.warm_ms; });
  std::printf("slowest warm turns:\n");
  for (std::size_t k = 0; k < 5 && k < rows.size(); ++k) {
    std::printf("%9.3f ms cold %9.3f ms warm %9.3f ms in play  %s\n", rows[k].t.cold_ms, rows[k].t.warm_ms,
                rows[k].t.in_play_ms, rows[k].name.c_str());
  }
}
