#include "bitvec.h"

#include <algorithm>

#include "files.h"

BITVEC::BITVEC(unsigned size) : size_(size), words_((size + std::size_t{WORD_BITS} - 1) / WORD_BITS) {}

void BITVEC::add(unsigned index) {
    if (index >= size_) abort_optimizer("Index beyond size:add");
    words_[index / WORD_BITS] |= std::uint64_t{1} << (index % WORD_BITS);
}

void BITVEC::remove(unsigned index) {
    if (index >= size_) abort_optimizer("Index beyond size:remove");
    words_[index / WORD_BITS] &= ~(std::uint64_t{1} << (index % WORD_BITS));
}

bool BITVEC::merge(const BITVEC& other) {
    if (size_ != other.size_) abort_optimizer("Vector size mismatch:merge");
    std::uint64_t grown = 0;
    for (std::size_t i = 0; i < words_.size(); i++) {
        grown |= other.words_[i] & ~words_[i];
        words_[i] |= other.words_[i];
    }
    return grown != 0;
}

bool BITVEC::cmp_cpy(const BITVEC& other) {
    if (size_ != other.size_) abort_optimizer("Vector size mismatch:cmp_cpy");
    if (words_ == other.words_) return false;
    words_ = other.words_;
    return true;
}

bool BITVEC::operator==(const BITVEC& other) const {
    if (size_ != other.size_) abort_optimizer("Vector size mismatch:cmp_cpy");
    return words_ == other.words_;
}

void BITVEC::clr() { std::fill(words_.begin(), words_.end(), 0); }

void BITVEC::clr(unsigned first, unsigned end) {
    if (end > size_) abort_optimizer("Endpoint beyond size:clr");
    while (first < end) {
        const unsigned bit = first % WORD_BITS;
        const unsigned width = std::min(WORD_BITS - bit, end - first);
        const std::uint64_t ones = width == WORD_BITS ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
        words_[first / WORD_BITS] &= ~(ones << bit);
        first += width;
    }
}

unsigned BITVEC::count() const {
    unsigned bits = 0;
    for (std::uint64_t word : words_) bits += static_cast<unsigned>(__builtin_popcountll(word));
    return bits;
}

bool BITVEC::is_empty() const {
    return std::all_of(words_.begin(), words_.end(), [](std::uint64_t word) { return word == 0; });
}
