#include "multimedia/videoeditor/videoclipthread.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/resultfile.h"
#include "multimedia/base/rotation.h"
#include "multimedia/base/warning.h"
#include "multimedia/videoeditor/pictureorder.h"
#include "quillon/util.h"

#include <QtCore/QFile>

#include <algorithm>
#include <cstdio>
#include <filesystem>

using namespace multimedia;

namespace {
constexpr int64_t kFirstStepBack_us = 1'000'000;

bool isSameFile(const std::string& first, const std::string& second)
{
    std::error_code error;
    return std::filesystem::equivalent(first, second, error);
}
} // namespace

VideoClipThread::VideoClipThread()
{
    qRegisterMetaType<EditFileFilterPtr>("EditFileFilterPtr");
}

VideoClipThread::~VideoClipThread()
{
    cancelClip();
    wait();
}

bool VideoClipThread::startClip(EditFileFilterPtr filter, bool sync)
{
    m_srcPath = filter && filter->file ? Util::toLocalFile(filter->file->filePath()) : QString();
    if (!QFile::exists(m_srcPath)) {
        warning("startClip", "no such file: " + m_srcPath.toStdString());
        Q_EMIT clipFinish(filter, kFailed);
        return false;
    }
    m_startTime = filter->editInfo.value(QStringLiteral("startTime")).toLongLong();
    m_endTime = filter->editInfo.value(QStringLiteral("endTime")).toLongLong();
    m_dstPath = filter->savePath;
    if (m_startTime < 0 || m_startTime > m_endTime || m_dstPath.isEmpty()) {
        warning("startClip", "times out of range or no target");
        Q_EMIT clipFinish(filter, kFailed);
        return false;
    }
    m_filter = filter;
    begin(sync);
    return true;
}

bool VideoClipThread::startClip(const QString& src, const QString& dst, long long start, long long end,
                                bool sync)
{
    m_srcPath = src;
    m_dstPath = dst;
    m_startTime = start;
    m_endTime = end;
    begin(sync);
    return true;
}

void VideoClipThread::begin(bool sync)
{
    // Not left to the thread, which would undo a cancel that comes before it runs.
    m_running = true;
    if (sync)
        clip();
    else
        start(QThread::InheritPriority);
}

void VideoClipThread::cancelClip()
{
    m_running = false;
}

int VideoClipThread::isCancelled(void* clip)
{
    return !static_cast<VideoClipThread*>(clip)->m_running;
}

void VideoClipThread::run()
{
    clip();
}

void VideoClipThread::clip()
{
    if (openSource() && openTarget() && seekToStart() && copyPackets() && m_running && finishTarget())
        end(kDone);
    else if (!m_running)
        end(kCancelled);
    else
        clipError();
}

bool VideoClipThread::openSource()
{
    const std::string path = m_srcPath.toStdString();
    SourceOptions options;
    options.cancelled = {isCancelled, this};
    options.completes_times = true;
    int code = m_source.open(path, options);
    if (code < 0) {
        warning("clip", "error in open source", code);
        return false;
    }
    if (m_source.findStreams() < 0)
        std::puts("failed to find stream info");
    av_dump_format(m_source.format(), 0, path.c_str(), 0);
    code = m_source.select(AVMEDIA_TYPE_VIDEO);
    if (code < 0) {
        warning("clip", "error in find video", code);
        return false;
    }
    m_order = std::make_unique<PictureOrder>(m_source);
    if (m_source.isInterrupted()) {
        warning("clip", "source takes too long");
        return false;
    }
    m_source.limitTime({});
    return true;
}

