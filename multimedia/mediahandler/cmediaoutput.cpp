#include "multimedia/mediahandler/cmediaoutput.h"

#include "multimedia/base/resultfile.h"
#include "multimedia/mediahandler/mediaerror.h"

using namespace multimedia;

int CMediaOutput::setOutput(const QString& output)
{
    if (output.isEmpty())
        return mediaError(AVERROR(EINVAL));
    path = output;
    return 0;
}

int CMediaOutput::addStream(AVCodecID id, int& index)
{
    if (path.isEmpty())
        return mediaError(AVERROR(EINVAL));
    if (!context) {
        AVFormatContext* made = nullptr;
        const int result = avformat_alloc_output_context2(&made, nullptr, nullptr, path.toUtf8().constData());
        if (result < 0)
            return mediaError(result);
        context.reset(made);
    }
    const AVCodec* codec = avcodec_find_encoder(id);
    if (!codec)
        return mediaError(AVERROR(EINVAL));
    const AVStream* added = avformat_new_stream(context.get(), codec);
    if (!added)
        return mediaError(AVERROR(ENOMEM));
    index = added->index;
    return 0;
}

AVStream* CMediaOutput::stream(unsigned int index) const
{
    return context && index < context->nb_streams ? context->streams[index] : nullptr;
}

int CMediaOutput::setParam(unsigned int index, const AVCodecParameters* parameters)
{
    AVStream* target = stream(index);
    if (!target || !parameters)
        return mediaError(AVERROR(EINVAL));
    const int result = avcodec_parameters_copy(target->codecpar, parameters);
    return result < 0 ? mediaError(result) : 0;
}

int CMediaOutput::setParam(unsigned int index, const AVCodecContext* encoder)
{
    AVStream* target = stream(index);
    if (!target || !encoder)
        return mediaError(AVERROR(EINVAL));
    const int result = avcodec_parameters_from_context(target->codecpar, encoder);
    return result < 0 ? mediaError(result) : 0;
}

int CMediaOutput::getTimeBase(int index, AVRational& timeBase) const
{
    const AVStream* source = stream(unsigned(index));
    if (!source)
        return -1;
    timeBase = source->time_base;
    return 0;
}

int CMediaOutput::open()
{
    if (!context || path.isEmpty())
        return mediaError(AVERROR(EINVAL));
    makePrivateFile(path.toStdString());
    int result = avio_open2(&context->pb, path.toUtf8().constData(), AVIO_FLAG_WRITE, nullptr, nullptr);
    if (result < 0)
        return mediaError(result);
    result = avformat_write_header(context.get(), nullptr);
    if (result < 0) {
        avio_closep(&context->pb);
        return mediaError(result);
    }
    opened = true;
    return 0;
}

int CMediaOutput::write(AVPacket* packet)
{
    // The failed `open` has been logged: not once more for every packet.
    if (!packet || !opened)
        return AVERROR(EINVAL);
    const int result = av_interleaved_write_frame(context.get(), packet);
    return result < 0 ? mediaError(result) : 0;
}

void CMediaOutput::close()
{
    if (!opened)
        return;
    opened = false;
    int result = av_write_trailer(context.get());
    if (result < 0) {
        mediaError(result);
        return;
    }
    result = avio_closep(&context->pb);
    if (result < 0) {
        mediaError(result);
        return;
    }
    context.reset();
    audio_index = kNoStream;
    video_index = kNoStream;
}
