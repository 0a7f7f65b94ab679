// libvelk: VELK's archives from a program. C99 and C++.
//
// - memory to memory: velk_compress, velk_decompress
// - streams through callbacks: velk_compress_stream, velk_decompress_stream
// - streams in the caller's own loop: velk_flow
// - any place of the original, without restoring what is before it: velk_reader
// - single blocks, for programs that spread the work themselves: velk_encoder, velk_decoder
//
// Nothing is printed, no process is ended, no exception leaves the library, and it keeps
// no state outside the objects below. Every function may be called from several threads
// at once, as long as each object (and each buffer) is in one call at a time; what says
// `const` may be shared. The archive depends neither on the number of threads nor on the
// machine.
//
// Archives end in an index: the sizes and checksums of all blocks, by which they are known to be
// whole, and any place of the original is found at once. `VELK d` restores them, too. With
// `plain` in the options and a known input size, an archive is what `VELK e` writes: it has no
// index. Archives in a row are an archive of the originals in a row, its members; `VELK d`
// restores the first one.
//
// Blocks of an archive with an index end where the content changes, from text to sound or from code
// to tables, where that makes it smaller and blocks may have 1 MiB and more. The level chooses the
// block size and, at 9, whether blocks are also joined and split by trying what is smaller:
//
//   level         1      2      3      4     5     6     7     8          9
//   block size    128K   256K   512K   1M    2M    4M    8M    16383K     16383K
//
// Memory for blocks of N bytes, in bytes and KiB of 1024 bytes:
//
//                         one thread          each of several threads
//   compression           8.5 N + 776 KiB     10.5 N + 781 KiB
//   the same, level 9     10.5 N + 804 KiB    12.5 N + 833 KiB
//   restoring             5 N + 334 KiB       7 N + 339 KiB
//   restoring, ST on      2 N + 8259 KiB      4 N + 8264 KiB
//
// With the ST on, compression takes at least 4.5 N + 8966 KiB, or 6.5 N + 8971 KiB for each of
// several threads. Compressing takes a block size and a byte more, once, twice that at level 9, and
// 1283 KiB where blocks may end early. The index takes 12 bytes a block, and as many spare ones,
// while it is written. An encoder, a decoder and a reader take what one thread takes, the encoder
// that of compression below level 9.
#ifndef VELK_H
#define VELK_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) && !defined(_WIN32)
#define VELK_API __attribute__((visibility("default")))
#else
#define VELK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

// What came of a call. The values stay what they are.
typedef enum velk_status {
    VELK_OK = 0,
    VELK_ERROR_ARGUMENT = 1, // a setting or an argument is out of its bounds
    VELK_ERROR_MEMORY = 2,   // not to be had, or not within the memory limit
    VELK_ERROR_SPACE = 3,    // the output does not fit into its buffer
    VELK_ERROR_FORMAT = 4,   // not an archive of this format
    VELK_ERROR_DAMAGED = 5,  // a check of the archive failed, or it is cut short
    VELK_ERROR_READ = 6,     // a read callback failed, or an input ended too early
    VELK_ERROR_WRITE = 7,    // a write callback failed
    VELK_CANCELLED = 8,      // the progress callback asked for it
    VELK_DONE = 9,           // of velk_flow_run: all that was asked for is out
    VELK_BUSY = 10           // of velk_flow_run: nothing can be done until a thread is
} velk_status;

// A short English text for any value, with neither a full stop nor a line end.
VELK_API const char *velk_status_text(velk_status status);

// The library's version, as "0.95".
VELK_API const char *velk_version(void);

// The processors that the code in use is made for: "x86-64-v3", where this one has AVX2, BMI1 and
// BMI2, or "baseline", any of its kind, which VELK_CPU=baseline in the environment asks for, too.
// The bytes are the same.
VELK_API const char *velk_cpu(void);

// Bits of `velk_options.stages_off`, and of the flags byte of an archive.
enum {
    VELK_OFF_EOL = 0x01,
    VELK_OFF_FLT32 = 0x02,
    VELK_OFF_DELTA = 0x04,
    VELK_OFF_LZP = 0x08,
    VELK_OFF_BWT = 0x10,
    VELK_OFF_ST = 0x20,
    VELK_OFF_RLE = 0x40,
    VELK_OFF_DCE = 0x80
};

