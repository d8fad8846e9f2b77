#include "multimedia/audioplayer/tempofilter.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/filtergraph.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/opt.h>
}

#include <QtCore/QLoggingCategory>
#include <QtCore/QString>

#include <array>
#include <cinttypes>

namespace multimedia {

namespace {
constexpr double kFastestStage = 2.0;

/// What a frame of the decoder is, in the words of `abuffer`.
QByteArray sourceArguments(const AVCodecContext& codec, AVRational time_base)
{
    return QString::asprintf("time_base=%d/%d:sample_rate=%d:sample_fmt=%s:channel_layout=0x%08" PRIx64,
                             time_base.num, time_base.den, codec.sample_rate,
                             av_get_sample_fmt_name(codec.sample_fmt), channelMask(codec))
        .toLatin1();
}

/// One stage of `atempo` takes at most 2.0. Above that the host's scale goes on with the second stage alone:
/// the remainder is a difference, not a quotient.
QByteArray description(double speed)
{
    const QString text =
        speed <= kFastestStage
            ? QStringLiteral("aresample=44100,aformat=sample_fmts=s16:channel_layouts=stereo,atempo=%1")
                  .arg(speed)
            : QStringLiteral(
                  "aresample=44100,aformat=sample_fmts=s16:channel_layouts=stereo,atempo=2.0,atempo=%1")
                  .arg(speed - kFastestStage);
    return text.toLatin1();
}

/// Has `sink` deliver 16-bit stereo at 44100 Hz.
int setSinkFormat(AVFilterContext* sink)
{
    constexpr std::array<int, 2> kFormats{AV_SAMPLE_FMT_S16, -1};
    constexpr std::array<int, 2> kRates{44100, -1};
    int code = av_opt_set(sink, "ch_layouts", "stereo", AV_OPT_SEARCH_CHILDREN);
    if (code >= 0)
        code = av_opt_set_int_list(sink, "sample_fmts", kFormats.data(), -1, AV_OPT_SEARCH_CHILDREN);
    if (code >= 0)
        code = av_opt_set_int_list(sink, "sample_rates", kRates.data(), -1, AV_OPT_SEARCH_CHILDREN);
    return code;
}
} // namespace

bool TempoFilter::open(const AVCodecContext& codec, AVRational time_base, double speed)
{
    graph.reset(avfilter_graph_alloc());
    if (!graph)
        return false;

    const QByteArray arguments = sourceArguments(codec, time_base);
    qCDebug(MultimediaCategoryLogging, "%s", arguments.constData());
    int code = avfilter_graph_create_filter(&source, avfilter_get_by_name("abuffer"), "in",
                                            arguments.constData(), nullptr, graph.get());
    if (code < 0)
        return false;
    code = avfilter_graph_create_filter(&sink, avfilter_get_by_name("abuffersink"), "out", nullptr, nullptr,
                                        graph.get());
    if (code < 0) {
        qCDebug(MultimediaCategoryLogging, "init filter failed2");
        return false;
    }
    if (setSinkFormat(sink) < 0) {
        qCDebug(MultimediaCategoryLogging, "av_opt_set_int_list failed");
        return false;
    }
    code = parseGraph(graph.get(), description(speed).constData(), source, sink);
    return code >= 0 && avfilter_graph_config(graph.get(), nullptr) >= 0;
}

void TempoFilter::close()
{
    graph.reset();
}

bool TempoFilter::push(AVFrame* frame)
{
    return av_buffersrc_add_frame(source, frame) >= 0;
}

bool TempoFilter::pull(AVFrame* frame)
{
    return av_buffersink_get_frame(sink, frame) >= 0;
}

} // namespace multimedia
