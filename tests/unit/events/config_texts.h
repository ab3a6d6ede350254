/** Event filters and whole configurations as texts, for comparisons that read well. */
#pragma once

#include "events/publication_config.h"

#include <string>
#include <vector>

namespace tovrel::test {

/** Segments as "namespace|name", with "//." behind them when subtopics match. */
std::vector<std::string>
segmentTexts(const std::vector<std::pair<std::string, std::string>> &segments, bool matchSubtopics);

/** All that a filter holds, in one line. */
std::string filterText(const EventFilterConfig &filter);

/** The settings in one line, the flags as 0 and 1. */
std::string settingsText(const PublicationSettings &settings);

/** "id: filter" of each filter, in their order. */
std::vector<std::string> filterTexts(const PublicationConfig &config);

} // namespace tovrel::test
