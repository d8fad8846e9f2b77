#pragma once

#include "multimedia/multimedia_global.h"
#include "multimedia/screenrecord/screengrabber.h"

namespace multimedia {

/// Runs the step that `ScreenGrabber::start` or `stop` has prepared.
///
/// The two commands make the step and leave it at that; whoever drives a grabber runs it by this, on the
/// owner's thread, once after each command that was taken.
class MULTIMEDIA_EXPORT ScreenGrabberStep
{
public:
    static void run(ScreenGrabber& grabber);
};

} // namespace multimedia
