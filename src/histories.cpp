#include "histories.hpp"

#include <algorithm>
#include <limits>
#include <new>

namespace tv {
namespace {

// The first block of a copy: a few moves' worth, so short episodes allocate once.
constexpr std::size_t kFirstBlock = 8;

// `copies`, once a first block for each is known to be addressable.
std::size_t addressable(std::size_t copies) {
  if (copies > std::vector<std::uint32_t>().max_size() / kFirstBlock) throw std::bad_alloc();
  return copies;
}

}  // namespace

Histories::Histories(std::size_t copies)
    : blocks_(addressable(copies)), pool_(copies * kFirstBlock), min_room_(kFirstBlock) {
  for (std::size_t copy = 0; copy < copies; ++copy) blocks_[copy] = {copy * kFirstBlock, 0, kFirstBlock};
}

void Histories::reserve_each(std::size_t extra) {
  if (extra <= min_room_) {
    min_room_ -= extra;
    return;
  }
  grow([extra](std::size_t) { return extra; });
}

void Histories::reserve(std::span<const std::uint32_t> extra) {
  const std::size_t most = extra.empty() ? 0 : *std::max_element(extra.begin(), extra.end());
  if (most <= min_room_) {
    min_room_ -= most;
    return;
  }
  grow([extra](std::size_t copy) { return std::size_t{extra[copy]}; });
}

// Blocks too small for their extra entries get one of at least twice their size at the end of
// the pool. The blocks a copy leaves behind add up to less than its current one, so the pool
// stays under twice what the copies hold. Everything that can fail is done before any block
// changes.
template <class Extra>
void Histories::grow(Extra extra_of) {
  constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / 4 / sizeof(std::uint32_t);
  std::size_t added = 0, room = std::numeric_limits<std::size_t>::max();
  const auto capacity_for = [&](const Block& b, std::size_t extra) {
    if (extra > most || b.size + extra > most) throw std::bad_alloc();
    const std::size_t need = b.size + extra;
    return need <= b.capacity ? b.capacity : std::max({kFirstBlock, 2 * b.capacity, need});
  };
  for (std::size_t copy = 0; copy < blocks_.size(); ++copy) {
    const Block& b = blocks_[copy];
    const std::size_t extra = extra_of(copy);
    const std::size_t capacity = capacity_for(b, extra);
    if (capacity != b.capacity) {
      added += capacity;
      if (added > most) throw std::bad_alloc();
    }
    room = std::min(room, capacity - b.size - extra);
  }
  std::size_t end = pool_.size();
  if (added > pool_.max_size() - end) throw std::bad_alloc();
  pool_.resize(end + added);
  for (std::size_t copy = 0; copy < blocks_.size(); ++copy) {
    Block& b = blocks_[copy];
    const std::size_t capacity = capacity_for(b, extra_of(copy));
    if (capacity == b.capacity) continue;
    std::copy_n(pool_.begin() + static_cast<std::ptrdiff_t>(b.offset), b.size,
                pool_.begin() + static_cast<std::ptrdiff_t>(end));
    b = {end, b.size, capacity};
    end += capacity;
  }
  min_room_ = blocks_.empty() ? 0 : room;
}

}  // namespace tv
