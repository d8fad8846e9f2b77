#include "multimedia/imageedit/imageedittask.h"

#include "multimedia/base/picturefile.h"
#include "multimedia/imageedit/editdescription.h"

#include <utility>

namespace ImageEdit {

using namespace multimedia;

namespace {
constexpr int kDone = 0;
constexpr int kCancelled = 1;
constexpr int kFailed = 2;
} // namespace

ImageEditTask::ImageEditTask(EditFileFilterPtr filter)
    : filter(std::move(filter))
    , cancelled(std::make_shared<std::atomic<bool>>(false))
{}

void ImageEditTask::run()
{
    Q_EMIT editFinish(filter, edit());
}

int ImageEditTask::edit()
{
    if (*cancelled)
        return kCancelled;
    const EditDescription description(filter->editInfo);
    QImage image;
    if (description.usesMaskPhoto()) {
        // The blurred picture is taken whole here, neither cropped nor limited in size.
        image = loadImage(description.mask_photo_path);
    } else {
        PictureReader reader(filter->file->filePath());
        image = description.readCropped(reader);
    }
    image = description.applied(std::move(image));

    if (*cancelled)
        return kCancelled;
    if (saveImage(image, filter->savePath, *cancelled))
        return kDone;
    return *cancelled ? kCancelled : kFailed;
}

} // namespace ImageEdit
