// u is M times the six bytes 2 3 4 x y z, with M different x y z. The 2M rotations that
// begin with 2 3 4 are one group, too large for the sort's triples, whose keys in the
// first pass are the ranks of x y z, every key in two rows. Which x y z is the largest is
// decided while the partitions run: always that of the pivot (after M. D. McIlroy, "A
// killer adversary for quicksort", 1999). So each partition has nearly all rows on its
// left side, and is followed through only where rows of decided ranks stand.
#include "deep_partition.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <utility>

namespace {

constexpr std::uint32_t kMaxTriples = 65535; // rows that are sorted in another way
constexpr std::uint8_t kTrailers[] = {1, 0, 0, 0};
constexpr std::uint32_t kRowsBefore = 8; // those that begin with 0 or 1
// The values of x, y, z: no line ends, but the spaces that make FLT32 decline, and a
// value left that only the end of u has, so that the last group whose third bytes are
// sorted has two rows and takes no pivot.
constexpr std::uint32_t kLeastValue = 14;
constexpr std::uint32_t kValues = 255 - kLeastValue;

// The rows of the group, by the number of the six bytes that they begin with.
class Group {
public:
    explicit Group(std::uint32_t m) : numbers_(kRowsBefore + 2 * m), places_(m), ranks_(m) {
        // The sort of the third bytes, all equal, reverses the rows.
        for (std::uint32_t i = 0; i < 2 * m; ++i) {
            numbers_[kRowsBefore + i] = (2 * m - 1 - i) % m;
            places_[(2 * m - 1 - i) % m][i / m] = kRowsBefore + i;
        }
    }

    // The rank of each x y z, 1 to M.
    std::vector<std::uint32_t> rank_all() {
        const std::uint32_t lo = kRowsBefore;
        std::uint32_t end = static_cast<std::uint32_t>(numbers_.size());
        std::uint32_t rank = static_cast<std::uint32_t>(ranks_.size());
        while (end - lo > kMaxTriples) {
            const std::uint32_t pivot = numbers_[next_pivot(lo, end - 1)];
            if (ranks_[pivot] == 0) {
                ranks_[pivot] = rank--;
                ranked_.push_back(pivot);
            }
            end = partition(lo, end - 1, ranks_[pivot]);
            std::erase_if(ranked_, [&](std::uint32_t number) {
                return places_[number][0] >= end && places_[number][1] >= end;
            });
        }
        for (auto &r : ranks_)
            if (r == 0) r = rank--;
        return ranks_;
    }

private:
    std::uint32_t next_pivot(std::uint32_t lo, std::uint32_t hi) {
        seed_ = (seed_ * 7621 + 1) % 32768;
        return seed_ % 3 == 0 ? lo : seed_ % 3 == 1 ? (lo + hi) / 2 : hi;
    }

    // The first row from `row` to `end` - 1 whose rank is `rank` or more; `end` if none.
    std::uint32_t next_ranked(std::uint32_t row, std::uint32_t end, std::uint32_t rank) const {
        std::uint32_t next = end;
        for (const std::uint32_t number : ranked_) {
            for (const std::uint32_t place : places_[number])
                if (ranks_[number] >= rank && place >= row) next = std::min(next, place);
        }
        return next;
    }

    void exchange(std::uint32_t i, std::uint32_t j) {
        if (i == j || numbers_[i] == numbers_[j]) return;
        for (auto &place : places_[numbers_[i]])
            if (place == i) place = j;
        for (auto &place : places_[numbers_[j]])
            if (place == j) place = i;
        std::swap(numbers_[i], numbers_[j]);
    }

    // As the sort does it; returns the end of the left side.
    std::uint32_t partition(std::uint32_t lo, std::uint32_t hi, std::uint32_t rank) {
        std::uint32_t i = lo;
        std::uint32_t j = hi;
        while (i < j) {
            i = next_ranked(i, hi + 1, rank);
            while (ranks_[numbers_[j]] > rank)
                --j;
            if (i <= j) exchange(i++, j--);
        }
        while (ranks_[numbers_[j]] == rank)
            --j;
        return j + 1;
    }

    std::vector<std::uint32_t> numbers_;               // by row
    std::vector<std::array<std::uint32_t, 2>> places_; // by number, its two rows
    std::vector<std::uint32_t> ranks_;                 // by number, 0 while not decided
    std::vector<std::uint32_t> ranked_;                // numbers with rows still on the left
    std::uint32_t seed_ = 0;
};

} // namespace

Bytes deep_partition(std::size_t n) {
    const std::size_t half = (n + sizeof kTrailers) / 2;
    const std::uint32_t m = static_cast<std::uint32_t>(half / 6 - 1);
    const std::uint32_t step = kValues * kValues * kValues / (m + 1);
    Bytes u;
    for (const std::uint32_t rank : Group(m).rank_all()) {
        const std::uint32_t xyz = rank * step;
        u.insert(u.end(), {2, 3, 4});
        for (const std::uint32_t value : {xyz / kValues / kValues, xyz / kValues, xyz})
            u.push_back(static_cast<std::uint8_t>(kLeastValue + value % kValues));
    }
    u.push_back(255);
    u.resize(half - sizeof kTrailers, 5);
    u.insert(u.end(), std::begin(kTrailers), std::end(kTrailers));
    return first_bytes(join({u, u}), n);
}
