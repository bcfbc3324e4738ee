// The move histories of the copies of a batch, in one shared pool.
//
// Every copy owns one block of the pool with room to grow, as a vector would, but the blocks
// are only ever made on the calling thread, before a parallel loop: `reserve` gives each copy
// room for the entries the loop will append, so appending inside the loop is a store and an
// increment, with no allocation and nothing shared between copies. A copy whose block is full
// gets one twice as large at the end of the pool (what it leaves behind adds up to less than
// its new block, so the pool stays under twice the room the copies own). Clearing a copy keeps
// its block, so episodes that end and start again stop allocating once their blocks are big
// enough.
//
// A lower bound on the free room of every copy is kept, so a step that appends one entry to
// every copy looks at the blocks only when some copy may be full.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tv {

class Histories {
 public:
  // Every copy empty, with a first block of room. Throws std::bad_alloc.
  explicit Histories(std::size_t copies = 0);

  std::size_t copies() const { return blocks_.size(); }
  std::span<const std::uint32_t> of(std::size_t copy) const {
    return {pool_.data() + blocks_[copy].offset, blocks_[copy].size};
  }
  std::size_t size(std::size_t copy) const { return blocks_[copy].size; }
  bool empty(std::size_t copy) const { return blocks_[copy].size == 0; }
  std::uint32_t back(std::size_t copy) const { return pool_[blocks_[copy].offset + blocks_[copy].size - 1]; }

  // Room for `extra` more entries in every copy. Throws std::bad_alloc, changing nothing.
  void reserve_each(std::size_t extra);
  // Room for extra[i] more entries in copy i. Throws std::bad_alloc, changing nothing.
  void reserve(std::span<const std::uint32_t> extra);

  // Appends within the room reserved before.
  void push(std::size_t copy, std::uint32_t action) {
    Block& b = blocks_[copy];
    pool_[b.offset + b.size++] = action;
  }
  // `count` entries appended within the reserved room, for the caller to fill.
  std::uint32_t* append(std::size_t copy, std::size_t count) {
    Block& b = blocks_[copy];
    std::uint32_t* entries = pool_.data() + b.offset + b.size;
    b.size += count;
    return entries;
  }
  void pop(std::size_t copy) { --blocks_[copy].size; }
  void clear(std::size_t copy) { blocks_[copy].size = 0; }

 private:
  struct Block {
    std::size_t offset = 0;
    std::size_t size = 0;
    std::size_t capacity = 0;
  };

  template <class Extra>
  void grow(Extra extra_of);

  std::vector<Block> blocks_;
  std::vector<std::uint32_t> pool_;
  std::size_t min_room_ = 0;   // at most the free room of every block
};

}  // namespace tv
