#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/buffer.h>
#include <libavutil/dict.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <memory>
#include <utility>

/// @file
/// Owners of the FFmpeg objects that stay inside one class. Objects that travel between stages are handles,
/// see mediahandle.h.

namespace multimedia {

namespace detail {
struct CodecContextDeleter
{
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct CodecParametersDeleter
{
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};
struct SwsContextDeleter
{
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};
struct SwrContextDeleter
{
    void operator()(SwrContext* context) const { swr_free(&context); }
};
struct FilterGraphDeleter
{
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
struct FilterInOutDeleter
{
    void operator()(AVFilterInOut* list) const { avfilter_inout_free(&list); }
};
/// Frees what a `MediaSource` has hung on the input, too.
struct InputDeleter
{
    void operator()(AVFormatContext* context) const;
};
/// Closes the file, too. Whatever the file's last buffer could not be written is lost silently here: a caller
/// who has to know closes it by `avio_closep` before.
struct OutputDeleter
{
    void operator()(AVFormatContext* context) const
    {
        if (!(context->oformat->flags & AVFMT_NOFILE))
            avio_closep(&context->pb);
        avformat_free_context(context);
    }
};
struct IoContextDeleter
{
    void operator()(AVIOContext* context) const { avio_close(context); }
};
/// Buffers that are still out go with their last reference.
struct BufferPoolDeleter
{
    void operator()(AVBufferPool* pool) const { av_buffer_pool_uninit(&pool); }
};
struct BufferDeleter
{
    void operator()(uint8_t* buffer) const { av_free(buffer); }
};
} // namespace detail

using CodecContextPtr = std::unique_ptr<AVCodecContext, detail::CodecContextDeleter>;
using CodecParametersPtr = std::unique_ptr<AVCodecParameters, detail::CodecParametersDeleter>;
using SwsContextPtr = std::unique_ptr<SwsContext, detail::SwsContextDeleter>;
using SwrContextPtr = std::unique_ptr<SwrContext, detail::SwrContextDeleter>;
using FilterGraphPtr = std::unique_ptr<AVFilterGraph, detail::FilterGraphDeleter>;
using FilterInOutPtr = std::unique_ptr<AVFilterInOut, detail::FilterInOutDeleter>;
using InputPtr = std::unique_ptr<AVFormatContext, detail::InputDeleter>;
using OutputPtr = std::unique_ptr<AVFormatContext, detail::OutputDeleter>;
using IoContextPtr = std::unique_ptr<AVIOContext, detail::IoContextDeleter>;
using BufferPoolPtr = std::unique_ptr<AVBufferPool, detail::BufferPoolDeleter>;
/// Bytes from `av_malloc`.
using BufferPtr = std::unique_ptr<uint8_t, detail::BufferDeleter>;

/// An `AVDictionary` that frees itself.
class Dictionary
{
public:
    Dictionary() = default;
    ~Dictionary() { av_dict_free(&dictionary); }
    Dictionary(const Dictionary&) = delete;
    Dictionary& operator=(const Dictionary&) = delete;

    /// Result of `av_dict_set`: negative on failure.
    int set(const char* key, const char* value) { return av_dict_set(&dictionary, key, value, 0); }
    /// For the calls that take entries out of the dictionary.
    AVDictionary** address() { return &dictionary; }
    const AVDictionary* get() const { return dictionary; }
    /// For the calls that take it over.
    AVDictionary* release() { return std::exchange(dictionary, nullptr); }

private:
    AVDictionary* dictionary = nullptr;
};

} // namespace multimedia
