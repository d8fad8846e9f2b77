#pragma once

/// @file
/// Where the build has put things. The paths stand in one compiled file that CMake writes, so that every
/// other source is the same in every clone, and a compiler's cache serves them all.

extern const char* const kMediaFolder;   ///< what the scripts in tests/media have made, a folder a subject
extern const char* const kDataFolder;    ///< tests/data
extern const char* const kRigFolder;     ///< tests/rig
extern const char* const kShotsFolder;   ///< where the host's test leaves pictures of its pages
extern const char* const kFaceModelTool; ///< the program that looks into a face model
extern const char* const kUnloadHost;    ///< the module that test_unload loads and closes
extern const char* const kMovingPicture; ///< the rig's moving picture
extern const char* const kWorkHost;      ///< the application that ends in the midst of its works
extern const char* const kRecordHost;    ///< the application that records until it ends
extern const char* const kStubPortal;    ///< the rig's portal; empty where PipeWire is not built in
