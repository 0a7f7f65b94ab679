#include "naive_dce.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>

namespace {

constexpr std::uint16_t kStored[] = {
#include "dce/builtin_counts.inc"
};

struct Model {
    std::vector<std::uint32_t> counts;

    std::uint32_t total() const { return std::accumulate(counts.begin(), counts.end(), 0u); }
    void halve_if_large() {
        if (total() <= 65535) return;
        for (auto &count : counts)
            count = (count + 1) / 2;
    }
};

// The low end of the interval as one number of as many bytes as were shifted out,
// and four more; a carry goes as far up as it must.
struct LongNumberCoder {
    Bytes digits{0, 0, 0, 0, 0};
    std::uint64_t range = 0xFFFFFFFF;

    void add(std::uint64_t amount) {
        for (std::size_t i = digits.size(); amount != 0; amount >>= 8) {
            amount += digits[--i];
            digits[i] = static_cast<std::uint8_t>(amount);
        }
    }
    void code(std::uint64_t cum, std::uint64_t freq, std::uint64_t total) {
        const std::uint64_t r = range / total;
        add(cum * r);
        range = freq * r;
        for (; range < 1u << 24; range *= 256)
            digits.push_back(0);
    }
};

struct Stats {
    std::uint64_t slow = 0, last = 0;
    std::int64_t fast = 0, small = 0;
};

unsigned bits_of(std::uint64_t x) {
    unsigned bits = 0;
    for (; x != 0; x /= 2)
        ++bits;
    return bits;
}

std::uint64_t bucket(std::uint64_t x) {
    return x > 4 ? 4 + bits_of(x - 4) : x;
}

struct Coder {
    std::map<std::pair<unsigned, std::uint64_t>, Model> models; // by set and context
    std::map<unsigned, Stats> stats;
    std::uint64_t previous = 0;
    LongNumberCoder range;
    std::vector<bool> raw;

    Model &model(unsigned set, std::uint64_t context) {
        Model &m = models[{set, context}];
        if (m.counts.empty()) {
            const std::uint16_t *stored = kStored + 33 * context + 1;
            for (int i = 0; i < 32; ++i)
                m.counts.push_back(set == 0 ? stored[i] + 1u : 1u);
        }
        m.halve_if_large();
        return m;
    }

    void value(std::uint32_t v, unsigned byte, std::uint32_t run) {
        Stats &s = stats[byte];
        unsigned second = 1;
        if (previous <= 2) {
            second += static_cast<unsigned>(previous);
        } else {
            second += bits_of((previous - 2) % 256) + bits_of((previous - 2) / 256);
        }
        std::uint64_t context = (bucket(s.slow) + 15 * bucket(static_cast<unsigned>(s.fast))) / 16;
        if (s.small > 1) context += s.small > 16 ? 29 : 30;
        if (s.last < 20) context += 30;
        if (run > 2) context += 30;

        unsigned symbol = v;
        std::uint32_t x = v - 4;
        unsigned extra = 0;
        if (v > 7) {
            extra = bits_of(x) - 3;
            symbol = 8 + extra;
        }
        Model &p = model(0, context);
        Model &q = model(second, context);
        std::uint64_t below = 0;
        for (unsigned i = 0; i < symbol; ++i)
            below += p.counts[i] + q.counts[i];
        range.code(below, p.counts[symbol] + q.counts[symbol], p.total() + q.total());
        p.counts[symbol] += 24;
        q.counts[symbol] += 24;
        if (v > 7) {
            Model &m = model(0, 120 + extra);
            const std::uint32_t two = (x >> extra) % 4;
            below = 0;
            for (unsigned i = 0; i < two; ++i)
                below += 2 * m.counts[i];
            range.code(below, 2 * m.counts[two], 2 * m.total());
            m.counts[two] += 14;
            for (unsigned i = 0; i < extra; ++i)
                raw.push_back(x >> i & 1);
        }

        const std::int64_t t = 4 * std::int64_t{v} + 2 * s.fast - std::min(run - 1, 5u);
        s.fast = t < 0 ? 0 : v < s.fast ? t / 3 : t / 4;
        s.slow = (15 * s.slow + 3 * v) / 16;
        s.last = v;
        previous = v % 4096;
        if (v < 3) s.small = std::min<std::int64_t>(s.small + 1, 255);
        if (v > 7) s.small /= 2;
    }
};

} // namespace

NaiveDce code_naively(const Bytes &block) {
    Coder coder;
    NaiveDce result;
    const auto put = [&](std::size_t v, unsigned byte, std::size_t run) {
        result.values.push_back(static_cast<std::uint32_t>(v));
        coder.value(static_cast<std::uint32_t>(v), byte, static_cast<std::uint32_t>(run));
    };
    std::vector<std::size_t> firsts; // positions of the first of each byte value
    for (std::size_t p = 0; p < block.size(); ++p) {
        if (std::find(block.begin(), block.end(), block[p]) - block.begin() ==
            static_cast<std::ptrdiff_t>(p)) {
            firsts.push_back(p);
        }
    }
    put(firsts.size(), 0, 1);
    put(block.size() + 1, 0, 1);
    for (std::size_t k = 0; k < firsts.size(); ++k) {
        put(block[firsts[k]], 0, 1);
        put(k == 0 ? 0 : firsts[k] - firsts[k - 1], k == 0 ? 0 : 1, 1);
    }

    std::set<std::size_t> known(firsts.begin(), firsts.end());
    for (std::size_t p = 0, end; p < block.size(); p = end) {
        const auto begin = block.begin();
        for (end = p + 1; end < block.size() && block[end] == block[p];)
            ++end;
        const auto next =
            std::find(begin + static_cast<std::ptrdiff_t>(end), block.end(), block[p]);
        std::size_t v = 0;
        if (next != block.end()) {
            const std::size_t target = static_cast<std::size_t>(next - begin);
            for (std::size_t i = end; i <= target; ++i)
                v += !known.contains(i);
            known.insert(target);
        }
        put(v, block[p], end - p);
    }

    result.coded = coder.range.digits;
    while (coder.raw.size() % 32 != 0)
        coder.raw.push_back(false);
    for (std::size_t end = coder.raw.size(); end > 0; end -= 8) {
        unsigned byte = 0;
        for (std::size_t i = 0; i < 8; ++i)
            byte |= unsigned{coder.raw[end - 8 + i]} << i;
        result.coded.push_back(static_cast<std::uint8_t>(byte));
    }
    for (unsigned shift = 0; shift < 32; shift += 8) {
        result.coded.push_back(static_cast<std::uint8_t>(result.values.size() >> shift));
    }
    result.coded.push_back(1);
    return result;
}
