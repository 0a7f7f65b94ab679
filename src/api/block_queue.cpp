#include "api/block_queue.h"

#include "api/threads.h"
#include "api/trials.h"

#include <cstdlib>
#include <cstring>

namespace velk {

struct Worker {
    BlockQueue *queue;
    CoderContext context;
    std::uint8_t *trials; // memory for them; null: there are none
    pthread_t thread;
    Slot slots[2];
    Worker *next;
};

namespace {

std::uint32_t slot_room(std::uint32_t block_size, bool tries) {
    return tries ? results_room(block_size) : block_size + kBlockSlack;
}

void code_in(Worker &worker, Slot &slot) {
    const std::uint8_t *const results =
        code_blocks(*worker.queue->coder, worker.context, worker.trials, slot.data, slot.blocks);
    slot.whole = results != nullptr;
    if (slot.whole) std::memcpy(slot.data, results, slot.blocks.length);
}

void *work(void *argument) {
    Worker &worker = *static_cast<Worker *>(argument);
    BlockQueue &queue = *worker.queue;
    pthread_mutex_lock(&queue.mutex);
    for (;;) {
        while (queue.waiting == nullptr && !queue.closing)
            pthread_cond_wait(&queue.submitted, &queue.mutex);
        if (queue.closing) break;
        Slot *const slot = queue.waiting;
        queue.waiting = slot->next;
        pthread_mutex_unlock(&queue.mutex);
        code_in(worker, *slot);
        pthread_mutex_lock(&queue.mutex);
        slot->done = true;
        pthread_cond_signal(&queue.coded);
    }
    pthread_mutex_unlock(&queue.mutex);
    return nullptr;
}

// Takes over the context's memory if it returns true.
bool add_worker(BlockQueue &queue, const CoderContext &context) {
    const std::size_t room = slot_room(queue.block_size, queue.tries);
    Worker *const worker = static_cast<Worker *>(std::calloc(1, sizeof(Worker)));
    std::uint8_t *const data = static_cast<std::uint8_t *>(
        std::malloc(static_cast<std::size_t>(worker_bytes(queue.block_size, queue.tries))));
    if (worker != nullptr && data != nullptr) {
        worker->queue = &queue;
        worker->context = context;
        worker->trials = queue.tries ? data + 2 * room : nullptr;
        if (start_thread(worker->thread, work, worker)) {
            worker->next = queue.workers;
            queue.workers = worker;
            ++queue.worker_count;
            for (std::size_t i = 0; i < 2; ++i) {
                worker->slots[i].data = data + i * room;
                give_back(queue, &worker->slots[i]);
            }
            return true;
        }
    }
    std::free(data);
    std::free(worker);
    return false;
}

} // namespace

std::uint64_t worker_bytes(std::uint32_t block_size, bool tries) {
    return 2 * std::uint64_t{slot_room(block_size, tries)} + (tries ? trials_room(block_size) : 0);
}

bool open_queue(BlockQueue &queue, const Coder &coder, const CoderContext &first, bool tries,
                std::uint32_t max_workers) {
    queue.coder = &coder;
    queue.tries = tries;
    queue.model.settings = first.settings;
    queue.model.file_size = first.file_size;
    queue.block_size = block_size_of(first);
    queue.max_workers = max_workers;
    return add_worker(queue, first);
}

Slot *free_slot(BlockQueue &queue) {
    if (queue.under_way >= queue.worker_count && queue.worker_count < queue.max_workers) {
        CoderContext context = queue.model;
        if (queue.coder->alloc(context, queue.block_size) == 0) {
            queue.max_workers = queue.worker_count;
        } else if (!add_worker(queue, context)) {
            queue.coder->free(context);
            queue.max_workers = queue.worker_count;
        }
    }
    Slot *const slot = queue.free_slots;
    if (slot != nullptr) queue.free_slots = slot->next;
    return slot;
}

void submit(BlockQueue &queue, Slot *slot) {
    ++queue.under_way;
    pthread_mutex_lock(&queue.mutex);
    slot->done = false;
    slot->next = nullptr;
    if (queue.oldest == nullptr) {
        queue.oldest = slot;
    } else {
        queue.newest->next = slot;
    }
    queue.newest = slot;
    if (queue.waiting == nullptr) queue.waiting = slot;
    pthread_cond_signal(&queue.submitted);
    pthread_mutex_unlock(&queue.mutex);
}

void give_back(BlockQueue &queue, Slot *slot) {
    slot->next = queue.free_slots;
    queue.free_slots = slot;
}

Slot *oldest_done(BlockQueue &queue, bool wait) {
    pthread_mutex_lock(&queue.mutex);
    Slot *slot = queue.oldest;
    while (wait && slot != nullptr && !slot->done)
        pthread_cond_wait(&queue.coded, &queue.mutex);
    if (slot != nullptr && !slot->done) slot = nullptr;
    pthread_mutex_unlock(&queue.mutex);
    return slot;
}

void retire(BlockQueue &queue, Slot *slot) {
    --queue.under_way;
    queue.oldest = slot->next;
    give_back(queue, slot);
}

void close_queue(BlockQueue &queue) {
    pthread_mutex_lock(&queue.mutex);
    queue.closing = true;
    pthread_cond_broadcast(&queue.submitted);
    pthread_mutex_unlock(&queue.mutex);
    // Any worker may be at work on any other's slot.
    for (Worker *worker = queue.workers; worker != nullptr; worker = worker->next)
        pthread_join(worker->thread, nullptr);
    while (Worker *const worker = queue.workers) {
        queue.workers = worker->next;
        queue.coder->free(worker->context);
        std::free(worker->slots[0].data);
        std::free(worker);
    }
    pthread_cond_destroy(&queue.coded);
    pthread_cond_destroy(&queue.submitted);
    pthread_mutex_destroy(&queue.mutex);
}

} // namespace velk
