/** A process that saves a file under strace, which makes one of its system calls fail or kills it.
 */
#pragma once

#include "saved_file.h"

#include <ostream>
#include <string>
#include <vector>

/** One system call of a save, as strace shows it. */
struct TracedStep {
    const char *name;
    /** Name of the system call. */
    const char *call;
    /** Regular expression that the arguments match, descriptors shown with their paths. */
    const char *arguments;
    /** Whether a kill at the beginning of this step leaves a temporary file. */
    bool leavesFile;
};

/** Shows a step in the name of a test. */
inline std::ostream &operator<<(std::ostream &out, const TracedStep &step)
{
    return out << step.name;
}

/** How a process ended. */
struct Ending {
    int status;
    std::string errorText;
};

/** What the process of a save writes: long enough for several pages. */
std::string newContent();

/** Saves newContent() in a process of its own with this umask (octal). */
Ending save(const SavedFile &file, const std::string &umask = "022");

/** Sweeps the temporary files in a process of its own. */
Ending sweep(const SavedFile &file);

/**
 * Saves newContent() under strace, which does `action` ("error=EIO", "signal=SIGKILL") at the
 * step. `likeness` is in the same state as the file: a save of it shows how often the process
 * makes that system call before the step. Throws std::runtime_error when there is no such step.
 */
Ending saveWithFault(const SavedFile &file, const SavedFile &likeness, const TracedStep &step,
                     const std::string &action, const std::string &umask = "022");
