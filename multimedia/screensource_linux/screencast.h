#pragma once

#include "multimedia/base/screenlist.h"

#include <QtCore/QObject>
#include <QtCore/QTimer>
#include <QtCore/QVariantMap>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

#include <cstdint>
#include <functional>
#include <string>

namespace multimedia {

/// The conversation with the desktop's portal (org.freedesktop.portal.ScreenCast): asks for one screen, with
/// the pointer in its picture where the desktop offers that, and watches over what was given.
///
/// Each step is a call that is answered by a signal; the last but one shows the user a dialog, unless a token
/// of an earlier time is still good. It has a connection to the session bus of its own: when that goes, with
/// this object, the portal closes the dialog and the session.
///
/// Lives on a thread with an event loop, and calls the callables there.
class ScreenCast : public QObject
{
    Q_OBJECT

public:
    struct Params
    {
        ScreenList::Screen screen;
        /// The user has chosen: a connection to PipeWire, which belongs to whoever is called, and a node of
        /// it.
        std::function<void(int descriptor, uint32_t node)> on_shared;
        /// It was refused, or has been taken away. Comes once.
        std::function<void(const std::string& why)> on_end;
    };

    explicit ScreenCast(Params params);
    ~ScreenCast() override;

    /// Once.
    void ask();

private Q_SLOTS:
    void onResponse(uint code, const QVariantMap& results);
    void onSessionClosed();
    void onBusLost();

private:
    using Then = std::function<void(const QDBusMessage& reply)>;
    using ThenResults = std::function<void(uint code, const QVariantMap& results)>;

    void readFacts();
    void createSession();
    void selectSources();
    void start();
    void onStarted(const QVariantMap& results);
    void openRemote(uint32_t node);

    void call(const QString& interface, const QString& method, const QVariantList& arguments,
              const Then& then);
    void request(const QString& method, QVariantList arguments, QVariantMap options, const ThenResults& then);
    QVariant session() const;
    void end(const std::string& why);

    const Params params;
    const QString name; ///< of the connection, and the tokens of what is asked by it
    QDBusConnection bus;
    QTimer deadline; ///< of an answer that needs no user
    ThenResults awaited;
    QString request_path;
    QString session_path;
    QString token; ///< of an earlier choice; empty without one
    uint version = 0;
    uint cursor_modes = 0;
    int requests = 0;
    bool has_ended = false;
};

} // namespace multimedia
