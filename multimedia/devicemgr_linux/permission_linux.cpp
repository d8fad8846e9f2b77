#include "multimedia/devicemgr/permission.h"

#include "multimedia/base/screenlist.h"

namespace multimedia {

// The versions that are asked about are those of systems with a permission dialog.
bool checkVersion(int, int)
{
    return true;
}

bool requestAVCaptureDevicePermission(bool)
{
    return true;
}

bool checkCapturePermission(bool)
{
    return true;
}

bool checkScreenCapturePermission()
{
    return true;
}

void requestScreenCapturePermission() {}

int getVideoIndex(QScreen* screen)
{
    return ScreenList::instance().indexOf(screen);
}

} // namespace multimedia
