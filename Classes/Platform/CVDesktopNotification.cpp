#include "Platform/CVDesktopNotification.h"

#include "Platform/CVLog.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <atomic>

using namespace Qt::StringLiterals;

namespace {

std::atomic<bool> reportedMissingService { false };

} // namespace

void CVDesktopNotification::notify(const QString &summary, const QString &body, const QString &iconName)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        if (!reportedMissingService.exchange(true))
            CVLog::log(u"Desktop notifications cannot be shown: no session bus"_s);
        return;
    }
    const QString service = u"org.freedesktop.Notifications"_s;
    QDBusMessage call
        = QDBusMessage::createMethodCall(service, u"/org/freedesktop/Notifications"_s, service, u"Notify"_s);
    QVariantMap hints;
    hints.insert(u"desktop-entry"_s, u"org.corvana.Corvana"_s);
    hints.insert(u"category"_s, u"transfer.complete"_s);
    call.setArguments({ u"Corvana"_s, uint(0), iconName.isEmpty() ? u"org.corvana.Corvana"_s : iconName, summary, body,
        QStringList(), hints, int(-1) });
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher] {
        const QDBusPendingReply<uint> reply = *watcher;
        watcher->deleteLater();
        if (reply.isError() && !reportedMissingService.exchange(true))
            CVLog::log(u"Desktop notifications cannot be shown: %1"_s.arg(reply.error().message()));
    });
}
