// Arena allocation for one function's body.

#ifndef OPT5_POOL_H
#define OPT5_POOL_H

#include <cstddef>
#include <string_view>

// A pool hands out zeroed memory from aligned chunks and gives it all back in one go. Small objects that come
// and go all the time (nodes, list cells, edges) are recycled through one free list per size. No
// destructor is run.
//
// Chunks are aligned to their size, so the address of a cell leads to its chunk and thereby to its pool. They
// are small, because a run holds one pool per function still to be written, and pass between pools through
// a free list of the whole run. Objects that do not fit a chunk get memory of their own.
//
// Under AddressSanitizer whatever is not handed out is poisoned: a use after erase is caught.
class POOL {
  public:
    POOL() = default;
    ~POOL();
    POOL(const POOL&) = delete;
    POOL& operator=(const POOL&) = delete;

    // Zeroed memory, aligned for any object; lives until release_all.
    void* allocate(std::size_t size);
    // A zero-terminated copy of the bytes.
    char* copy_text(std::string_view text);
    // Zeroed memory for one recyclable object of that size; `recycle` gives it back to the pool that it came
    // from, whichever that is.
    void* allocate_cell(std::size_t size);
    static void recycle(void* cell, std::size_t size);
    // Frees everything that the pool ever handed out.
    void release_all();
    // Whether the cell is known to have been recycled: always false without AddressSanitizer.
    static bool is_recycled(const void* cell);
    // Bytes that the pool holds.
    std::size_t bytes() const { return bytes_; }

  private:
    struct CHUNK;
    struct BIG;
    struct FREE_CELL;
    void* allocate_big(std::size_t size);
    void add_chunk();

    static constexpr std::size_t FREE_LISTS = 4;
    CHUNK* chunks_ = nullptr;
    BIG* big_ = nullptr;
    char* cursor_ = nullptr;
    char* limit_ = nullptr;
    FREE_CELL* free_[FREE_LISTS] = {};
    std::size_t free_size_[FREE_LISTS] = {};
    std::size_t bytes_ = 0;
};

// The pool that new trees, cells and blocks come from: that of currfuninfo, or the run's own when no
// function is in work.
POOL& current_pool();

#endif