#define VELK_MIN_BLOCK_SIZE 131072u   // 128 KiB
#define VELK_MAX_BLOCK_SIZE 16776192u // 16383 KiB
#define VELK_MAX_LEVEL 9u
#define VELK_MAX_THREADS 256u
#define VELK_HEADER_SIZE 18u     // bytes before the first record of an archive
#define VELK_RECORD_HEAD_SIZE 5u // bytes of a record before its data
#define VELK_ENTRY_SIZE 12u      // bytes of a block's entry in the index

// An input size that is not known beforehand.
#define VELK_SIZE_UNKNOWN UINT64_MAX

// The settings of a call. Set them by velk_options_init first, then change what is to
// differ: what a later version adds has its default there. A null pointer in place of
// options stands for the defaults. Restoring takes only `threads`, `memory_limit` and `one_member`
// from them, and the reader only `memory_limit`.
typedef struct velk_options {
    uint32_t block_size;      // bytes: VELK_MIN_BLOCK_SIZE to VELK_MAX_BLOCK_SIZE, a multiple
                              // of 1024; 0: the level's. With an index at most 16382 KiB are used
    uint32_t threads;         // at most so many work; 0: one a processor; above
                              // VELK_MAX_THREADS: VELK_MAX_THREADS
    uint64_t memory_limit;    // bytes; 0: none. Where it is too low for the threads,
                              // fewer work; for one: VELK_ERROR_MEMORY
    uint8_t stages_off;       // VELK_OFF_...; of BWT and ST at least one. Default: ST
    uint8_t fixed_block_size; // 1: `block_size` even for a shorter input
    uint8_t no_fallback;      // 1: sorting and coding are kept even where they do not pay
    uint8_t plain;            // 1: no index, and all blocks but the last are full
    uint8_t level;            // 1 to VELK_MAX_LEVEL; 0: 5. See above
    uint8_t one_member;       // 1: velk_flow_restore ends behind the first member
    uint8_t reserved[42];     // 0
} velk_options;

VELK_API void velk_options_init(velk_options *options);

// Parts of an archive that can be damaged.
typedef enum velk_part {
    VELK_PART_NONE = 0,
    VELK_PART_HEADER = 1,
    VELK_PART_BLOCK = 2, // its record, or the lack of it
    VELK_PART_INDEX = 3
} velk_part;

// What a call tells of an archive that it writes or reads, also when it fails: then of what came
// before the fault.
typedef struct velk_report {
    uint64_t size;           // bytes of the original
    uint64_t archive_size;   // bytes of the archive
    uint64_t blocks;         // in all members
    uint64_t members;        // that have ended
    uint64_t damaged_block;  // counted from 0, with VELK_ERROR_DAMAGED
    uint64_t damaged_offset; // in the archive, of its record or of what is damaged instead
    uint32_t crc;            // CRC-32 of the original, first byte first, as gzip has it
    uint32_t block_size;     // bytes, as the first header tells
    uint8_t has_crc;         // 0: unknown, as a plain archive was not restored
    uint8_t whole;           // 0: may have been cut between two records; a plain one can't tell
    uint8_t bytes_follow;    // 1: behind the archive are bytes that are no part of it
    uint8_t damaged_part;    // velk_part
    uint8_t cut;             // 1: a stream or flow failed as the archive's end is missing
} velk_report;

// ---- Memory to memory

// The most bytes that an archive of `size` bytes takes with these options; some inputs
// take them all. 0 for options out of bounds and for sums beyond SIZE_MAX.
VELK_API size_t velk_compress_bound(size_t size, const velk_options *options);

// Writes the archive of the `in_size` bytes of `in` to `out`, which has room for
// `capacity` bytes and does not overlap `in`. A null pointer will do for no bytes.
// *out_size: the archive's bytes; after an error, how many bytes of `out` were written.
VELK_API velk_status velk_compress(const velk_options *options, const void *in, size_t in_size,
                                   void *out, size_t capacity, size_t *out_size);

