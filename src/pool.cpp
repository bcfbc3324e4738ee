#include "pool.hpp"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <tbb/global_control.h>

namespace tv::pool {
namespace {

// A decimal unsigned integer, nothing else; nullopt when the text is missing or malformed.
std::optional<std::size_t> parse_count(const char* text) {
  if (text == nullptr) return std::nullopt;
  std::size_t value = 0;
  const char* end = text + std::strlen(text);
  auto [ptr, ec] = std::from_chars(text, end, value);
  if (ec != std::errc() || ptr != end || ptr == text) return std::nullopt;
  return value;
}

struct Pool {
  // Lets TBB run as many workers as the arena asks for, even beyond the processor count.
  tbb::global_control limit;
  tbb::task_arena arena;

  explicit Pool(std::size_t size)
      : limit(tbb::global_control::max_allowed_parallelism, size), arena(static_cast<int>(size)) {
    arena.initialize();
  }
};

}  // namespace

std::size_t size_from_environment(const char* num_threads, const char* num_cpus, std::size_t processors) {
  // A variable that parses decides, and 0 there means the processor count; a missing or
  // malformed one passes the choice on.
  auto chosen = parse_count(num_threads);
  if (!chosen) chosen = parse_count(num_cpus);
  if (chosen && *chosen > 0) return *chosen;
  return processors > 0 ? processors : 1;
}

tbb::task_arena& arena() {
  // Made once, never destroyed: workers may still be parked when the process exits.
  static Pool* const pool = new Pool(size_from_environment(
      std::getenv("RAYON_NUM_THREADS"), std::getenv("RAYON_RS_NUM_CPUS"), std::thread::hardware_concurrency()));
  return pool->arena;
}

}  // namespace tv::pool