bool VideoClipThread::openTarget()
{
    const std::string path = m_dstPath.toStdString();
    AVFormatContext* context = nullptr;
    const int code = avformat_alloc_output_context2(&context, nullptr, nullptr, path.c_str());
    m_outputContext.reset(context);
    if (code < 0) {
        warning("clip", "error in open target format", code);
        return false;
    }
    if (context->oformat->flags & AVFMT_NOFILE) {
        warning("clip", "target format is no single file");
        return false;
    }
    const AVFormatContext& input = *m_source.format();
    m_targetIndex.assign(input.nb_streams, -1);
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        if (!isSupportStreamType(input.streams[i]->codecpar->codec_type))
            continue;
        m_targetIndex[i] = int(context->nb_streams);
        if (!addStream(*input.streams[i])) {
            warning("clip", "error in add stream");
            return false;
        }
    }
    if (isSameFile(m_srcPath.toStdString(), path)) {
        warning("clip", "target is the source");
        return false;
    }
    return beginFile();
}

bool VideoClipThread::beginFile()
{
    m_result = std::make_unique<ResultFile>(m_dstPath.toStdString());
    int code = m_result->openFor(*m_outputContext);
    if (code < 0) {
        warning("clip", "error in open target", code);
        return false;
    }
    code = avformat_write_header(m_outputContext.get(), nullptr);
    if (code < 0) {
        warning("clip", "error in write header", code);
        return false;
    }
    return true;
}

bool VideoClipThread::addStream(AVStream& source)
{
    AVStream* target = avformat_new_stream(m_outputContext.get(), nullptr);
    if (!target || copyParameters(*target, source) < 0)
        return false;
    target->codecpar->codec_tag = 0;
    target->time_base = source.time_base;
    const AVRational aspect = av_guess_sample_aspect_ratio(m_source.format(), &source, nullptr);
    target->sample_aspect_ratio = target->codecpar->sample_aspect_ratio = aspect;
    const auto rotation = rotateTag(source);
    return !rotation || setRotation(*target, *rotation);
}

bool VideoClipThread::isSupportStreamType(int type)
{
    return type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO || type == AVMEDIA_TYPE_SUBTITLE;
}

bool VideoClipThread::seekToStart()
{
    const auto start_us = int64_t(double(m_startTime) * 0.001 * AV_TIME_BASE);
    int64_t target_us = start_us;
    for (int64_t step_us = kFirstStepBack_us;; step_us *= 2) {
        if (!seek(target_us))
            return false;
        const bool found = findKeyFrame();
        if (!seek(target_us))
            return false;
        if (found || target_us <= 0 || !m_running)
            return true;
        target_us = std::max<int64_t>(0, start_us - step_us);
    }
}

bool VideoClipThread::seek(int64_t target_us)
{
    const int code = av_seek_frame(m_source.format(), -1, target_us, AVSEEK_FLAG_BACKWARD);
    if (code < 0)
        warning("clip", "error in seek", code);
    return code >= 0;
}

/// Containers without an index (MPEG-TS) are sought by time alone: there the copy begins at the last key
/// frame that is found between the place that was sought and the start.
bool VideoClipThread::findKeyFrame()
{
    const AVRational time_base = m_source.stream()->time_base;
    const PacketHandle packet = createPacket();
    bool first = true;
    for (; packet && m_source.read(*packet) >= 0; av_packet_unref(packet.get())) {
        if (packet->stream_index != m_source.streamIndex())
            continue;
        const bool key = packet->flags & AV_PKT_FLAG_KEY;
        if (first && key)
            return true;
        first = false;
        if (packet->pts == AV_NOPTS_VALUE || packet->dts == AV_NOPTS_VALUE)
            continue;
        if (double(packet->pts) * av_q2d(time_base) > double(m_startTime) * 0.001)
            break;
        if (key)
            m_firstTime = packet->dts;
    }
    return m_firstTime != AV_NOPTS_VALUE;
}

