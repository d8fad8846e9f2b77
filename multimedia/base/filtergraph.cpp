#include "multimedia/base/filtergraph.h"

#include "multimedia/base/ffmpegptr.h"

namespace multimedia {

namespace {
FilterInOutPtr makeEnd(AVFilterContext* filter)
{
    FilterInOutPtr end(avfilter_inout_alloc());
    if (!end)
        return end;
    end->name = av_strdup(filter->name);
    end->filter_ctx = filter;
    end->pad_idx = 0;
    end->next = nullptr;
    return end;
}
} // namespace

int parseGraph(AVFilterGraph* graph, const char* text, AVFilterContext* source, AVFilterContext* sink)
{
    // Seen from the text: what comes out of the source goes into its first filter.
    FilterInOutPtr outputs = makeEnd(source);
    FilterInOutPtr inputs = makeEnd(sink);
    if (!outputs || !inputs)
        return AVERROR(ENOMEM);
    // The parser takes what it links out of the lists, and leaves the rest.
    AVFilterInOut* open_outputs = outputs.release();
    AVFilterInOut* open_inputs = inputs.release();
    const int code = avfilter_graph_parse_ptr(graph, text, &open_inputs, &open_outputs, nullptr);
    outputs.reset(open_outputs);
    inputs.reset(open_inputs);
    return code;
}

} // namespace multimedia
