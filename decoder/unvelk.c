/* unvelk restores VELK archives. It shares nothing with the programs and the library beside it but
   docs/format.md, from which alone it is written, and one table of numbers. Its sections stand in
   the order of that page, under the same headings: read the two side by side.

       cc -O2 unvelk.c -o unvelk           and then           ./unvelk < archive > file

   In a program of your own, compile it with -DUNVELK_NO_MAIN, and get the declarations by
   #define UNVELK_ONLY_DECLARATIONS and #include "unvelk.c". It asks the C library for memcpy,
   memmove, memset and memcmp, takes no memory but what it is lent, keeps nothing between calls,
   and needs less than 4 KiB of stack. */

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Verdicts. From 0 on every block was restored, and warnings add up. */
enum {
    UNVELK_WHOLE = 0,
    UNVELK_MAY_BE_CUT = 1,   /* a plain member ends as it also would if it had been cut there */
    UNVELK_BYTES_BEHIND = 2, /* what follows the last member is not part of the archive */
    UNVELK_NO_ARCHIVE = -1,
    UNVELK_DAMAGED = -2, /* or cut; what comes before the damage was restored */
    UNVELK_MEMORY = -3,  /* this member needs more work memory */
    UNVELK_OUTPUT = -4   /* put() refuses, or there is no room */
};

struct unvelk_result {
    int verdict;
    const char *why; /* the verdict in words */
    size_t at;       /* the place in the archive that it is about */
    size_t restored; /* bytes put out */
};

/* The work memory for the member whose header is the 18 bytes at `header`, about 5 N bytes; 0 if
   that is no valid header. No member needs more than UNVELK_MOST_WORK, 89 MiB. */
size_t unvelk_work(const uint8_t *header);
#define UNVELK_MOST_WORK (5 * (16776192 + 100) + 9000000)

/* Restores the members of an archive in a row. Each block goes to put() once its CRC is found
   right; put() returns 0 to go on. `work` is aligned as malloc aligns. */
struct unvelk_result unvelk(const uint8_t *archive, size_t size, void *work, size_t work_size,
                            int (*put)(void *to, const uint8_t *block, size_t size), void *to);

/* A put() that fills memory, and what its `to` points to. */
struct unvelk_memory {
    uint8_t *out; /* where the next block goes */
    size_t room;  /* bytes that are left there */
};
int unvelk_put_memory(void *to, const uint8_t *block, size_t size);

#ifdef __cplusplus
}
#endif

#ifndef UNVELK_ONLY_DECLARATIONS

