// The vertex index sets of the splits: which vertices each part's faces use, kept as a bit set
// over the part's index range or, when that would take too much room, as a sorted list.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace obj {

// A set of vertex indices. Normally a bit set over the range the set has seen so far: the
// parts of a combined mesh use contiguous index ranges, so each set stays about one bit per
// vertex of its part. All sets of one split draw their bit sets from a shared byte budget;
// a set whose range would overdraw it (faces that jump across the whole mesh) turns into a
// sorted list instead, so that memory stays bounded by the input whatever it holds.
// finish() must be called before iteration, which is ascending.
struct IndexSet {
    uint64_t lo = 0;     // index of bit 0 of words[0], a multiple of 64
    uint64_t nbits = 0;  // words.size() * 64
    std::vector<uint64_t> words;
    bool sparse = false;
    std::vector<uint64_t> list;  // the sparse form: indices, sorted and unique up to `unique`
    size_t unique = 0;

    inline __attribute__((always_inline)) void insert(uint64_t i, uint64_t& budget) {
        uint64_t off = i - lo;  // wraps to a huge value below lo
        if (off >= nbits) [[unlikely]] {
            if (sparse || !grow(i, budget)) {
                listInsert(i);
                return;
            }
            off = i - lo;
        }
        words[static_cast<size_t>(off >> 6)] |= uint64_t(1) << (off & 63);
    }

    // Widens the bit set to cover i; false (and the set becomes a list) when over budget.
    bool grow(uint64_t i, uint64_t& budget) {
        uint64_t newLo = lo, newWords;
        if (words.empty()) {
            newLo = i & ~uint64_t(63);
            newWords = 1;
        } else if (i < lo) {
            // Grow downwards at least by the current size, so that descending inserts stay linear.
            newLo = std::min<uint64_t>(i & ~uint64_t(63), lo > nbits ? lo - nbits : 0);
            newWords = words.size() + (lo - newLo) / 64;
        } else {
            newWords = (i - lo) / 64 + 1;
        }
        const uint64_t cost = (newWords - words.size()) * 8;
        if (cost > budget) {
            toList();
            return false;
        }
        budget -= cost;
        if (newLo < lo) words.insert(words.begin(), static_cast<size_t>((lo - newLo) / 64), 0);
        else words.resize(static_cast<size_t>(newWords));
        lo = newLo;
        nbits = uint64_t(words.size()) * 64;
        return true;
    }

    void toList() {
        forEachBit([&](uint64_t i) { list.push_back(i); });
        unique = list.size();
        words = {};
        nbits = 0;
        lo = 0;
        sparse = true;
    }

    void listInsert(uint64_t i) {
        list.push_back(i);
        if (list.size() >= 2 * unique + 4096) compact();  // duplicates never more than double it
    }

    void compact() {
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        unique = list.size();
    }

    void finish() {
        if (sparse) compact();
    }

    template <typename Fn>
    void forEachBit(Fn&& fn) const {
        for (size_t w = 0; w < words.size(); ++w)
            for (uint64_t bits = words[w]; bits; bits &= bits - 1)
                fn(lo + uint64_t(w) * 64 + uint64_t(std::countr_zero(bits)));
    }

    // Calls fn(index) for every index in [from, to], ascending.
    template <typename Fn>
    void forEach(uint64_t from, uint64_t to, Fn&& fn) const {
        if (sparse) {
            for (uint64_t i : list)
                if (i >= from && i <= to) fn(i);
            return;
        }
        for (size_t w = from > lo ? static_cast<size_t>((from - lo) / 64) : 0; w < words.size(); ++w)
            for (uint64_t bits = words[w]; bits; bits &= bits - 1) {
                const uint64_t i = lo + uint64_t(w) * 64 + uint64_t(std::countr_zero(bits));
                if (i > to) return;
                if (i >= from) fn(i);
            }
    }

    size_t count(uint64_t from, uint64_t to) const {
        size_t n = 0;
        forEach(from, to, [&](uint64_t) { ++n; });
        return n;
    }

    // Widens this bit set to cover the range of other's words; false when this is (or becomes)
    // a list, or other holds no words.
    bool coversRange(const IndexSet& other, uint64_t& budget) {
        if (sparse || other.words.empty()) return false;
        if (other.lo < lo && !grow(other.lo, budget)) return false;
        const uint64_t top = other.lo + other.nbits - 1;
        return top < lo + nbits || grow(top, budget);
    }

    // Takes in the indices of other (which is left empty): words at a time where both are bit
    // sets, else one by one.
    void absorb(IndexSet& other, uint64_t& budget) {
        if (words.empty() && !sparse) {
            std::swap(*this, other);
            return;
        }
        if (!other.sparse && coversRange(other, budget)) {
            const size_t at = static_cast<size_t>((other.lo - lo) / 64);
            for (size_t w = 0; w < other.words.size(); ++w) words[at + w] |= other.words[w];
        } else if (other.sparse) {
            for (uint64_t i : other.list) insert(i, budget);
        } else {
            other.forEachBit([&](uint64_t i) { insert(i, budget); });
        }
        other = IndexSet{};
    }
};

}  // namespace obj