// *bound: the bytes that the archive restores to, where its members have indexes. For a plain
// one it is up to a block size more, and 100 bytes a block. VELK_ERROR_FORMAT or
// VELK_ERROR_DAMAGED, with *bound = 0, where header, record heads or index show it.
VELK_API velk_status velk_decompress_bound(const void *archive, size_t size, uint64_t *bound);

// Restores the archive into `out`, which has room for `capacity` bytes and does not
// overlap it. *out_size: the bytes restored; after an error, those of the blocks before it.
// report: may be null. Bytes behind the archive that are no part of it are left out, which only
// the report tells. Whatever the bytes, nothing is read or written outside the buffers.
// VELK_ERROR_FORMAT for what does not begin as an archive does, and for a header that no
// compressor writes; VELK_ERROR_DAMAGED for all that a check finds, and what is cut short.
VELK_API velk_status velk_decompress(const velk_options *options, const void *archive, size_t size,
                                     void *out, size_t capacity, size_t *out_size,
                                     velk_report *report);

// ---- Streams

// Callbacks of one call, all called by the thread that made it, never two at once. None
// may leave the call by an exception or longjmp.
typedef struct velk_stream {
    void *user; // handed to each callback

    // Puts up to `size` bytes, size > 0, into `buffer` and returns how many: fewer will do,
    // 0 is the end of the input, below 0 a failure. As read(2).
    int64_t (*read)(void *user, void *buffer, size_t size);

    // Takes up to `size` bytes, size > 0, of `buffer` and returns how many: at least 1;
    // anything else is a failure. What is left is handed over once more. As write(2).
    int64_t (*write)(void *user, const void *buffer, size_t size);

    // Called after each block, and each index, has been written or read, with the input bytes
    // that were taken for the output so far, and the output bytes. Any value but 0 ends the
    // call with VELK_CANCELLED. May be null.
    int (*progress)(void *user, uint64_t bytes_in, uint64_t bytes_out);

    velk_report *report; // written as the call ends; may be null
    void *reserved[3];   // null
} velk_stream;

// Compresses `input_size` bytes of the stream, and reads no more than them. Fewer:
// VELK_ERROR_READ, after the blocks that were settled: a block takes a block size of input to come
// to that, at level 9 two. VELK_SIZE_UNKNOWN: all up to the end of the input. That gives the
// archive of a known size; only a plain one, of more than a block of machine code, may differ.
//
// Errors come in the order of the blocks, as if one thread did all: what was written before
// is the beginning of the archive. Threads that can't be had, and memory for them, only
// make the call slower, as long as there is enough for one.
VELK_API velk_status velk_compress_stream(const velk_options *options, const velk_stream *stream,
                                          uint64_t input_size);

// Restores the archive that the stream's input is, all its members. Errors as in
// velk_decompress and velk_compress_stream: what was written before one is what the blocks
// before it hold.
VELK_API velk_status velk_decompress_stream(const velk_options *options, const velk_stream *stream);

// ---- Streams in the caller's own loop
//
// For bindings, event loops and filters: bytes of the input are handed in as they come, those of
// the output fetched, and none of the calls waits for either.

// An archive that is compressed or restored, by threads of its own if it has several. One call at
// a time.
typedef struct velk_flow velk_flow;

// What is to be taken, and room for what is given. A call moves the pointers on and takes what it
// did off the sizes. A null pointer will do for no bytes.
typedef struct velk_buffers {
    const void *in;
    size_t in_size;
    void *out;
    size_t out_size;
} velk_buffers;

typedef enum velk_action {
    VELK_RUN = 0,   // more of the input may come
    VELK_FLUSH = 1, // all that was taken is to be given out so that it can be restored, in a block
                    // that ends there. Only for compressing with an index
    VELK_FINISH = 2 // nothing comes behind these bytes
} velk_action;

// input_size, and errors: as velk_compress_stream. notify: null, or what is called with `user` by
// the flow's threads, several at once even, each time that one of them is done with a block: to
// have the loop, which may sleep elsewhere, call velk_flow_run. It must not do that itself.
// *flow: null after an error.
VELK_API velk_status velk_flow_compress(velk_flow **flow, const velk_options *options,
                                        uint64_t input_size, void (*notify)(void *user),
                                        void *user);
