/** Locks of std::mutex that fail on demand; the linker puts them before the C library's own. */
#pragma once

namespace tovrel::test {

/** Lets the next locking of a mutex on this thread fail. */
void failNextLock();

} // namespace tovrel::test
