// The two passes of sorting/induced_sort.cpp, over names in place of bytes. They first sort
// the valleys of the string by the piece up to the next valley; each piece then gets a name
// of its own, and the string of those names, at most half as long, is sorted in the same
// way. Everything happens in `rows`:
//
//   | sorted valleys (v) | names by position / 2 ............. |
//   | sorted valleys (v) | ................ | names in order (v) |
#include "sorting/name_sort.h"

#include "sorting/bitmap.h"

#include <algorithm>

namespace velk {
namespace {

constexpr std::uint32_t kEmpty = 0xFFFFFFFFu;
// In a row that a pass has yet to visit: the position before is of the type that the other
// pass puts in its row. Positions are below 2^31.
constexpr std::uint32_t kOtherType = 1u << 31;

struct Names {
    const std::uint32_t *name;
    std::uint32_t count;

    std::uint32_t before(std::uint32_t p) const { return (p == 0 ? count : p) - 1; }
    std::uint32_t after(std::uint32_t p) const { return p + 1 == count ? 0 : p + 1; }
};

// Marks the valleys and returns their number, 0 when all names are equal.
std::uint32_t mark_valleys(const Names &names, std::uint32_t *marks) {
    std::fill(marks, marks + bitmap_words(names.count), 0);
    std::uint32_t rise = 0; // the first position whose name differs from the next one
    while (rise < names.count && names.name[rise] == names.name[names.after(rise)])
        ++rise;
    if (rise == names.count) return 0;
    bool later_is_s = names.name[rise] < names.name[names.after(rise)]; // position 0's type
    std::uint32_t later = names.name[0];
    std::uint32_t valleys = 0;
    for (std::uint32_t p = names.count; p-- > 0;) {
        const std::uint32_t here = names.name[p];
        const bool is_s = here < later || (here == later && later_is_s);
        if (later_is_s && !is_s) {
            set_bit(marks, names.after(p));
            ++valleys;
        }
        later = here;
        later_is_s = is_s;
    }
    return valleys;
}

// A bucket's end is its first row, the name, and its size.
void set_bucket_ends(const Names &names, std::uint32_t *buckets) {
    std::fill(buckets, buckets + names.count, 0);
    for (std::uint32_t p = 0; p < names.count; ++p)
        ++buckets[names.name[p]];
    for (std::uint32_t name = 0; name < names.count; ++name)
        buckets[name] += name;
}

// From the valleys, sorted at the ends of their buckets, and kEmpty in all other rows, to
// all positions. Both passes visit a row only after it has been written.
void induce(const Names &names, std::uint32_t *rows, std::uint32_t *buckets) {
    for (std::uint32_t name = 0; name < names.count; ++name)
        buckets[name] = name;
    for (std::uint32_t row = 0; row < names.count; ++row) {
        const std::uint32_t entry = rows[row];
        if (entry == kEmpty) continue;
        rows[row] = entry ^ kOtherType; // what does not concern this pass does the next
        if ((entry & kOtherType) != 0) continue;
        const std::uint32_t p = names.before(entry);
        const bool s_before = names.name[names.before(p)] < names.name[p];
        rows[buckets[names.name[p]]++] = s_before ? p | kOtherType : p;
    }
    set_bucket_ends(names, buckets);
    for (std::uint32_t row = names.count; row-- > 0;) {
        const std::uint32_t entry = rows[row];
        rows[row] = entry & ~kOtherType;
        if ((entry & kOtherType) != 0) continue;
        const std::uint32_t p = names.before(entry);
        const bool l_before = names.name[names.before(p)] > names.name[p];
        rows[--buckets[names.name[p]]] = l_before ? p | kOtherType : p;
    }
}

// Whether the pieces of the valleys a and b, up to the next valley, are equal; a's row is the
// one before b's. Where names are equal and only a's piece ended, at a valley, b's would have
// to be the smaller one.
bool equal_pieces(const Names &names, const std::uint32_t *marks, std::uint32_t a,
                  std::uint32_t b) {
    if (names.name[a] != names.name[b]) return false;
    do {
        a = names.after(a);
        b = names.after(b);
        if (names.name[a] != names.name[b]) return false;
    } while (!get_bit(marks, a));
    return true;
}

// Sorts the valleys by their pieces into the first rows.
void sort_pieces(const Names &names, const std::uint32_t *marks, std::uint32_t *rows,
                 std::uint32_t *buckets) {
    std::fill(rows, rows + names.count, kEmpty);
    set_bucket_ends(names, buckets);
    for_each_bit(marks, names.count, [&](std::uint32_t p) { rows[--buckets[names.name[p]]] = p; });
    induce(names, rows, buckets);
    std::uint32_t valleys = 0;
    for (std::uint32_t row = 0; row < names.count; ++row) {
        if (get_bit(marks, rows[row])) rows[valleys++] = rows[row];
    }
}

// Names the pieces of the sorted valleys; the names end up, in the order of the string, in
// the last rows. Returns whether all differ. No two valleys are neighbours, so that position
// / 2 tells them apart, and the last `valleys` rows are always read before they are written.
bool name_pieces(const Names &names, const std::uint32_t *marks, std::uint32_t valleys,
                 std::uint32_t *rows) {
    std::uint32_t *const by_position = rows + valleys;
    bool all_differ = true;
    std::uint32_t name = 0;
    for (std::uint32_t row = 0; row < valleys; ++row) {
        if (row > 0 && equal_pieces(names, marks, rows[row - 1], rows[row])) {
            all_differ = false;
        } else {
            name = row;
        }
        by_position[rows[row] / 2] = name;
    }
    if (all_differ) return true;
    std::uint32_t *next = rows + names.count;
    for (std::uint32_t p = names.count; p-- > 0;) {
        if (get_bit(marks, p)) *--next = by_position[p / 2];
    }
    return false;
}

} // namespace

bool sort_names(const std::uint32_t *name, std::uint32_t count, std::uint32_t *rows,
                std::uint32_t *buckets, std::uint32_t *marks) {
    const Names names = {name, count};
    const std::uint32_t valleys = mark_valleys(names, marks);
    if (valleys == 0) return false;
    sort_pieces(names, marks, rows, buckets);
    if (!name_pieces(names, marks, valleys, rows)) {
        std::uint32_t *const last_rows = rows + (count - valleys);
        if (!sort_names(last_rows, valleys, rows, buckets, marks + bitmap_words(count))) {
            return false;
        }
        std::uint32_t *position = last_rows;
        for_each_bit(marks, count, [&](std::uint32_t p) { *position++ = p; });
        for (std::uint32_t row = 0; row < valleys; ++row)
            rows[row] = last_rows[rows[row]];
    }
    std::fill(rows + valleys, rows + count, kEmpty);
    set_bucket_ends(names, buckets);
    for (std::uint32_t row = valleys; row-- > 0;) {
        const std::uint32_t p = rows[row];
        rows[row] = kEmpty;
        rows[--buckets[names.name[p]]] = p;
    }
    induce(names, rows, buckets);
    return true;
}

} // namespace velk
