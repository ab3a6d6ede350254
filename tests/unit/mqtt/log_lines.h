/** Lines as the service logs them. */
#pragma once

#include "fakes/log_capture.h"
#include "interfaces/log.h"

#include <string>
#include <vector>

namespace tovrel::test {

using Lines = std::vector<LogLine>;
using Calls = std::vector<std::string>;

inline LogLine failureLine(const std::string &text)
{
    return {LOG_LEVEL_FAILURE, text};
}

inline LogLine warningLine(const std::string &text)
{
    return {LOG_LEVEL_WARN, text};
}

inline LogLine progressLine(const std::string &text)
{
    return {LOG_LEVEL_PROGRESS, text};
}

} // namespace tovrel::test
