// Sets of small numbers whose size is fixed when they are made.

#ifndef OPT5_BITVEC_H
#define OPT5_BITVEC_H

#include <cstddef>
#include <cstdint>
#include <vector>

// Numbers from 0 to size() - 1. Adding or removing one beyond the size, and joining or comparing sets of two
// sizes, is a mistake of the caller and ends the run.
class BITVEC {
  public:
    explicit BITVEC(unsigned size = 0);

    unsigned size() const { return size_; }
    void add(unsigned index);
    void remove(unsigned index);
    // Whether the number is in the set; one beyond the size is not.
    bool test(unsigned index) const {
        return index < size_ && (words_[index / WORD_BITS] >> (index % WORD_BITS) & 1) != 0;
    }
    // Adds what is in the other set; returns whether this one has grown.
    bool merge(const BITVEC& other);
    // Makes this set equal to the other one; returns whether it was not.
    bool cmp_cpy(const BITVEC& other);
    bool operator==(const BITVEC& other) const;
    // Removes everything, or the numbers from `first` up to, and without, `end`.
    void clr();
    void clr(unsigned first, unsigned end);
    unsigned count() const;
    bool is_empty() const;

    // Calls `visit` with each number in the set, in ascending order.
    template <class VISIT> void for_each(VISIT visit) const {
        for (std::size_t i = 0; i < words_.size(); i++)
            for (std::uint64_t rest = words_[i]; rest != 0; rest &= rest - 1)
                visit(static_cast<unsigned>(i * WORD_BITS) + static_cast<unsigned>(__builtin_ctzll(rest)));
    }

  private:
    static constexpr unsigned WORD_BITS = 64;
    unsigned size_;
    std::vector<std::uint64_t> words_; // bits beyond the size are 0
};

#endif
