#include "api/block_queue.h"

#include "api/threads.h"
#include "api/trials.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace velk {

namespace {

std::uint32_t slot_room(std::uint32_t block_size, bool tries) {
    return tries ? results_room(block_size) : block_size + kBlockSlack;
}

void code(Worker &worker, Slot &slot, const std::uint8_t *data) {
    slot.results =
        code_blocks(*worker.queue->coder, worker.context, worker.trials, data, slot.blocks);
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
        code(worker, *slot, slot->data);
        if (slot->results != nullptr) {
            std::memcpy(slot->data, slot->results, slot->blocks.length);
            slot->results = slot->data;
        }
        pthread_mutex_lock(&queue.mutex);
        slot->done = true;
        pthread_cond_signal(&queue.coded);
        if (queue.notice.tell == nullptr) continue;
        pthread_mutex_unlock(&queue.mutex);
        queue.notice.tell(queue.notice.user);
        pthread_mutex_lock(&queue.mutex);
    }
    pthread_mutex_unlock(&queue.mutex);
    return nullptr;
}

// Takes over the context's memory if it returns true. worker: all zero.
bool set_up(BlockQueue &queue, Worker &worker, const CoderContext &context, bool alone) {
    const std::uint32_t room = slot_room(queue.block_size, queue.tries);
    const std::uint64_t bytes = worker_bytes(queue.block_size, queue.tries, alone);
    if (bytes != 0)
        worker.memory = static_cast<std::uint8_t *>(std::malloc(static_cast<std::size_t>(bytes)));
    if (bytes != 0 && worker.memory == nullptr) return false;
    worker.queue = &queue;
    worker.context = context;
    if (queue.tries) worker.trials = worker.memory + (alone ? 0 : 2 * std::size_t{room});
    if (!alone && !start_thread(worker.thread, work, &worker)) {
        std::free(worker.memory);
        return false;
    }
    worker.next = queue.workers;
    queue.workers = &worker;
    ++queue.worker_count;
    for (std::size_t i = 0; i < (alone ? 1 : 2); ++i) {
        worker.slots[i].data = alone ? context.buf_in : worker.memory + i * room;
        give_back(queue, &worker.slots[i]);
    }
    return true;
}

bool add_worker(BlockQueue &queue, const CoderContext &context) {
    Worker *const worker = static_cast<Worker *>(std::calloc(1, sizeof(Worker)));
    if (worker != nullptr && set_up(queue, *worker, context, false)) return true;
    std::free(worker);
    return false;
}

} // namespace

std::uint64_t worker_bytes(std::uint32_t block_size, bool tries, bool alone) {
    return (alone ? 0 : 2 * std::uint64_t{slot_room(block_size, tries)}) +
           (tries ? trials_room(block_size) : 0);
}

bool open_queue(BlockQueue &queue, const Coder &coder, const CoderContext &first, bool tries,
                std::uint32_t max_workers, const Notice &notice) {
    queue.coder = &coder;
    queue.tries = tries;
    queue.notice = notice;
    queue.model.settings = first.settings;
    queue.model.file_size = first.file_size;
    queue.block_size = block_size_of(first);
    queue.max_workers = max_workers;
    if (max_workers > 1 && add_worker(queue, first)) return true;
    queue.max_workers = 1;
    return set_up(queue, queue.own, first, true);
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

void submit(BlockQueue &queue, Slot *slot, const std::uint8_t *data) {
    const bool alone = is_alone(queue);
    if (alone) {
        code(queue.own, *slot, data);
    } else if (data != slot->data) {
        std::memcpy(slot->data, data, slot->blocks.length);
    }
    ++queue.under_way;
    pthread_mutex_lock(&queue.mutex);
    slot->done = alone;
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
    for (Worker *worker = queue.workers; worker != nullptr; worker = worker->next) {
        if (worker != &queue.own) pthread_join(worker->thread, nullptr);
    }
    while (Worker *const worker = queue.workers) {
        queue.workers = worker->next;
        queue.coder->free(worker->context);
        std::free(worker->memory);
        if (worker != &queue.own) std::free(worker);
    }
    pthread_cond_destroy(&queue.coded);
    pthread_cond_destroy(&queue.submitted);
    pthread_mutex_destroy(&queue.mutex);
    std::construct_at(&queue);
}

} // namespace velk
