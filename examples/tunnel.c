// One end of a tunnel: what comes in is compressed on its way out, what comes back restored, at
// once and in one thread, which sleeps in poll(2). Two workers for each way do the rest. Whenever
// nothing more comes in for now, what came is flushed, so that a question gets its answer:
//
//   tunnel < QUESTIONS > ANSWERS 3< FROM_OTHER_END 4> TO_OTHER_END
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <velk.h>

enum { kPart = 65536 };

// From one descriptor through a flow to another.
struct way {
    velk_flow *flow;
    int from, to;
    int ended;          // nothing more comes
    velk_action action; // the next one
    velk_status status;
    velk_buffers buffers;
    size_t out_at; // where the bytes begin that are still to be written
    char in[kPart], out[kPart];
};

static int wake[2]; // a pipe by which workers end poll's sleep

static void block_is_done(void *user) {
    const ssize_t written = write(wake[1], "", 1); // where it is full it wakes as well
    (void)written;
    (void)user;
}

static size_t unwritten(const struct way *way) {
    return kPart - way->buffers.out_size - way->out_at;
}

// Runs the flow for as long as it gives something that can be kept.
static void run(struct way *way) {
    if (unwritten(way) != 0) return;
    way->out_at = 0;
    way->buffers.out = way->out;
    way->buffers.out_size = kPart;
    way->status = velk_flow_run(way->flow, &way->buffers, way->action);
    // A flush that is complete: from now on there is nothing to do but to read.
    if (way->status == VELK_DONE && way->action == VELK_FLUSH) {
        way->status = VELK_OK;
        way->action = VELK_RUN;
    }
}

static int wants_input(const struct way *way) {
    return !way->ended && way->buffers.in_size == 0;
}

static void read_some(struct way *way, int flushes) {
    const ssize_t got = read(way->from, way->in, kPart);
    if (got < 0) {
        if (errno != EAGAIN && errno != EINTR) way->status = VELK_ERROR_READ;
        return;
    }
    way->buffers.in = way->in;
    way->buffers.in_size = (size_t)got;
    way->ended = got == 0;
    way->action = way->ended ? VELK_FINISH : flushes && got < kPart ? VELK_FLUSH : VELK_RUN;
}

static void write_some(struct way *way) {
    const ssize_t put = write(way->to, way->out + way->out_at, unwritten(way));
    if (put > 0) way->out_at += (size_t)put;
    if (put < 0 && errno != EAGAIN && errno != EINTR) way->status = VELK_ERROR_WRITE;
}

static int is_open(const struct way *way) {
    return unwritten(way) != 0 || way->status == VELK_OK || way->status == VELK_BUSY;
}

int main(void) {
    static struct way ways[2]; // there and back
    ways[0].from = 0;
    ways[0].to = 4;
    ways[1].from = 3;
    ways[1].to = 1;
    velk_options options;
    velk_options_init(&options);
    options.threads = 2;
    if (pipe(wake) != 0 ||
        velk_flow_compress(&ways[0].flow, &options, VELK_SIZE_UNKNOWN, block_is_done, NULL) !=
            VELK_OK ||
        velk_flow_restore(&ways[1].flow, &options, block_is_done, NULL) != VELK_OK)
        return EXIT_FAILURE;
    const int fds[] = {0, 1, 3, 4, wake[0], wake[1]};
    for (int i = 0; i < 6; ++i)
        fcntl(fds[i], F_SETFL, fcntl(fds[i], F_GETFL) | O_NONBLOCK);

    int failed = 0;
    for (int i = 0; i < 2; ++i)
        ways[i].buffers.out_size = kPart;
    while (ways[0].flow != NULL || ways[1].flow != NULL) {
        struct pollfd waits[5] = {{wake[0], POLLIN, 0}};
        for (int i = 0; i < 2; ++i) {
            struct way *const way = &ways[i];
            if (way->flow != NULL) run(way);
            if (way->flow != NULL && !is_open(way)) {
                failed |= way->status != VELK_DONE;
                if (failed) fprintf(stderr, "tunnel: %s\n", velk_status_text(way->status));
                velk_flow_close(way->flow);
                way->flow = NULL;
                close(way->to);
            }
            // A negative number is left out.
            waits[1 + i].fd = way->flow != NULL && wants_input(way) ? way->from : -1;
            waits[1 + i].events = POLLIN;
            waits[3 + i].fd = way->flow != NULL && unwritten(way) != 0 ? way->to : -1;
            waits[3 + i].events = POLLOUT;
        }
        if (ways[0].flow == NULL && ways[1].flow == NULL) break;
        poll(waits, 5, -1);
        char woken[64];
        while (read(wake[0], woken, sizeof woken) > 0) {
        }
        for (int i = 0; i < 2; ++i) {
            if (waits[1 + i].revents != 0) read_some(&ways[i], i == 0);
            if (waits[3 + i].revents != 0) write_some(&ways[i]);
        }
    }
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
