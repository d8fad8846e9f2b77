#pragma once

struct AVFilterContext;
struct AVFilterGraph;

namespace multimedia {

/// Adds the filters that `text` describes to `graph` and links them between its two ends.
///
/// @param source  where the chain begins, a buffer source of `graph`
/// @param sink    where it ends, a buffer sink of `graph`
/// @return 0 or more, or FFmpeg's negative code
int parseGraph(AVFilterGraph* graph, const char* text, AVFilterContext* source, AVFilterContext* sink);

} // namespace multimedia
