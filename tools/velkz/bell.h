// To wait for input and for the library's threads at once.
#pragma once

class Bell {
public:
    Bell();
    ~Bell();
    Bell(const Bell &) = delete;
    Bell &operator=(const Bell &) = delete;

    // By any thread.
    static void ring(void *bell);
    // Waits until the stream has bytes, or its end, to be read, or until it rings; false for that
    // alone. Where a system can't wait for both: true, at once.
    [[nodiscard]] bool wait_for_input(int fd);

private:
    int out_ = -1, in_ = -1; // of a pipe, if there is one
};