/// False when there is more that could not be had. Damage is left out, and what is missing at the end of a
/// file was never there.
bool VideoClipThread::copyPackets()
{
    const PacketHandle packet = createPacket();
    int code = packet ? 0 : AVERROR(ENOMEM);
    for (; code >= 0 && (code = m_source.read(*packet)) >= 0; av_packet_unref(packet.get())) {
        if (targetIndex(*packet) < 0)
            continue;
        if (packet->stream_index == m_source.streamIndex())
            m_order->complete(*packet);
        if (packet->pts == AV_NOPTS_VALUE || isBeforeStart(*packet))
            continue;
        if (isBeyondEnd(*packet))
            return true;
        writePacket(*packet);
        code = m_outputContext->pb->error;
    }
    if (code == AVERROR_EOF || code == AVERROR_INVALIDDATA)
        return true;
    warning("clip", "error in copy packets", code);
    return false;
}

int VideoClipThread::targetIndex(const AVPacket& packet) const
{
    // A stream may turn up in the middle of the file.
    return size_t(packet.stream_index) < m_targetIndex.size() ? m_targetIndex[packet.stream_index] : -1;
}

bool VideoClipThread::isBeforeStart(const AVPacket& packet) const
{
    if (m_firstTime == AV_NOPTS_VALUE)
        return false;
    return av_compare_ts(packet.dts, sourceStream(packet).time_base, m_firstTime,
                         m_source.stream()->time_base) < 0;
}

bool VideoClipThread::isBeyondEnd(const AVPacket& packet) const
{
    const AVRational time_base = sourceStream(packet).time_base;
    return double(m_endTime) * 0.001 < double(packet.pts) * av_q2d(time_base);
}

/// Matroska has no decoding times. FFmpeg derives them, but not those of the first pictures after a seek, as
/// many as the decoder reorders.
int64_t VideoClipThread::completeTimes(AVPacket& packet)
{
    auto times = m_times.find(packet.stream_index);
    const bool first = times == m_times.end();
    if (first)
        times = m_times.insert(packet.stream_index, {0, std::max<int64_t>(packet.duration, 1), 0});
    if (packet.dts == AV_NOPTS_VALUE) {
        const int delay = sourceStream(packet).codecpar->video_delay;
        packet.dts = first ? packet.pts - delay * times->step : times->last_dts + times->step;
    }
    if (first)
        times->first_dts = packet.dts;
    times->last_dts = packet.dts;
    return times->first_dts;
}

void VideoClipThread::writePacket(AVPacket& packet)
{
    const int64_t first = completeTimes(packet);
    const AVRational from = sourceStream(packet).time_base;
    packet.stream_index = targetIndex(packet);
    const AVRational to = m_outputContext->streams[packet.stream_index]->time_base;
    const auto rounding = AVRounding(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX);
    packet.pts = av_rescale_q_rnd(packet.pts - first, from, to, rounding);
    packet.dts = av_rescale_q_rnd(packet.dts - first, from, to, rounding);
    packet.duration = int32_t(av_rescale_q(packet.duration, from, to));
    packet.pos = -1;
    if (packet.pts < packet.dts)
        return;
    const int code = av_interleaved_write_frame(m_outputContext.get(), &packet);
    if (code < 0)
        warning("clip", "error in write frame", code);
}

bool VideoClipThread::finishTarget()
{
    int code = av_write_trailer(m_outputContext.get());
    if (code >= 0)
        code = m_result->commit(*m_outputContext);
    m_result.reset();
    if (code < 0)
        warning("clip", "error in write trailer", code);
    return code >= 0;
}

void VideoClipThread::clipError()
{
    end(kFailed);
}

void VideoClipThread::end(Code code)
{
    resetCtx(code == kDone);
    m_ended = true;
    Q_EMIT clipFinish(m_filter, code);
}

void VideoClipThread::resetCtx(bool keepFile)
{
    m_order.reset();
    m_source.close();
    m_outputContext.reset();
    if (keepFile && m_result)
        m_result->commit();
    m_result.reset();
    m_running = false;
}

QString VideoClipThread::getFileId() const
{
    return m_filter && m_filter->file ? m_filter->file->fileId() : QString();
}
