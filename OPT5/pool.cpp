#include "pool.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

#include "fileopt.h"
#include "files.h"

#if defined(__SANITIZE_ADDRESS__)
#define POISONING 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define POISONING 1
#endif
#endif

#ifdef POISONING
#include <sanitizer/asan_interface.h>
#define POISON(start, size) ASAN_POISON_MEMORY_REGION(start, size)
#define UNPOISON(start, size) ASAN_UNPOISON_MEMORY_REGION(start, size)
#else
#define POISON(start, size) (static_cast<void>(start), static_cast<void>(size))
#define UNPOISON(start, size) (static_cast<void>(start), static_cast<void>(size))
#endif

namespace {

constexpr std::size_t CHUNK_SIZE = 4096; // also the alignment of chunks
constexpr std::size_t FIRST_SLAB_SIZE = 64 * CHUNK_SIZE;
constexpr std::size_t SLAB_SIZE = std::size_t{2} << 20; // of the later ones: one huge page
constexpr std::size_t ALIGNMENT = alignof(std::max_align_t);

constexpr std::size_t round_up(std::size_t size) { return (size + ALIGNMENT - 1) & ~(ALIGNMENT - 1); }

} // namespace

struct POOL::CHUNK {
    CHUNK* next; // of the pool, or of the free chunks
    POOL* owner;
};

struct alignas(std::max_align_t) POOL::BIG {
    BIG* next;
};

struct POOL::FREE_CELL {
    FREE_CELL* next;
};

namespace {

// Chunks that no pool uses. Slabs are never given back to the system, only reused.
void* free_chunks = nullptr;

// The rest of the newest slab, from which chunks are cut.
char* slab_cursor = nullptr;
char* slab_limit = nullptr;

void*& link_of(void* chunk) { return *static_cast<void**>(chunk); }

// Memory is touched for the first time slab by slab: with pages of the usual size that costs more than
// everything done with it, so the later slabs ask for huge ones.
void add_slab() {
    const std::size_t size = slab_limit == nullptr ? FIRST_SLAB_SIZE : SLAB_SIZE;
    slab_cursor = static_cast<char*>(std::aligned_alloc(size, size));
    if (slab_cursor == nullptr) throw std::bad_alloc();
    slab_limit = slab_cursor + size;
    if (size == SLAB_SIZE) ::madvise(slab_cursor, size, MADV_HUGEPAGE); // only a hint
}

void* take_chunk() {
    if (void* chunk = free_chunks) {
        free_chunks = link_of(chunk);
        return chunk;
    }
    if (slab_cursor == slab_limit) add_slab();
    void* chunk = slab_cursor;
    slab_cursor += CHUNK_SIZE;
    return chunk;
}

} // namespace

POOL::~POOL() { release_all(); }

void POOL::add_chunk() {
    auto* chunk = static_cast<CHUNK*>(take_chunk());
    UNPOISON(chunk, CHUNK_SIZE);
    chunk->next = chunks_;
    chunk->owner = this;
    chunks_ = chunk;
    cursor_ = reinterpret_cast<char*>(chunk) + round_up(sizeof(CHUNK));
    limit_ = reinterpret_cast<char*>(chunk) + CHUNK_SIZE;
    bytes_ += CHUNK_SIZE;
    POISON(cursor_, static_cast<std::size_t>(limit_ - cursor_));
}

void* POOL::allocate_big(std::size_t size) {
    auto* big = static_cast<BIG*>(std::calloc(1, sizeof(BIG) + size));
    if (big == nullptr) throw std::bad_alloc();
    big->next = big_;
    big_ = big;
    bytes_ += sizeof(BIG) + size;
    return big + 1;
}

void* POOL::allocate(std::size_t size) {
    if (size > CHUNK_SIZE / 2) return allocate_big(size);
    const std::size_t rounded = round_up(size == 0 ? 1 : size);
    if (static_cast<std::size_t>(limit_ - cursor_) < rounded) add_chunk();
    void* memory = cursor_;
    cursor_ += rounded;
    UNPOISON(memory, size);
    return std::memset(memory, 0, size);
}

char* POOL::copy_text(std::string_view text) {
    auto* copy = static_cast<char*>(allocate(text.size() + 1));
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    return copy;
}

void* POOL::allocate_cell(std::size_t size) {
    for (std::size_t i = 0; i < FREE_LISTS && free_size_[i] != 0; i++) {
        if (free_size_[i] != size) continue;
        FREE_CELL* cell = free_[i];
        if (cell == nullptr) break;
        free_[i] = cell->next;
        UNPOISON(cell, size);
        return std::memset(static_cast<void*>(cell), 0, size);
    }
    return allocate(size);
}

void POOL::recycle(void* cell, std::size_t size) {
    // A cell of more than half a chunk stays with its pool until release_all: it has no chunk to lead there.
    if (cell == nullptr || size > CHUNK_SIZE / 2) return;
    auto* chunk = reinterpret_cast<CHUNK*>(reinterpret_cast<std::uintptr_t>(cell) & ~(CHUNK_SIZE - 1));
    POOL* pool = chunk->owner;
    std::size_t i = 0;
    while (i < FREE_LISTS && pool->free_size_[i] != 0 && pool->free_size_[i] != size) i++;
    if (i == FREE_LISTS) return;
    pool->free_size_[i] = size;
    auto* free_cell = static_cast<FREE_CELL*>(cell);
    free_cell->next = pool->free_[i];
    pool->free_[i] = free_cell;
    POISON(reinterpret_cast<char*>(cell) + sizeof(FREE_CELL), size - sizeof(FREE_CELL));
}

bool POOL::is_recycled([[maybe_unused]] const void* cell) {
#ifdef POISONING
    return __asan_address_is_poisoned(static_cast<const char*>(cell) + sizeof(FREE_CELL)) != 0;
#else
    return false;
#endif
}

void POOL::release_all() {
    while (chunks_ != nullptr) {
        CHUNK* chunk = chunks_;
        chunks_ = chunk->next;
        link_of(chunk) = free_chunks;
        free_chunks = chunk;
        POISON(reinterpret_cast<char*>(chunk) + sizeof(void*), CHUNK_SIZE - sizeof(void*));
    }
    while (big_ != nullptr) {
        BIG* big = big_;
        big_ = big->next;
        std::free(big);
    }
    cursor_ = limit_ = nullptr;
    for (std::size_t i = 0; i < FREE_LISTS; i++) {
        free_[i] = nullptr;
        free_size_[i] = 0;
    }
    bytes_ = 0;
}

POOL& current_pool() {
    // Never destroyed: objects of static life may still hold trees at exit.
    static POOL* global_pool = new POOL;
    return currfunc != nullptr && currfuninfo != nullptr ? currfuninfo->pool : *global_pool;
}
