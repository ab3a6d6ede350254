/** System calls of the objects under test that fail, fall short or stop when a test says so. */
#pragma once

#include <functional>

/** The system calls that can be disturbed. */
enum class Call {
    OPEN,
    OPENAT,
    FLOCK,
    FSTAT,
    WRITE,
    FCHMOD,
    FSYNC,
    CLOSE,
    RENAMEAT2,
    RENAMEAT,
    UNLINKAT
};

/**
 * Disturbs the system calls that the thread of its making makes, for its own life. Occurrences are
 * counted from 1 since its making. One at a time for each thread.
 */
class Faults {
public:
    Faults();
    ~Faults();
    Faults(const Faults &) = delete;
    Faults &operator=(const Faults &) = delete;

    /** The call of this occurrence is not made and gives -1 with errno `code`. */
    void fail(Call call, int occurrence, int code);
    /** Every call from this occurrence on is not made and gives -1 with errno `code`. */
    void failFrom(Call call, int occurrence, int code);
    /** Each write takes this many bytes at most. */
    void shortenWrites(std::size_t most);
    /** Runs `action` before the call of this occurrence. */
    void before(Call call, int occurrence, std::function<void()> action);
    /** How often the call was made so far. */
    [[nodiscard]] int count(Call call) const;

    struct State;

private:
    State *state;
};

/** How many attempts at locking any thread of the process has made so far. */
int lockAttempts();
