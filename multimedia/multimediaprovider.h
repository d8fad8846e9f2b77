#pragma once

#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/devicemgr/devicemgr.h"
#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/multimedia_global.h"

#include <QtCore/QObject>

class QQmlEngine;

/// The one thing a host has to know to switch the library on.
///
/// The host makes its `QQmlEngine`, calls `registType` before it loads any QML that names the module
/// `Quillon` 1.0, and `unregist` after the last use. Nothing else starts the library: every singleton behind
/// the provider comes to life when it is first asked for. The object itself lives until the process ends.
///
/// Main thread only.
class MULTIMEDIA_EXPORT MultimediaProvider : public QObject
{
    Q_OBJECT
    Q_PROPERTY(RecordEngine* recordEngine READ recordEngine CONSTANT)
    Q_PROPERTY(DeviceManager::DeviceMgr* deviceMgr READ deviceMgr CONSTANT)
    Q_PROPERTY(ImageEdit::ImageEditProvider* imageEditHandler READ imageEditHandler CONSTANT)

public:
    static MultimediaProvider& instance();

    /// Registers the library's types and sets the context property "MultimediaProvider" of `engine`, which
    /// must outlive its QML. May be called again with another engine.
    static void registType(QQmlEngine& engine);
    static void unregist();

    RecordEngine* recordEngine() const;
    DeviceManager::DeviceMgr* deviceMgr() const;
    ImageEdit::ImageEditProvider* imageEditHandler() const;

private:
    MultimediaProvider() = default;
};