/* Numbers are little-endian. */
static uint32_t get32(const uint8_t *p) {
    return p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

/* ---- Archive -------------------------------------------------------------------------------- */
enum { MAGIC_SIZE = 12, HEADER_SIZE = 18, HEAD_SIZE = 5, CRC_SIZE = 4 };
enum { ENTRY_SIZE = 12, FOOTER_SIZE = 24 };             /* of an index; HEAD_SIZE: of a record */
enum { MIN_N = 131072, MAX_N = 16776192, SLACK = 100 }; /* no stage makes N + 100 bytes longer */
enum { BWT_OFF = 1 << 4, ST_OFF = 1 << 5 };

static const uint8_t magic[MAGIC_SIZE] = {'V', 'E', 'L', 'K', '_', 'V',
                                          '0', '.', '9', '5', 'a', '>'};

/* CRC-32, half a byte at a time: a table of 16 numbers is small enough to be seen through. */
static uint32_t crc_step(uint32_t crc, uint8_t byte) {
    static const uint32_t table[16] = {0x00000000, 0x1DB71064, 0x3B6E20C8, 0x26D930AC,
                                       0x76DC4190, 0x6B6B51F4, 0x4DB26158, 0x5005713C,
                                       0xEDB88320, 0xF00F9344, 0xD6D6A3E8, 0xCB61B38C,
                                       0x9B64C2B0, 0x86D3D2D4, 0xA00AE278, 0xBDBDF21C};
    crc ^= byte;
    crc = crc >> 4 ^ table[crc & 15];
    return crc >> 4 ^ table[crc & 15];
}

/* From the last byte to the first: the block CRC, and in its low byte every check byte. */
static uint32_t crc_backward(const uint8_t *p, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    while (size > 0)
        crc = crc_step(crc, p[--size]);
    return ~crc;
}

/* From the first byte to the last: the CRCs of the index. `crc`: that of what comes before, or
   0. */
static uint32_t crc_forward(uint32_t crc, const uint8_t *p, size_t size) {
    crc = ~crc;
    for (size_t i = 0; i < size; i++)
        crc = crc_step(crc, p[i]);
    return ~crc;
}

static int valid_header(const uint8_t *p) {
    uint32_t n = get32(p + 14);
    return memcmp(p, magic, MAGIC_SIZE) == 0 && p[12] == (uint8_t)crc_backward(p + 13, 5) &&
           n >= MIN_N && n <= MAX_N && (p[13] & (BWT_OFF | ST_OFF)) != 0;
}

/* Whether a record head or an end mark is at p, and its L. */
static int valid_head(const uint8_t *p, size_t left, uint32_t n, uint32_t *length) {
    if (left < HEAD_SIZE || p[0] != (uint8_t)crc_backward(p + 1, 4)) return 0;
    *length = get32(p + 1);
    return *length == 0 || (*length > CRC_SIZE && *length <= n + SLACK);
}

struct job { /* one call of unvelk() */
    const uint8_t *archive;
    size_t size, at;
    uint8_t *work;
    size_t work_size;
    int (*put)(void *, const uint8_t *, size_t);
    void *to;
    struct unvelk_result result;
};

static size_t left(const struct job *j) {
    return j->size - j->at;
}

/* Ends the work, with what is to be said of the archive. */
static int end(struct job *j, int verdict, const char *why) {
    j->result.verdict = verdict;
    j->result.why = why;
    j->result.at = j->at;
    return 0;
}

static int damaged(struct job *j, const char *why) {
    return end(j, UNVELK_DAMAGED, why);
}

/* ---- Archive: Block sizes and the mark ------------------------------------------------------- */
/* A block on its way through the stages, from one buffer to the other. */
struct dce;
struct block {
    uint8_t *now, *next; /* what is restored so far, and room for more */
    size_t size;         /* bytes of `now` */
    size_t limit;        /* N + 100, the room of each buffer: no stage makes a block longer */
    uint8_t trailer;     /* its last byte */
    struct dce *dce;
    uint8_t *buffer;  /* `now` at the start */
    uint32_t *vector; /* of the inverse BWT, or NULL if the BWT is off; the other buffer, too */
    uint32_t *table;  /* of the inverse ST, or NULL */
};

/* Of the sections below. */
static const uint8_t *find_index(const struct job *j, uint32_t n);
static const uint8_t *footer(const struct job *j, uint64_t records);
static int skip_index(struct job *j, const uint8_t *header, uint64_t records, uint64_t original);
static int behind_member(struct job *j, int ended, int index);
static int lend_work(struct block *b, const uint8_t *header, struct job *j);
static const char *restore_block(struct block *b, const uint8_t *data, size_t length);

/* Restores the member whose valid header is at j->at. Returns whether another one follows. */
static int restore_member(struct job *j) {
    const uint8_t *header = j->archive + j->at, *index = NULL;
    const uint32_t n = get32(header + 14);
    int indexed = n % 1024 == 513, fits = 1, ended = 0;
    uint64_t records = 0, original = 0;
    uint32_t length;
    struct block b;
    if (!lend_work(&b, header, j)) return end(j, UNVELK_MEMORY, "there is not enough memory");
    j->at += HEADER_SIZE;
    if (indexed) index = find_index(j, n);
    for (; valid_head(j->archive + j->at, left(j), n, &length) && length > 0; records++) {
        if (length > left(j) - HEAD_SIZE) return damaged(j, "a block is cut");
        const char *why = restore_block(&b, j->archive + j->at + HEAD_SIZE, length);
        if (why) return damaged(j, why);
        if (records == 0 && b.size == n) indexed = 0; /* the first block tells */
        if (indexed) {
            const uint8_t *entry = index ? index + records * ENTRY_SIZE : NULL;
            if (b.size == 0 || b.size >= n) return damaged(j, "no indexed block has this size");
            fits = fits && entry && get32(entry) == length && get32(entry + 4) == b.size &&
                   get32(entry + 8) == crc_forward(0, b.now, b.size);
        }
        if (j->put(j->to, b.now, b.size) != 0)
            return end(j, UNVELK_OUTPUT, "the output can't be written");
        j->result.restored += b.size;
        j->at += HEAD_SIZE + length;
        original += b.size;
        ended = b.size < n || n % 1024 != 0; /* so it is in a plain member */
    }
    const int end_mark = valid_head(j->archive + j->at, left(j), n, &length);
    if (end_mark) j->at += HEAD_SIZE;

    if (indexed) {
        if (!end_mark) return damaged(j, "a record head is damaged or cut");
        if (!fits || !skip_index(j, header, records, original))
            return damaged(j, "the index does not fit the blocks");
        return behind_member(j, 1, 0);
    }
    if (!ended && !end_mark && n % 1024 != 0) return damaged(j, "a member is cut");
    if (!ended) j->result.verdict = UNVELK_MAY_BE_CUT;
    return behind_member(j, ended || end_mark, end_mark && footer(j, records));
}

struct unvelk_result unvelk(const uint8_t *archive, size_t size, void *work, size_t work_size,
                            int (*put)(void *, const uint8_t *, size_t), void *to) {
    struct job j = {archive, size, 0, work, work_size, put, to, {UNVELK_WHOLE, "", 0, 0}};
    int more = size >= HEADER_SIZE && valid_header(archive);
    if (size < MAGIC_SIZE || memcmp(archive, magic, MAGIC_SIZE) != 0)
        end(&j, UNVELK_NO_ARCHIVE, "this does not begin as an archive");
    else if (!more)
        damaged(&j, "the header is damaged or cut");
    while (more)
        more = restore_member(&j);
    return j.result;
}

int unvelk_put_memory(void *to, const uint8_t *block, size_t size) {
    struct unvelk_memory *m = to;
    if (size > m->room) return 1;
    if (size > 0) memcpy(m->out, block, size);
    m->out += size;
    m->room -= size;
    return 0;
}

/* ---- Archive: Index -------------------------------------------------------------------------- */
/* The index of the member whose records begin at j->at, found from head to head, if its entries
   are within the archive; or NULL. So each block can be held against its entry at once. */
static const uint8_t *find_index(const struct job *j, uint32_t n) {
    size_t at = j->at, records = 0;
    uint32_t length;
    for (; valid_head(j->archive + at, j->size - at, n, &length); at += length, records++) {
        at += HEAD_SIZE;
        if (length == 0) return (j->size - at) / ENTRY_SIZE >= records ? j->archive + at : NULL;
        if (length > j->size - at) return NULL;
    }
    return NULL;
}

/* The footer of an index at j->at with `records` entries, or NULL if it is not there. */
static const uint8_t *footer(const struct job *j, uint64_t records) {
    if (left(j) < FOOTER_SIZE || records > (left(j) - FOOTER_SIZE) / ENTRY_SIZE) return NULL;
    const uint8_t *p = j->archive + j->at + records * ENTRY_SIZE;
    return get32(p + 8) == records && memcmp(p + 16, "VELKindx", 8) == 0 ? p : NULL;
}

/* Goes behind the index at j->at if that holds; its entries are known to fit. */
static int skip_index(struct job *j, const uint8_t *header, uint64_t records, uint64_t original) {
    const uint8_t *p = footer(j, records), *entries = j->archive + j->at;
    if (!p || get32(p) != (uint32_t)original || get32(p + 4) != original >> 32) return 0;
    const uint32_t crc = crc_forward(0, header, HEADER_SIZE);
    if (get32(p + 12) != crc_forward(crc, entries, (size_t)(p + 12 - entries))) return 0;
    j->at = (size_t)(p + FOOTER_SIZE - j->archive);
    return 1;
}

/* ---- Archive: Behind a member ---------------------------------------------------------------- */
/* Whether what is at j->at was a header, or the begin of one, before it was damaged or cut. */
static int once_header(const struct job *j) {
    const uint8_t *p = j->archive + j->at;
    size_t size = left(j), same = 0;
    if (size < HEADER_SIZE) return memcmp(p, magic, size < MAGIC_SIZE ? size : MAGIC_SIZE) == 0;
    for (int i = 0; i < MAGIC_SIZE; i++)
        same += p[i] == magic[i];
    return same >= 8;
}

/* Decides what follows the member that came before j->at, and returns whether that is the next
   member. `ended`: the last one can't go on there; `index`: it has none, but there would be one. */
static int behind_member(struct job *j, int ended, int index) {
    const int warnings = j->result.verdict;
    if (left(j) == 0) return end(j, warnings, warnings ? "it may have been cut" : "it is whole");
    if (left(j) >= HEADER_SIZE && valid_header(j->archive + j->at)) return 1;
    if (once_header(j)) return damaged(j, "a header is damaged or cut");
    if (index) return damaged(j, "a member's header is damaged: it has an index");
    if (!ended) return damaged(j, "a record head is damaged or cut");
    return end(j, warnings | UNVELK_BYTES_BEHIND, "what follows the archive's end is left out");
}

/* ---- Block data ------------------------------------------------------------------------------ */
/* What a stage has written, `size` bytes, becomes the block. */
static void turn(struct block *b, size_t size) {
    uint8_t *written = b->next;
    b->next = b->now;
    b->now = written;
    b->size = size;
}

/* The stages' inverses. Each finds the block without the last byte of its trailer, and that byte,
   which is not 0, in b->trailer. It leaves its output in b->now and b->size, or returns what is
   wrong. */
typedef const char *inverse(struct block *b);
static inverse undo_eol, undo_flt32, undo_delta, undo_lzp, undo_bwt, undo_st, undo_rle, undo_dce;

static const char *restore_block(struct block *b, const uint8_t *data, size_t length) {
    static inverse *const undo[] = {undo_dce, undo_rle,   undo_st,    undo_bwt,
                                    undo_lzp, undo_delta, undo_flt32, undo_eol};
    size_t i = 0;
    b->size = length - CRC_SIZE;
    if (get32(data + b->size) != crc_backward(data, b->size)) return "a block's CRC is wrong";
    if (b->now != b->buffer) turn(b, b->size);
    memcpy(b->now, data, b->size);
    if (b->now[b->size - 1] == 2) { /* fallback: without the last four stages */
        b->size--;
        i = 4;
    }
    for (; i < sizeof undo / sizeof *undo; i++) {
        if (b->size == 0) return "a block is shorter than its trailers";
        b->trailer = b->now[--b->size];
        const char *why = b->trailer != 0 ? undo[i](b) : NULL;
        if (why) return why;
    }
    return NULL;
}

/* ---- EOL ------------------------------------------------------------------------------------- */
enum { CR = 13, LF = 10, SPACE = 32, LINES = 16 };

struct line_model {
    size_t length[LINES]; /* the last 16 recorded, a ring */
    int oldest;
    size_t width; /* W, the largest of them */
    size_t growth;
};

static void take_line(struct line_model *m, size_t length) {
    if (length >= 256) return;
    if (length <= m->width) {
        m->growth = (m->growth >> 1) + 1;
    } else if (length <= m->width + m->growth) {
        m->growth = 2 * (length - m->width) + 1;
    } else {
        length = m->width + m->growth;
        m->growth = 2 * m->growth + 1;
    }
    m->length[m->oldest] = length < 2 ? 2 : length;
    m->oldest = (m->oldest + 1) % LINES;
    m->width = 0;
    for (int i = 0; i < LINES; i++)
        if (m->length[i] > m->width) m->width = m->length[i];
}

static const char *restore_lines(struct block *b) {
    struct line_model m = {{0}, 0, 0, 1};
    uint8_t *out = b->next;
    size_t size = 0;           /* of the output */
    size_t cr = (size_t)0 - 2; /* the last CR, at -2 before the first: columns are size - cr */
    if (b->size == 0) return "EOL: the escape byte is missing";
    const uint8_t escape = b->now[b->size - 1];
    for (size_t i = 0; i + 1 < b->size; i++) {
        const uint8_t c = b->now[i];
        if (b->limit - size < 2) return "EOL: the text is too long";
        out[size] = c;
        if (c == CR) {
            take_line(&m, size - cr);
            cr = size;
        } else if (size - cr == m.width) { /* the last space, or E, tells of a CR left out here */
            const size_t least = m.width > 18 ? m.width - 16 : 2;
            size_t p = size;
            while (p - cr > least && out[p] != SPACE && out[p] != escape)
                p--;
            if (out[p] == escape) {
                out[p] = SPACE;
            } else if (out[p] == SPACE) {
                memmove(out + p + 1, out + p, ++size - p);
                out[p] = CR;
                take_line(&m, p - cr);
                cr = p;
            }
        }
        size++;
    }
    turn(b, size);
    return NULL;
}

static const char *undo_eol(struct block *b) {
    const char *why = b->trailer == 2 ? restore_lines(b) : NULL;
    for (size_t i = 1; !why && i < b->size; i++) { /* whatever the trailer, the swap is undone */
        const uint8_t c = b->now[i];
        if (b->now[i - 1] == CR && (c == LF || c == SPACE)) b->now[i] = LF + SPACE - c;
    }
    return why;
}

/* ---- FLT32 ----------------------------------------------------------------------------------- */
static const char *undo_flt32(struct block *b) {
    if (b->size < 8) return "FLT32: base and R are missing";
    b->size -= 8;
    const uint32_t base = get32(b->now + b->size), range = get32(b->now + b->size + 4);
    for (size_t p = 0; b->size - p >= 5; p++) {
        if (b->now[p] != 0xE8) continue;
        const uint32_t w = get32(b->now + p + 1), q = base + (uint32_t)p;
        const uint32_t v = w < range ? w - q : w > UINT32_MAX - q ? w + range : w;
        for (int i = 0; i < 4; i++)
            b->now[++p] = (uint8_t)(v >> 8 * i);
    }
    return NULL;
}

/* ---- DELTA ----------------------------------------------------------------------------------- */
static const char *undo_delta(struct block *b) {
    const uint8_t *in = b->now;
    if (b->trailer > 3) return "DELTA: no such trailer";
    for (size_t channel = 0; channel <= b->trailer; channel++)
        for (size_t i = channel; i < b->size; i += b->trailer + 1u)
            b->next[i] = *in++;
    turn(b, b->size);
    return NULL;
}

/* ---- LZP ------------------------------------------------------------------------------------- */
enum { LZP_TABLE = 16384 };

static const char *undo_lzp(struct block *b) {
    uint32_t *table = (void *)b->dce; /* lent: the DCE is done */
    const uint8_t *in = b->now, *const in_end = in + b->size - 1;
    uint8_t *out = b->next;
    size_t size = 1;
    if (b->size < 2) return "LZP: too short";
    memset(table, 0, LZP_TABLE * sizeof *table);
    const uint8_t escape = *in_end;
    out[0] = *in++;
    uint32_t h = out[0];
    while (in < in_end) {
        uint32_t *entry = &table[(h >> 15 ^ h ^ h >> 3) % LZP_TABLE];
        const uint32_t from = *entry;
        const uint8_t before = out[size - 1];
        size_t match = 0;
        *entry = (uint32_t)size;

        uint8_t c = *in++;
        if (from != 0 && c == escape) {
            c = *in++; /* at the end that is E, which is there */
            if (c == before) {
                c = escape;
            } else {
                match = 62;
                for (; c == (uint8_t)(before + 1) && in <= in_end; c = *in++)
                    match += 254;
                match += (uint8_t)(c - before);
            }
            if (in > in_end) return "LZP: cut in a match";
        }
        if (b->limit - size < (match ? match : 1)) return "LZP: the block is too long";
        if (match == 0) {
            out[size++] = c;
            h = h << 8 | c;
        } else {
            for (size_t i = 0; i < match; i++)
                out[size + i] = out[from + i];
            size += match;
            h = (uint32_t)out[size - 4] << 24 | (uint32_t)out[size - 3] << 16 |
                (uint32_t)out[size - 2] << 8 | out[size - 1];
        }
    }
    turn(b, size);
    return NULL;
}

/* ---- BWT ------------------------------------------------------------------------------------- */
/* Makes counts, but 0, the numbers of what comes before each. */
static void sum_up(uint32_t *counts, size_t size) {
    uint32_t sum = 0;
    for (size_t i = 0; i < size; i++) {
        const uint32_t count = counts[i];
        if (count > 0) counts[i] = sum;
        sum += count;
    }
}

/* From row to row each step waits for memory, so several parts of the way are gone at once. Rows
   that are the first one modulo 2^shift begin parts; a part ends where it comes to such a row.
   Bytes go into chunks, each of which tells which one goes on, and thus into their order. */
enum { PARTS = 128, LANES = 16, CHUNK = 512, CHUNK_ROOM = PARTS * CHUNK };

struct chunk {
    uint32_t size, next;
};

static void walk_parts(const uint32_t *vector, uint32_t n, uint32_t first, uint32_t shift,
                       uint8_t *bytes, struct chunk *chunks) {
    struct lane {
        uint32_t row, chunk, size;
    } lane[LANES];
    const uint32_t modulus = 1u << shift;
    uint32_t begin = first % modulus;              /* of the next part */
    uint32_t used = (n - 1 - begin) / modulus + 1; /* chunks, the first of each part at first */
    for (unsigned lanes = 0;;) {
        for (; lanes < LANES && begin < n; begin += modulus)
            lane[lanes++] = (struct lane){begin, begin >> shift, 0};
        if (lanes == 0) return;
        for (unsigned i = 0; i < lanes; i++) {
            struct lane *l = &lane[i];
            const uint32_t entry = vector[l->row];
            bytes[l->chunk * CHUNK + l->size++] = (uint8_t)entry;
            l->row = entry >> 8;
            const int ends = l->row % modulus == first % modulus;
            if (!ends && l->size < CHUNK) continue;
            chunks[l->chunk] = (struct chunk){l->size, ends ? l->row >> shift : used};
            if (ends) {
                *l = lane[--lanes];
                break;
            }
            l->chunk = used++;
            l->size = 0;
        }
    }
}

/* `vector` has for each row the next one, and its byte below that. */
static const char *undo_bwt(struct block *b) {
    uint32_t *vector = b->vector, next[256] = {0}, shift = 0;
    struct chunk *chunks = (void *)b->dce; /* lent: the DCE is done */
    uint8_t *column = b->buffer;
    if (!vector) return "BWT: the header says that it is off";
    if (b->size < 5) return "BWT: too short";
    const uint32_t n = (uint32_t)b->size - 4, primary = get32(b->now + n);
    if (primary < 1 || primary > n) return "BWT: there is no such primary index";
    if (b->now != column) { /* make room for the vector */
        memcpy(column, b->now, n);
        turn(b, n);
    }
    for (size_t r = 0; r < n; r++)
        next[column[r]]++;
    sum_up(next, 256);
    for (size_t r = 0; r < n; r++)
        vector[r] = next[column[r]]++ << 8 | column[r];

    /* All is in the vector. The column makes place for the chunks, then the vector for the block:
       its first byte, then its last one, the one before it, and so on. */
    while (n >> shift >= PARTS)
        shift++;
    walk_parts(vector, n, primary - 1, shift, column, chunks);
    uint32_t from = (primary - 1) >> shift;
    for (size_t left = n; left > 0; from = chunks[from].next)
        for (size_t i = 0; i < chunks[from].size && left > 0; i++, left--)
            b->next[left < n ? left : 0] = column[from * CHUNK + i];
    turn(b, n);
    return NULL;
}

/* ---- ST -------------------------------------------------------------------------------------- */
enum { ST_TABLE = (1 << 21) + (1 << 13) };

static const char *undo_st(struct block *b) {
    const uint8_t *column = b->now;
    if (!b->table) return "ST: the header says that it is off";
    if (b->size < 6) return "ST: too short";
    const size_t n = b->size - 3;

    /* The rotations of each context of 5, 13 and 21 bits are counted. Rows are sorted by
       context, so one counts the bytes before the rotations of one context after the other. */
    uint32_t *of_21 = b->table, *of_13 = b->table + (1 << 21), of_5[32] = {0};
    memset(b->table, 0, ST_TABLE * sizeof *b->table);
    for (size_t r = 0; r < n; r++)
        of_5[column[r] >> 3]++;
    for (uint32_t c = 0, row = 0; c < 1 << 5; c++)
        for (uint32_t i = of_5[c]; i > 0; i--)
            of_13[(uint32_t)column[row++] << 5 | c]++;
    for (uint32_t c = 0, row = 0; c < 1 << 13; c++)
        for (uint32_t i = of_13[c]; i > 0; i--)
            of_21[(uint32_t)column[row++] << 13 | c]++;

    sum_up(of_21, 1 << 21); /* now the next row of each context */
    uint32_t context =
        (uint32_t)column[n] << 13 | (uint32_t)column[n + 1] << 5 | column[n + 2] >> 3;
    for (size_t i = n; i-- > 0;) {
        uint32_t r = of_21[context]++;
        if (r >= n) return "ST: a context has more rows than there are";
        b->next[i] = column[r];
        context = context >> 8 | (uint32_t)column[r] << 13;
    }
    turn(b, n);
    return NULL;
}

/* ---- RLE ------------------------------------------------------------------------------------- */
static const char *undo_rle(struct block *b) {
    if (b->size < 4 || get32(b->now + b->size - 4) > b->size - 4) return "RLE: too short";
    const uint8_t *head = b->now, *const heads_end = head + get32(b->now + b->size - 4);
    const uint8_t *bit = b->now + b->size - 4;
    size_t size = 0;

    while (head < heads_end) {
        const uint8_t v = *head;
        size_t length = 0; /* of the run */
        for (; head < heads_end && *head == v; head++)
            length++;
        if (length > 2) {
            size_t j = length - 2, bits_of = 0;
            if (j > 24 || j > (size_t)(bit - heads_end)) return "RLE: bits are missing";
            for (size_t i = 0; i < j; i++)
                bits_of |= (size_t)(*--bit != 0) << i;
            length = ((size_t)1 << j) + bits_of + 1;
        }
        if (length > b->limit - size) return "RLE: the block is too long";
        memset(b->next + size, v, length);
        size += length;
    }
    turn(b, size);
    return NULL;
}

/* ---- DCE ------------------------------------------------------------------------------------- */
enum { SETS = 17, CONTEXTS = 150, SYMBOLS = 32, TWO_BIT_MODELS = 120, NO_POSITION = 1 << 30 };

struct model {
    uint32_t total, count[SYMBOLS];
};

struct stats {
    uint32_t slow_avg, fast_avg, small_count, last_value;
};

struct dce {
    struct model model[SETS][CONTEXTS];
    struct stats stats[256]; /* of the byte values */
    uint32_t prev_value;
    uint32_t code, range;
    const uint8_t *begin, *end;   /* of the bytes of both coders */
    const uint8_t *in, *raw;      /* next byte of the range coder; of the raw bits, plus 1 */
    uint32_t raw_bits, raw_count; /* that are read, but not taken */
    const char *why;              /* what is wrong, or NULL */
};

static void start_dce(struct dce *d, const uint8_t *begin, const uint8_t *end);
static uint32_t next_value(struct dce *d, unsigned owner, uint32_t run);
static uint32_t next_symbol(struct dce *d, struct model *m1, struct model *m2);
static uint32_t next_raw(struct dce *d, uint32_t count);

/* ---- DCE: Values ----------------------------------------------------------------------------- */
/* Pending positions are in order, one at most for each byte value. Behind them come n and numbers
   above all positions. Drops the first, whose run ends before the second, and makes p pending, or
   as many positions behind it as it passes others. */
static uint32_t replace_first(uint32_t *pending, uint32_t p) {
    uint32_t *next = pending + 1;
    for (; *next <= p; next++, p++)
        next[-1] = *next;
    next[-1] = p;
    return p;
}

static const char *undo_dce(struct block *b) {
    struct dce *d = b->dce;
    uint8_t *out = b->next;
    uint32_t pending[256 + 2], p = 0;
    if (b->size < 9) return "DCE: too short";
    start_dce(d, b->now, b->now + b->size - 4);
    const uint32_t m = next_value(d, 0, 0), n = next_value(d, 0, 0) - 1;
    uint32_t runs = get32(b->now + b->size - 4);
    if (m < 1 || m > 256 || n > b->limit) return "DCE: no such header list";
    runs = runs > 2 * m + 2 ? runs - (2 * m + 2) : 0;
    for (uint32_t i = 0; i < m; i++) {
        const uint32_t v = next_value(d, 0, 0), distance = next_value(d, i > 0, 0);
        if (distance >= n - p || (distance > 0) != (i > 0)) return "DCE: no such first position";
        pending[i] = p += distance;
        out[p] = (uint8_t)v;
    }
    pending[m] = n;
    pending[m + 1] = UINT32_MAX;

    for (; pending[0] < n && runs > 0 && !d->why; runs--) {
        const uint32_t start = pending[0], end = pending[1];
        const uint8_t v = out[start];
        if (end - start > 1) memset(out + start, v, end - start);
        const uint32_t value = next_value(d, v, end - start);
        p = replace_first(pending, value > 0 ? end - 1 + value : NO_POSITION);
        if (p < n)
            out[p] = v;
        else if (value > 0)
            return "DCE: a run begins behind the block";
    }
    if (d->why) return d->why;
    if (runs > 0) return "DCE: there are runs behind the block";
    turn(b, pending[0]); /* n, but if runs are missing */
    return NULL;
}

/* ---- DCE: Statistics and contexts ------------------------------------------------------------ */
/* The number of significant bits. */
static uint32_t bits(uint32_t x) {
    static const uint8_t of_4[16] = {0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4};
    uint32_t n = 0;
    for (; x >= 16; x >>= 4)
        n += 4;
    return n + of_4[x];
}

static uint32_t log_bucket(uint32_t x) {
    return x <= 4 ? x : 4 + bits(x - 4);
}

static uint32_t context_of(const struct stats *s, int run_flag) {
    const uint32_t small = s->small_count < 2 ? 0 : s->small_count < 17 ? 30 : 29;
    return ((log_bucket(s->slow_avg) + 15 * log_bucket(s->fast_avg)) >> 4) + small +
           (s->last_value < 20 ? 30 : 0) + (run_flag ? 30 : 0);
}

static uint32_t set_of(uint32_t prev_value) {
    if (prev_value <= 2) return 1 + prev_value;
    uint32_t d = prev_value - 2;
    return 1 + bits(d % 256) + bits(d >> 8);
}

static void take_value(struct stats *s, uint32_t v, uint32_t run_term) {
    const uint32_t sum = 4 * v + 2 * s->fast_avg, t = sum - run_term; /* v < 2^27: all fits */
    s->fast_avg = sum < run_term ? 0 : v < s->fast_avg ? t / 3 : t >> 2;
    s->slow_avg = (15 * s->slow_avg + 3 * v) >> 4;
    if (v < 3 && s->small_count < 255) s->small_count++;
    if (v >= 8) s->small_count >>= 1;
    s->last_value = v;
}

/* ---- DCE: Symbols ---------------------------------------------------------------------------- */
static const uint16_t builtin_counts[CONTEXTS * (1 + SYMBOLS)] = {
#include "../src/dce/builtin_counts.inc"
};

static void start_models(struct dce *d) {
    const uint16_t *first = builtin_counts;
    for (int set = 0; set < SETS; set++)
        for (int c = 0; c < CONTEXTS; c++) {
            struct model *m = &d->model[set][c];
            m->total = set == 0 ? *first++ + 1u : SYMBOLS;
            for (int s = 0; s < SYMBOLS; s++)
                m->count[s] = set == 0 ? *first++ + 1u : 1;
        }
}

static void halve(struct model *m) {
    if (m->total <= 65535) return;
    m->total = 0;
    for (int s = 0; s < SYMBOLS; s++) {
        m->count[s] -= m->count[s] >> 1;
        m->total += m->count[s];
    }
}

static void raise(struct model *m, uint32_t symbol, uint32_t step) {
    m->count[symbol] += step;
    m->total += step;
}

/* `owner`: the byte value to which the value belongs; `run`: the run's length, 0 in the header
   list. */
static uint32_t next_value(struct dce *d, unsigned owner, uint32_t run) {
    struct stats *s = &d->stats[owner];
    const uint32_t context = context_of(s, run >= 3), run_term = run > 6 ? 5 : run - (run > 0);
    struct model *fixed = &d->model[0][context], *other = &d->model[set_of(d->prev_value)][context];

    uint32_t v = next_symbol(d, fixed, other);
    raise(fixed, v, 24);
    raise(other, v, 24);
    if (v >= 8) {
        const uint32_t e = v - 8;
        struct model *m = &d->model[0][TWO_BIT_MODELS + e];
        uint32_t two_bits = next_symbol(d, m, m); /* all doubled: the model and itself */
        raise(m, two_bits, 14);
        if (two_bits > 3) d->why = "DCE: no such two-bit symbol";
        v = ((4 + two_bits % 4) << e | next_raw(d, e)) + 4;
    }
    take_value(s, v, run_term);
    d->prev_value = v % 4096;
    return v;
}

/* ---- DCE: Range coder ------------------------------------------------------------------------ */
static uint8_t next_byte(struct dce *d) {
    if (d->in < d->end) return *d->in++;
    d->why = "DCE: the range-coded bytes are cut";
    return 0;
}

/* A symbol whose count is that in m1 plus that in m2. */
static uint32_t next_symbol(struct dce *d, struct model *m1, struct model *m2) {
    halve(m1);
    halve(m2);
    const uint32_t unit = d->range / (m1->total + m2->total), target = d->code / unit;
    uint32_t symbol = 0, below = 0, count = m1->count[0] + m2->count[0];
    while (target >= below + count && ++symbol < SYMBOLS) {
        below += count;
        count = m1->count[symbol] + m2->count[symbol];
    }
    if (symbol == SYMBOLS) {
        d->why = "DCE: the range-coded bytes are damaged";
        return 0;
    }
    d->code -= below * unit;
    d->range = count * unit;
    while (d->range < 1u << 24) {
        d->range <<= 8;
        d->code = d->code << 8 | next_byte(d);
    }
    return symbol;
}

/* ---- DCE: Raw bits --------------------------------------------------------------------------- */
static uint32_t next_raw(struct dce *d, uint32_t count) {
    while (d->raw_count < count) { /* count <= 23: 32 bits hold all */
        if (d->raw == d->begin) {
            d->why = "DCE: raw bits are missing";
            return 0;
        }
        d->raw_bits |= (uint32_t) * --d->raw << d->raw_count;
        d->raw_count += 8;
    }
    const uint32_t x = d->raw_bits & ((1u << count) - 1);
    d->raw_bits >>= count;
    d->raw_count -= count;
    return x;
}

static void start_dce(struct dce *d, const uint8_t *begin, const uint8_t *end) {
    start_models(d);
    memset(d->stats, 0, sizeof d->stats);
    d->prev_value = 0;
    d->range = 0xFFFFFFFF;
    d->code = 0;
    d->begin = begin;
    d->end = d->raw = end;
    d->in = begin + 1;
    d->raw_bits = d->raw_count = 0;
    d->why = NULL;
    for (int i = 0; i < 4; i++)
        d->code = d->code << 8 | next_byte(d);
}

/* ---- Work memory ----------------------------------------------------------------------------- */
/* The DCE's record, the ST's table, the second buffer, which is the BWT's vector, too, and the
   first. */
size_t unvelk_work(const uint8_t *header) {
    if (!valid_header(header)) return 0;
    return sizeof(struct dce) + (header[13] & ST_OFF ? 0 : ST_TABLE * sizeof(uint32_t)) +
           5 * (size_t)(get32(header + 14) + SLACK) + CHUNK_ROOM;
}

static int lend_work(struct block *b, const uint8_t *header, struct job *j) {
    if (j->work_size < unvelk_work(header)) return 0;
    const size_t limit = get32(header + 14) + SLACK;
    uint32_t *table = (void *)(j->work + sizeof(struct dce));
    uint32_t *vector = table + (header[13] & ST_OFF ? 0 : ST_TABLE);
    b->limit = limit;
    b->dce = (void *)j->work;
    b->table = header[13] & ST_OFF ? NULL : table;
    b->vector = header[13] & BWT_OFF ? NULL : vector;
    b->next = (void *)vector;
    b->now = b->buffer = (void *)(vector + limit);
    return 1;
}

/* ---- The program ----------------------------------------------------------------------------- */
#ifndef UNVELK_NO_MAIN

#include <stdio.h>
#include <stdlib.h>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

static int put_file(void *to, const uint8_t *block, size_t size) {
    return fwrite(block, 1, size, to) != size;
}

static uint8_t *read_all(FILE *file, size_t *size) {
    size_t room = 1 << 16;
    uint8_t *bytes = malloc(room);
    *size = 0;
    while (bytes) {
        *size += fread(bytes + *size, 1, room - *size, file);
        if (*size < room) break;
        bytes = room <= SIZE_MAX / 2 ? realloc(bytes, room *= 2) : NULL; /* the end if it fails */
    }
    return bytes;
}

int main(void) {
#ifdef _WIN32
    _setmode(0, _O_BINARY);
    _setmode(1, _O_BINARY);
#endif
    size_t size;
    uint8_t *archive = read_all(stdin, &size), *work = malloc(UNVELK_MOST_WORK);
    struct unvelk_result r = {UNVELK_MEMORY, "there is not enough memory", 0, 0};
    if (archive && work) r = unvelk(archive, size, work, UNVELK_MOST_WORK, put_file, stdout);
    if (ferror(stdin)) r = (struct unvelk_result){UNVELK_DAMAGED, "it can't be read", size, 0};
    if (fflush(stdout) != 0) r = (struct unvelk_result){UNVELK_OUTPUT, "it can't be written", 0, 0};
    if (r.verdict != UNVELK_WHOLE) fprintf(stderr, "unvelk: %s (at byte %zu)\n", r.why, r.at);
    free(work);
    free(archive);
    return r.verdict < 0 ? 1 : r.verdict & UNVELK_BYTES_BEHIND ? 2 : 0;
}

#endif /* UNVELK_NO_MAIN */
#endif /* UNVELK_ONLY_DECLARATIONS */
