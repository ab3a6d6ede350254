/** What a benchmark with real processes finds in scripts/sandbox --no-service, and in the machine.
 */
#pragma once

#include <sys/types.h>

#include <string>

namespace benchmarks {

/** A variable of the sandbox; throws std::runtime_error when this does not run in one. */
std::string fromSandbox(const char *name);

/** Number of the process of one of the sandbox's services: "bus", "broker", "eventd", "deviced". */
pid_t processOfSandbox(const std::string &service);

/** Writes a file whole; throws std::runtime_error when that fails. */
void writeFile(const std::string &path, const std::string &text);

/** A line that says how many processors there are, and how busy. */
std::string machineLine();

} // namespace benchmarks
