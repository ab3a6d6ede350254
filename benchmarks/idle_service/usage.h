/** What the kernel says of a process. */
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

/** Memory of a process, in KiB, and how many shared libraries are in it. */
struct Memory {
    long rss = 0;
    long pss = 0;
    long privateKib = 0;
    long anonymous = 0;
    long libraries = 0;
};

/** Memory of a process now. */
Memory memoryOf(pid_t process);

/** How often each thread has gone to sleep by itself so far, under "name number". */
std::map<std::string, long> wakeUpsOf(pid_t process);

/** By how much each count has grown, for those that have. */
std::map<std::string, long> difference(std::map<std::string, long> after,
                                       const std::map<std::string, long> &before);