VELK_API velk_status velk_flow_restore(velk_flow **flow, const velk_options *options,
                                       void (*notify)(void *user), void *user);

// Gives what is there and takes what it can, in this order, over and over. With one thread that
// is the one that codes, else it never waits for the others. Returns
//   VELK_OK    when all the input has been taken, or more output is there than room;
//   VELK_BUSY  when input is left, or with VELK_FLUSH and VELK_FINISH output to come, and a
//              thread has to be done first: see velk_flow_wait and `notify`;
//   VELK_DONE  when the flush is complete, as far as the input was taken; when the archive is
//              complete; or when all of the archive, or one member, has been restored. What is left
//              of the input is no part of that, nor is what velk_flow_unused tells of;
// or an error, as velk_compress_stream and velk_decompress_stream, behind all that the blocks
// before it hold. From then on, and when the archive has ended, it returns the same again.
// A member without an index goes on until VELK_FINISH, another header or something else.
VELK_API velk_status velk_flow_run(velk_flow *flow, velk_buffers *buffers, velk_action action);

// Waits until the oldest block that a thread has is done; not at all where there is none.
VELK_API void velk_flow_wait(velk_flow *flow);

// What has been given and taken so far, in whole blocks.
VELK_API void velk_flow_report(const velk_flow *flow, velk_report *report);

// How many bytes behind one member were taken to see that it ends, at most VELK_HEADER_SIZE, and in
// *bytes what they are; behind an index 0. Once velk_flow_run has returned VELK_DONE.
VELK_API size_t velk_flow_unused(const velk_flow *flow, const void **bytes);

// Ends the threads and gives back the flow's memory, at whatever point it is; null will do.
VELK_API void velk_flow_close(velk_flow *flow);

// ---- Random access

// An archive opened to read its original at any place. One thread at a time; any number of
// readers over one archive.
typedef struct velk_reader velk_reader;

// Puts up to `size` bytes, size > 0, of the archive from `offset` on into `buffer` and
// returns how many: fewer will do, 0 is the end of the archive, below 0 a failure. As
// pread(2).
typedef int64_t velk_read_at(void *user, uint64_t offset, void *buffer, size_t size);

// Finds the archive's members and where their blocks lie: by their indexes, from the end, which
// takes two reads, or three where an index is longer than 64 KiB, for each member; of plain
// members by a walk over their record heads, and by restoring the last block. Keeps 40 bytes a
// block, and up to as many spare ones, beside the last 64 KiB while it opens.
//
// archive_size: bytes; VELK_SIZE_UNKNOWN: looked for by reads. *reader: the reader; null after
// an error. `read_at` is called with `user`, only inside calls of this reader's functions.
// report: written here, and what is damaged also by velk_reader_read; may be null.
//
// Of a plain member the reader takes it that each block but the last restores to the block
// size, as all compressors write them. (The record heads of indexed members are not read: one that
// is damaged does no harm here.) Where it finds one that does not, here or in
// velk_reader_read, the call ends with VELK_ERROR_FORMAT: such archives can only be restored
// from their start.
VELK_API velk_status velk_reader_open(velk_reader **reader, const velk_options *options,
                                      velk_read_at *read_at, void *user, uint64_t archive_size,
                                      velk_report *report);

// Gives back the reader's memory; null will do.
VELK_API void velk_reader_close(velk_reader *reader);

// A block of an archive.
typedef struct velk_block {
    uint64_t offset;      // of its record in the archive
    uint64_t start;       // of its bytes in the original
    uint64_t header;      // offset of the header of its member
    uint32_t record_size; // bytes
    uint32_t size;        // bytes in the original
    uint32_t crc;         // CRC-32 of them, first byte first; 0 in a plain member
    uint32_t indexed;     // 1: the member has an index
} velk_block;

// *block: number `number`, counted from 0. VELK_ERROR_ARGUMENT behind the last one.
VELK_API velk_status velk_reader_block(const velk_reader *reader, uint64_t number,
                                       velk_block *block);

// Puts the `size` bytes of the original from `offset` on into `buffer`; as many as there are
// before its end. *read_size: how many; after an error, how many are right. Each block that has
// an index's CRC is compared with it. The block decoded last is kept, so that small reads in a
// row decode each block once.
VELK_API velk_status velk_reader_read(velk_reader *reader, uint64_t offset, void *buffer,
                                      size_t size, size_t *read_size);

