#pragma once

#include "multimedia/screenrecord/screengrabber.h"

namespace multimedia {

/// A grabber with the means to run the steps that `start` and `stop` prepare, and leave at that.
class MULTIMEDIA_EXPORT SteppedGrabber : public ScreenGrabber
{
public:
    using ScreenGrabber::ScreenGrabber;

    /// Runs the step: on the owner's thread, once after each command that was taken.
    void step();
};

} // namespace multimedia
