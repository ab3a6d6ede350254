/**
 * Puts something of the test's into the gaps between two steps of the code under test, so that an
 * interleaving of threads is scripted instead of hoped for. Each hook runs once, on the thread that
 * set it, and is then forgotten. Linked by wrapping functions (see CMakeLists.txt).
 */
#pragma once

#include <functional>

namespace tovrel::test {

/** Runs `hook` right after the next unlocking of a mutex on this thread. */
void afterNextUnlock(std::function<void()> hook);

/** Runs `hook` when a main loop is next run on this thread, right before it starts. */
void beforeNextLoop(std::function<void()> hook);

/** Runs `hook` right after the next main loop on this thread has ended. */
void afterNextLoop(std::function<void()> hook);

} // namespace tovrel::test