// ---- Single blocks
//
// An archive is its header, one record a block and, unless it is plain, an index:
//
//   | header: VELK_HEADER_SIZE bytes | record | record | ... | index |
//
// No record needs another one: any machine may make and restore any of them. Each block but
// the last of a plain archive holds velk_block_size bytes of the input; before an index they
// may be of any size up to that.

// The most bytes of a block; 0 for options out of bounds.
VELK_API uint32_t velk_block_size(const velk_options *options, uint64_t input_size);

// Writes the VELK_HEADER_SIZE bytes of an archive's header.
VELK_API velk_status velk_write_header(const velk_options *options, uint64_t input_size,
                                       void *header);

// Reads the VELK_HEADER_SIZE bytes of a header: sets `options` to the defaults and in them
// `block_size`, `fixed_block_size` = 1, `stages_off` and `plain`. VELK_ERROR_FORMAT or
// VELK_ERROR_DAMAGED for anything but a header that velk_write_header writes.
VELK_API velk_status velk_read_header(const void *header, velk_options *options);

// The memory to compress blocks, one after the other. One thread at a time.
typedef struct velk_encoder velk_encoder;

// For blocks of an input of `input_size` bytes. For a size not yet known give an estimate of
// at least a block size, or VELK_SIZE_UNKNOWN: with `plain`, an estimate that is far off makes
// archives of machine code larger, and nothing else worse. `threads`, and what level 9 tries, are
// left out. *encoder: null after an error.
VELK_API velk_status velk_encoder_new(velk_encoder **encoder, const velk_options *options,
                                      uint64_t input_size);
VELK_API void velk_encoder_free(velk_encoder *encoder);

// Writes the record of a block of 1 to velk_block_size bytes to `record`, which has room for
// `capacity` bytes and does not overlap `block`; velk_compress_bound(block_size, options)
// - VELK_HEADER_SIZE is always enough. *record_size: its bytes, 0 after an error.
// entry: null, or where the block's VELK_ENTRY_SIZE bytes for the index go.
VELK_API velk_status velk_encode_block(velk_encoder *encoder, const void *block, size_t block_size,
                                       void *record, size_t capacity, size_t *record_size,
                                       void *entry);

// Writes the index of an archive that begins with this header, of `count` entries in the order
// of their records, to `index`, which has room for `capacity` bytes: 29 bytes and
// VELK_ENTRY_SIZE an entry are needed. *index_size: its bytes, 0 after an error.
// VELK_ERROR_ARGUMENT for the header of a plain archive and entries that can't be its own.
VELK_API velk_status velk_write_index(const void *header, const void *entries, size_t count,
                                      void *index, size_t capacity, size_t *index_size);

// The memory to restore blocks, one after the other. One thread at a time.
typedef struct velk_decoder velk_decoder;

// For records of the archive that begins with these VELK_HEADER_SIZE bytes; of the options
// `memory_limit` counts. Errors as from velk_read_header; *decoder: null after one.
VELK_API velk_status velk_decoder_new(velk_decoder **decoder, const velk_options *options,
                                      const void *header);
VELK_API void velk_decoder_free(velk_decoder *decoder);

// *size: bytes of the record that begins with these VELK_RECORD_HEAD_SIZE bytes, the head
// included; 0 for the head that ends an archive before the end of its file.
// VELK_ERROR_DAMAGED when the head's check fails. A record longer than N + 105 bytes, N the
// archive's block size, is damaged too.
VELK_API velk_status velk_record_size(const void *head, size_t *size);

// Restores the block of a record, `record_size` bytes with the head, to `block`, which has
// room for `capacity` bytes and does not overlap `record`. A block of a compressor has at
// most the archive's block size; another archive may hold up to 100 bytes more.
// *block_size: its bytes, 0 after an error.
VELK_API velk_status velk_decode_block(velk_decoder *decoder, const void *record,
                                       size_t record_size, void *block, size_t capacity,
                                       size_t *block_size);

#ifdef __cplusplus
}
#endif

#endif
