#pragma once

/// @file
/// The end of Qt's sound at the end of the process.
///
/// Qt takes its connection to the sound server down when static objects are destroyed, and does not hold off
/// the thread that reads from it meanwhile: what the server still answers to a device that was closed just
/// before ends the process in an assertion. So whoever opens and closes devices says so here, from any
/// thread; at the exit they are closed before Qt's connection goes, and the answers get time to come.

namespace multimedia {

/// After a device was opened.
void soundHasOpened();
/// After a device was closed.
void soundHasClosed();

} // namespace multimedia
