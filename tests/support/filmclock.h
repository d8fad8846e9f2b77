#pragma once

#include <QtCore/QProcess>
#include <QtCore/QString>

#include <memory>
#include <vector>

/// @file
/// Reads the clock of the rig's moving picture, with its beeps, out of a recording.

namespace filmclock {

/// How the sound lies to the picture at one beep.
struct Offset
{
    double film_s = 0;   ///< where in the recording
    double offset_s = 0; ///< sound behind the picture
};

struct Player
{
    void operator()(QProcess* process) const;
};
using PlayerPtr = std::unique_ptr<QProcess, Player>; ///< ends its process

/// The moving picture, beeping, as a process that nothing else on the machine slows down. It shows its
/// picture when this returns; null if it does not start.
PlayerPtr play();

/// The number that each picture of a recording shows. The recording begins at the corner of the screen.
///
/// @param pixel_ratio  of the screen
std::vector<int> codes(const QString& recording, double pixel_ratio = 1);

/// When each beep begins, in seconds; the first one may have been cut.
std::vector<double> beeps(const QString& recording);

/// One entry for each beep near which the picture moves. The recording begins at the corner of the screen.
std::vector<Offset> offsets(const QString& recording);

/// The largest distance of two offsets; 0 for less than two.
double spread(const std::vector<Offset>& offsets);

} // namespace filmclock
