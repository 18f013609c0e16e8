// Arena allocation for one function's body.

#ifndef OPT5_POOL_H
#define OPT5_POOL_H

#include <cstddef>
#include <string_view>

// A pool hands out zeroed memory from aligned chunks and gives it all back in one go. Objects of the two
// sizes that come and go all the time, NODE and LIST, are recycled through free lists. No destructor is run.
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
    // Bytes held from the system.
    std::size_t bytes() const { return bytes_; }

  private:
    struct CHUNK;
    struct FREE_CELL;
    CHUNK* chunks_ = nullptr;
    char* cursor_ = nullptr;
    char* limit_ = nullptr;
    FREE_CELL* free_[4] = {};
    std::size_t free_size_[4] = {};
    std::size_t bytes_ = 0;
};

// The pool that new trees, cells and blocks come from: that of currfuninfo, or the run's own when no
// function is in work.
POOL& current_pool();

#endif
