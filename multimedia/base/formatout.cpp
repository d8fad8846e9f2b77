#include "multimedia/base/formatout.h"

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/warning.h"

#include <QtCore/QFile>

#include <chrono>
#include <utility>

namespace multimedia {

namespace {
/// Between two reports of packets that wait for a header.
constexpr std::chrono::milliseconds kReportInterval(200);
/// A bit of the muxer's own flags, looked for in the context's.
constexpr int kGlobalHeaderBit = 0x40;
} // namespace

FormatHandle FormatOut::createFile(FileInfo info)
{
    const std::string path = info.path();
    QFile::remove(QString::fromStdString(path));
    AVFormatContext* context = nullptr;
    const int code = avformat_alloc_output_context2(&context, nullptr, nullptr, path.c_str());
    if (code < 0) {
        warning("createFile", "error in open file format", code);
        return {};
    }
    return {context, destory};
}

void FormatOut::destory(AVFormatContext* format)
{
    detail::OutputDeleter()(format);
}

FormatOut::FormatOut(Params params)
    : params(std::move(params))
    , input([this] { return run(); })
{}

FormatOut::~FormatOut()
{
    {
        std::lock_guard lock(input.mutex);
        closing = true;
        closed.notify_all();
    }
    input.finish();
    writeTrailer();
}

void FormatOut::writeHeader()
{
    if (header_written)
        return;
    AVFormatContext* context = getFormat();
    if (!context) {
        warning("writeHeader", "empty format");
        return;
    }
    if (context->flags & kGlobalHeaderBit)
        context->flags |= kGlobalHeaderBit;
    int code = avio_open(&context->pb, context->url, AVIO_FLAG_WRITE);
    if (code < 0) {
        warning("writeHeader", "error in open io", code);
        return;
    }
    code = avformat_write_header(context, nullptr);
    if (code < 0) {
        warning("writeHeader", "error in write header", code);
        avio_closep(&context->pb);
        return;
    }
    header_written = true;
}

void FormatOut::write(PacketHandle packet)
{
    input.push(std::move(packet));
}

bool FormatOut::run()
{
    if (!header_written) {
        warning("run", "empty format");
        return waitForHeader();
    }
    for (PacketHandle& packet : input.take()) {
        if (failed)
            break;
        const int code = av_interleaved_write_frame(getFormat(), packet.get());
        if (code >= 0)
            continue;
        warning("run", "error in write frame", code);
        if (getFormat()->pb->error < 0)
            fail();
    }
    return input.refilled();
}

void FormatOut::fail()
{
    failed = true;
    if (params.on_failure)
        params.on_failure();
}

bool FormatOut::waitForHeader()
{
    BlockingSection blocking;
    std::unique_lock lock(input.mutex);
    // Once the destructor runs there is no header to wait for.
    if (closed.wait_for(lock, kReportInterval, [this] { return closing; }))
        return false;
    lock.unlock();
    return input.refilled();
}

void FormatOut::writeTrailer()
{
    if (!isWriting() || std::exchange(trailer_written, true))
        return;
    const int code = av_write_trailer(getFormat());
    if (code >= 0)
        return;
    warning("writeTrailer", "error in write trailer", code);
    failed = true;
}

} // namespace multimedia
